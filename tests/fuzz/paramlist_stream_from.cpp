// Feeds arbitrary bytes to CCmParameterList::StreamFrom, then streams whatever was parsed
// (also after a partial parse) and parses that again: the second parse must succeed and
// give a list of the same size.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "cmutil/buffer/CmParameterList.h"
#include "fuzz/FuzzQuietTrace.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  cm_fuzz_quiet_trace();
  if (size > 1 << 20) return 0;
  const unsigned int len = static_cast<unsigned int>(size);
  CCmMessageBlock in(len, nullptr, 0, 0);
  if (len) in.Write(data, len);

  CCmParameterList list;
  CCmByteStreamNetwork is(in);
  (void)list.StreamFrom(is);

  // Index 0 entries cannot be streamed; take them out before writing the list back.
  list.RemoveParameter(0);
  // A string of 65535 bytes is written as a bare tag (its length does not fit): such a
  // list does not survive the round trip, by design.
  for (const auto& entry : list.GetParameters()) {
    const char* s = nullptr;
    if (entry.second->GetValue().GetType() == CM_DATA_STRING && entry.second->GetValue().Get(s) == CM_OK && s &&
        std::strlen(s) >= 65535)
      return 0;
  }
  unsigned int need = 0;
  if (list.GetStreamLength(need) != CM_OK) __builtin_trap();
  CCmMessageBlock out(need);
  CCmByteStreamNetwork os(out);
  if (list.StreamTo(os) != CM_OK) __builtin_trap();
  CCmParameterList again;
  CCmByteStreamNetwork is2(out);
  if (again.StreamFrom(is2) != CM_OK) __builtin_trap();
  if (again.GetCount() != list.GetCount()) __builtin_trap();
  if (out.GetChainedLength() != 0) __builtin_trap();
  return 0;
}

// Feeds arbitrary bytes to CCmMetaData::StreamFrom over a chain of up to three message
// blocks (the first byte chooses where the input is cut), then streams every value that
// parsed back out and checks it gives the same wire bytes.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "cmutil/buffer/CmMetaData.h"
#include "fuzz/FuzzQuietTrace.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  cm_fuzz_quiet_trace();
  if (size == 0 || size > 1 << 20) return 0;
  const unsigned int cut = data[0];
  const char* input = reinterpret_cast<const char*>(data + 1);
  const unsigned int len = static_cast<unsigned int>(size - 1);
  // Three blocks over the input: [0, a) [a, b) [b, len).
  const unsigned int a = len ? (cut & 0x0f) % (len + 1) : 0;
  const unsigned int b = a + (len - a ? ((cut >> 4) * 3) % (len - a + 1) : 0);
  CCmMessageBlock first(a, nullptr, 0, 0), second(b - a, nullptr, 0, 0), third(len - b, nullptr, 0, 0);
  first.Write(input, a);
  second.Write(input + a, b - a);
  third.Write(input + b, len - b);
  first.Append(&second);
  second.Append(&third);

  CCmMetaData value;
  CCmByteStreamNetwork is(first);
  CmResult rv = value.StreamFrom(is);
  const unsigned int consumed = len - first.GetChainedLength();
  if (rv != CM_OK) return 0;
  if (!is.IsGood()) __builtin_trap();

  unsigned int need = 0;
  if (value.GetStreamLength(need) != CM_OK) __builtin_trap();
  CCmMessageBlock out(need ? need : 1);
  CCmByteStreamNetwork os(out);
  if (value.StreamTo(os) != CM_OK) __builtin_trap();
  std::string wire = out.FlattenChained();
  if (wire.size() > need) __builtin_trap();

  bool comparable = true;
  if (value.GetType() == CM_DATA_STRING) {
    // A string with a zero byte inside is written up to that byte only.
    const char* s = nullptr;
    value.Get(s);
    comparable = !s || std::strlen(s) + 3 == consumed;
  }
  if (comparable && (wire.size() != consumed || std::memcmp(wire.data(), input, consumed) != 0)) __builtin_trap();
  return 0;
}

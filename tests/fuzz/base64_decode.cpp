// Feeds arbitrary text to CM_Base64Decode and xbase64_decode: both must agree, and the
// decoded bytes must survive an encode/decode round trip.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cmutil/buffer/CmBase64.h"
#include "fuzz/FuzzQuietTrace.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  cm_fuzz_quiet_trace();
  if (size > 1 << 20) return 0;
  const std::string text(reinterpret_cast<const char*>(data), size);  // zero-terminated by c_str()
  CCmString decoded;
  if (CM_Base64Decode(text.c_str(), decoded) != CM_OK) __builtin_trap();
  if (decoded.size() > size) __builtin_trap();

  std::vector<unsigned char> buf(decoded.size() + 1);
  int n =
      xbase64_decode(text.data(), static_cast<unsigned int>(size), buf.data(), static_cast<unsigned int>(buf.size()));
  if (n != static_cast<int>(decoded.size())) __builtin_trap();
  if (decoded.compare(0, decoded.size(), reinterpret_cast<const char*>(buf.data()), n) != 0) __builtin_trap();
  if (!decoded.empty() &&
      xbase64_decode(text.data(), static_cast<unsigned int>(size), buf.data(), static_cast<unsigned int>(n - 1)) != -1)
    __builtin_trap();

  CCmString encoded;
  CM_Base64Encode(reinterpret_cast<const unsigned char*>(decoded.data()), decoded.size(), encoded);
  CCmString back;
  CM_Base64Decode(encoded.c_str(), back);
  if (back != decoded) __builtin_trap();
  return 0;
}

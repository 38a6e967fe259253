// Feeds arbitrary bytes to CCmHttpUrl::Init and the helpers beside it. The first byte
// picks an encode buffer size; the rest is the URL text.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "cmutil/url/CmHttpUrl.h"
#include "fuzz/FuzzQuietTrace.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  cm_fuzz_quiet_trace();
  if (size == 0) return 0;
  const int encodeSize = data[0];
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);

  CCmHttpUrl url;
  if (url.Init(text)) {
    (void)url.GetAsciiSpec();
    (void)url.GetNameAndPort(true);
    CCmHttpUrl copy(url);
    copy.SetPort(static_cast<unsigned short>(encodeSize));
    (void)copy.GetAsciiSpec();
  }

  // url_string_encode on the text up to its first NUL; the documented margin is
  // dstSize + 4 bytes (three characters and the terminator past the limit).
  std::vector<char> src(text.begin(), text.end());
  src.push_back('\0');
  std::vector<char> dst(static_cast<size_t>(encodeSize) + 4);
  url_string_encode(src.data(), dst.data(), encodeSize);
  if (std::memchr(dst.data(), '\0', dst.size()) == nullptr) __builtin_trap();

  if (text.size() >= 2) {
    CCmString out;
    replaceCaseMatch(src.data(), text.substr(0, 1), text.substr(1, 1), out);
  }
  return 0;
}

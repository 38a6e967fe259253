// Feeds arbitrary bytes to CCmUri::Parse and CCmUri::ParseHostnamePort.
#include <cstddef>
#include <cstdint>
#include <string>

#include "cmutil/url/CmUri.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  CCmUri uri;
  if (uri.Parse(text)) {
    (void)uri.GetNameAndPort();
    CCmUri copy(uri);
    if (copy.GetInputUrl() != text) __builtin_trap();
  }
  CCmString host;
  unsigned short port = 0;
  (void)CCmUri::ParseHostnamePort(text, host, port);
  (void)CCmUri::IsNumber(text);
  return 0;
}

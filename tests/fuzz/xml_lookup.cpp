// Fuzz target: the XML field lookups. The input is "<tag>\0<xml text>"; without a NUL
// the tag is "a".
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "cmutil/config/CmXmlUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string input(reinterpret_cast<const char*>(data), size);
  size_t nul = input.find('\0');
  std::string tag = nul == std::string::npos ? std::string("a") : input.substr(0, nul);
  std::string xml = nul == std::string::npos ? input : input.substr(nul + 1);
  const char* x = xml.c_str();  // the lookups read up to the first NUL
  const char* t = tag.c_str();
  char def[] = "def";
  char out[300];
  for (int maxLen : {0, 1, 16, 255}) {
    char* r = get_string_from_XML(x, t, maxLen, out, def);
    if (r == out && strlen(out) > static_cast<size_t>(maxLen)) __builtin_trap();
  }
  xml_get_string(x, t, 64, out, def);
  volatile unsigned long sink = 0;
  sink += get_uint32_from_XML(x, t, 1);
  sink += static_cast<unsigned long>(get_int32_from_XML(x, t, 2));
  sink += static_cast<unsigned long>(get_double_from_XML(x, t, 3.0));
  sink += xml_get_uint32(x, t, 4);
  sink += static_cast<unsigned long>(xml_get_int32(x, t, 5));
  sink += xml_get_uint16(x, t, 6);
  sink += xml_get_int16(x, t, 7);
  (void)sink;
  return 0;
}

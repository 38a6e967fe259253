// Element lookups in flat XML text by substring search.
#include "cmutil/config/CmXmlUtil.h"

#include <cstdio>
#include <cstring>

namespace {

inline bool xml_blank(char c) { return c == '\t' || c == '\n' || c == '\r' || c == ' '; }

// Finds the element's text; on success sets [begin, begin + len).
bool find_element(const char* xml, const char* tag, const char*& begin, size_t& len) {
  if (!xml || !tag) return false;
  char openTag[264];
  snprintf(openTag, sizeof(openTag), "<%.255s>", tag);
  const char* p = strstr(xml, openTag);
  if (!p) return false;
  p += strlen(openTag);
  while (xml_blank(*p)) ++p;
  if (*p == '\0') return false;
  char closeTag[264];
  snprintf(closeTag, sizeof(closeTag), "</%.255s>", tag);
  const char* close = strstr(p, closeTag);
  if (!close) return false;
  const char* end = close;
  while (end > p && xml_blank(end[-1])) --end;
  begin = p;
  len = static_cast<size_t>(end - p);
  return true;
}

char* lookup(const char* xml, const char* tag, long maxLen, char* out, char* def) {
  const char* begin = nullptr;
  size_t len = 0;
  if (!find_element(xml, tag, begin, len)) return def;
  if (maxLen < 0 || len > static_cast<size_t>(maxLen) || !out) return def;
  memcpy(out, begin, len);
  out[len] = '\0';
  return out;
}

constexpr int kNumberLimit = 64;
constexpr int kDoubleLimit = 256;

}  // namespace

char* get_string_from_XML(const char* xml, const char* tag, int maxLen, char* out, char* def) {
  return lookup(xml, tag, maxLen, out, def);
}

char* xml_get_string(const char* xml, const char* tag, unsigned short maxLen, char* out, char* def) {
  return lookup(xml, tag, maxLen, out, def);
}

unsigned int get_uint32_from_XML(const char* xml, const char* tag, unsigned long def) {
  char defText[32];
  snprintf(defText, sizeof(defText), "%lu", def);
  char buf[kNumberLimit + 1] = {0};
  get_string_from_XML(xml, tag, kNumberLimit, buf, defText);
  unsigned int v = static_cast<unsigned int>(def);
  sscanf(buf, "%u", &v);
  return v;
}

int get_int32_from_XML(const char* xml, const char* tag, unsigned long def) {
  char defText[32];
  snprintf(defText, sizeof(defText), "%d", static_cast<int>(def));
  char buf[kNumberLimit + 1] = {0};
  get_string_from_XML(xml, tag, kNumberLimit, buf, defText);
  int v = static_cast<int>(def);
  sscanf(buf, "%d", &v);
  return v;
}

double get_double_from_XML(const char* xml, const char* tag, double def) {
  char defText[512];
  snprintf(defText, sizeof(defText), "%f", def);
  char buf[kDoubleLimit + 1] = {0};
  get_string_from_XML(xml, tag, kDoubleLimit, buf, defText);
  float v = static_cast<float>(def);
  if (sscanf(buf, "%f", &v) < 1) return def;
  return static_cast<double>(v);
}

unsigned long xml_get_uint32(const char* xml, const char* tag, unsigned long def) {
  char defText[32];
  snprintf(defText, sizeof(defText), "%lu", def);
  char buf[kNumberLimit + 1] = {0};
  xml_get_string(xml, tag, kNumberLimit, buf, defText);
  unsigned long v = def;
  sscanf(buf, "%lu", &v);
  return v;
}

long xml_get_int32(const char* xml, const char* tag, unsigned long def) {
  char defText[32];
  snprintf(defText, sizeof(defText), "%ld", static_cast<long>(def));
  char buf[kNumberLimit + 1] = {0};
  xml_get_string(xml, tag, kNumberLimit, buf, defText);
  long v = static_cast<long>(def);
  sscanf(buf, "%ld", &v);
  return v;
}

unsigned short xml_get_uint16(const char* xml, const char* tag, unsigned short def) {
  char defText[32];
  snprintf(defText, sizeof(defText), "%ld", static_cast<long>(def));
  char buf[kNumberLimit + 1] = {0};
  xml_get_string(xml, tag, kNumberLimit, buf, defText);
  long v = def;
  sscanf(buf, "%ld", &v);
  return static_cast<unsigned short>(v & 0xFFFF);
}

unsigned short xml_get_int16(const char* xml, const char* tag, unsigned short def) {
  return xml_get_uint16(xml, tag, def);
}

// Lookup of vendor and device names in pci.ids text.

#include "system/CmPciIds.h"

#include <cctype>

namespace {

// "xxxx  Name" at pos: the four hex digits as a number, the name after the blanks.
bool parse_entry(const std::string& text, size_t pos, size_t end, unsigned& id, std::string& name) {
  if (end - pos < 6) return false;
  unsigned value = 0;
  for (size_t i = pos; i < pos + 4; ++i) {
    const int c = static_cast<unsigned char>(text[i]);
    if (!std::isxdigit(c)) return false;
    value = value * 16 + static_cast<unsigned>(std::isdigit(c) ? c - '0' : (std::tolower(c) - 'a' + 10));
  }
  size_t start = pos + 4;
  if (text[start] != ' ') return false;
  while (start < end && text[start] == ' ') ++start;
  id = value;
  name.assign(text, start, end - start);
  while (!name.empty() && (name.back() == '\r' || name.back() == ' ')) name.pop_back();
  return true;
}

}  // namespace

bool cm_pci_ids_lookup(const std::string& text, unsigned vendor, unsigned device, std::string& vendor_name,
                       std::string& device_name) {
  vendor_name.clear();
  device_name.clear();
  bool inVendor = false;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = text.find('\n', pos);
    if (end == std::string::npos) end = text.size();
    unsigned id = 0;
    std::string name;
    if (text[pos] == '#' || pos == end) {
      // comment or blank line
    } else if (text[pos] != '\t') {
      if (inVendor) return true;  // the vendor's devices are over
      if (parse_entry(text, pos, end, id, name) && id == vendor) {
        vendor_name = name;
        inVendor = true;
      }
    } else if (inVendor && end - pos > 1 && text[pos + 1] != '\t' && parse_entry(text, pos + 1, end, id, name) &&
               id == device) {
      device_name = name;
      return true;
    }
    pos = end + 1;
  }
  return inVendor;
}

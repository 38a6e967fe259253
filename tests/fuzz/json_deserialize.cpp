// Fuzz target: json::Deserialize on arbitrary text, then a write and a second read of
// what it produced. Nothing may crash, leak or trip a sanitizer.
#include <cstddef>
#include <cstdint>
#include <string>

#include "cmutil/config/CmJson.h"

namespace {

// Walks the value through its accessors of the right kind only.
size_t walk(const json::Value& v) {
  size_t n = 1;
  switch (v.GetType()) {
    case json::kObject:
      for (const auto& kv : v.ToObject()) n += kv.first.size() + walk(kv.second);
      break;
    case json::kArray:
      for (const auto& e : v.ToArray()) n += walk(e);
      break;
    case json::kString:
      n += v.ToString().size();
      break;
    case json::kBool:
      n += v.ToBool() ? 1 : 0;
      break;
    case json::kNull:
      break;
    default:
      n += static_cast<size_t>(v.ToInt() & 1);
      break;
  }
  return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  json::Value v = json::Deserialize(text);
  walk(v);
  std::string out = json::Serialize(v);
  json::Value again = json::Deserialize(out);
  walk(again);
  return 0;
}

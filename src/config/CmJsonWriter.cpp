// JSON text out of a json::Value.
#include <charconv>
#include <cstdio>
#include <string>
#include <system_error>

#include "cmutil/config/CmJson.h"

namespace json {

class Writer {
 public:
  // The bytes printf's "%f" gives (six decimals, correctly rounded) without its format
  // parsing and locale work, which cost most of a number-heavy document's time.
  static int WriteFixed(char* buf, size_t size, double value) {
    auto result = std::to_chars(buf, buf + size, value, std::chars_format::fixed, 6);
    if (result.ec == std::errc()) return static_cast<int>(result.ptr - buf);
    return snprintf(buf, size, "%f", value);
  }

  static void Write(std::string& out, const Value& v) {
    char buf[500];
    int n = 0;
    switch (v.m_type) {
      case kNull:
        out += "null";
        return;
      case kString:
        out += '"';
        out += *v.m_slot.s;
        out += '"';
        return;
      case kInt:
        n = static_cast<int>(std::to_chars(buf, buf + sizeof(buf), v.IntView()).ptr - buf);
        break;
      case kInt64:
        n = static_cast<int>(std::to_chars(buf, buf + sizeof(buf), v.Int64View()).ptr - buf);
        break;
      case kFloat:
        n = WriteFixed(buf, sizeof(buf), static_cast<double>(v.FloatView()));
        break;
      case kDouble:
        n = WriteFixed(buf, sizeof(buf), v.DoubleView());
        break;
      case kObject:
        WriteObject(out, v.cobj());
        return;
      case kArray:
        WriteArray(out, v.carr());
        return;
      case kBool:
        out += v.m_slot.b ? "true" : "false";
        return;
      case kUInt:
        n = static_cast<int>(std::to_chars(buf, buf + sizeof(buf), v.UIntView()).ptr - buf);
        break;
      default:
        return;
    }
    if (n > 0) out.append(buf, static_cast<size_t>(n) < sizeof(buf) ? static_cast<size_t>(n) : sizeof(buf) - 1);
  }

  static void WriteArray(std::string& out, const Array& a) {
    out += '[';
    bool first = true;
    for (const auto& e : a) {
      if (!first) out += ',';
      first = false;
      Write(out, e);
    }
    out += ']';
  }

  static void WriteObject(std::string& out, const Object& o) {
    out += '{';
    bool first = true;
    for (const auto& kv : o) {
      if (!first) out += ',';
      first = false;
      out += '"';
      out += kv.first;
      out += "\":";
      Write(out, kv.second);
    }
    out += '}';
  }
};

std::string SerializeValue(const Value& v) {
  std::string out;
  Writer::Write(out, v);
  return out;
}

std::string SerializeArray(const Array& a) {
  std::string out;
  Writer::WriteArray(out, a);
  return out;
}

std::string Serialize(const Value& v) {
  std::string out;
  if (v.GetType() == kObject || v.GetType() == kArray) Writer::Write(out, v);
  return out;
}

}  // namespace json

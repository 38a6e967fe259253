// JSON text out of a json::Value.
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>
#include <system_error>

#include "cmutil/config/CmJson.h"

namespace json {

class Writer {
 public:
  explicit Writer(std::string& out) : m_out(out), m_used(out.size()) {}
  // The string was grown ahead of the text: cut it back to what was written.
  ~Writer() { m_out.resize(m_used); }

  void Write(const Value& v) {
    switch (v.m_type) {
      case kNull:
        Put("null", 4);
        return;
      case kString:
        PutQuoted(*v.m_slot.s, "\"", 1);
        return;
      case kInt:
        PutNumber(v.IntView());
        return;
      case kInt64:
        PutNumber(v.Int64View());
        return;
      case kFloat:
        PutFixed(static_cast<double>(v.FloatView()));
        return;
      case kDouble:
        PutFixed(v.DoubleView());
        return;
      case kObject:
        WriteObject(v.cobj());
        return;
      case kArray:
        WriteArray(v.carr());
        return;
      case kBool:
        if (v.m_slot.b)
          Put("true", 4);
        else
          Put("false", 5);
        return;
      case kUInt:
        PutNumber(v.UIntView());
        return;
      default:
        return;
    }
  }

  void WriteArray(const Array& a) {
    Put('[');
    bool first = true;
    for (const auto& e : a) {
      if (!first) Put(',');
      first = false;
      Write(e);
    }
    Put(']');
  }

  void WriteObject(const Object& o) {
    Put('{');
    bool first = true;
    for (const auto& kv : o) {
      if (!first) Put(',');
      first = false;
      PutQuoted(kv.first, "\":", 2);
      Write(kv.second);
    }
    Put('}');
  }

 private:
  // Every piece is written straight into the string's own storage, so a piece costs
  // one capacity check and a copy instead of a call into the string's append. The
  // string runs at most a few KiB ahead of the text (its capacity still doubles), so
  // the zeros a resize writes do not touch pages the text never reaches.
  char* Room(size_t n) {
    constexpr size_t kAhead = 4096;
    if (m_out.size() - m_used < n) m_out.resize(m_used + n + kAhead);
    return &m_out[m_used];
  }
  void Put(char c) {
    *Room(1) = c;
    ++m_used;
  }
  void Put(const char* p, size_t n) {
    std::memcpy(Room(n), p, n);
    m_used += n;
  }
  // '"', the text, then the closing bytes (a quote, or a quote and a colon).
  void PutQuoted(const std::string& s, const char* close, size_t closeLen) {
    char* d = Room(s.size() + 1 + closeLen);
    d[0] = '"';
    std::memcpy(d + 1, s.data(), s.size());
    std::memcpy(d + 1 + s.size(), close, closeLen);
    m_used += s.size() + 1 + closeLen;
  }
  template <class T>
  void PutNumber(T value) {
    constexpr size_t kRoom = 24;  // any 64-bit integer with its sign
    char* d = Room(kRoom);
    m_used += static_cast<size_t>(std::to_chars(d, d + kRoom, value).ptr - d);
  }
  // The bytes printf's "%f" gives (six decimals, correctly rounded) without its format
  // parsing and locale work, which cost most of a number-heavy document's time. The
  // largest double takes 316 bytes this way.
  void PutFixed(double value) {
    constexpr size_t kRoom = 500;
    char* d = Room(kRoom);
    auto result = std::to_chars(d, d + kRoom, value, std::chars_format::fixed, 6);
    int n = result.ec == std::errc() ? static_cast<int>(result.ptr - d) : snprintf(d, kRoom, "%f", value);
    if (n > 0) m_used += static_cast<size_t>(n) < kRoom ? static_cast<size_t>(n) : kRoom - 1;
  }

  std::string& m_out;
  size_t m_used;
};

std::string SerializeValue(const Value& v) {
  std::string out;
  Writer(out).Write(v);
  return out;
}

std::string SerializeArray(const Array& a) {
  std::string out;
  Writer(out).WriteArray(a);
  return out;
}

std::string Serialize(const Value& v) {
  std::string out;
  if (v.GetType() == kObject || v.GetType() == kArray) Writer(out).Write(v);
  return out;
}

}  // namespace json

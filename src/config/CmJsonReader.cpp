// JSON text into a json::Value.
//
// The reader works on positions inside the one input buffer: every step hands the
// remaining text on as a pointer range instead of a copy, which keeps a parse linear in
// the size of the text (times the nesting depth, which is bounded).
#include <strings.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>
#include <vector>

#include "cmutil/config/CmJson.h"
#include "config/CmJsonNumbers.h"

namespace json {

using detail::trunc_to_int64;

namespace {

constexpr size_t kMaxDepth = 512;

inline bool json_isspace(char c) {
  // NUL and the "C" locale's space class.
  return c == '\0' || c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

}  // namespace

class Parser {
 public:
  Value Document(const char* b, const char* e) {
    Trim(b, e);
    if (b == e) return Value();
    Value out;
    bool ok = false;
    if (*b == '[' && e[-1] == ']') {
      m_stack.push_back(kStackArray);
      ok = ParseArray(b, e, out);
    } else if (*b == '{' && e[-1] == '}') {
      m_stack.push_back(kStackObject);
      ok = ParseObject(b, e, out);
    }
    if (!ok) return Value();
    return out;
  }

 private:
  // Character classes of the scanners: what ends a run inside a string, and what ends
  // a run outside one.
  static constexpr uint8_t kInString = 1;
  static constexpr uint8_t kStructural = 2;
  struct ClassTable {
    uint8_t c[256] = {};
    constexpr ClassTable() {
      c[static_cast<uint8_t>('"')] = kInString | kStructural;
      c[static_cast<uint8_t>('\\')] = kInString;
      c[static_cast<uint8_t>('[')] = kStructural;
      c[static_cast<uint8_t>(']')] = kStructural;
      c[static_cast<uint8_t>('{')] = kStructural;
      c[static_cast<uint8_t>('}')] = kStructural;
      c[static_cast<uint8_t>(',')] = kStructural;
    }
  };

  // First position at or after p whose character is of class `cls`, or e.
  static const char* SkipTo(const char* p, const char* e, uint8_t cls) {
    static constexpr ClassTable kTable;
    while (p < e && !(kTable.c[static_cast<uint8_t>(*p)] & cls)) ++p;
    return p;
  }

  static void Trim(const char*& b, const char*& e) {
    while (b < e && json_isspace(*b)) ++b;
    while (e > b && json_isspace(e[-1])) --e;
  }

  // First double quote at or after `p` that is not escaped by a backslash.
  static const char* QuotePos(const char* p, const char* e) {
    while (p < e) {
      p = SkipTo(p, e, kInString);
      if (p >= e) break;
      if (*p == '\\') {
        p += (e - p >= 2) ? 2 : 1;
        continue;
      }
      return p;
    }
    return nullptr;
  }

  // `b` points at '[' or '{' whose level is already on the stack. Returns the position
  // of the matching closer, or null when the nesting is wrong or the text ends first.
  const char* EndOfArrayOrObj(const char* b, const char* e) {
    const size_t start = m_stack.size() - 1;
    bool inString = false;
    for (const char* p = b + 1; p < e; ++p) {
      p = SkipTo(p, e, inString ? kInString : kStructural);
      if (p >= e) break;
      char c = *p;
      if (inString) {
        if (c == '\\') {
          if (p + 1 < e) ++p;
        } else {
          inString = false;
        }
        continue;
      }
      switch (c) {
        case '"':
          inString = true;
          break;
        case '[':
          m_stack.push_back(kStackArray);
          break;
        case '{':
          m_stack.push_back(kStackObject);
          break;
        case ']':
        case '}':
          if (m_stack.empty() || m_stack.back() != (c == ']' ? kStackArray : kStackObject)) return nullptr;
          m_stack.pop_back();
          if (m_stack.size() == start) return p;
          break;
        default:
          break;
      }
    }
    return nullptr;
  }

  static int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  }

  static std::string Unescape(const char* b, const char* e) {
    std::string s;
    s.reserve(static_cast<size_t>(e - b));
    const char* p = b;
    while (p < e) {
      const char* bs = static_cast<const char*>(memchr(p, '\\', static_cast<size_t>(e - p)));
      if (!bs) {
        s.append(p, e);
        break;
      }
      s.append(p, bs);
      if (bs + 1 == e) {
        s += '\\';  // a backslash at the very end stays
        break;
      }
      char c = bs[1];
      p = bs + 2;
      switch (c) {
        case 'n':
          s += '\n';
          break;
        case 'r':
          s += '\r';
          break;
        case 't':
          s += '\t';
          break;
        case 'b':
          s += '\b';
          break;
        case 'f':
          s += '\f';
          break;
        case '"':
          s += '"';
          break;
        case '/':
          s += '/';
          break;
        case '\\':
          s += '\\';
          break;
        case 'u':
          if (e - p >= 4 && HexDigit(p[0]) >= 0 && HexDigit(p[1]) >= 0 && HexDigit(p[2]) >= 0 && HexDigit(p[3]) >= 0) {
            // One byte only: the last two of the four digits.
            s += static_cast<char>(HexDigit(p[2]) * 16 + HexDigit(p[3]));
            p += 4;
          }
          break;
        default:
          break;  // unknown escape: dropped with its backslash
      }
    }
    // Blanks at both ends of the text are not kept.
    size_t first = 0;
    while (first < s.size() && json_isspace(s[first])) ++first;
    size_t last = s.size();
    while (last > first && json_isspace(s[last - 1])) --last;
    if (first != 0 || last != s.size()) s = s.substr(first, last - first);
    return s;
  }

  bool ParseObject(const char* b, const char* e, Value& out) {
    ++b;
    --e;
    Object obj;
    for (;;) {
      Trim(b, e);
      if (b >= e) break;
      const char* q1 = QuotePos(b, e);
      if (!q1) return false;
      const char* q2 = QuotePos(q1 + 1, e);
      if (!q2) return false;
      const char* colon = static_cast<const char*>(memchr(q2 + 1, ':', static_cast<size_t>(e - (q2 + 1))));
      if (!colon) return false;
      if (q2 == q1 + 1) return false;  // empty key
      Value v;
      const char* rest = nullptr;
      if (!ParseValue(colon + 1, e, v, rest)) return false;
      obj.Set(std::string(q1 + 1, q2), std::move(v));
      b = rest;
    }
    if (!m_stack.empty() && m_stack.back() == kStackObject) m_stack.pop_back();
    out = Value(std::move(obj));
    return true;
  }

  bool ParseArray(const char* b, const char* e, Value& out) {
    ++b;
    --e;
    Array arr;
    const char* piece = b;
    int depth = 0;
    bool inString = false;
    for (const char* p = b;; ++p) {
      if (p < e) p = SkipTo(p, e, inString ? kInString : kStructural);
      if (p < e) {
        char c = *p;
        if (inString) {
          if (c == '\\')
            ++p;
          else
            inString = false;
          continue;
        }
        if (c == '"') {
          inString = true;
          continue;
        }
        if (c == '[' || c == '{') {
          ++depth;
          continue;
        }
        if (c == ']' || c == '}') {
          --depth;
          continue;
        }
        if (c != ',' || depth != 0) continue;
      }
      // A piece ends at a top-level comma or at the end of the content.
      const char* pe = p < e ? p : e;
      Value v;
      const char* rest = nullptr;
      if (!ParseValue(piece, pe, v, rest)) return false;
      if (v.GetType() != kNull) arr.push_back(std::move(v));
      if (p >= e) break;
      piece = p + 1;
    }
    out = Value(std::move(arr));
    return true;
  }

  bool ParseValue(const char* b, const char* e, Value& out, const char*& rest) {
    Trim(b, e);
    if (b == e) {
      out = Value();
      rest = e;
      return true;
    }
    char c = *b;
    if (c == '[' || c == '{') {
      if (m_depth >= kMaxDepth) return false;
      m_stack.push_back(c == '[' ? kStackArray : kStackObject);
      const char* end = EndOfArrayOrObj(b, e);
      if (!end) return false;
      ++m_depth;
      bool ok = c == '[' ? ParseArray(b, end + 1, out) : ParseObject(b, end + 1, out);
      --m_depth;
      rest = end + 1;
      return ok;
    }
    if (c == '"') {
      const char* close = QuotePos(b + 1, e);
      if (!close) return false;
      out = Value(Unescape(b + 1, close));
      rest = close + 1;
      return true;
    }
    return ParseToken(b, e, out, rest);
  }

  // Decimal conversion of the token; the fast conversion is used only where it gives
  // exactly what strtod gives (no hexadecimal form, no leading '+', no range error).
  double ToDouble(const char* t, size_t n) {
    if (n && t[0] != '+' && !memchr(t, 'x', n) && !memchr(t, 'X', n)) {
      double d = 0;
      auto r = std::from_chars(t, t + n, d);
      if (r.ec == std::errc() && r.ptr != t) return d;
    }
    return strtod(t, nullptr);
  }

  static bool LiteralIs(const char* t, size_t n, const char* lower) {
    return strlen(lower) == n && strncasecmp(t, lower, n) == 0;
  }

  void Classify(bool floating, Value& out) {
    const char* t = m_token.c_str();
    const size_t n = m_token.size();
    const char c0 = static_cast<char>(n ? (t[0] | 0x20) : 0);
    if (c0 == 't' && LiteralIs(t, n, "true")) {
      out = Value(true);
      return;
    }
    if (c0 == 'f' && LiteralIs(t, n, "false")) {
      out = Value(false);
      return;
    }
    if (floating) {
      out = Value(ToDouble(t, n));
      return;
    }
    if (c0 == 'n' && LiteralIs(t, n, "null")) {
      out = Value();
      return;
    }
    // Plain integers of up to 18 digits are exact in both conversions: classify them
    // directly. Anything else goes through the decimal floating conversion.
    const size_t sign = (n && t[0] == '-') ? 1 : 0;
    const size_t digits = n - sign;
    if (digits >= 1 && digits <= 18) {
      int64_t v = 0;
      size_t i = sign;
      for (; i < n && t[i] >= '0' && t[i] <= '9'; ++i) v = v * 10 + (t[i] - '0');
      if (i == n) {
        if (sign) v = -v;
        if (v >= INT32_MIN && v <= INT32_MAX)
          out = Value(static_cast<int>(v));
        else if (v >= 0 && v <= static_cast<int64_t>(UINT32_MAX))
          out = Value(static_cast<unsigned int>(v));
        else
          out = Value(trunc_to_int64(static_cast<double>(v)));
        return;
      }
    }
    double x = strtod(t, nullptr);
    if (x >= -2147483648.0 && x <= 2147483647.0) {
      out = Value(static_cast<int>(static_cast<int32_t>(strtol(t, nullptr, 10))));
    } else if (x >= 0.0 && x <= 4294967295.0) {
      out = Value(static_cast<unsigned int>(x));
    } else if (x >= -9223372036854775808.0 && x <= 9223372036854775808.0) {
      out = Value(trunc_to_int64(x));
    } else {
      out = Value(x);
    }
  }

  bool ParseToken(const char* b, const char* e, Value& out, const char*& rest) {
    bool floating = false;
    // The common case first: a run of token characters copied in one piece, up to the
    // first blank, closer or comma; the loop below handles whatever follows.
    const char* p = b;
    for (; p < e; ++p) {
      const char c = *p;
      if (c == ',' || c == ']' || c == '}' || json_isspace(c)) break;
      if (c == 'e' || c == '.') floating = true;
    }
    m_token.assign(b, p);
    for (; p < e && *p != ','; ++p) {
      char c = *p;
      if (json_isspace(c)) continue;
      if (c == ']' || c == '}') {
        StackDepthType want = c == ']' ? kStackArray : kStackObject;
        if (m_stack.empty() || m_stack.back() != want) return false;
        m_stack.pop_back();
        continue;
      }
      if (c == 'e' || c == '.') floating = true;
      m_token += c;
    }
    rest = p;
    Classify(floating, out);
    return true;
  }

  std::vector<StackDepthType> m_stack;
  std::string m_token;
  size_t m_depth = 0;
};

Value Deserialize(const std::string& text) {
  Parser parser;
  return parser.Document(text.data(), text.data() + text.size());
}

}  // namespace json

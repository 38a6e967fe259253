#pragma once
// Small text helpers shared by the two URL parsers. ASCII only, locale-independent.

#include <string_view>

namespace cmurl {

inline char AsciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

inline bool IsAsciiSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

// Trims ASCII white space at both ends.
inline std::string_view TrimSpace(std::string_view s) {
  size_t b = 0, e = s.size();
  while (b < e && IsAsciiSpace(s[b])) ++b;
  while (e > b && IsAsciiSpace(s[e - 1])) --e;
  return s.substr(b, e - b);
}

// Trims blanks (code 32 only) at both ends.
inline std::string_view TrimBlanks(std::string_view s) {
  size_t b = 0, e = s.size();
  while (b < e && s[b] == ' ') ++b;
  while (e > b && s[e - 1] == ' ') --e;
  return s.substr(b, e - b);
}

// Case-insensitive (ASCII) test that s begins with the lower-case prefix.
inline bool StartsWithNoCase(std::string_view s, std::string_view lowerPrefix) {
  if (s.size() < lowerPrefix.size()) return false;
  for (size_t i = 0; i < lowerPrefix.size(); ++i)
    if (AsciiLower(s[i]) != lowerPrefix[i]) return false;
  return true;
}

// Appends s lower-cased to out.
template <class String>
inline void AssignLower(String& out, std::string_view s) {
  out.assign(s.data(), s.size());
  for (auto& c : out) c = AsciiLower(c);
}

// Decimal value of the leading digits of s after optional white space and sign, the way
// a C conversion reads it, truncated to 16 bits (arithmetic modulo 65536, so no
// overflow whatever the length). A text without digits gives 0.
inline unsigned short DecimalTo16(std::string_view s) {
  size_t i = 0;
  while (i < s.size() && IsAsciiSpace(s[i])) ++i;
  bool negative = false;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) {
    negative = s[i] == '-';
    ++i;
  }
  unsigned int v = 0;
  for (; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) v = (v * 10u + static_cast<unsigned>(s[i] - '0')) & 0xFFFFu;
  if (negative) v = (0x10000u - v) & 0xFFFFu;
  return static_cast<unsigned short>(v);
}

}  // namespace cmurl

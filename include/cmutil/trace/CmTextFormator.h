#pragma once
/// CCmTextFormator builds the text of one trace line in a buffer owned by the caller
/// (trace sites use 1024 bytes on their own stack) through a chain of operator<<.
/// It never allocates and never fails: text that does not fit is cut silently.
///
/// Every append copies at most (capacity - position - 96) characters, so the last 96
/// bytes of the buffer are never filled by appends; the trace core uses them for its own
/// decoration. Buffers must therefore be larger than 96 bytes.
///
/// Not thread-safe: one formatter belongs to one trace site on one thread.

#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmString.h"

/// Reverses the first len characters of text in place.
inline void kel_reverse(char* text, int len) {
  for (int i = 0, j = len - 1; i < j; ++i, --j) {
    char c = text[i];
    text[i] = text[j];
    text[j] = c;
  }
}

/// Writes value in base (2..36, lower-case digits) to out and returns out. Only base 10
/// gives a sign for negative values; out is not size-checked (callers pass >= 66 bytes).
template <typename T>
char* kel_itoa(T value, char* out, int base) {
  if (value == 0) {
    out[0] = '0';
    out[1] = '\0';
    return out;
  }
  bool negative = false;
  if (std::is_signed<T>::value && base == 10 && value < 0) {
    negative = true;
  }
  // Work on the unsigned magnitude so that the most negative value negates cleanly.
  typedef typename std::make_unsigned<T>::type U;
  U magnitude = negative ? static_cast<U>(0) - static_cast<U>(value) : static_cast<U>(value);
  int len = 0;
  if (std::is_signed<T>::value && !negative && value < 0) {
    // A negative signed value in a base other than 10 is divided as it is.
    T v = value;
    while (v != 0) {
      int digit = static_cast<int>(v % base);
      if (digit < 0) digit = -digit;
      out[len++] = static_cast<char>(digit < 10 ? '0' + digit : 'a' + digit - 10);
      v /= base;
    }
  } else {
    while (magnitude != 0) {
      int digit = static_cast<int>(magnitude % static_cast<U>(base));
      out[len++] = static_cast<char>(digit < 10 ? '0' + digit : 'a' + digit - 10);
      magnitude /= static_cast<U>(base);
    }
  }
  if (negative) out[len++] = '-';
  kel_reverse(out, len);
  out[len] = '\0';
  return out;
}

/// Writes value in decimal to out (size bytes, at least 3). Zero is written "-0" by both
/// the signed and the unsigned type; the unsigned type writes no sign for anything else.
template <typename T>
CmResult xtoa_tvx(T value, char* out, int size) {
  if (out == nullptr || size < 3) return CM_ERROR_FAILURE;
  typedef typename std::make_unsigned<T>::type U;
  const bool sign = std::is_signed<T>::value ? !(value > 0) : value == 0;
  U magnitude =
      (std::is_signed<T>::value && value < 0) ? static_cast<U>(0) - static_cast<U>(value) : static_cast<U>(value);
  int pos = size - 1;
  out[pos] = '\0';
  do {
    if (pos == 0) return CM_ERROR_FAILURE;
    out[--pos] = static_cast<char>('0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude != 0);
  if (sign) {
    if (pos == 0) return CM_ERROR_FAILURE;
    out[--pos] = '-';
  }
  std::memmove(out, out + pos, static_cast<size_t>(size - pos));
  return CM_OK;
}

/// Writes value as "<integer part>.<three digits>", truncating (never rounding) and with
/// no exponent form; NaN gives "NaN". The integer part wraps to 32 bits beyond that range.
template <typename T>
char* kel_ftoa(T value, char* out) {
  const double v = static_cast<double>(value);
  if (std::isnan(v)) {
    std::memcpy(out, "NaN", 4);
    return out;
  }
  const double whole = std::trunc(v);
  int32_t integer;
  if (whole >= -2147483648.0 && whole <= 2147483647.0) {
    integer = static_cast<int32_t>(whole);
  } else if (std::isfinite(whole)) {
    // Beyond 32 bits: keep the low 32 bits of the truncated value.
    integer = static_cast<int32_t>(static_cast<uint32_t>(static_cast<int64_t>(std::fmod(whole, 4294967296.0))));
  } else {
    integer = 0;
  }
  int len = 0;
  if (v < 0) out[len++] = '-';
  uint32_t magnitude = integer < 0 ? 0u - static_cast<uint32_t>(integer) : static_cast<uint32_t>(integer);
  kel_itoa<unsigned long>(magnitude, out + len, 10);
  len += static_cast<int>(std::strlen(out + len));
  double fraction = std::fabs(v - whole);
  int milli = std::isfinite(fraction) ? static_cast<int>(fraction * 1000.0) : 0;
  if (milli > 999) milli = 999;
  out[len++] = '.';
  out[len++] = static_cast<char>('0' + milli / 100);
  out[len++] = static_cast<char>('0' + (milli / 10) % 10);
  out[len++] = static_cast<char>('0' + milli % 10);
  out[len] = '\0';
  return out;
}

class CM_EXPORT CCmTextFormator {
 public:
  /// Switches the base of the next integer: hex (0) or decimal (1).
  enum CCmOrdix { hex = 0, decimal = 1 };

  CCmTextFormator(char* buffer, unsigned int capacity);
  virtual ~CCmTextFormator();

  void reset();

  /// Inline so that the length of a literal is known where it is appended.
  CCmTextFormator& operator<<(const char* text) {
    if (text != nullptr) advance(text, static_cast<unsigned int>(__builtin_strlen(text)));
    return *this;
  }
  CCmTextFormator& operator<<(const CCmString& text) {
    advance(text.data(), static_cast<unsigned int>(text.size()));
    return *this;
  }
  CCmTextFormator& operator<<(char value);
  CCmTextFormator& operator<<(short value);
  CCmTextFormator& operator<<(int value);
  CCmTextFormator& operator<<(unsigned char value);
  CCmTextFormator& operator<<(unsigned short value);
  CCmTextFormator& operator<<(unsigned int value);
  CCmTextFormator& operator<<(long value);
  CCmTextFormator& operator<<(unsigned long value);
  CCmTextFormator& operator<<(long long value);
  CCmTextFormator& operator<<(unsigned long long value);
  CCmTextFormator& operator<<(float value);
  CCmTextFormator& operator<<(double value);
  CCmTextFormator& operator<<(void* pointer);
  CCmTextFormator& operator<<(const void* pointer);
  CCmTextFormator& operator<<(CCmOrdix ordix);

  operator char*() { return m_pBuffer; }
  unsigned int tell() const { return m_nPosition; }

 private:
  /// The one append rule: copy min(len, capacity - position - 96) characters, terminate.
  void advance(const char* text, unsigned int len) {
    const unsigned int room = m_nCapacity - m_nPosition - kReserve;
    const unsigned int count = len < room ? len : room;
    std::memcpy(m_pBuffer + m_nPosition, text, count);
    m_nPosition += count;
    m_pBuffer[m_nPosition] = '\0';
  }
  static constexpr unsigned int kReserve = 96;
  template <typename T>
  CCmTextFormator& appendInteger(T value);

  char* m_pBuffer;
  unsigned int m_nCapacity;
  unsigned int m_nPosition;
  bool m_bHex;
};

typedef CCmTextFormator::CCmOrdix CCmOrdix;

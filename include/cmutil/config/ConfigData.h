#pragma once
/// ConfigData: one configuration value, built from any scalar or text and read back as
/// any scalar or text.
///
/// The value is text-backed: constructors store the decimal or literal text (doubles in
/// fixed notation with six decimals, bools as 1 or 0) and readers convert from it. The
/// one exception is an "int struct": a raw unsigned integer of 1, 2, 4 or 8 bytes (native
/// byte order) held as bytes instead of text, set with SetStructValue() or copied.
///
/// Readers never throw, except ToUint64() (and its conversion operator), which throws
/// std::invalid_argument on text that is not a number and std::out_of_range on text
/// beyond 64 bits. Not thread-safe; copy freely.

#include <cstdint>
#include <string>

#include "cmutil/base/CmExport.h"

class CM_EXPORT ConfigData {
 public:
  /// Invalid value (no text, no buffer).
  ConfigData();
  ConfigData(std::string s);
  /// A null pointer leaves the value invalid.
  ConfigData(char* s);
  ConfigData(const char* s);
  ConfigData(int v);
  ConfigData(bool v);
  ConfigData(unsigned int v);
  ConfigData(unsigned long v);
  ConfigData(long long v);
  ConfigData(unsigned long long v);
  ConfigData(long v);
  ConfigData(double v);
  ConfigData(float v);
  ConfigData(const ConfigData& other);
  ConfigData& operator=(const ConfigData& other);
  ~ConfigData();

  /// Makes the value this text (drops any int struct).
  void setStrValue(const std::string& s);
  /// Makes the value an int struct of `size` bytes copied from `data` (sizes other than
  /// 1, 2, 4 and 8 are kept but do not read as an integer).
  void SetStructValue(const void* data, uint32_t size);
  /// Empties the text, clears the text flag and frees the buffer.
  void SetInvalid();
  bool IsValid() const;
  bool IsIntStruct() const;

  std::string ToString() const;
  const char* ToCstr() const;
  int ToInt() const;
  int ToIntOrDefault(int def) const;
  bool ToBool() const;
  long long ToLonglong() const;
  unsigned int ToUint32() const;
  unsigned long ToDWORD() const;
  /// Throws std::invalid_argument on text that is not a number.
  unsigned long long ToUint64() const;
  long ToLong() const;
  double ToDouble() const;
  float ToFloat() const;

  operator std::string() const { return ToString(); }
  operator const char*() const { return ToCstr(); }
  operator int() const { return ToInt(); }
  operator bool() const { return ToBool(); }
  operator long long() const { return ToLonglong(); }
  operator unsigned int() const { return ToUint32(); }
  operator unsigned long() const { return ToDWORD(); }
  operator unsigned long long() const { return ToUint64(); }
  operator long() const { return ToLong(); }
  operator double() const { return ToDouble(); }
  operator float() const { return ToFloat(); }

  /// The buffer as an unsigned integer of its size; 0 when not an int struct.
  uint64_t structToUint64() const;
  std::string structTostring() const;

  bool operator==(const ConfigData& other) const;
  bool operator!=(const ConfigData& other) const { return !(*this == other); }

  /// Copies n bytes from src to dst (nothing when either is null).
  static void SafeCopy(char* dst, const char* src, unsigned int n);

 private:
  void copyStructFrom(const ConfigData& other);
  void freeStruct();
  const std::string& text() const;

  uint8_t* m_pStruct = nullptr;
  uint32_t m_nStructSize = 0;
  std::string* m_pStr = nullptr;
  bool m_bIsText = false;
};

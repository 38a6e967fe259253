#pragma once
/// `CCmMetaData`: a small tagged value (byte, short, int, 64-bit long, word, dword,
/// float, string, raw bytes) with a fixed big-endian wire form, carried by parameter
/// lists (CmParameterList.h).
///
/// Wire form: one tag byte, then the value:
///
/// | tag | type             | value bytes                                   |
/// |-----|------------------|-----------------------------------------------|
/// | 0   | `CM_DATA_BYTE`   | 1                                             |
/// | 1   | `CM_DATA_SHORT`  | 2, big-endian                                 |
/// | 2   | `CM_DATA_INT`    | 4, big-endian                                 |
/// | 3   | `CM_DATA_LONG`   | 8, big-endian                                 |
/// | 4   | `CM_DATA_WORD`   | 2, big-endian                                 |
/// | 5   | `CM_DATA_DWORD`  | 4, big-endian                                 |
/// | 6   | `CM_DATA_FLOAT`  | 4, the IEEE 754 pattern, big-endian           |
/// | 7   | `CM_DATA_STRING` | 2-byte length n, then n bytes (no terminator) |
/// | 8   | `CM_DATA_RAW`    | 4-byte length n, then n bytes                 |
/// | 9   | `CM_DATA_UNKNOW` | never written (the unset state)               |
///
/// For example int 258 is 02 00 00 01 02, the string "ab" is 07 00 02 61 62.
///
/// A value never changes type once set: `Set` of another type is refused with
/// `CM_ERROR_INVALID_ARG`. Strings and raw bytes are copied and owned. One thread only.

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/buffer/CmByteStream.h"

enum {
  CM_DATA_BYTE = 0,
  CM_DATA_SHORT = 1,
  CM_DATA_INT = 2,
  CM_DATA_LONG = 3,
  CM_DATA_WORD = 4,
  CM_DATA_DWORD = 5,
  CM_DATA_FLOAT = 6,
  CM_DATA_STRING = 7,
  CM_DATA_RAW = 8,
  CM_DATA_UNKNOW = 9,
};

class CM_EXPORT CCmMetaData {
 public:
  CCmMetaData();
  /// Frees an owned string or raw buffer.
  virtual ~CCmMetaData();

  CCmMetaData(const CCmMetaData&) = delete;
  CCmMetaData& operator=(const CCmMetaData&) = delete;

  /// Each `Set` is allowed when the value is unset or already of that type.
  CmResult Set(char aValue);
  CmResult Set(short aValue);
  CmResult Set(int aValue);
  CmResult Set(long aValue);
  CmResult Set(unsigned short aValue);
  CmResult Set(unsigned int aValue);
  CmResult Set(float aValue);
  /// Stores a copy of the zero-terminated string (null stores null), freeing the old one.
  CmResult Set(const char* aStr);
  /// Stores a copy of `aLen` bytes (null or 0 stores null), freeing the old buffer.
  CmResult Set(const unsigned char* aRaw, unsigned int aLen);

  unsigned int GetType() const { return m_nType; }

  /// Each `Get` succeeds only for exactly its type (an unset value is refused too).
  CmResult Get(char& aValue) const;
  CmResult Get(short& aValue) const;
  CmResult Get(int& aValue) const;
  CmResult Get(long& aValue) const;
  CmResult Get(unsigned short& aValue) const;
  CmResult Get(unsigned int& aValue) const;
  CmResult Get(float& aValue) const;
  /// The owned string (valid while the value lives), or null.
  CmResult Get(const char*& aStr) const;
  /// The owned bytes and their length, or null and 0.
  CmResult Get(unsigned char*& aRaw, unsigned int& aLen) const;

  /// Bytes `StreamTo` needs: 2 (byte), 3 (short, word), 5 (int, dword, float),
  /// 9 (long), strlen + 3 (string; 3 for null), raw length + 9 (raw; 9 for null).
  /// The raw figure is four bytes MORE than is written (1 + 4 + n); callers size
  /// buffers with it, so the surplus stays.
  CmResult GetStreamLength(unsigned int& aLen) const;
  /// Writes the tag and the value. Unset: assertion, `CM_ERROR_FAILURE`, nothing
  /// written. A stream that is not good afterwards: assertion "bGood", `CM_ERROR_FAILURE`.
  CmResult StreamTo(CCmByteStreamNetwork& aStream) const;
  /// Reads a tag and a value, replacing whatever the object held. A failed or unknown
  /// tag, or a stream that ran out: assertion and `CM_ERROR_FAILURE`. A raw value cut
  /// short by the end of the input keeps only the bytes that were there.
  CmResult StreamFrom(CCmByteStreamNetwork& aStream);

 private:
  void FreeOwned();

  unsigned int m_nType;
  union {
    char m_cValue;
    short m_sValue;
    int m_nValue;
    long m_lValue;
    unsigned short m_wValue;
    unsigned int m_dwValue;
    float m_fValue;
    char* m_pString;
    /// One allocation: a 32-bit length, then the bytes.
    unsigned char* m_pRaw;
    uint64_t m_qwSlot;
  };
};

#pragma once
/// `CCmByteStreamT<Block, Convertor>`: a thin reader/writer over a message-block chain
/// that converts integers to and from the wire order and remembers its FIRST failure.
/// Once `Write` (or `Read`) has failed, every later write (read) does nothing but trace
/// again, so a sequence of `<<` can be checked once at the end with `IsGood()`.
///
/// The wire order is big-endian (`CCmHostNetworkConvertorNormal`). Strings travel as a
/// 2-byte length and the bytes without terminator; lengths of 65535 and more are refused.
///
/// ```
///   CCmMessageBlock mb(64);
///   CCmByteStreamNetwork os(mb);
///   os << static_cast<unsigned int>(7) << "name";
///   if (!os.IsGood()) ...
/// ```
///
/// The stream keeps a reference to the chain; reads consume it (read pointers move),
/// writes fill its space. One thread only; no allocation.

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "cmutil/base/CmAssert.h"
#include "cmutil/base/CmError.h"
#include "cmutil/base/CmString.h"
#include "cmutil/buffer/CmMessageBlock.h"
#include "cmutil/trace/CmTraceMacros.h"

/// Host-to-network conversion of the stream: big-endian on the wire.
class CCmHostNetworkConvertorNormal {
 public:
  static uint16_t Swap(uint16_t v) { return IsBigEndianHost() ? v : __builtin_bswap16(v); }
  static uint32_t Swap(uint32_t v) { return IsBigEndianHost() ? v : __builtin_bswap32(v); }
  static uint64_t Swap(uint64_t v) { return IsBigEndianHost() ? v : __builtin_bswap64(v); }

 private:
  static constexpr bool IsBigEndianHost() { return __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__; }
};

template <class BlockType, class ConvertorType>
class CCmByteStreamT {
 public:
  /// Longest string length + 1: `WriteString` refuses `aLen >= STRING_LEN_MAX`.
  enum { STRING_LEN_MAX = 0xFFFF };

  explicit CCmByteStreamT(BlockType& aBlock) : m_Block(aBlock), m_ResultRead(CM_OK), m_ResultWrite(CM_OK) {}

  /// Appends `aLen` bytes through `BlockType::Write`; remembers a failure.
  CCmByteStreamT& Write(const void* aData, unsigned int aLen) {
    if (m_ResultWrite == CM_OK) m_ResultWrite = m_Block.Write(aData, aLen);
    if (m_ResultWrite != CM_OK)
      CM_ERROR_TRACE_THIS("CCmByteStreamT::Write, can't write. m_ResultWrite=" << m_ResultWrite);
    return *this;
  }

  /// Consumes `aLen` bytes through `BlockType::Read`; remembers a failure. On a failed
  /// read the bytes that were there have been copied and consumed.
  CCmByteStreamT& Read(void* aData, unsigned int aLen) {
    if (m_ResultRead == CM_OK) m_ResultRead = m_Block.Read(aData, aLen);
    if (m_ResultRead != CM_OK) CM_ERROR_TRACE_THIS("CCmByteStreamT::Read, can't read. m_ResultRead=" << m_ResultRead);
    return *this;
  }

  /// A 2-byte length, then the bytes (none for 0). `aLen` of 65535 or more: assertion
  /// "ll < STRING_LEN_MAX" and nothing is written (the stream stays good).
  CCmByteStreamT& WriteString(const char* aStr, unsigned int aLen) {
    unsigned int ll = aLen;
    CM_ASSERTE_RETURN(ll < STRING_LEN_MAX, *this);
    *this << static_cast<uint16_t>(ll);
    if (ll) Write(aStr, ll);
    return *this;
  }

  /// Reads a 2-byte length and that many bytes into `aStr`.
  CCmByteStreamT& ReadString(CCmString& aStr) {
    uint16_t len = 0;
    *this >> len;
    aStr.clear();
    if (IsGood() && len) {
      aStr.resize(len);
      Read(&aStr[0], len);
      if (!IsGood()) aStr.clear();
    }
    return *this;
  }

  CCmByteStreamT& operator<<(char v) { return Write(&v, 1); }
  CCmByteStreamT& operator<<(unsigned char v) { return Write(&v, 1); }
  CCmByteStreamT& operator<<(short v) { return Put16(static_cast<uint16_t>(v)); }
  CCmByteStreamT& operator<<(unsigned short v) { return Put16(v); }
  CCmByteStreamT& operator<<(int v) { return Put32(static_cast<uint32_t>(v)); }
  CCmByteStreamT& operator<<(unsigned int v) { return Put32(v); }
  CCmByteStreamT& operator<<(long v) { return PutWide(v); }
  CCmByteStreamT& operator<<(unsigned long v) { return PutWide(v); }
  CCmByteStreamT& operator<<(long long v) { return Put64(static_cast<uint64_t>(v)); }
  CCmByteStreamT& operator<<(unsigned long long v) { return Put64(v); }
  /// The 32-bit IEEE 754 pattern.
  CCmByteStreamT& operator<<(float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, 4);
    return Put32(bits);
  }
  /// The 64-bit IEEE 754 pattern.
  CCmByteStreamT& operator<<(double v) {
    uint64_t bits;
    std::memcpy(&bits, &v, 8);
    return Put64(bits);
  }
  /// `WriteString` with the length cut to its low 16 bits; null writes length 0.
  CCmByteStreamT& operator<<(const char* aStr) {
    if (!aStr) return WriteString(aStr, 0);
    return WriteString(aStr, static_cast<uint16_t>(std::strlen(aStr)));
  }
  CCmByteStreamT& operator<<(const CCmString& aStr) {
    return WriteString(aStr.data(), static_cast<uint16_t>(aStr.size()));
  }

  CCmByteStreamT& operator>>(char& v) { return Read(&v, 1); }
  CCmByteStreamT& operator>>(unsigned char& v) { return Read(&v, 1); }
  CCmByteStreamT& operator>>(short& v) { return Get(v); }
  CCmByteStreamT& operator>>(unsigned short& v) { return Get(v); }
  CCmByteStreamT& operator>>(int& v) { return Get(v); }
  CCmByteStreamT& operator>>(unsigned int& v) { return Get(v); }
  CCmByteStreamT& operator>>(long& v) { return Get(v); }
  CCmByteStreamT& operator>>(unsigned long& v) { return Get(v); }
  CCmByteStreamT& operator>>(long long& v) { return Get(v); }
  CCmByteStreamT& operator>>(unsigned long long& v) { return Get(v); }
  CCmByteStreamT& operator>>(float& v) { return Get(v); }
  CCmByteStreamT& operator>>(double& v) { return Get(v); }
  CCmByteStreamT& operator>>(CCmString& v) { return ReadString(v); }

  /// True while neither a read nor a write has failed.
  bool IsGood() const { return m_ResultRead == CM_OK && m_ResultWrite == CM_OK; }
  CmResult GetResultRead() const { return m_ResultRead; }
  CmResult GetResultWrite() const { return m_ResultWrite; }
  BlockType& GetBlock() const { return m_Block; }

 private:
  CCmByteStreamT& Put16(uint16_t v) {
    v = ConvertorType::Swap(v);
    return Write(&v, 2);
  }
  CCmByteStreamT& Put32(uint32_t v) {
    v = ConvertorType::Swap(v);
    return Write(&v, 4);
  }
  CCmByteStreamT& Put64(uint64_t v) {
    v = ConvertorType::Swap(v);
    return Write(&v, 8);
  }
  template <class T>
  CCmByteStreamT& PutWide(T v) {
    if (sizeof(T) == 8) return Put64(static_cast<uint64_t>(v));
    return Put32(static_cast<uint32_t>(v));
  }
  /// Reads sizeof(T) wire bytes into `v` (unchanged when the read fails).
  template <class T>
  CCmByteStreamT& Get(T& v) {
    static_assert(sizeof(T) == 2 || sizeof(T) == 4 || sizeof(T) == 8, "wire width");
    typedef typename std::conditional<sizeof(T) == 2, uint16_t,
                                      typename std::conditional<sizeof(T) == 4, uint32_t, uint64_t>::type>::type Raw;
    Raw raw = 0;
    Read(&raw, sizeof(raw));
    if (m_ResultRead == CM_OK) {
      raw = ConvertorType::Swap(raw);
      std::memcpy(&v, &raw, sizeof(v));
    }
    return *this;
  }

  BlockType& m_Block;
  CmResult m_ResultRead;
  CmResult m_ResultWrite;
};

/// The instantiation used for metadata and parameter lists.
typedef CCmByteStreamT<CCmMessageBlock, CCmHostNetworkConvertorNormal> CCmByteStreamNetwork;

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "buffer/WireBytes.h"
#include "cmutil/buffer/CmMetaData.h"
#include "common/CmTraceCapture.h"

namespace {

// Streams m into a fresh block, checks the wire bytes and parses them into back.
void WireAndBack(const CCmMetaData& m, const V& wire, CCmMetaData& back) {
  CCmMessageBlock mb(256u);
  CCmByteStreamNetwork os(mb);
  EXPECT_EQ(CM_OK, m.StreamTo(os));
  EXPECT_EQ(wire, Bytes(mb));
  ASSERT_EQ(CM_OK, Parse(Bytes(mb), back));
}

// Sets v, checks the wire bytes, parses them back and reads the same value.
template <class T>
void RoundTrip(T value, const std::vector<unsigned char>& wire) {
  CCmMetaData m, back;
  m.Set(value);
  WireAndBack(m, wire, back);
  T read{};
  EXPECT_EQ(CM_OK, back.Get(read));
  EXPECT_EQ(value, read);
  // The type stays once set: a string holder refuses this type both ways.
  CCmMetaData text;
  text.Set("x");
  EXPECT_EQ(CM_ERROR_INVALID_ARG, text.Set(value));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, text.Get(read));
}

TEST(MetaData, EveryScalarTypeRoundTripsThroughItsWireBytes) {
  RoundTrip(static_cast<char>(0x7f), V({0x00, 0x7f}));
  RoundTrip(static_cast<short>(-2), V({0x01, 0xff, 0xfe}));
  RoundTrip(258, V({0x02, 0x00, 0x00, 0x01, 0x02}));
  RoundTrip(0x0102030405060708L, V({0x03, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08}));
  RoundTrip(static_cast<unsigned short>(0xABCD), V({0x04, 0xab, 0xcd}));
  RoundTrip(0xDEADBEEFu, V({0x05, 0xde, 0xad, 0xbe, 0xef}));
  RoundTrip(1.5f, V({0x06, 0x3f, 0xc0, 0x00, 0x00}));  // 0x3FC00000
}

TEST(MetaData, StringAndRawWireBytes) {
  CCmMetaData s, sback, r, rback, ns, nsback, nr, nrback;
  s.Set("ab");
  WireAndBack(s, V({0x07, 0x00, 0x02, 0x61, 0x62}), sback);
  const char* str = nullptr;
  EXPECT_EQ(CM_OK, sback.Get(str));
  EXPECT_STREQ("ab", str);

  const unsigned char raw[] = {0xff, 0x00};
  r.Set(raw, 2);
  WireAndBack(r, V({0x08, 0x00, 0x00, 0x00, 0x02, 0xff, 0x00}), rback);
  unsigned char* p = nullptr;
  unsigned int len = 0;
  EXPECT_EQ(CM_OK, rback.Get(p, len));
  EXPECT_EQ(V(raw, raw + 2), V(p, p + len));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, r.Set("ab"));  // raw and string do not mix either
  EXPECT_EQ(CM_ERROR_INVALID_ARG, s.Set(raw, 2));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, r.Get(str));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, s.Get(p, len));

  // Null string and null raw travel as length 0 and come back as null.
  ns.Set(static_cast<const char*>(nullptr));
  WireAndBack(ns, V({0x07, 0x00, 0x00}), nsback);
  str = "x";
  EXPECT_TRUE(nsback.Get(str) == CM_OK && str == nullptr);

  nr.Set(raw, 0);
  WireAndBack(nr, V({0x08, 0x00, 0x00, 0x00, 0x00}), nrback);
  p = const_cast<unsigned char*>(raw);
  len = 9;
  EXPECT_EQ(CM_OK, nrback.Get(p, len));
  EXPECT_EQ(std::make_pair(static_cast<unsigned char*>(nullptr), 0u), std::make_pair(p, len));
}

TEST(MetaData, ParsingBadInput) {
  CmTraceCapture cap;
  CCmMetaData empty, bad, nine, shortInt, shortStr, hugeRaw;  // a fresh value for each input
  EXPECT_EQ(CM_ERROR_FAILURE, Parse(V(), empty));             // no tag: stays unknown
  EXPECT_EQ(static_cast<unsigned int>(CM_DATA_UNKNOW), empty.GetType());
  EXPECT_TRUE(cap.contains("CCmByteStreamT::Read, can't read. m_ResultRead="));
  EXPECT_TRUE(cap.contains("Assert failed: m_nType != CM_DATA_UNKNOW"));

  EXPECT_EQ(CM_ERROR_FAILURE, Parse(V({0x0a, 0x00}), bad));
  EXPECT_EQ(10u, bad.GetType());  // the tag stays stored
  EXPECT_TRUE(cap.contains("Assert failed: FALSE"));

  // The stored unknown tag is refused again when the value is measured or written.
  cap.clear();
  unsigned int len10 = 77;
  EXPECT_EQ(CM_ERROR_FAILURE, bad.GetStreamLength(len10));
  EXPECT_EQ(1u, cap.count("Assert failed: FALSE"));
  CCmMessageBlock out10(16u);
  CCmByteStreamNetwork os10(out10);
  EXPECT_EQ(CM_ERROR_FAILURE, bad.StreamTo(os10));
  EXPECT_EQ(2u, cap.count("Assert failed: FALSE"));
  EXPECT_EQ(V({0x0a}), Bytes(out10));  // the tag byte goes out before the refusal
  EXPECT_EQ(0u, cap.count("m_nType != CM_DATA_UNKNOW"));

  EXPECT_EQ(CM_ERROR_FAILURE, Parse(V({0x09}), nine));

  EXPECT_EQ(CM_ERROR_FAILURE, Parse(V({0x02, 0x00, 0x01}), shortInt));
  EXPECT_TRUE(cap.contains("Assert failed: bGood"));

  // A string that claims more bytes than there are.
  EXPECT_EQ(CM_ERROR_FAILURE, Parse(V({0x07, 0x00, 0x05, 'a', 'b'}), shortStr));

  // A raw value claiming 4 GiB allocates only what is there.
  EXPECT_EQ(CM_ERROR_FAILURE, Parse(V({0x08, 0xff, 0xff, 0xff, 0xff, 1, 2, 3}), hugeRaw));
  unsigned char* p = nullptr;
  unsigned int len = 0;
  EXPECT_EQ(CM_OK, hugeRaw.Get(p, len));
  EXPECT_EQ(V({1, 2, 3}), V(p, p + len));  // and so len is 3
}

TEST(MetaData, StreamFromReplacesAnOwnedValue) {
  CCmMetaData m;
  m.Set("old value");
  ASSERT_EQ(CM_OK, Parse(V({0x02, 0x00, 0x00, 0x00, 0x07}), m));  // no leak (ASan)
  int v = 0;
  EXPECT_TRUE(m.Get(v) == CM_OK && v == 7) << v;
}

TEST(ByteStream, IntegersAreBigEndianAndStringsLengthPrefixed) {
  CCmMessageBlock mb(64u);
  CCmByteStreamNetwork os(mb);
  os << static_cast<unsigned short>(0x0102) << 0x03040506u << static_cast<long long>(0x0708090a0b0c0d0eLL) << "hi"
     << CCmString("yo") << 0.5;
  ASSERT_TRUE(os.IsGood());
  V expect = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0x00, 0x02,
              'h',  'i',  0x00, 0x02, 'y',  'o',  0x3f, 0xe0, 0,    0,    0,    0,    0,    0,    0,    0};
  EXPECT_EQ(V(expect.begin(), expect.begin() + 30), Bytes(mb));

  unsigned short w = 0;
  unsigned int d = 0;
  long long q = 0;
  CCmString s1, s2;
  double dbl = 0;
  os >> w >> d >> q >> s1 >> s2 >> dbl;
  EXPECT_TRUE(os.IsGood());
  EXPECT_EQ(std::make_tuple(0x0102, 0x03040506u, 0x0708090a0b0c0d0eLL, CCmString("hi"), CCmString("yo"), 0.5),
            std::make_tuple(w, d, q, s1, s2, dbl));
  int more = 42;
  os >> more;
  // A failed read leaves the target alone.
  EXPECT_EQ(std::make_tuple(false, CM_ERROR_PARTIAL_DATA, 42), std::make_tuple(os.IsGood(), os.GetResultRead(), more));

  CCmMessageBlock nb(8u);
  CCmByteStreamNetwork ns(nb);
  ns << static_cast<const char*>(nullptr);
  EXPECT_EQ(V({0, 0}), Bytes(nb));
}

}  // namespace

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "buffer/WireBytes.h"
#include "cmutil/buffer/CmParameterList.h"
#include "common/CmTraceCapture.h"

namespace {

// The parameter of aIndex holds aExpected, read back as the same type.
template <class T>
void ExpectParameter(const CCmParameterList& aList, unsigned int aIndex, T aExpected) {
  const CCmParameterByIndex* p = nullptr;
  ASSERT_EQ(CM_OK, aList.GetParameter(aIndex, p));
  T read{};
  EXPECT_EQ(CM_OK, p->GetValue().Get(read));
  EXPECT_EQ(aExpected, read);
}

// Streams a two-entry list, then parses its bytes with the count raised to 3 into a list
// that holds entries already: parsing stops at the missing entry and keeps the rest.
TEST(ParameterList, StreamsTheExampleBytesAndParsingKeepsWhatCameBeforeABadEntry) {
  CCmParameterList list;
  ASSERT_EQ(CM_OK, list.AddParameter(new CCmParameterByIndex(7, "x")));
  ASSERT_EQ(CM_OK, list.AddParameter(new CCmParameterByIndex(1, 5)));
  unsigned int len = 0;
  EXPECT_TRUE(list.GetStreamLength(len) == CM_OK && len == 4u + 9u + 8u) << len;
  CCmMessageBlock mb(64u);
  CCmByteStreamNetwork os(mb);
  ASSERT_EQ(CM_OK, list.StreamTo(os));
  V wire = Bytes(mb);
  ASSERT_EQ(V({0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01, 0x02, 0x00, 0x00,
               0x00, 0x05, 0x00, 0x00, 0x00, 0x07, 0x07, 0x00, 0x01, 0x78}),
            wire);

  CmTraceCapture cap;
  wire[3] = 3;
  CCmParameterList back;
  back.AddParameter(new CCmParameterByIndex(1, "replaced"));
  back.AddParameter(new CCmParameterByIndex(50, 50));
  EXPECT_EQ(CM_ERROR_FAILURE, Parse(wire, back));
  EXPECT_TRUE(cap.contains("Assert failed: m_nType != CM_DATA_UNKNOW"));
  EXPECT_EQ(3u, back.GetCount());  // 1 (replaced), 7, and the old 50
  ExpectParameter(back, 1, 5);
  const CCmParameterByIndex* p = nullptr;
  EXPECT_EQ(CM_OK, back.GetParameter(7, p));
  EXPECT_EQ(CM_OK, back.GetParameter(50, p));
}

TEST(ParameterList, EveryTypeStreamsAndParsesBack) {
  const unsigned char raw[] = {9, 8, 7};
  // Every scalar type, under the indexes 1 to 7 in this order.
  const auto scalars = std::make_tuple('c', static_cast<short>(-3), -70000, -5000000000L,
                                       static_cast<unsigned short>(65000), 4000000000u, -0.25f);
  CCmParameterList list;
  std::apply([&, i = 0u](auto... v) mutable { (list.AddParameter(new CCmParameterByIndex(++i, v)), ...); }, scalars);
  list.AddParameter(new CCmParameterByIndex(8, "text"));
  list.AddParameter(new CCmParameterByIndex(9, raw, 3));
  list.AddParameter(new CCmParameterByIndex(0x80000000u, static_cast<const char*>(nullptr)));
  unsigned int len = 0;
  ASSERT_EQ(CM_OK, list.GetStreamLength(len));
  CCmMessageBlock mb(len);
  CCmByteStreamNetwork os(mb);
  ASSERT_EQ(CM_OK, list.StreamTo(os));
  EXPECT_EQ(len - 4, mb.GetChainedLength());  // the raw entry's four-byte surplus

  CCmParameterList back;
  ASSERT_EQ(CM_OK, Parse(Bytes(mb), back));
  ASSERT_EQ(10u, back.GetCount());
  std::apply([&, i = 0u](auto... v) mutable { (ExpectParameter(back, ++i, v), ...); }, scalars);
  ExpectParameter(back, 0x80000000u, static_cast<const char*>(nullptr));  // a pointer compare: enough for null
  const CCmParameterByIndex* p = nullptr;
  const char* str;
  unsigned char* r;
  unsigned int rl;
  ASSERT_EQ(CM_OK, back.GetParameter(8, p));
  EXPECT_EQ(CM_OK, p->GetValue().Get(str));
  EXPECT_STREQ("text", str);
  ASSERT_EQ(CM_OK, back.GetParameter(9, p));
  EXPECT_EQ(CM_OK, p->GetValue().Get(r, rl));
  EXPECT_EQ(V(raw, raw + 3), V(r, r + rl));
}

TEST(ParameterList, IndexZeroFailsTheStream) {
  CmTraceCapture cap;
  CCmParameterList list;
  list.AddParameter(new CCmParameterByIndex(0, 1));
  unsigned int len = 0;
  EXPECT_EQ(CM_ERROR_FAILURE, list.GetStreamLength(len));
  CCmMessageBlock mb(64u);
  CCmByteStreamNetwork os(mb);
  EXPECT_EQ(CM_ERROR_FAILURE, list.StreamTo(os));
  EXPECT_TRUE(cap.contains("Assert failed: m_dwIndex != 0") && cap.contains("Assert failed: IS_KEL_OK(ret)"));
}

TEST(ParameterList, HostileCountEndsAtTheEndOfInput) {
  CmTraceCapture cap;
  CCmParameterList list;
  EXPECT_EQ(CM_ERROR_FAILURE, Parse(V({0xff, 0xff, 0xff, 0xff, 0x00, 0x00, 0x00, 0x02, 0x00, 0x41}), list));
  EXPECT_EQ(1u, list.GetCount());
}

}  // namespace

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "cmutil/buffer/CmCrc16.h"
#include "cmutil/buffer/CmMessageBlock.h"
#include "common/CmTraceCapture.h"

namespace {

/// Bit by bit, straight from the polynomial, as a reference.
unsigned short BitwiseCrc(unsigned short crc, const unsigned char* p, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    crc ^= p[i];
    for (int b = 0; b < 8; ++b) crc = (crc & 1) ? static_cast<unsigned short>((crc >> 1) ^ 0xA001) : crc >> 1;
  }
  return crc;
}

TEST(Crc16, RunningValueAcrossPiecesAndAllLengths) {
  std::mt19937 rng(99);
  std::vector<unsigned char> data(3000);
  for (auto& b : data) b = static_cast<unsigned char>(rng());
  for (size_t len : {0, 1, 2, 7, 8, 9, 15, 16, 17, 63, 64, 65, 1500, 3000}) {
    for (unsigned short start : {0, 0xFFFF, 0x1234}) {
      unsigned short crc = start;
      CalcCRC16(crc, data.data(), static_cast<unsigned int>(len));
      EXPECT_EQ(BitwiseCrc(start, data.data(), len), crc) << len;
    }
  }
  unsigned short pieces = 0;  // the steps add up to 3000
  size_t pos = 0;
  for (size_t step : {1, 3, 8, 13, 64, 911, 2000}) {
    size_t n = std::min(step, data.size() - pos);
    CalcCRC16(pieces, data.data() + pos, static_cast<unsigned int>(n));
    pos += n;
  }
  EXPECT_EQ(BitwiseCrc(0, data.data(), 3000), pieces);
}

TEST(Crc16, NullDataReturnsZeroAndKeepsTheRunningValue) {
  CmTraceCapture cap;
  unsigned short crc = 0x5555;
  EXPECT_TRUE(CalcCRC16(crc, nullptr, 4) == 0 && crc == 0x5555) << crc;
  EXPECT_TRUE(cap.contains(0, "CmCrc16.cpp:") && cap.contains(0, "Assert failed: pData"));
}

unsigned short Reference(const char* text) {
  return BitwiseCrc(0, reinterpret_cast<const unsigned char*>(text), std::strlen(text));
}

// The CRC of the first n readable bytes of a chain, from a zero running value.
unsigned short ChainCrc(CCmMessageBlock& chain, unsigned int n) {
  unsigned short crc = 0;
  const unsigned short result = CalcCRC16_m(crc, chain, n);
  EXPECT_EQ(result, crc);  // the running value is the result
  return result;
}

TEST(Crc16, ChainWalkAcrossBlocks) {
  char a[] = "123", b[] = "45678";
  CCmMessageBlock first(3, a, 0, 3), second(5, b, 0, 5);
  first.Append(&second);
  EXPECT_EQ(Reference("1234"), ChainCrc(first, 4));
  EXPECT_EQ(8u, first.GetChainedLength());                 // nothing moved
  EXPECT_EQ(Reference("12345678"), ChainCrc(first, 100));  // more than the chain: all of it
  EXPECT_EQ(0, ChainCrc(first, 0));
  first.AdvanceChainedReadPtr(2);  // starts at the read pointers, not at the storage
  EXPECT_EQ(Reference("345678"), ChainCrc(first, 6));

  // The walk stops at a block that holds the rest.
  char c[] = "abcd", d[] = "efgh";
  CCmMessageBlock empty;  // no storage at all
  CCmMessageBlock third(4, c, 0, 4), fourth(4, d, 0, 4);
  empty.Append(&third);
  third.Append(&fourth);
  EXPECT_EQ(Reference("abcd"), ChainCrc(empty, 4));

  // 65546 readable bytes count as 10: the walk takes 10 bytes and then, the block not
  // holding the rest, goes on to the end of the chain.
  std::vector<char> big(65536 + 10, 'z');
  CCmMessageBlock block(static_cast<unsigned int>(big.size()), big.data(), 0, static_cast<unsigned int>(big.size()));
  EXPECT_EQ(Reference("zzzzzzzzzz"), ChainCrc(block, 100));
}

}  // namespace

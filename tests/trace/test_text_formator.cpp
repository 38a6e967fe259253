#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <string>
#include <tuple>
#include <utility>

#include "cmutil/trace/CmTextFormator.h"

// A fresh 1024-byte formator for each test.
class TextFormator : public ::testing::Test {
 protected:
  char buffer[1024];
  CCmTextFormator text{buffer, sizeof buffer};
  std::string str() { return std::string(static_cast<char*>(text)); }
};

TEST_F(TextFormator, CutsAppendsAtCapacityMinusReserve) {
  std::string big(2000, 'x');
  text << big.c_str();
  const auto full = std::make_tuple(928u, '\0', std::string(928, 'x'));  // position, terminator, text
  EXPECT_EQ(full, std::make_tuple(text.tell(), buffer[928], str()));
  // Once full, further appends of any kind add nothing and keep the terminator.
  text << 12345 << "more" << 2.5 << static_cast<void*>(buffer);
  EXPECT_EQ(full, std::make_tuple(text.tell(), buffer[928], str()));
}

TEST_F(TextFormator, HexSwitchCoversOneIntegerOnly) {
  text << CCmTextFormator::hex << 255u << 255u;
  EXPECT_EQ(str(), "ff255");
  text.reset();
  EXPECT_EQ(std::make_pair(std::string(), 0u), std::make_pair(str(), text.tell()));
  // Decimal cancels a pending switch; unknown ordix values are ignored; a pointer clears it.
  text << CCmTextFormator::hex << CCmTextFormator::decimal << 255 << " " << CCmTextFormator::hex
       << static_cast<CCmOrdix>(7) << 255 << " " << CCmTextFormator::hex << static_cast<void*>(nullptr) << 16;
  EXPECT_EQ(str(), "255 ff 0x016");
}

// Integers of every width; pointers in lower hex without leading zeros; floats cut to three digits.
TEST_F(TextFormator, IntegersPointersAndFloats) {
  text << static_cast<char>(65) << " " << static_cast<short>(-7) << " " << INT_MIN << " "
       << static_cast<unsigned char>(200) << " " << static_cast<unsigned short>(65535) << " " << UINT_MAX << " "
       << LONG_MIN << " " << ULONG_MAX << " " << 100 << " ";  // 100 is a whole pair: the pair loop must take it
  text << reinterpret_cast<void*>(0x1234) << " " << static_cast<void*>(nullptr) << " "
       << reinterpret_cast<const void*>(0xABCDEF) << " ";
  text << 1.9999f << " " << -1.5 << " " << 2.5 << " " << 0.0019 << " " << -0.25 << " " << std::nan("");
  EXPECT_EQ(str(),
            "65 -7 -2147483648 200 65535 4294967295 -9223372036854775808 18446744073709551615 100 "
            "0x1234 0x0 0xabcdef 1.999 -1.500 2.500 0.001 -0.250 NaN");
}

TEST(NumberText, FtoaBeyondIntRangeDoesNotCrash) {
  char out[72];
  kel_ftoa(1e30, out);
  EXPECT_NE(std::string(out).find('.'), std::string::npos);
  kel_ftoa(-INFINITY, out);
  EXPECT_EQ(std::string(out).substr(0, 1), "-");
}

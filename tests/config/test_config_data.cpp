// ConfigData: text-backed conversions, the int struct and equality.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

#include "cmutil/config/ConfigData.h"

TEST(ConfigData, ConstructorsStoreText) {
  const ConfigData values[] = {true, false, -12,   4000000000u, 18446744073709551615ull, -9000000000ll, 7l,
                               8ul,  1.5,   0.25f, "abc"};
  const char* const texts[] = {"1", "0",        "-12",      "4000000000", "18446744073709551615", "-9000000000", "7",
                               "8", "1.500000", "0.250000", "abc"};
  for (size_t i = 0; i < 11; ++i) EXPECT_EQ(texts[i], values[i].ToString()) << i;
  // Both are text; text never equals a value of no kind.
  EXPECT_TRUE(ConfigData(std::string("abc")) == ConfigData("abc") && !(ConfigData("") == ConfigData()));
  char buf[] = "xyz";
  EXPECT_STREQ("xyz", ConfigData(buf).ToCstr());
}

TEST(ConfigData, ReadersConvertFromTextOnlyTheUnsigned64OneThrows) {
  ConfigData d(2.5);
  // 2.5 (and 0.5 below) are exact in binary: compared exactly.
  EXPECT_EQ(std::make_tuple(std::string("2.500000"), 2, 2.5, 2.5f),
            std::make_tuple(d.ToString(), d.ToInt(), d.ToDouble(), d.ToFloat()));
  // atoi of "true" is 0
  EXPECT_EQ(std::make_pair(true, false), std::make_pair(ConfigData(true).ToBool(), ConfigData("true").ToBool()));
  ConfigData big("5000000000");
  EXPECT_EQ(
      std::make_tuple(5000000000ll, static_cast<unsigned int>(5000000000ll), 5000000000ul, 5000000000ull, 5000000000l),
      std::make_tuple(big.ToLonglong(), big.ToUint32(), big.ToDWORD(), big.ToUint64(), big.ToLong()));
  const std::string asText = ConfigData(3);
  EXPECT_EQ(std::make_tuple(41, 0.5, std::string("3")),
            std::make_tuple(static_cast<int>(ConfigData("41")), static_cast<double>(ConfigData("0.5")), asText));
  // Text that is no number: only the unsigned 64-bit conversion throws.
  ConfigData text("abc");
  EXPECT_EQ(std::make_pair(0, 0ll), std::make_pair(text.ToInt(), text.ToLonglong()));
  EXPECT_THROW(text.ToUint64(), std::invalid_argument);
  EXPECT_THROW((void)static_cast<unsigned long long>(text), std::invalid_argument);
  EXPECT_THROW(ConfigData("99999999999999999999999").ToUint64(), std::out_of_range);
}

// An int struct of 1, 2, 4 or 8 bytes reads as that unsigned integer; other sizes are
// kept but read as 0. Copies and assignments carry the bytes; text replaces them.
TEST(ConfigData, IntStructBytesSurviveCopyAndAssignment) {
  const uint64_t raw = 0x0807060504030201ull;  // little-endian bytes 01 02 .. 08
  const std::pair<uint32_t, uint64_t> sizes[] = {{1, 0x01}, {2, 0x0201}, {3, 0}, {4, 0x04030201}, {8, raw}};
  for (const auto& s : sizes) {
    ConfigData value("old text"), assigned("text");  // the bytes replace text too
    value.SetStructValue(&raw, s.first);
    ConfigData copy(value);
    assigned = value;
    for (const ConfigData* d : {&value, &copy, &assigned}) {
      EXPECT_EQ(s.second != 0, d->IsIntStruct()) << s.first;
      EXPECT_EQ(s.second ? std::to_string(s.second) : "", d->ToString()) << s.first;
      EXPECT_TRUE(d->IsValid() && *d == value && !(*d == ConfigData(d->ToString()))) << s.first;  // never text
    }
    value.setStrValue("9");
    EXPECT_TRUE(value.ToInt() == 9 && !value.IsIntStruct());  // text replaces the bytes
    value.SetInvalid();
    copy.SetInvalid();
    EXPECT_TRUE(!value.IsValid() && value.ToString().empty() && !copy.IsValid());  // text and bytes dropped
  }
  const size_t heapBefore = mallinfo2().uordblks;  // replaced and destroyed bytes are given back
  for (int i = 0; i < 1000; ++i) {
    ConfigData d;
    d.SetStructValue(&raw, 8);
    d.SetStructValue(&raw, 4);
  }
  EXPECT_LT(mallinfo2().uordblks, heapBefore + 4096);
}

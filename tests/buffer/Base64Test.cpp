#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "cmutil/buffer/CmBase64.h"
#include "common/CmTraceCapture.h"

namespace {

std::string Encode(const std::string& s) {
  CCmString out = "junk";
  EXPECT_EQ(CM_OK, CM_Base64Encode(reinterpret_cast<const unsigned char*>(s.data()), s.size(), out));
  return out;
}

std::string Decode(const char* text) {
  CCmString out = "junk";
  EXPECT_EQ(CM_OK, CM_Base64Decode(text, out));
  return out;
}

TEST(Base64, Rfc4648Vectors) {
  // The last pair reaches the top two symbols of the alphabet.
  const char* plain[] = {"", "f", "fo", "foo", "foob", "fooba", "foobar", "\xfb\xff"};
  const char* text[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy", "+/8="};
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(text[i], Encode(plain[i])) << plain[i];
    EXPECT_EQ(plain[i], Decode(text[i])) << text[i];
  }
}

// Random bytes of every length: the text uses only the alphabet, the string codec
// round-trips them and the caller-buffer codec gives the same text and bytes back.
TEST(Base64, AllByteValuesAndLengthsRoundTripInBothCodecs) {
  std::mt19937 rng(12345);
  for (unsigned int len = 0; len < 300; ++len) {
    std::string bytes(len, '\0');
    for (auto& c : bytes) c = static_cast<char>(rng());
    std::string text = Encode(bytes);
    EXPECT_EQ((len + 2) / 3 * 4, text.size());
    EXPECT_EQ(std::string::npos,
              text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/="));
    EXPECT_EQ(bytes, Decode(text.c_str())) << len;
    std::string buf(xbase64_calc_encode_buf_size(len), '\0');
    int n = xbase64_encode(reinterpret_cast<const unsigned char*>(bytes.data()), len, &buf[0],
                           static_cast<unsigned int>(buf.size()));
    ASSERT_EQ(static_cast<int>(text.size()), n);
    EXPECT_EQ(text, std::string(buf.data(), n));
    std::string back(len, '\0');
    EXPECT_EQ(static_cast<int>(len), xbase64_decode(text.c_str(), static_cast<unsigned int>(text.size()),
                                                    reinterpret_cast<unsigned char*>(&back[0]), len));
    EXPECT_EQ(bytes, back);
  }
}

TEST(XBase64, DecodeIntoCallerBuffer) {
  unsigned char out[8] = {};
  EXPECT_EQ(-1, xbase64_decode("Zm9vYmFy", 8, out, 5));
  // The length bounds the text: only "Zm9v" is looked at.
  EXPECT_EQ(3, xbase64_decode("Zm9vYmFy", 4, out, 8));
  EXPECT_EQ(0, memcmp(out, "foo", 3));
  EXPECT_EQ(2, xbase64_decode(" TWE=xyz", 8, out, 8));
  EXPECT_EQ(0, memcmp(out, "Ma", 2));
  EXPECT_EQ(-1, xbase64_decode(nullptr, 4, out, 8));
  EXPECT_EQ(0, xbase64_decode("", 0, nullptr, 0));
}

}  // namespace

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "cmutil/url/CmHttpUrl.h"
#include "common/CmTraceCapture.h"

namespace {

/// The parsed fields in one line: scheme|host|port|default port|path|rebuilt URL text.
std::string Fields(CCmHttpUrl& url) {
  return url.GetScheme() + "|" + url.GetHostName() + "|" + std::to_string(url.GetPort()) + "|" +
         std::to_string(url.GetDefaultPort()) + "|" + url.GetPath() + "|" + url.GetAsciiSpec();
}

TEST(CmHttpUrlInit, FieldsOfAcceptedTexts) {
  const std::pair<const char*, const char*> cases[] = {
      // scheme lower-cased; the default port is left out of the rebuilt URL text
      {"HTTPS://10.0.0.1:8443/a", "https|10.0.0.1|8443|443|/a|https://10.0.0.1:8443/a"},
      {"http://10.0.0.1", "http|10.0.0.1|80|80|/|http://10.0.0.1/"},
      {"http://example.org:80/x/y", "http|example.org|80|80|/x/y|http://example.org/x/y"},
      {"ws://h/", "ws|h|80|80|/|ws://h/"},
      {"wss://h/", "wss|h|443|443|/|wss://h/"},
      {"WsS://h/", "wss|h|443|443|/|wss://h/"},
      // blanks around the text and the host are skipped
      {"   http://  host:81/p  ", "http|host|81|80|/p|http://host:81/p"},
      // file URLs have no host; the path keeps what follows "//"
      {"file:///tmp/a", "file||0|0|/tmp/a|file:///tmp/a"},
      {"file://relative", "file||0|0|relative|file:///relative"},
      // the port is read up to the first ":" or non-digit and truncated to 16 bits; 0 means default
      {"http://h:65537/", "http|h|1|80|/|http://h:1/"},
      {"http://h:0/", "http|h|80|80|/|http://h/"},
      {"https://h:abc/", "https|h|443|443|/|https://h/"},
      {"http://h:8080x/", "http|h|8080|80|/|http://h:8080/"},
      {"http://h:1:2/", "http|h|1|80|/|http://h:1/"},
  };
  for (const auto& [text, fields] : cases) {
    CCmHttpUrl url;
    ASSERT_TRUE(url.Init(text)) << text;
    EXPECT_EQ(fields, Fields(url)) << text;
  }
  CCmHttpUrl url;
  ASSERT_TRUE(url.Init("http://example.org:80/x/y"));
  EXPECT_EQ("example.org:80", url.GetNameAndPort(true));
  EXPECT_EQ("example.org", url.GetNameAndPort(false));
}

TEST(CmHttpUrlInit, UnknownSchemeFailsWithTrace) {
  CmTraceCapture cap;
  CCmHttpUrl url;
  EXPECT_FALSE(url.Init("ftp://10.0.0.1/a"));
  const auto lines = cap.lines();
  ASSERT_EQ(1u, lines.size());
  const std::string& text = lines[0].text;
  EXPECT_NE(std::string::npos, text.find("CCmHttpUrl::Init error format, scheme = ftp://10.0.0.1/a [this=")) << text;
  EXPECT_EQ(std::make_tuple(0, ']'), std::make_tuple(lines[0].level, text.back())) << text;
}

std::string Encode(const char* src, int size = 256) {
  std::string buf(static_cast<size_t>(size) + 8, '#');
  url_string_encode(const_cast<char*>(src), &buf[0], size);
  return std::string(buf.c_str());
}

TEST(UrlStringEncode, EscapesStopsEarlyAndLeavesEmpty) {
  EXPECT_EQ(std::make_tuple("a+b%26c", "AZaz09", "%2f%3a%3f%3d%7e%2e%2d%5f", "%e9%ff%80"),
            std::make_tuple(Encode("a b&c"), Encode("AZaz09"), Encode("/:?=~.-_"), Encode("\xe9\xff\x80")));
  // A byte below 16 ends the output; 16 has two digits and is not cut.
  EXPECT_EQ(std::make_tuple("a%a", "x%1", "%10"), std::make_tuple(Encode("a\nb c"), Encode("x\x01yz"), Encode("\x10")));
  // The size test runs after each byte: output may overshoot by up to two characters, and
  // for size 1 gets three characters and the terminator.
  EXPECT_EQ(std::make_tuple("ab", "a%26", "%26"),
            std::make_tuple(Encode("abcdef", 2), Encode("a&bc", 2), Encode("&&&", 1)));
  // An empty source or no room leaves the destination empty.
  char buf[8] = "junk";
  EXPECT_EQ(buf, url_string_encode(const_cast<char*>(""), buf, 8));
  // Encode fills its buffer with '#': an empty result means a terminator was written first.
  EXPECT_EQ(std::make_tuple("", "", ""), std::make_tuple(std::string(buf), Encode("abc", 0), Encode(nullptr, 8)));
  EXPECT_EQ(nullptr, url_string_encode(const_cast<char*>("abc"), nullptr, 8));
}

TEST(ReplaceCaseMatch, CaseSensitiveNoOverlapNoRescan) {
  const char* const cases[][4] = {{"aaaa", "aa", "b", "bb"},
                                  {"aaa", "aa", "b", "ba"},
                                  {"Host host", "host", "x", "Host x"},
                                  {"ab", "a", "aa", "aab"}};  // inserted text is not searched again
  for (const auto& c : cases) {
    CCmString out;
    replaceCaseMatch(c[0], c[1], c[2], out);
    EXPECT_EQ(c[3], out) << c[0];
  }
}

}  // namespace

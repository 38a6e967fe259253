#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "cmutil/url/CmUri.h"

namespace {

/// Every parsed field in one line: scheme|user|password|host|port|path|query|fragment|name:port.
std::string Fields(const CCmUri& uri) {
  return uri.GetScheme() + "|" + uri.GetUsername() + "|" + uri.GetPassword() + "|" + uri.GetHostName() + "|" +
         std::to_string(uri.GetPort()) + "|" + uri.GetPath() + "|" + uri.GetQuery() + "|" + uri.GetFragment() + "|" +
         uri.GetNameAndPort();
}

TEST(CmUriParse, FieldsOfAcceptedTexts) {
  const std::pair<const char*, const char*> cases[] = {
      // stun takes the host directly, with its default port
      {"stun:10.0.0.1", "stun|||10.0.0.1|3478||||10.0.0.1"},
      {"STUN:stun.example:19302", "stun|||stun.example|19302||||stun.example:19302"},
      // scheme and fragment lower-cased, query kept
      {"HTTP://10.0.0.1/a?X=1#Top", "http|||10.0.0.1|80|/a|X=1|top|10.0.0.1"},
      // the first "#" and the first "?" split; a "?" after "#" belongs to the fragment
      {"https://h/p#F?q=1", "https|||h|443|/p||f?q=1|h"},
      {"https://h/p?a=1?b=2#x#y", "https|||h|443|/p|a=1?b=2|x#y|h"},
      // user information split at the first ":" and the first "@"
      {"wss://alice:s3cr:et@media.example.com:8443/room/1?token=AbC#Frag",
       "wss|alice|s3cr:et|media.example.com|8443|/room/1|token=AbC|frag|media.example.com:8443"},
      {"http://bob@h@x/", "http|bob||h@x|80|/|||h@x"},
      {"http://[2001:db8::1]:8080/x", "http|||2001:db8::1|8080|/x|||2001:db8::1:8080"},
      // opaque schemes keep the rest as the path
      {"sip:[::1]:5060", "sip||||0|[::1]:5060|||"},
      {"mailto:Someone@Example.com?subject=Hi#X", "mailto||||0|Someone@Example.com|subject=Hi|x|"},
      // default ports by scheme; name:port hides only the default one
      {"ws://h", "ws|||h|80||||h"},
      {"wss://h", "wss|||h|443||||h"},
      {"file://h/x", "file|||h|0|/x|||h"},
      {"http://h:0/", "http|||h|80|/|||h"},
      {"https://secure.example:443/", "https|||secure.example|443|/|||secure.example"},
      {"https://secure.example:444/", "https|||secure.example|444|/|||secure.example:444"},
  };
  CCmUri uri;  // one object for all: a parse keeps nothing of the text before
  for (const auto& [text, fields] : cases) {
    ASSERT_TRUE(uri.Parse(text)) << text;
    EXPECT_EQ(fields, Fields(uri)) << text;
    EXPECT_EQ(text, uri.GetInputUrl());
    EXPECT_EQ(uri.GetHostName(), uri.GetHostNameRef());
  }
  // "HTTP": the comparison is exact, on the lower-cased scheme
  EXPECT_EQ(std::make_tuple(3478, 0, 0), std::make_tuple(CCmUri::GetDefaultPort("stun"), CCmUri::GetDefaultPort("HTTP"),
                                                         CCmUri::GetDefaultPort("sip")));
}

TEST(CmUriParse, Failures) {
  CCmUri uri;
  // "http:h/x": an authority scheme without "//"; "https:///x": an empty host
  for (const char* bad : {"", "no-colon-here", ":http//x", "http:h/x", "https:///x", "file:///tmp/a"})
    EXPECT_FALSE(uri.Parse(bad)) << bad;
  EXPECT_FALSE(uri.Parse("http://h:abc/"));
  EXPECT_EQ(80, uri.GetPort());  // a failed host parse still gets the default port
  EXPECT_FALSE(uri.Parse("stun:10.0.0.1:x"));
  EXPECT_EQ(3478, uri.GetPort());
}

// Without a port the last ":" is inside the address, so the brackets stay. A port that
// is not a number fails and writes nothing.
TEST(CmUriHostPort, BracketedBarePlainAndBadPorts) {
  const std::tuple<const char*, const char*, unsigned short> cases[] = {{"[::1]:5060", "::1", 5060},
                                                                        {"::1", "::1", 0},
                                                                        {"fe80::1:2:3", "fe80::1:2:3", 0},
                                                                        {" host.example : 42 ", "host.example", 42},
                                                                        {"plain", "plain", 0},
                                                                        {"[::1]", "[::1]", 0},
                                                                        {"host:abc", nullptr, 99},
                                                                        {"host:-1", nullptr, 99},
                                                                        {"[::1]:x1", nullptr, 99}};
  for (const auto& [text, hostWanted, portWanted] : cases) {
    CCmString host = "untouched";
    unsigned short port = 99;
    EXPECT_EQ(hostWanted != nullptr, CCmUri::ParseHostnamePort(text, host, port)) << text;
    EXPECT_EQ(hostWanted ? hostWanted : "untouched", host) << text;
    EXPECT_EQ(portWanted, port) << text;
  }
}

TEST(CmUriIsNumber, Rules) {
  EXPECT_TRUE(CCmUri::IsNumber(CCmString("\0abc", 4)));  // read up to the first NUL
  for (const char* yes : {"", "0123456789"}) EXPECT_TRUE(CCmUri::IsNumber(yes)) << yes;
  for (const char* no : {"12a", " 1", "+1"}) EXPECT_FALSE(CCmUri::IsNumber(no)) << no;
}

}  // namespace

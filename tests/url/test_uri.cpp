#include <gtest/gtest.h>

#include "cmutil/url/CmUri.h"

namespace {

TEST(CmUriParse, StunTakesHostDirectlyWithDefaultPort) {
  CCmUri uri;
  ASSERT_TRUE(uri.Parse("stun:10.0.0.1"));
  EXPECT_EQ("stun", uri.GetScheme());
  EXPECT_EQ("10.0.0.1", uri.GetHostName());
  EXPECT_EQ(3478, uri.GetPort());
  EXPECT_EQ("", uri.GetPath());
  EXPECT_EQ("10.0.0.1", uri.GetNameAndPort());

  ASSERT_TRUE(uri.Parse("STUN:stun.example:19302"));
  EXPECT_EQ("stun.example", uri.GetHostName());
  EXPECT_EQ(19302, uri.GetPort());
  EXPECT_EQ("stun.example:19302", uri.GetNameAndPort());
}

TEST(CmUriParse, SchemeLowerCasedQueryKeptFragmentLowerCased) {
  CCmUri uri;
  ASSERT_TRUE(uri.Parse("HTTP://10.0.0.1/a?X=1#Top"));
  EXPECT_EQ("http", uri.GetScheme());
  EXPECT_EQ("10.0.0.1", uri.GetHostName());
  EXPECT_EQ(80, uri.GetPort());
  EXPECT_EQ("/a", uri.GetPath());
  EXPECT_EQ("X=1", uri.GetQuery());
  EXPECT_EQ("top", uri.GetFragment());
  EXPECT_EQ("HTTP://10.0.0.1/a?X=1#Top", uri.GetInputUrl());
}

TEST(CmUriParse, FragmentIsCutBeforeQuery) {
  CCmUri uri;
  // "?" after "#" belongs to the fragment; the first "#" and first "?" split.
  ASSERT_TRUE(uri.Parse("https://h/p#F?q=1"));
  EXPECT_EQ("f?q=1", uri.GetFragment());
  EXPECT_EQ("", uri.GetQuery());
  EXPECT_EQ("/p", uri.GetPath());

  ASSERT_TRUE(uri.Parse("https://h/p?a=1?b=2#x#y"));
  EXPECT_EQ("a=1?b=2", uri.GetQuery());
  EXPECT_EQ("x#y", uri.GetFragment());
}

TEST(CmUriParse, UserInfoPortPathQuery) {
  CCmUri uri;
  ASSERT_TRUE(uri.Parse("wss://alice:s3cr:et@media.example.com:8443/room/1?token=AbC#Frag"));
  EXPECT_EQ("wss", uri.GetScheme());
  EXPECT_EQ("alice", uri.GetUsername());
  EXPECT_EQ("s3cr:et", uri.GetPassword());  // split at the first ":"
  EXPECT_EQ("media.example.com", uri.GetHostName());
  EXPECT_EQ("media.example.com", uri.GetHostNameRef());
  EXPECT_EQ(8443, uri.GetPort());
  EXPECT_EQ("/room/1", uri.GetPath());
  EXPECT_EQ("token=AbC", uri.GetQuery());
  EXPECT_EQ("frag", uri.GetFragment());
  EXPECT_EQ("media.example.com:8443", uri.GetNameAndPort());
}

TEST(CmUriParse, UserWithoutPasswordAndFirstAtSplits) {
  CCmUri uri;
  ASSERT_TRUE(uri.Parse("http://bob@h@x/"));
  EXPECT_EQ("bob", uri.GetUsername());
  EXPECT_EQ("", uri.GetPassword());
  EXPECT_EQ("h@x", uri.GetHostName());
  uri.SetUsername("u");
  uri.SetPassword("p");
  EXPECT_EQ("u", uri.GetUsername());
  EXPECT_EQ("p", uri.GetPassword());
}

TEST(CmUriParse, BracketedIpv6HostWithPort) {
  CCmUri uri;
  ASSERT_TRUE(uri.Parse("http://[2001:db8::1]:8080/x"));
  EXPECT_EQ("2001:db8::1", uri.GetHostName());
  EXPECT_EQ(8080, uri.GetPort());
  EXPECT_EQ("/x", uri.GetPath());
}

TEST(CmUriParse, OpaqueSchemeKeepsRestAsPath) {
  CCmUri uri;
  ASSERT_TRUE(uri.Parse("sip:[::1]:5060"));
  EXPECT_EQ("sip", uri.GetScheme());
  EXPECT_EQ("[::1]:5060", uri.GetPath());
  EXPECT_EQ("", uri.GetHostName());
  EXPECT_EQ(0, uri.GetPort());

  ASSERT_TRUE(uri.Parse("mailto:Someone@Example.com?subject=Hi#X"));
  EXPECT_EQ("Someone@Example.com", uri.GetPath());
  EXPECT_EQ("subject=Hi", uri.GetQuery());
  EXPECT_EQ("x", uri.GetFragment());
}

TEST(CmUriParse, DefaultPortsByScheme) {
  struct Case {
    const char* text;
    unsigned short port;
  } cases[] = {{"http://h", 80}, {"ws://h", 80},    {"https://h", 443},
               {"wss://h", 443}, {"file://h/x", 0}, {"http://h:0/", 80}};
  for (const Case& c : cases) {
    CCmUri uri;
    ASSERT_TRUE(uri.Parse(c.text)) << c.text;
    EXPECT_EQ(c.port, uri.GetPort()) << c.text;
  }
  EXPECT_EQ(3478, CCmUri::GetDefaultPort("stun"));
  EXPECT_EQ(0, CCmUri::GetDefaultPort("HTTP"));  // exact comparison on the lower-cased scheme
  EXPECT_EQ(0, CCmUri::GetDefaultPort("sip"));
}

TEST(CmUriParse, NameAndPortHidesDefaultPort) {
  CCmUri uri;
  ASSERT_TRUE(uri.Parse("https://secure.example:443/"));
  EXPECT_EQ("secure.example", uri.GetNameAndPort());
  ASSERT_TRUE(uri.Parse("https://secure.example:444/"));
  EXPECT_EQ("secure.example:444", uri.GetNameAndPort());
}

TEST(CmUriParse, Failures) {
  CCmUri uri;
  EXPECT_FALSE(uri.Parse(""));
  EXPECT_FALSE(uri.Parse("no-colon-here"));
  EXPECT_FALSE(uri.Parse(":http//x"));
  EXPECT_FALSE(uri.Parse("http:h/x"));    // authority scheme without "//"
  EXPECT_FALSE(uri.Parse("https:///x"));  // empty host
  EXPECT_FALSE(uri.Parse("file:///tmp/a"));
  EXPECT_FALSE(uri.Parse("http://h:abc/"));
  EXPECT_EQ(80, uri.GetPort());  // a failed host parse still gets the default port
  EXPECT_FALSE(uri.Parse("stun:10.0.0.1:x"));
  EXPECT_EQ(3478, uri.GetPort());
}

TEST(CmUriParse, ReparseClearsEarlierFields) {
  CCmUri uri;
  ASSERT_TRUE(uri.Parse("http://u:p@h:81/a?q#f"));
  ASSERT_TRUE(uri.Parse("ws://other"));
  EXPECT_EQ("", uri.GetUsername());
  EXPECT_EQ("", uri.GetPassword());
  EXPECT_EQ("", uri.GetPath());
  EXPECT_EQ("", uri.GetQuery());
  EXPECT_EQ("", uri.GetFragment());
  EXPECT_EQ(80, uri.GetPort());
}

TEST(CmUriCopy, CopiesEveryField) {
  CCmUri a;
  ASSERT_TRUE(a.Parse("http://u:p@h:81/a?q=1#f"));
  CCmUri b(a);
  CCmUri c;
  c = a;
  for (const CCmUri* u : {&b, &c}) {
    EXPECT_EQ(a.GetInputUrl(), u->GetInputUrl());
    EXPECT_EQ("http", u->GetScheme());
    EXPECT_EQ("u", u->GetUsername());
    EXPECT_EQ("p", u->GetPassword());
    EXPECT_EQ("h", u->GetHostName());
    EXPECT_EQ(81, u->GetPort());
    EXPECT_EQ("/a", u->GetPath());
    EXPECT_EQ("q=1", u->GetQuery());
    EXPECT_EQ("f", u->GetFragment());
  }
  b.SetUsername("changed");
  EXPECT_EQ("u", a.GetUsername());
}

TEST(CmUriHostPort, BracketedBareAndPlain) {
  CCmString host = "untouched";
  unsigned short port = 99;
  ASSERT_TRUE(CCmUri::ParseHostnamePort("[::1]:5060", host, port));
  EXPECT_EQ("::1", host);
  EXPECT_EQ(5060, port);

  ASSERT_TRUE(CCmUri::ParseHostnamePort("::1", host, port));
  EXPECT_EQ("::1", host);
  EXPECT_EQ(0, port);

  ASSERT_TRUE(CCmUri::ParseHostnamePort("fe80::1:2:3", host, port));
  EXPECT_EQ("fe80::1:2:3", host);
  EXPECT_EQ(0, port);

  ASSERT_TRUE(CCmUri::ParseHostnamePort(" host.example : 42 ", host, port));
  EXPECT_EQ("host.example", host);
  EXPECT_EQ(42, port);

  ASSERT_TRUE(CCmUri::ParseHostnamePort("plain", host, port));
  EXPECT_EQ("plain", host);
  EXPECT_EQ(0, port);

  // Without a port the last ":" is inside the address, so the brackets stay.
  ASSERT_TRUE(CCmUri::ParseHostnamePort("[::1]", host, port));
  EXPECT_EQ("[::1]", host);
  EXPECT_EQ(0, port);
}

TEST(CmUriHostPort, NonNumericPortFailsAndWritesNothing) {
  CCmString host = "untouched";
  unsigned short port = 99;
  EXPECT_FALSE(CCmUri::ParseHostnamePort("host:abc", host, port));
  EXPECT_FALSE(CCmUri::ParseHostnamePort("host:-1", host, port));
  EXPECT_FALSE(CCmUri::ParseHostnamePort("[::1]:x1", host, port));
  EXPECT_EQ("untouched", host);
  EXPECT_EQ(99, port);
}

TEST(CmUriHostPort, LargePortTruncatesTo16Bits) {
  CCmString host;
  unsigned short port = 0;
  ASSERT_TRUE(CCmUri::ParseHostnamePort("h:70000", host, port));
  EXPECT_EQ(70000 % 65536, port);
  ASSERT_TRUE(CCmUri::ParseHostnamePort("h:99999999999999999999", host, port));
}

TEST(CmUriIsNumber, Rules) {
  EXPECT_TRUE(CCmUri::IsNumber(""));
  EXPECT_TRUE(CCmUri::IsNumber(CCmString("\0abc", 4)));
  EXPECT_TRUE(CCmUri::IsNumber("0123456789"));
  EXPECT_FALSE(CCmUri::IsNumber("12a"));
  EXPECT_FALSE(CCmUri::IsNumber(" 1"));
  EXPECT_FALSE(CCmUri::IsNumber("+1"));
}

}  // namespace

// Field lookups in flat XML text.
#include <gtest/gtest.h>

#include <cstring>

#include "cmutil/config/CmXmlUtil.h"

TEST(XmlLookup, StringLookup) {
  char def[] = "default";
  char out[64];
  const char* xml = "<root><name>  media engine \r\n</name><a>12</a><empty>   </empty><x>1</x></root>";
  EXPECT_STREQ("media engine", get_string_from_XML(xml, "name", 63, out, def));
  EXPECT_EQ(out, get_string_from_XML(xml, "a", 2, out, def));
  EXPECT_STREQ("12", out);
  memset(out, 'Z', sizeof out);
  EXPECT_EQ(def, get_string_from_XML(xml, "a", 1, out, def));  // too long for maxLen
  EXPECT_EQ('Z', out[0]);                                      // out untouched on failure
  EXPECT_EQ(def, get_string_from_XML(xml, "missing", 63, out, def));
  EXPECT_EQ(def, get_string_from_XML("<a>12", "a", 63, out, def));  // no closing tag
  // Blanks only: the end of the text gives def, otherwise an empty value.
  EXPECT_EQ(def, get_string_from_XML("<e>   ", "e", 63, out, def));
  EXPECT_EQ(out, get_string_from_XML(xml, "empty", 63, out, def));
  EXPECT_STREQ("", out);
  EXPECT_EQ(out, xml_get_string(xml, "x", 5, out, def));
  EXPECT_STREQ("1", out);
  EXPECT_EQ(def, get_string_from_XML(nullptr, "x", 5, out, def));
  EXPECT_EQ(def, get_string_from_XML(xml, nullptr, 5, out, def));
  // No nesting awareness: the first opening and the first closing after it.
  EXPECT_STREQ("<b>1", get_string_from_XML("<b><b>1</b><b>2</b></b>", "b", 63, out, def));
}

TEST(XmlLookup, TypedLookups) {
  const char* xml = "<c><port>8080</port><neg>-5</neg><ratio>0.1</ratio><big>70000</big><bad>x</bad></c>";
  EXPECT_EQ(8080u, get_uint32_from_XML(xml, "port", 1));
  EXPECT_EQ(1u, get_uint32_from_XML(xml, "missing", 1));
  EXPECT_EQ(1u, get_uint32_from_XML(xml, "bad", 1));
  EXPECT_EQ(-5, get_int32_from_XML(xml, "neg", 3));
  EXPECT_EQ(3, get_int32_from_XML(xml, "missing", 3));
  EXPECT_EQ(static_cast<double>(0.1f), get_double_from_XML(xml, "ratio", 2.0));  // float precision
  EXPECT_NE(0.1, get_double_from_XML(xml, "ratio", 2.0));
  EXPECT_EQ(2.25, get_double_from_XML(xml, "bad", 2.25));
  EXPECT_EQ(2.25, get_double_from_XML(xml, "missing", 2.25));
  EXPECT_EQ(70000ul, xml_get_uint32(xml, "big", 4));
  EXPECT_EQ(-5l, xml_get_int32(xml, "neg", 4));
  EXPECT_EQ(4464, xml_get_uint16(xml, "big", 4));  // 70000 modulo 65536
  EXPECT_EQ(4464, xml_get_int16(xml, "big", 4));
  EXPECT_EQ(4, xml_get_uint16(xml, "missing", 4));
  EXPECT_EQ(65531, xml_get_uint16(xml, "neg", 4));
  std::string longValue = "<n>" + std::string(70, '1') + "</n>";
  EXPECT_EQ(9u, get_uint32_from_XML(longValue.c_str(), "n", 9));  // over 64 characters: default
}

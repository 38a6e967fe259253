// Field lookups in flat XML text.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

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

// Each number getter reads its own format; a missing element gives the default and text
// that is no number leaves it.
TEST(XmlLookup, NumbersInTheirFormatsOrTheDefault) {
  const char* xml = "<n>70000</n><neg>-5</neg><f>2.5</f><w>x1</w>";
  // xml_get_uint16 keeps the low 16 bits.
  EXPECT_EQ(std::make_tuple(70000u, -5, 2.5, 70000ul, -5l, 4464, 0xfffb),
            std::make_tuple(get_uint32_from_XML(xml, "n", 1), get_int32_from_XML(xml, "neg", 1),
                            get_double_from_XML(xml, "f", 1), xml_get_uint32(xml, "n", 1), xml_get_int32(xml, "neg", 1),
                            xml_get_uint16(xml, "n", 1), xml_get_int16(xml, "neg", 1)));
  for (const char* tag : {"missing", "w"})
    EXPECT_EQ(std::make_tuple(9u, 9, 1.5, 9ul, 9l, 9),
              std::make_tuple(get_uint32_from_XML(xml, tag, 9), get_int32_from_XML(xml, tag, 9),
                              get_double_from_XML(xml, tag, 1.5), xml_get_uint32(xml, tag, 9),
                              xml_get_int32(xml, tag, 9), xml_get_uint16(xml, tag, 9)))
        << tag;
}

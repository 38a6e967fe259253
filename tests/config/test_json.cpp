// json::Value model and the text codec, including its deliberate leniencies.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <tuple>
#include <utility>

#include "cmutil/config/CmJson.h"
#include "common/CmTraceCapture.h"

using json::Value;

TEST(JsonRead, NumbersAreClassifiedByRange) {
  Value v = json::Deserialize("[1, -2147483648, 2147483647, 3000000000, -3000000000, 1e20, 2.5, 1e5, 1E5, 4294967296]");
  ASSERT_EQ(std::make_pair(json::kArray, size_t{10}), std::make_pair(v.GetType(), v.size()));
  const json::ValueType types[] = {json::kInt,    json::kInt,    json::kInt,    json::kUInt, json::kInt64,
                                   json::kDouble, json::kDouble, json::kDouble, json::kInt,  json::kInt64};
  for (size_t i = 0; i < 10; ++i) EXPECT_EQ(types[i], v[i].GetType()) << i;
  // 2.5 fills every numeric view; 1E5 has an upper-case exponent: integer conversion stops at E.
  EXPECT_EQ(std::make_tuple(1, -2147483647 - 1, 3000000000u, int64_t{3000000000}, int64_t{-3000000000}, 2, int64_t{2},
                            1, int64_t{4294967296}),
            std::make_tuple(v[0ul].ToInt(), v[1ul].ToInt(), v[3ul].ToUInt(), v[3ul].ToInt64(), v[4ul].ToInt64(),
                            v[6ul].ToInt(), v[6ul].ToInt64(), v[8ul].ToInt(), v[9ul].ToInt64()));
  EXPECT_DOUBLE_EQ(1e20, v[5ul].ToDouble());
  EXPECT_FLOAT_EQ(2.5f, v[6ul].ToFloat());
  EXPECT_DOUBLE_EQ(100000.0, v[7ul].ToDouble());
}

TEST(JsonRead, SyntaxErrorsGiveNull) {
  // Empty key, no colon, no next key, unterminated string, wrong closer, a nested error
  // spoils the whole (twice), a stray closer without its level.
  for (const char* bad : {"{\"\": 1}", "{\"a\" 1}", "{\"a\": 1,}", "{\"a\": \"open}", "[1, [2, 3}]", "[1, {\"a\": 1]",
                          "{\"a\": [1}", "[1]]]"})
    EXPECT_TRUE(json::Deserialize(bad).IsNull()) << bad;
  EXPECT_EQ(1u, json::Deserialize("[1,]").size());         // an empty trailing piece is dropped
  EXPECT_EQ(12, json::Deserialize("[1 2]")[0ul].ToInt());  // blanks inside a token are left out
}

TEST(JsonRead, StringEscapes) {
  Value v = json::Deserialize(
      "[\"a\\nb\", \"q\\\"q\", \"s\\/\\\\\", \"\\u00e9\", \"\\u4e2d\", \"x\\qy\", \"tab\\t\", \"\\u12\", \"[,]\"]");
  ASSERT_EQ(std::make_pair(json::kArray, size_t{9}), std::make_pair(v.GetType(), v.size()));
  // \u gives one byte, the last two hex digits (\u4e2d: 0x2D); an unknown escape is dropped
  // with its backslash; the tab is trimmed away; \u without four hex digits is dropped;
  // brackets and commas inside strings stay.
  const char* const want[] = {"a\nb", "q\"q", "s/\\", "\xE9", "-", "xy", "tab", "12", "[,]"};
  for (size_t i = 0; i < 9; ++i) EXPECT_EQ(want[i], v[i].ToString()) << i;
  Value k = json::Deserialize("{\"k\\\"ey\": 1}");
  ASSERT_EQ(json::kObject, k.GetType());
  EXPECT_EQ(1, k["k\\\"ey"].ToInt());  // keys are taken as they stand
}

TEST(JsonWrite, CompactUnescapedAndSorted) {
  json::Object o;
  o["z"] = Value(1);
  o["a"] = Value(1.5);
  o["m"] = Value("text");
  json::Array arr;
  for (const Value& v :
       {Value(true), Value(), Value(static_cast<int64_t>(-3000000000ll)), Value(3000000000u), Value(0.25f)})
    arr.push_back(v);
  o["list"] = Value(arr);
  EXPECT_EQ("{\"a\":1.500000,\"list\":[true,null,-3000000000,3000000000,0.250000],\"m\":\"text\",\"z\":1}",
            json::Serialize(Value(o)));
  EXPECT_EQ("", json::Serialize(Value(5)));
  EXPECT_EQ("5", json::SerializeValue(Value(5)));
  EXPECT_EQ("[]", json::SerializeArray(json::Array()));
  // No escaping: a double quote in a string gives text that does not read back.
  json::Object q;
  q["k"] = Value("say \"hi\"");
  std::string text = json::Serialize(Value(q));
  EXPECT_EQ("{\"k\":\"say \"hi\"\"}", text);
  EXPECT_TRUE(json::Deserialize(text).IsNull());
}

TEST(JsonWrite, RoundTrip) {
  const std::string text = "{\"a\":[1,2,{\"b\":false}],\"c\":\"d\",\"e\":{},\"f\":[]}";
  Value v = json::Deserialize(text);
  EXPECT_EQ(text, json::Serialize(v));
  EXPECT_TRUE(v == json::Deserialize(json::Serialize(v)));
  // A long text grows its string many times over: each element still reads as it does alone.
  json::Object item;
  item["max"] = Value(std::numeric_limits<double>::max());  // 316 characters in fixed form
  item["s"] = Value(std::string(100, 'x'));
  json::Array many;
  for (int i = 0; i < 3000; ++i) many.push_back(Value(item));
  const std::string one = json::SerializeValue(Value(item));
  std::string expected = "[" + one;
  for (int i = 1; i < 3000; ++i) expected += "," + one;
  EXPECT_EQ(expected + "]", json::Serialize(Value(many)));
  EXPECT_EQ(431u, one.size());  // 316 of them the number
}

TEST(JsonValue, ModelOperations) {
  Value d(-2.75);
  // negative: unsigned view 0
  EXPECT_EQ(std::make_tuple(json::kDouble, -2, 0u), std::make_tuple(d.GetType(), d.ToInt(), d.ToUInt()));
  Value i(-7);
  EXPECT_EQ(std::make_tuple(0u, -7.0, size_t{1}), std::make_tuple(i.ToUInt(), i.ToDouble(), i.size()));
  i.Clear();
  EXPECT_TRUE(i.IsNull());

  Value obj;
  obj["x"] = 1;  // a null value becomes an object
  obj["y"];      // inserts a null member
  EXPECT_EQ(std::make_pair(json::kObject, size_t{2}), std::make_pair(obj.GetType(), obj.size()));
  const char* both[] = {"x", "y"};
  const char* some[] = {"x", "nope"};
  EXPECT_EQ(std::make_tuple(1, 0, -1),
            std::make_tuple(obj.HasKeys(both, 2), obj.HasKeys(some, 2), obj.HasKeys(both, 0)));

  Value other;
  other["y"] = "set";
  other["z"] = true;
  obj.MergeValue(other);
  EXPECT_EQ(std::make_pair(size_t{3}, std::string("set")), std::make_pair(obj.size(), obj["y"].ToString()));

  json::Array a;
  for (int x : {1, 3}) a.push_back(Value(x));
  a.insert(1, Value(2));
  a.insert(99, Value(4));
  EXPECT_EQ("[1,2,3,4]", json::SerializeArray(a));
  EXPECT_TRUE(a.HasValue(Value(3)) && !a.HasValue(Value(3.0)));  // another kind is another value
  EXPECT_EQ(a.begin() + 2, a.find(Value(3)));
  Value av(a);
  json::Array back = av;
  EXPECT_EQ(4u, back.size());
  av.MergeValue(Value(a));
  EXPECT_EQ(8u, av.size());
  a.Clear();
  EXPECT_EQ(0u, a.size());
  EXPECT_TRUE(Value() == Value() && Value(1) != Value(2));
}

TEST(JsonValue, MoveAndCopyAssignFromOwnChild) {
  Value v = json::Deserialize("{\"k\":{\"inner\":[1,2,3]},\"other\":\"x\"}");
  v = std::move(v["k"]);
  EXPECT_EQ(json::kObject, v.GetType());
  EXPECT_EQ("{\"inner\":[1,2,3]}", json::Serialize(v));

  Value a = json::Deserialize("[[\"deep\",true],7]");
  a = std::move(a[0ul]);
  EXPECT_EQ("[\"deep\",true]", json::SerializeArray(a.ToArray()));

  Value s = json::Deserialize("{\"name\":\"a string long enough to live on the heap\"}");
  s = std::move(s["name"]);
  EXPECT_EQ("a string long enough to live on the heap", s.ToString());

  // The same by copy.
  v = json::Deserialize("{\"k\":{\"inner\":[1,2,3]},\"other\":\"x\"}");
  v = v["k"];
  EXPECT_EQ("{\"inner\":[1,2,3]}", json::Serialize(v));
  a = json::Deserialize("[[\"deep\"],7]");
  a = a[0ul];
  EXPECT_EQ("[\"deep\"]", json::SerializeArray(a.ToArray()));
  Value m = json::Deserialize("{\"k\":5}");
  m.MergeValue(Value(json::Array()));  // becomes a copy of an empty array
  EXPECT_EQ(json::kArray, m.GetType());
}

// Out-of-range access and a typed accessor on another kind assert, give the neutral value
// and go on.
TEST(JsonValue, WrongAccessIsReportedNotFatal) {
  CmTraceCapture cap;
  const int64_t before = cm_get_assertions_count();
  Value arr = json::Deserialize("[1]");
  EXPECT_TRUE(arr[5ul].IsNull() && Value(3)["k"].IsNull());
  EXPECT_EQ(before + 2, cm_get_assertions_count());
  EXPECT_TRUE(cap.contains(0, "CmJsonValue.cpp"));
  EXPECT_TRUE(cap.contains(0, "Assert failed: i < m_values.size()"));
  EXPECT_EQ(
      std::make_tuple(0, std::string(), false, size_t{0}),
      std::make_tuple(Value("text").ToInt(), Value(1).ToString(), Value(1).ToBool(), Value(true).ToArray().size()));
  EXPECT_EQ(before + 6, cm_get_assertions_count());
  EXPECT_TRUE(cap.contains(0, "Assert failed: m_type == kString"));
}

TEST(JsonRead, DeepNestingIsRefusedNotOverflowed) {
  EXPECT_TRUE(json::Deserialize(std::string(100000, '[') + std::string(100000, ']')).IsNull());
  EXPECT_EQ(json::kArray, json::Deserialize(std::string(200, '[') + "1" + std::string(200, ']')).GetType());
}

#include "platform/formats/json_serialization.hpp"

#include <gtest/gtest.h>

using platform::Data;
using platform::NSJSONSerialization;
using platform::PropertyList;

namespace {

PropertyList read(const std::string& text) {
  return NSJSONSerialization::JSONObjectWithData(Data(text));
}

std::string written(const PropertyList& value) {
  return std::string(NSJSONSerialization::dataWithJSONObject(value).bytes());
}

TEST(JSONSerializationTest, WritesWhatItReads) {
  for (
      const std::string text :
      {R"({"a":[1,-9223372036854775808,9223372036854775807,0.5,true,false,"x\n\u0001é",[],{}],"b":{"c":{"a":2},"d":3}})",
       R"("text")", "7", "[[[]]]", "1e+300"})
    EXPECT_EQ(written(read(text)), text);
  const PropertyList value =
      read("\xEF\xBB\xBF {\"n\":null, \"big\":9223372036854775808, \"n2\":1, \"n2\":2.0} ");
  EXPECT_EQ(value.valueForKey("big")->real(), 9223372036854775808.0);
  EXPECT_EQ(value.valueForKey("n2")->real(), 2.0);
  ASSERT_NE(value.valueForKey("n"), nullptr);
  EXPECT_THROW(written(*value.valueForKey("n")), platform::EncodingError);
}

TEST(JSONSerializationTest, RefusesEveryDamage) {
  const std::string text = R"({"a":[1,{"b":"\u00e9"}],"c":true})";
  for (std::size_t length = 0; length < text.size(); ++length)
    EXPECT_THROW(read(text.substr(0, length)), platform::DecodingError) << length;
  for (const std::string damaged :
       {"[1] 2", "[1,]", "{\"a\" 1}", "[01]", "[1e999]", "[NaN]", "\"\\ud800\"", "\"\xFF\""})
    EXPECT_THROW(read(damaged), platform::DecodingError) << damaged;
  EXPECT_THROW(read(std::string("[1]\0[2]", 7)), platform::DecodingError);
}

TEST(JSONSerializationTest, LimitsDepthOnBothWays) {
  const auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
  const PropertyList deepest = read(nested(PropertyList::kGreatestDepth));
  EXPECT_EQ(written(deepest), nested(PropertyList::kGreatestDepth));
  EXPECT_THROW(read(nested(PropertyList::kGreatestDepth + 1)), platform::DecodingError);
  EXPECT_THROW(read(std::string(10'000'000, '[')), platform::DecodingError);
  EXPECT_THROW(written(PropertyList(PropertyList::Array{deepest})), platform::EncodingError);
}

}  // namespace

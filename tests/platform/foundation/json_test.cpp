#include "platform/foundation/json.hpp"

#include <gtest/gtest.h>

using platform::Data;
using platform::DecodingError;
using platform::JSONDecoder;

namespace {

/// A record of one text and one truth value.
struct Record {
  std::string text;
  bool flag = false;

  static Record decode(const platform::KeyedDecodingContainer& container) {
    return {container.decodeString("text"), container.decodeBool("flag")};
  }
  void encode(platform::KeyedEncodingContainer& container) const {
    container.encode("text", text);
    container.encode("flag", flag);
  }
};

/// The failure of decoding `text`; empty when there is none.
std::string failureOf(const std::string& text) {
  try {
    static_cast<void>(JSONDecoder().decode<Record>(Data(text)));
    return "";
  } catch (const DecodingError& error) {
    return error.localizedDescription();
  }
}

TEST(JSONTest, ReadsWhatIsThereAndPassesOverTheRest) {
  const auto record = JSONDecoder().decode<Record>(
      Data("\xEF\xBB\xBF {\"more\": [1, {\"text\": \"inner\"}], \"text\": \"\\u00e9\\ud83d\\ude00\\u0000\", "
           "\"flag\": true, \"last\": null}\n"));
  EXPECT_EQ(record.text, std::string("\xC3\xA9\xF0\x9F\x98\x80\0", 7));
  EXPECT_TRUE(record.flag);
  EXPECT_EQ(JSONDecoder().decode<Record>(Data(R"({"flag":false,"text":"a","text":"b"})")).text, "b");
}

TEST(JSONTest, SaysWhatIsWrongWithAValue) {
  const std::pair<const char*, const char*> cases[] = {
      {"{}", "The JSON value for the key \"text\" is missing."},
      {R"({"Text": "x"})", "The JSON value for the key \"text\" is missing."},
      {R"({"inner": {"text": "x"}})", "The JSON value for the key \"text\" is missing."},
      {R"({"text": null})", "The JSON value for the key \"text\" is null where a text is needed."},
      {R"({"text": 3})", "The JSON value for the key \"text\" is a number where a text is needed."},
      {R"({"text": -3})", "The JSON value for the key \"text\" is a number where a text is needed."},
      {R"({"text": 0.5})", "The JSON value for the key \"text\" is a number where a text is needed."},
      {R"({"text": ["x"]})", "The JSON value for the key \"text\" is an array where a text is needed."},
      {R"({"text": {"text": "x"}})",
       "The JSON value for the key \"text\" is an object where a text is needed."},
      {R"({"text": "x", "flag": "true"})",
       "The JSON value for the key \"flag\" is a text where true or false is needed."},
      {R"([{"text": "x"}])", "The JSON data is an array where an object is needed."},
      {R"("text")", "The JSON data is a text where an object is needed."},
  };
  for (const auto& [text, failure] : cases)
    EXPECT_EQ(failureOf(text), failure) << text;
}

TEST(JSONTest, RefusesWhatIsNoJSONAndSaysWhere) {
  EXPECT_EQ(failureOf("{\n  \"text\": \"x\",\n  oops\n}"), "The data is not valid JSON at line 3, column 3.");
  const std::string cases[] = {"",
                               " ",
                               "\xEF\xBB\xBF",
                               "{",
                               R"({"text": "x")",
                               R"({"text": "x",})",
                               R"({"text": "x", "flag": true} trailing)",
                               R"({"text": "x", "flag": true}{})",
                               std::string(R"({"text": "x", "flag": true})") + '\0',
                               "{\"text\": \"\xFF\", \"flag\": true}",
                               "{\"text\": \"\xED\xA0\x80\", \"flag\": true}",
                               R"({"text": "\ud800", "flag": true})",
                               "{\"text\": \"line\nend\", \"flag\": true}",
                               "\xFF\xFE{\0}\0",
                               "<html></html>"};
  for (const std::string& text : cases)
    EXPECT_TRUE(failureOf(text).starts_with("The data is not valid JSON at line ")) << text;
}

TEST(JSONTest, ANumberThatIsTooLargeIsNamedAsThat) {
  EXPECT_EQ(failureOf(R"({"text": "x", "flag": true, "more": 1e999})"),
            "The JSON data holds a number that is too large at line 1, column 41.");
}

TEST(JSONTest, LargeAndDeepTextIsReadOrRefused) {
  const std::string deep(1'000'000, '[');
  EXPECT_NE(failureOf(deep), "");
  EXPECT_EQ(
      failureOf("{\"text\": \"x\", \"flag\": true, \"deep\": " + deep + std::string(deep.size(), ']') + "}"),
      "");
  const auto large = JSONDecoder().decode<Record>(
      Data("{\"text\": \"" + std::string(8'000'000, 'x') + "\", \"flag\": true}"));
  EXPECT_EQ(large.text.size(), 8'000'000U);
  EXPECT_LT(failureOf("{\"text\": \"" + std::string(8'000'000, 'x')).size(), 100U);
}

TEST(JSONTest, WritesWhatAReaderReadsBack) {
  const Record record{"\"quoted\" \\ caf\xC3\xA9 \xF0\x9F\x98\x80\n" + std::string(1, '\0'), true};
  const Data json = platform::JSONEncoder().encode(record);
  const auto read = JSONDecoder().decode<Record>(json);
  EXPECT_EQ(read.text, record.text);
  EXPECT_TRUE(read.flag);
  EXPECT_EQ(JSONDecoder().decode<Record>(platform::JSONEncoder().encode(Record{"bad \xFF byte"})).text,
            "bad \xEF\xBF\xBD byte");
}

}  // namespace

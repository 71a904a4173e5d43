#include "platform/formats/json.hpp"

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

TEST(JSONTest, SaysWhatIsWrong) {
  const std::string value = "The JSON value for the key ";
  const std::pair<const char*, std::string> cases[] = {
      {R"({"inner": {"text": "x"}})", value + "\"text\" is missing."},
      {R"({"text": null})", value + "\"text\" is null where a string is needed."},
      {R"({"text": 0.5})", value + "\"text\" is a number where a string is needed."},
      {R"({"text": ["x"]})", value + "\"text\" is an array where a string is needed."},
      {R"({"text": {"text": "x"}})", value + "\"text\" is an object where a string is needed."},
      {R"({"text": "", "flag": "true"})", value + "\"flag\" is a string where true or false is needed."},
      {R"([{"text": "x"}])", "The JSON data is an array where an object is needed."},
      {"{\n  \"text\": \"x\",\n  oops\n}", "The data is not valid JSON at line 3, column 3."},
      {R"({"text": -1e999})", value + "\"text\" is a number where a string is needed."},
      {"1e999", "The JSON data is a number where an object is needed."},
      {R"({"more": 1e999, "text": "x", "flag": 1e})", "The data is not valid JSON at line 1, column 40."},
  };
  for (const auto& [text, failure] : cases)
    EXPECT_EQ(failureOf(text), failure) << text;
}

TEST(JSONTest, PassesOverNumbersOfAnySize) {
  const std::string digits(5000, '9');
  const std::string text = R"(\\\" 1e999, -2e999)";
  const auto record = JSONDecoder().decode<Record>(Data("{\"a\": [1e999,-1E+999, " + digits + "," + digits +
                                                        "." + digits + "e-7], \"text\": \"" + text +
                                                        "\", \"1e999\": 0e9999, \"flag\": true}"));
  EXPECT_EQ(record.text, R"(\" 1e999, -2e999)");
  // What is no number remains none.
  for (const char* wrong :
       {"01", "1.e999", ".5", "+1", "--1", "1e", "1e+", "1-2", "1e999.5", "1e999e9", "- 1", "1e9999x", "0x1"})
    EXPECT_TRUE(failureOf(R"({"text": "", "flag": true, "a": 1e999, "b": )" + std::string(wrong) + "}")
                    .starts_with("The data is not valid JSON at line 1, "))
        << wrong;
}

TEST(JSONTest, RefusesWhatIsNoJSON) {
  const std::string whole = R"({"text": "x", "flag": true})";
  const std::string cases[] = {"",
                               "{",
                               R"({"text": "x", "flag": true,})",
                               whole + " trailing",
                               whole + '\0',
                               "{\"text\": \"\xED\xA0\x80\", \"flag\": true}",
                               R"({"text": "\ud800", "flag": true})",
                               "{\"text\": \"line\nend\", \"flag\": true}"};
  for (const std::string& text : cases)
    EXPECT_TRUE(failureOf(text).starts_with("The data is not valid JSON at line ")) << text;
}

TEST(JSONTest, WritesWhatAReaderReadsBack) {
  const auto readBack = [](const std::string& text) {
    return JSONDecoder().decode<Record>(platform::JSONEncoder().encode(Record{text, true})).text;
  };
  const std::string text = "\"quoted\" \\ caf\xC3\xA9 \xF0\x9F\x98\x80\n" + std::string(1, '\0');
  EXPECT_EQ(readBack(text), text);
  EXPECT_EQ(readBack("bad \xFF byte"), "bad \xEF\xBF\xBD byte");
}

}  // namespace

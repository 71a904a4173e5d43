#include "platform/foundation/property_list.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "platform/foundation/text.hpp"
#include "tests/platform/foundation/binary_property_list_builder.hpp"

using platform::Data;
using platform::PropertyList;
using platform::PropertyListError;
using test::BinaryPropertyListBuilder;
using testing::HasSubstr;

namespace {

PropertyList read(std::string bytes) {
  return platform::NSPropertyListSerialization::propertyListWithData(Data(std::move(bytes)));
}

std::string write(const PropertyList& list) {
  return std::string(platform::NSPropertyListSerialization::dataWithPropertyList(list).bytes());
}

std::string repeated(const std::string& text, std::size_t times) {
  std::string whole;
  for (std::size_t time = 0; time < times; ++time)
    whole += text;
  return whole;
}

std::string plist(const std::string& body) {
  return "<plist version=\"1.0\">" + body + "</plist>";
}

/// A list in a form that is easy to compare.
std::string described(const PropertyList& list) {
  if (const auto* string = list.string())
    return "'" + *string + "'";
  if (const auto* data = list.data()) {
    std::string bytes(data->bytes());
    std::ranges::replace_if(
        bytes, [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; }, '?');
    return "data '" + bytes + "'";
  }
  if (const auto boolean = list.boolean())
    return *boolean ? "true" : "false";
  if (const auto integer = list.integer())
    return std::to_string(*integer);
  if (const auto real = list.real())
    return "real " + std::to_string(*real);
  std::string text;
  if (const auto* array = list.array()) {
    for (const PropertyList& item : *array)
      text += described(item) + ' ';
    return "[ " + text + "]";
  }
  if (const auto* dictionary = list.dictionary()) {
    for (const auto& [key, value] : *dictionary)
      text += key + ": " + described(value) + ' ';
    return "{ " + text + "}";
  }
  return "other";
}

void expectRefused(const std::string& bytes, const std::string& reason) {
  try {
    ADD_FAILURE() << "read as " << described(read(bytes)) << ": " << bytes.substr(0, 200);
  } catch (const PropertyListError& error) {
    EXPECT_THAT(error.localizedDescription(), HasSubstr(reason)) << bytes.substr(0, 200);
    EXPECT_TRUE(platform::stringFromUTF8(Data(error.localizedDescription())));
  }
}

TEST(PropertyListTest, ReadsXML) {
  const std::pair<std::string, std::string> cases[] = {
      {"<string>  x \t</string>", "'  x \t'"},
      {"<string/>", "''"},
      {"<string></string>", "''"},
      {"<string>a&amp;&lt;&gt;&quot;&apos;&#65;&#x1F600;</string>", "'a&<>\"'A\xF0\x9F\x98\x80'"},
      {"<string>a<![CDATA[<b>&amp;]]>c<!-- d -->e</string>", "'a<b>&amp;ce'"},
      {"<string>Icon\r \r\n \n</string>", "'Icon\r \r\n \n'"},
      {"<string a='>'>x</string>", "'x'"},
      {"<integer> -12 </integer>", "-12"},
      {"<integer>0x1F</integer>", "31"},
      {"<integer>-9223372036854775808</integer>", "-9223372036854775808"},
      {"<integer>18446744073709551615</integer>", "other"},
      {"<string>12</string>", "'12'"},
      {"<real>-1.5</real>", "real -1.500000"},
      {"<real>+1.5</real>", "real 1.500000"},
      {"<true/>", "true"},
      {"<false></false>", "false"},
      {"<date>2026-01-31T23:59:59Z</date>", "other"},
      {"<data/>", "data ''"},
      {"<data>\n aGVs\n\tbG8h\n aQ== </data>", "data 'hello!i'"},
      {"<array> <true/>\n<array/> </array>", "[ true [ ] ]"},
      {"<dict><key>b</key><true/><key>a</key><string>1</string><key>b</key><false/><key/><dict/></dict>",
       "{ : { } a: '1' b: false }"}};
  for (const auto& [body, expected] : cases)
    EXPECT_EQ(described(read(plist(body))), expected) << body;
  const std::string prolog =
      "<!DOCTYPE plist PUBLIC \"-//Q//DTD PLIST 1.0//EN\" \"http://localhost/PropertyList.dtd\"><!-- <plist> "
      "-->\n";
  EXPECT_EQ(described(read("<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + prolog + plist("<true/>"))),
            "true");
  EXPECT_EQ(described(read("\xEF\xBB\xBF" + prolog + plist("<true/>\n") + "\n")), "true");
  EXPECT_EQ(described(read("<?xml version='1.0' encoding='ISO-8859-1'?><string>\xE4</string>")),
            "'\xC3\xA4'");
}

TEST(PropertyListTest, RefusesWhatIsNoListInXML) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "no proper XML"},
      {"bplist", "no complete binary list"},
      {"{ a = b; }", "no proper XML"},
      {"<plist/>", "holds no value"},
      {plist("text"), "text where elements are needed"},
      {plist("<string>a</string><string>b</string>"), "more than one value"},
      {plist("<true/>") + "garbage", "junk after"},
      {plist("<true/>") + plist("<true/>"), "junk after"},
      {plist(plist("<true/>")), "unknown"},
      {plist("<uid>1</uid>"), "unknown"},
      {plist("<key>a</key>"), "keys and values"},
      {plist("<dict><true/></dict>"), "keys and values"},
      {plist("<dict><key>a</key></dict>"), "has no value"},
      {plist("<dict><key>a</key><key>b</key></dict>"), "keys and values"},
      {plist("<array>a</array>"), "text where elements are needed"},
      {plist("<string><true/></string>"), "elements where text is needed"},
      {plist("<integer/>"), "no integer"},
      {plist("<integer>12x</integer>"), "no integer"},
      {plist("<integer>--1</integer>"), "no integer"},
      {plist("<integer>99999999999999999999</integer>"), "no integer"},
      {plist("<real>1,5</real>"), "no real number"},
      {plist("<true>x</true>"), "no truth value"},
      {plist("<date>yesterday</date>"), "no date"},
      {plist("<data>a</data>"), "base 64"},
      {plist("<data>aGV*</data>"), "base 64"},
      {plist("<data>aQ==aQ==</data>"), "base 64"},
      {plist("<data>aQ=</data>"), "base 64"},
      {plist("<string>\xFF</string>"), "no proper XML"},
      {plist("<string>\xED\xA0\x80</string>"), "no proper XML"},
      {plist("<string>&#xD800;</string>"), "no proper XML"},
      {plist("<string>&#0;</string>"), "no proper XML"},
      {plist(std::string("<string>\0</string>", 18)), "no proper XML"},
      {plist("<string>&a;</string>"), "no proper XML"},
      {"<!DOCTYPE plist SYSTEM 'x'>" + plist("<string>&a;</string>"), "unknown entity"},
      {"<!DOCTYPE plist [<!ENTITY a 'b'>]>" + plist("<string>&a;</string>"), "declares an entity"},
      {plist(repeated("<array>", 513) + repeated("</array>", 513)), "nested too deeply"}};
  for (const auto& [bytes, reason] : cases)
    expectRefused(bytes, reason);
  const std::string whole = plist("<dict><key>a</key><array><data>aQ==</data><true/></array></dict>");
  for (std::size_t length = 0; length < whole.size(); ++length)
    expectRefused(whole.substr(0, length), "");
}

TEST(PropertyListTest, ReadsTheBinaryForm) {
  BinaryPropertyListBuilder list;
  const auto key = list.ascii("key");
  const auto wide = list.utf16(u"\u00DC\U0001F600");
  const auto items = list.array({list.integer(-2), list.add("\x10\x05"), list.add("\x09"), list.add("\x08"),
                                 list.real(1.5), list.data("d"), list.add("\x33" + std::string(8, 'd')),
                                 list.ascii(std::string(300, 'a')), list.array({}), key, key});
  const auto root = list.dictionary({key, wide}, {items, list.ascii("")});
  EXPECT_EQ(described(read(list.finish(root))), "{ key: [ -2 5 true false real 1.500000 data 'd' other '" +
                                                    std::string(300, 'a') +
                                                    "' [ ] 'key' 'key' ] \xC3\x9C\xF0\x9F\x98\x80: '' }");
}

TEST(PropertyListTest, RefusesDangerousBinaryLists) {
  const auto single = [](const std::string& object) {
    BinaryPropertyListBuilder list;
    return list.finish(list.add(object));
  };
  for (const std::string& object :
       {std::string("\0", 1), std::string("\x15") + std::string(32, 'i'), std::string("\x70"),
        std::string("\xC0"), std::string("\x5F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"), std::string("\x5F\x14"),
        std::string("\x5F"),
        std::string("\x13"
                    "abc"),
        std::string("\x6F\x13\x80\0\0\0\0\0\0\x01"
                    "ab",
                    12),
        std::string("\x52") + "a", std::string("\xA1\x07")})
    expectRefused(single(object), "object");
  for (const std::string& text : {std::string("\x51\xC4"),
                                  std::string("\x53"
                                              "a\0b",
                                              4),
                                  std::string("\x61\xD8\x00", 3), std::string("\x61\xDC\x00", 3),
                                  std::string("\x62\xD8\x00\x00\x41", 5)})
    expectRefused(single(text), "text that is not valid");

  BinaryPropertyListBuilder keys;
  const auto number = keys.integer(1);
  expectRefused(keys.finish(keys.dictionary({number}, {number})), "key that is no text");
  BinaryPropertyListBuilder circle;
  expectRefused(circle.finish(circle.array({circle.array({0, 1})})), "contains itself");
}

TEST(PropertyListTest, NeitherDepthNorSharingOverwhelmsTheReader) {
  for (const auto& [depth, isRead] : {std::pair(512, true), {513, false}, {200'000, false}}) {
    BinaryPropertyListBuilder list;
    std::uint32_t inner = list.array({});
    for (int level = 1; level < depth; ++level)
      inner = list.array({inner});
    const std::string bytes = list.finish(inner);
    if (isRead)
      EXPECT_NO_THROW(read(bytes)) << depth;
    else
      expectRefused(bytes, "nested too deeply");
  }
  EXPECT_NO_THROW(read(plist(repeated("<array>", 512) + repeated("</array>", 512))));
  expectRefused(plist(repeated("<array>", 1'000'000) + repeated("</array>", 1'000'000)), "nested too deeply");

  BinaryPropertyListBuilder shared;
  std::uint32_t inner = shared.ascii("x");
  for (int level = 0; level < 60; ++level)
    inner = shared.array({inner, inner});
  expectRefused(shared.finish(inner), "shared beyond reason");
  BinaryPropertyListBuilder large;
  const auto text = large.data(std::string(1 << 20, 'x'));
  expectRefused(large.finish(large.array(std::vector<std::uint32_t>(1 << 16, text))), "shared beyond reason");
}

TEST(PropertyListTest, ReadsLargeListsInLinearTime) {
  std::string members;
  for (int number = 0; number < 300'000; ++number)
    members += "<key>" + std::to_string(number) + "</key><true/>";
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(read(plist("<dict>" + members + "</dict>")).dictionary()->size(), 300'000U);
  EXPECT_EQ(read(plist("<string>" + repeated("&amp;", 1'000'000) + "</string>")).string()->size(),
            1'000'000U);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST(PropertyListTest, DamagedBinaryListsAreReadOrRefusedAsOne) {
  BinaryPropertyListBuilder list;
  const auto key = list.ascii("key");
  const std::string whole =
      list.finish(list.dictionary({key, list.utf16(u"\u00DC")}, {list.array({key, list.data("data")}),
                                                                 list.ascii("a text of some length")}));
  for (std::size_t length = 0; length < whole.size(); ++length)
    expectRefused(whole.substr(0, length), "");
  for (std::size_t position = 0; position < whole.size(); ++position) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      std::string flipped = whole;
      flipped[position] = static_cast<char>(static_cast<unsigned char>(flipped[position]) ^ (1U << bit));
      try {
        EXPECT_TRUE(platform::stringFromUTF8(Data(described(read(flipped))))) << position;
      } catch (const PropertyListError&) {
        // As good.
      }
    }
  }
}

TEST(PropertyListTest, WritesWhatItReads) {
  const PropertyList list(PropertyList::Dictionary{
      {"", PropertyList("")},
      {"a <key> & more", PropertyList(PropertyList::Array{PropertyList(true), PropertyList(false)})},
      {"blank", PropertyList(" \t\r\n ]]> '\"& \xC3\x9C \xF0\x9F\x98\x80 ")},
      {"data", PropertyList(Data(std::string("\0\xFF\x7F"
                                             "abc",
                                             6)))},
      {"empty", PropertyList(Data())},
      {"number", PropertyList(std::int64_t{-42})},
      {"great", PropertyList(std::int64_t{9223372036854775807})},
      {"real", PropertyList(0.25)},
      {"nothing", PropertyList(PropertyList::Dictionary{})}});
  EXPECT_EQ(described(read(write(list))), described(list));
  for (const std::string& text :
       {std::string("a\0b", 3), std::string("\x01"), std::string("\xFF"), std::string("\xEF\xBF\xBF")}) {
    EXPECT_THROW(write(PropertyList(text)), PropertyListError);
    EXPECT_THROW(write(PropertyList(PropertyList::Dictionary{{text, PropertyList(true)}})),
                 PropertyListError);
  }
  EXPECT_THROW(write(PropertyList::other()), PropertyListError);
}

}  // namespace

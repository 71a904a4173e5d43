#include "platform/formats/property_list.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <limits>

#include "platform/foundation/text.hpp"
#include "tests/helpers/bytes.hpp"

using platform::Data;
using platform::PropertyList;
using platform::PropertyListError;
using test::bigEndian;
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
    EXPECT_TRUE(platform::stringFromUTF8(error.localizedDescription()));
  }
}

/// Puts together a list in the binary form, whether it makes sense or not. Every operation adds an object and
/// returns its index.
class BinaryPropertyListBuilder {
 public:
  using References = std::vector<std::uint32_t>;

  /// An object with these very bytes.
  std::uint32_t add(const std::string& bytes) {
    offsets_.push_back(bytes_.size());
    bytes_ += bytes;
    return static_cast<std::uint32_t>(offsets_.size() - 1);
  }

  std::uint32_t data(const std::string& value) { return add(head(0x40, value.size()) + value); }
  std::uint32_t ascii(const std::string& text) { return add(head(0x50, text.size()) + text); }
  std::uint32_t array(const References& items) { return add(head(0xA0, items.size()) + references(items)); }
  std::uint32_t dictionary(const References& keys, const References& values) {
    return add(head(0xD0, keys.size()) + references(keys) + references(values));
  }

  /// The whole list.
  std::string finish(std::uint32_t root) const {
    constexpr unsigned kOffsetSize = 5;
    std::string whole = bytes_;
    for (const std::size_t offset : offsets_)
      whole += bigEndian(offset, kOffsetSize);
    return whole + std::string(6, '\0') + bigEndian(kOffsetSize, 1) + bigEndian(kReferenceSize, 1) +
           bigEndian(offsets_.size(), 8) + bigEndian(root, 8) + bigEndian(bytes_.size(), 8);
  }

 private:
  static constexpr unsigned kReferenceSize = 4;

  static std::string head(unsigned kind, std::size_t length) {
    const bool fits = length < 15;
    std::string bytes(1, static_cast<char>(kind | (fits ? length : 15)));
    return fits ? bytes : bytes + '\x12' + bigEndian(length, 4);
  }

  static std::string references(const References& indices) {
    std::string bytes;
    for (const std::uint32_t index : indices)
      bytes += bigEndian(index, kReferenceSize);
    return bytes;
  }

  std::string bytes_ = "bplist00";
  std::vector<std::size_t> offsets_;
};

TEST(PropertyListTest, ReadsXML) {
  const std::pair<std::string, std::string> cases[] = {
      {"<string>  x \t</string>", "'  x \t'"},
      {"<string/>", "''"},
      {"<string>a&amp;&lt;&gt;&quot;&apos;&#65;&#x1F600;</string>", "'a&<>\"'A\xF0\x9F\x98\x80'"},
      {"<string>a<![CDATA[<b>&amp;]]>c<!-- d -->e</string>", "'a<b>&amp;ce'"},
      {"<string>Icon\r \r\n \n</string>", "'Icon\r \r\n \n'"},
      {"<string a='>'>x</string>", "'x'"},
      {"<integer> -12 </integer>", "-12"},
      {"<integer>0x1F</integer>", "31"},
      {"<integer>18446744073709551615</integer>", "other"},
      {"<real>-1.5</real>", "real -1.500000"},
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
      {"", "not well-formed XML"},
      {"bplist", "not a complete binary list"},
      {"<plist/>", "contains no value"},
      {plist("<string>a</string><string>b</string>"), "more than one value"},
      {plist("<true/>") + "garbage", "junk after"},
      {plist("<uid>1</uid>"), "unknown"},
      {plist("<key>a</key>"), "keys and values"},
      {plist("<dict><true/></dict>"), "keys and values"},
      {plist("<dict><key>a</key></dict>"), "has no value"},
      {plist("<dict><key>a</key><key>b</key></dict>"), "keys and values"},
      {plist("<array>a</array>"), "text where elements are needed"},
      {plist("<string><true/></string>"), "elements where text is needed"},
      {plist("<integer>12x</integer>"), "not an integer"},
      {plist("<integer>99999999999999999999</integer>"), "not an integer"},
      {plist("<real>1,5</real>"), "not a real number"},
      {plist("<true>x</true>"), "not a truth value"},
      {plist("<date>yesterday</date>"), "not a date"},
      {plist("<data>aQ==aQ==</data>"), "base 64"},
      {plist("<data>aQ=</data>"), "base 64"},
      {plist("<string>\xED\xA0\x80</string>"), "not well-formed XML"},
      {plist(std::string("<string>\0</string>", 18)), "not well-formed XML"},
      {"<!DOCTYPE plist SYSTEM 'x'>" + plist("<string>&a;</string>"), "unknown entity"},
      {"<!DOCTYPE plist [<!ENTITY a 'b'>]>" + plist("<string>&a;</string>"), "declares an entity"}};
  for (const auto& [bytes, reason] : cases)
    expectRefused(bytes, reason);
}

TEST(PropertyListTest, ReadsTheBinaryForm) {
  using namespace std::string_literals;
  BinaryPropertyListBuilder list;
  const auto key = list.ascii("key");
  const auto wide = list.add("\x63" + "\0\xDC\xD8\x3D\xDE\0"s);
  const std::string most(8, '\xFF');
  const auto items = list.array(
      {list.add("\x13" + most.substr(1) + '\xFE'), list.add("\x10\xFE"), list.add("\x12" + most.substr(4)),
       list.add("\x14"s + most + most), list.add("\x14" + std::string(8, '\0') + most), list.add("\x09"),
       list.add("\x08"), list.add("\x22\x3F\xC0\0\0"s), list.add("\x23\xBF\xF8" + std::string(6, '\0')),
       list.data("d"), list.add("\x33" + std::string(8, 'd')), list.add("\x80\1"),
       list.ascii(std::string(300, 'a')), list.array({}), key, key});
  const auto root = list.dictionary({key, wide, wide}, {items, key, list.ascii("")});
  EXPECT_EQ(
      described(read(list.finish(root))),
      "{ key: [ -2 254 4294967295 -1 other true false real 1.500000 real -1.500000 data 'd' other other '" +
          std::string(300, 'a') + "' [ ] 'key' 'key' ] \xC3\x9C\xF0\x9F\x98\x80: '' }");
}

TEST(PropertyListTest, RefusesDangerousBinaryLists) {
  using namespace std::string_literals;
  const auto single = [](const std::string& object) {
    BinaryPropertyListBuilder list;
    return list.finish(list.add(object));
  };
  for (const std::string& object :
       {"\0"s, "\x15"s + std::string(32, 'i'), "\xC0"s, "\x5F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s, "\x5F"s,
        "\x6F\x13\x80\0\0\0\0\0\0\x01"s + "ab", "\xA1\x07"s})
    expectRefused(single(object), "object");
  for (const std::string& text : {"\x51\xC4"s, "\x53"s + "a\0b"s, "\x61\xD8\x00"s, "\x62\xD8\x00\x00\x41"s})
    expectRefused(single(text), "string that is not valid");

  BinaryPropertyListBuilder keys;
  const auto number = keys.add("\x10\x01");
  expectRefused(keys.finish(keys.dictionary({number}, {number})), "dictionaries is not a string");
  BinaryPropertyListBuilder circle;
  expectRefused(circle.finish(circle.array({circle.array({0, 1})})), "contains itself");
}

TEST(PropertyListTest, NeitherDepthNorSharingOverwhelmsTheReader) {
  for (const std::size_t depth : {512U, 513U, 200'000U}) {
    BinaryPropertyListBuilder list;
    std::uint32_t inner = list.array({});
    for (std::size_t level = 1; level < depth; ++level)
      inner = list.array({inner});
    const std::string binary = list.finish(inner);
    const std::string text = plist(repeated("<array>", depth) + repeated("</array>", depth));
    for (const std::string& bytes : {binary, text}) {
      if (depth <= 512)
        EXPECT_NO_THROW(read(bytes)) << depth;
      else
        expectRefused(bytes, "nested too deeply");
    }
  }

  BinaryPropertyListBuilder shared;
  std::uint32_t inner = shared.ascii("x");
  for (int level = 0; level < 60; ++level)
    inner = shared.array({inner, inner});
  expectRefused(shared.finish(inner), "shared too often");
  BinaryPropertyListBuilder large;
  const auto text = large.data(std::string(1 << 20, 'x'));
  expectRefused(large.finish(large.array(std::vector<std::uint32_t>(1 << 16, text))), "shared too often");
}

TEST(PropertyListTest, ReadsLargeListsInLinearTime) {
  // In quadratic time the tests' time limit would end it.
  EXPECT_NO_THROW(read(plist("<dict>" + repeated("<key>k</key><true/>", 300'000) + "</dict>")));
  EXPECT_NO_THROW(read(plist("<string>" + repeated("&amp;", 1'000'000) + "</string>")));
}

TEST(PropertyListTest, WritesXMLThatOtherReadersUnderstand) {
  // A bare carriage return would be a line feed to them.
  EXPECT_EQ(write(PropertyList(PropertyList::Array{PropertyList("a\r<&>"), PropertyList(std::int64_t{-42})})),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<array>\n"
            "\t<string>a&#13;&lt;&amp;&gt;</string>\n\t<integer>-42</integer>\n</array>\n</plist>\n");
}

}  // namespace

#include <gtest/gtest.h>

#include "platform/foundation/property_list.hpp"

namespace {

using platform::Data;
using platform::NSPropertyListSerialization;
using platform::PropertyListError;

std::string repeated(std::string_view text, std::size_t count) {
  std::string result;
  for (std::size_t index = 0; index < count; ++index)
    result += text;
  return result;
}

std::string xml(const std::string& content) {
  return "<?xml version=\"1.0\"?><plist version=\"1.0\">" + content + "</plist>";
}

/// A binary list of arrays, each with `width` references to the next one.
std::string binaryChain(unsigned length, unsigned width, bool closed = false) {
  std::string list = "bplist00";
  std::string table;
  const auto bigEndian = [](unsigned value) {
    return std::string{static_cast<char>(value >> 24U), static_cast<char>(value >> 16U),
                       static_cast<char>(value >> 8U), static_cast<char>(value)};
  };
  for (unsigned index = 0; index < length; ++index) {
    table += bigEndian(static_cast<unsigned>(list.size()));
    const bool last = index + 1 == length;
    const unsigned references = last && !closed ? 0 : width;
    list += static_cast<char>(0xA0U | references);
    list += repeated(bigEndian(last ? 0 : index + 1), references);
  }
  const auto tableOffset = static_cast<unsigned>(list.size());
  const std::string zeros(4, '\0');
  return list + table + std::string(6, '\0') + "\x04\x04" + zeros + bigEndian(length) + zeros + zeros +
         zeros + bigEndian(tableOffset);
}

struct ShapeCase {
  const char* name;
  std::string list;
  bool readable;
};

TEST(PropertyListShape, listsThatWouldUseUpStackOrMemoryAreRefused) {
  const std::vector<ShapeCase> cases{
      {"a few levels", xml(repeated("<array>", 100) + repeated("</array>", 100)), true},
      {"levels without end", xml(repeated("<array>", 1'000'000) + repeated("</array>", 1'000'000)), false},
      {"dictionaries without end", xml(repeated("<dict><key>k</key>", 500'000)), false},
      {"closed in comments only", xml(repeated("<array><!--</array>-->", 500'000)), false},
      {"closed in attributes only", xml(repeated("<array a=\"/>\">", 500'000)), false},
      {"many siblings", xml("<array>" + repeated("<dict></dict><dict/>", 100'000) + "</array>"), true},
      {"a comment", xml("<array><!-- text --><string>a</string></array>"), true},
      {"binary, a few levels", binaryChain(100, 1), true},
      {"binary, levels without end", binaryChain(100'000, 1), false},
      {"binary, in a circle", binaryChain(2, 1, true), false},
      {"binary, multiplied", binaryChain(40, 4), false},
  };
  for (const ShapeCase& shape : cases) {
    bool readable = true;
    try {
      NSPropertyListSerialization::propertyListWithData(Data(shape.list));
    } catch (const PropertyListError&) {
      readable = false;
    }
    EXPECT_EQ(readable, shape.readable) << shape.name;
  }
}

TEST(PropertyListShape, binaryListsCutAnywhereAreRefused) {
  const std::string list = binaryChain(20, 2);
  for (std::size_t length = 0; length < list.size(); ++length)
    EXPECT_THROW(NSPropertyListSerialization::propertyListWithData(Data(list.substr(0, length))),
                 PropertyListError);
}

}  // namespace

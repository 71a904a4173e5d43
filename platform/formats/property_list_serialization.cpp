#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "platform/formats/binary_property_list.hpp"
#include "platform/formats/property_list.hpp"
#include "platform/formats/xml_property_list.hpp"
#include "platform/foundation/bytes.hpp"
#include "platform/foundation/text.hpp"

namespace platform {
namespace {

/// XML 1.0 excludes most control characters, U+FFFE and U+FFFF.
bool isCarriedByXML(const std::string& text) {
  const auto isControl = [](char character) {
    return character >= 0 && character < ' ' && character != '\t' && character != '\n' && character != '\r';
  };
  return stringFromUTF8(text) && std::ranges::none_of(text, isControl) &&
         text.find("\xEF\xBF\xBE") == std::string::npos && text.find("\xEF\xBF\xBF") == std::string::npos;
}

std::string escaped(const std::string& text) {
  if (!isCarriedByXML(text))
    throw PropertyListError("The text " + quoted(text) +
                            " cannot be written to a property list: XML cannot represent it.");
  std::string xml;
  for (const char character : text) {
    switch (character) {
      case '&':
        xml += "&amp;";
        break;
      case '<':
        xml += "&lt;";
        break;
      case '>':
        xml += "&gt;";
        break;
      case '\r':  // unescaped, parsers turn it into a line feed
        xml += "&#13;";
        break;
      default:
        xml += character;
    }
  }
  return xml;
}

/// Base 64 (RFC 4648).
std::string base64(std::string_view bytes) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string digits;
  for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(bytes.size(), 3))) {
    const std::string_view group = bytes.substr(0, 3);
    const std::uint64_t bits = bigEndian(group) << 8 * (3 - group.size());
    for (unsigned digit = 0; digit < 4; ++digit)
      digits += digit <= group.size() ? kDigits[bits >> (18 - 6 * digit) & 0x3FU] : '=';
  }
  return digits;
}

/// The shortest text that reads back as the same number.
template <typename Number>
std::string numeral(Number number) {
  std::array<char, 32> digits{};
  return {digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr};
}

class XMLWriter {
 public:
  void write(const PropertyList& value) {
    if (const auto* array = value.array())
      return writeContainer("array", *array, [this](const PropertyList& item) { write(item); });
    if (const auto* dictionary = value.dictionary())
      return writeContainer("dict", *dictionary, [this](const auto& member) {
        writeLeaf("key", escaped(member.first));
        write(member.second);
      });
    if (const auto* string = value.string())
      return writeLeaf("string", escaped(*string));
    if (const auto* data = value.data())
      return writeLeaf("data", base64(data->bytes()));
    if (const auto integer = value.integer())
      return writeLeaf("integer", numeral(*integer));
    if (const auto real = value.real())
      return writeLeaf("real", numeral(*real));
    const auto boolean = value.boolean();
    if (!boolean)
      throw PropertyListError("A property list contains a value that cannot be written, such as a date.");
    line(*boolean ? "<true/>" : "<false/>");
  }

  void line(std::string_view text) { xml_.append(depth_, '\t').append(text) += '\n'; }
  std::string release() { return std::move(xml_); }

 private:
  void writeLeaf(const std::string& name, const std::string& text) {
    line('<' + name + '>' + text + "</" + name + '>');
  }

  template <typename Container, typename Write>
  void writeContainer(const std::string& name, const Container& container, Write writeElement) {
    line('<' + name + '>');
    ++depth_;
    std::ranges::for_each(container, writeElement);
    --depth_;
    line("</" + name + '>');
  }

  std::string xml_;
  std::size_t depth_ = 0;
};

}  // namespace

PropertyList NSPropertyListSerialization::propertyListWithData(const Data& bytes) {
  return isBinaryPropertyList(bytes.bytes()) ? readBinaryPropertyList(bytes.bytes())
                                             : readXMLPropertyList(bytes.bytes());
}

Data NSPropertyListSerialization::dataWithPropertyList(const PropertyList& list) {
  XMLWriter writer;
  writer.line(R"(<?xml version="1.0" encoding="UTF-8"?>)");
  writer.line(R"(<plist version="1.0">)");
  writer.write(list);
  writer.line("</plist>");
  return Data(writer.release());
}

}  // namespace platform

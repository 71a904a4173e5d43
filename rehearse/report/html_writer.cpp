#include "rehearse/report/html_writer.hpp"

#include <algorithm>
#include <array>

#include "platform/foundation/error.hpp"
#include "rehearse/report/wording.hpp"

namespace rehearse {
namespace {

void appendEscaped(std::string& to, std::string_view text) {
  for (const char character : platform::printable(text)) {
    switch (character) {
      case '&':
        to += "&amp;";
        break;
      case '<':
        to += "&lt;";
        break;
      case '>':
        to += "&gt;";
        break;
      case '"':
        to += "&quot;";
        break;
      case '\'':
        to += "&#39;";
        break;
      default:
        to += character;
    }
  }
}

/// Whether a line end behind the element cannot change how the document looks.
bool isBlock(std::string_view name) {
  constexpr std::array<std::string_view, 17> kBlocks = {
      "head", "body",  "header", "main", "section", "article", "h1", "h2", "h3",
      "p",    "table", "tr",     "ul",   "ol",      "li",      "dl", "div"};
  return std::ranges::find(kBlocks, name) != kBlocks.end();
}

}  // namespace

void HTMLWriter::text(std::string_view text) {
  appendEscaped(text_, text);
}

void HTMLWriter::element(const char* name, Attributes attributes, std::string_view content) {
  element(name, attributes, [&] { text(content); });
}

void HTMLWriter::preformatted(std::string_view text) {
  element("pre", {}, [&] {
    for (const std::string& line : linesOf(text)) {
      appendEscaped(text_, line);
      text_ += '\n';
    }
  });
}

void HTMLWriter::open(const char* name, Attributes attributes) {
  text_.append("<").append(name);
  for (const Attribute& attribute : attributes) {
    text_.append(" ").append(attribute.name).append("=\"");
    appendEscaped(text_, attribute.value);
    text_ += '"';
  }
  text_ += '>';
}

void HTMLWriter::close(const char* name) {
  text_.append("</").append(name).append(isBlock(name) ? ">\n" : ">");
}

}  // namespace rehearse

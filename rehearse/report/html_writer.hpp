#pragma once

#include <concepts>
#include <initializer_list>
#include <string>
#include <string_view>

namespace rehearse {

/// Writes elements of HTML, and of the SVG in it. Every text and every value of an attribute is escaped, so
/// that it cannot add markup; control characters and bytes that are not UTF-8 become visible, such as "\x0A".
class HTMLWriter {
 public:
  struct Attribute {
    const char* name;
    std::string value;
  };
  using Attributes = std::initializer_list<Attribute>;

  void text(std::string_view text);

  /// An element whose content `content()` writes.
  template <std::invocable Content>
  void element(const char* name, Attributes attributes, Content content) {
    open(name, attributes);
    content();
    close(name);
  }

  /// An element that contains a text, or nothing.
  void element(const char* name, Attributes attributes, std::string_view content = {});

  /// An element that has no end tag, such as "meta".
  void voidElement(const char* name, Attributes attributes) { open(name, attributes); }

  /// A text in which line ends and indentation count.
  void preformatted(std::string_view text);

  /// The document type and `css`, the content of a style element, which are part of the program.
  void documentType() { text_ += "<!doctype html>\n"; }
  void style(std::string_view css) { text_.append("<style>").append(css).append("</style>\n"); }

  std::string take() { return std::move(text_); }

 private:
  void open(const char* name, Attributes attributes);
  void close(const char* name);

  std::string text_;
};

}  // namespace rehearse

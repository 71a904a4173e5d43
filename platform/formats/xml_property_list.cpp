#include "platform/formats/xml_property_list.hpp"

#include <expat.h>

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <utility>

namespace platform {
namespace {

struct FreeParser {
  void operator()(XML_Parser parser) const noexcept { ::XML_ParserFree(parser); }
};
using Parser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, FreeParser>;

constexpr std::array<std::string_view, 7> kLeaves = {"string", "integer", "real", "true",
                                                     "false",  "date",    "data"};

/// An element whose end has not been read.
struct Element {
  std::string name;
  std::string text;
  PropertyList::Array array;  ///< of an array; of the document and <plist>, the one value
  PropertyList::Dictionary dictionary;
  std::optional<std::string> key;

  bool is(std::string_view other) const { return name == other; }
  bool isContainer() const { return is("dict") || is("array"); }
  bool isLeaf() const { return is("key") || std::ranges::find(kLeaves, name) != kLeaves.end(); }
};

/// Builds the list from the parser's callbacks. Exceptions must not cross expat's C frames: the first is
/// stored and rethrown after XML_Parse.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes), parser_(::XML_ParserCreate(nullptr)) {
    if (parser_ == nullptr)
      throw PropertyListError::invalid("there is not enough memory to read it");
    ::XML_SetUserData(parser_.get(), this);
    ::XML_SetElementHandler(parser_.get(), onBegin, onEnd);
    ::XML_SetCharacterDataHandler(parser_.get(), onText);
    ::XML_SetEntityDeclHandler(parser_.get(), onEntityDeclaration);
    ::XML_SetSkippedEntityHandler(parser_.get(), onSkippedEntity);
    open_.emplace_back();
  }

  PropertyList run() {
    const auto status = ::XML_Parse(parser_.get(), bytes_.data(), static_cast<int>(bytes_.size()), XML_TRUE);
    if (failure_)
      std::rethrow_exception(failure_);
    if (status != XML_STATUS_OK)
      throw PropertyListError::invalid("line " + std::to_string(::XML_GetCurrentLineNumber(parser_.get())) +
                                       " is not well-formed XML (" +
                                       ::XML_ErrorString(::XML_GetErrorCode(parser_.get())) + ')');
    return open_.front().array.front();
  }

 private:
  template <typename Step>
  static void guarded(void* self, Step step) noexcept {
    auto& reader = *static_cast<Reader*>(self);
    if (reader.failure_)
      return;
    try {
      step(reader);
    } catch (...) {
      reader.failure_ = std::current_exception();
      ::XML_StopParser(reader.parser_.get(), XML_FALSE);
    }
  }

  static void onBegin(void* self, const char* name, const char**) noexcept {
    guarded(self, [&](Reader& reader) { reader.begin(name); });
  }
  static void onEnd(void* self, const char*) noexcept {
    guarded(self, [](Reader& reader) { reader.end(); });
  }
  static void onText(void* self, const char* text, int length) noexcept {
    guarded(self, [&](Reader& reader) { reader.text({text, static_cast<std::size_t>(length)}); });
  }
  static void onEntityDeclaration(void* self, const char*, int, const char*, int, const char*, const char*,
                                  const char*, const char*) noexcept {
    guarded(self, [](Reader&) { throw PropertyListError::invalid("it declares an entity"); });
  }
  static void onSkippedEntity(void* self, const char*, int) noexcept {
    guarded(self, [](Reader&) { throw PropertyListError::invalid("it refers to an unknown entity"); });
  }

  void begin(std::string_view name) {
    const Element& parent = open_.back();
    const bool isOutermost = open_.size() == 1;
    Element element{std::string(name), {}, {}, {}, {}};
    const bool isKnown =
        element.isLeaf() || name == "dict" || name == "array" || (name == "plist" && isOutermost);
    if (!isKnown)
      throw PropertyListError::invalid("it contains an unknown element");
    if (parent.isLeaf())
      throw PropertyListError::invalid("one of its values contains elements where text is needed");
    if (parent.is("plist") && !parent.array.empty())
      throw PropertyListError::invalid("it contains more than one value");
    const bool isKeyPlace = parent.is("dict") && !parent.key;
    if (isKeyPlace != (name == "key"))
      throw PropertyListError::invalid("keys and values do not alternate in one of its dictionaries");
    if (element.isContainer() && ++depth_ > PropertyList::kGreatestDepth)
      throw PropertyListError::tooDeep();
    open_.push_back(std::move(element));
  }

  void text(std::string_view text) {
    Element& element = open_.back();
    if (element.isLeaf())
      appendUnchanged(text, element.text);
    else if (text.find_first_not_of(" \t\r\n") != std::string_view::npos)
      throw PropertyListError::invalid("it contains text where elements are needed");
  }

  /// The parser turns every line end into a line feed, which it reports by itself. File names may contain a
  /// carriage return, so the original line end is kept.
  void appendUnchanged(std::string_view text, std::string& whole) const {
    const auto place = static_cast<std::size_t>(::XML_GetCurrentByteIndex(parser_.get()));
    const bool isReturn = text == "\n" && place < bytes_.size() && bytes_[place] == '\r';
    if (isReturn)
      whole += bytes_.substr(place, 2) == "\r\n" ? "\r\n" : "\r";
    else
      whole += text;
  }

  void end() {
    Element element = std::move(open_.back());
    open_.pop_back();
    Element& parent = open_.back();
    if (element.isContainer())
      --depth_;
    if (element.is("key")) {
      parent.key = std::move(element.text);
      return;
    }
    if (element.key)
      throw PropertyListError::invalid("a key in one of its dictionaries has no value");
    if (element.is("plist") && element.array.empty())
      throw PropertyListError::invalid("it contains no value");
    PropertyList value = valueOf(std::move(element));
    if (parent.is("dict"))
      parent.dictionary.insert_or_assign(*std::exchange(parent.key, std::nullopt), std::move(value));
    else
      parent.array.push_back(std::move(value));
  }

  static PropertyList valueOf(Element element) {
    if (element.is("plist"))
      return element.array.front();
    if (element.is("dict"))
      return PropertyList(std::move(element.dictionary));
    if (element.is("array"))
      return PropertyList(std::move(element.array));
    return xmlPropertyListValue(element.name, std::move(element.text));
  }

  std::string_view bytes_;
  Parser parser_;
  std::vector<Element> open_;  ///< from the document, which has no name, to the current element
  std::size_t depth_ = 0;      ///< of containers among them
  std::exception_ptr failure_;
};

}  // namespace

PropertyList readXMLPropertyList(std::string_view bytes) {
  if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
    throw PropertyListError::invalid("it is too large");
  return Reader(bytes).run();
}

}  // namespace platform

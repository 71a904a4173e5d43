#include "platform/security/requirement_lexer.hpp"

#include <algorithm>

#include "platform/security/security_error.hpp"

namespace platform {
namespace {

constexpr std::string_view kSpace = " \t\r\n";
constexpr std::string_view kSymbols = "()[]=!";

bool isWordCharacter(char character) {
  constexpr std::string_view kFurther = ".-_";
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || kFurther.find(character) != std::string_view::npos;
}

unsigned hexadecimalDigit(char character) {
  if (character >= '0' && character <= '9')
    return static_cast<unsigned>(character - '0');
  if (character >= 'a' && character <= 'f')
    return static_cast<unsigned>(character - 'a') + 10;
  if (character >= 'A' && character <= 'F')
    return static_cast<unsigned>(character - 'A') + 10;
  throw FormatError("a hexadecimal constant contains another character");
}

}  // namespace

void RequirementLexer::skipSpace() {
  while (true) {
    position_ = std::min(text_.find_first_not_of(kSpace, position_), text_.size());
    if (text_.substr(position_, 2) != "/*")
      return;
    const std::size_t end = text_.find("*/", position_ + 2);
    if (end == std::string_view::npos)
      throw FormatError("a comment is not closed");
    position_ = end + 2;
  }
}

RequirementToken RequirementLexer::next() {
  skipSpace();
  const std::size_t begin = position_;
  if (begin == text_.size())
    return {.kind = RequirementToken::Kind::end, .begin = begin, .end = begin};
  if (text_[begin] == '"')
    return quotedString();
  if (text_.substr(begin, 2) == "H\"")
    return hexadecimalConstant();
  if (kSymbols.find(text_[begin]) != std::string_view::npos) {
    ++position_;
    return {RequirementToken::Kind::symbol, std::string(1, text_[begin]), begin, position_};
  }
  while (position_ < text_.size() && isWordCharacter(text_[position_]))
    ++position_;
  if (position_ == begin)
    throw FormatError("it has an unexpected character");
  return {RequirementToken::Kind::word, std::string(text_.substr(begin, position_ - begin)), begin,
          position_};
}

RequirementToken RequirementLexer::quotedString() {
  const std::size_t begin = position_++;
  std::string value;
  while (position_ < text_.size() && text_[position_] != '"') {
    if (text_[position_] == '\\')
      ++position_;
    if (position_ < text_.size())
      value += text_[position_++];
  }
  if (position_ >= text_.size())
    throw FormatError("a quoted string is not closed");
  ++position_;
  return {RequirementToken::Kind::string, std::move(value), begin, position_};
}

RequirementToken RequirementLexer::hexadecimalConstant() {
  const std::size_t begin = position_;
  const std::size_t first = begin + 2;
  const std::size_t end = text_.find('"', first);
  if (end == std::string_view::npos || (end - first) % 2 != 0)
    throw FormatError("a hexadecimal constant is incomplete");
  std::string bytes;
  for (std::size_t index = first; index < end; index += 2)
    bytes += static_cast<char>(hexadecimalDigit(text_[index]) << 4U | hexadecimalDigit(text_[index + 1]));
  position_ = end + 1;
  return {RequirementToken::Kind::hexadecimal, std::move(bytes), begin, position_};
}

}  // namespace platform

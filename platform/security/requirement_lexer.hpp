#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

/// One word of a requirement's text.
struct RequirementToken {
  enum class Kind { word, string, hexadecimal, symbol, end };

  Kind kind = Kind::end;
  std::string text = {};  ///< without quotes; of a hexadecimal constant the bytes
  std::size_t begin = 0;  ///< its place in the text
  std::size_t end = 0;

  bool isWord(std::string_view word) const { return kind == Kind::word && text == word; }
  bool isSymbol(std::string_view symbol) const { return kind == Kind::symbol && text == symbol; }
};

/// Cuts a requirement's text into words, without the comments. Throws `FormatError` for a character that
/// belongs into none.
class RequirementLexer {
 public:
  /// `text` outlives the lexer.
  explicit RequirementLexer(std::string_view text) : text_(text) {}

  RequirementToken next();

 private:
  void skipSpace();
  RequirementToken quotedString();
  RequirementToken hexadecimalConstant();

  std::string_view text_;
  std::size_t position_ = 0;
};

}  // namespace platform

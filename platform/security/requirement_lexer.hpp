#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

/// One token of a requirement's text.
struct RequirementToken {
  enum class Kind { word, string, hexadecimal, symbol, end };

  Kind kind = Kind::end;
  std::string text = {};  ///< without quotes; for a hexadecimal constant its bytes
  std::size_t begin = 0;  ///< offsets in the source text
  std::size_t end = 0;

  bool isWord(std::string_view word) const { return kind == Kind::word && text == word; }
  bool isSymbol(std::string_view symbol) const { return kind == Kind::symbol && text == symbol; }
};

/// Splits a requirement's text into tokens, skipping comments.
class RequirementLexer {
 public:
  /// `text` must outlive the lexer.
  explicit RequirementLexer(std::string_view text) : text_(text) {}

  /// At the end of the text returns a token of the kind `end`, again on each call. Throws `FormatError`.
  RequirementToken next();

 private:
  void skipSpace();
  RequirementToken quotedString();
  RequirementToken hexadecimalConstant();

  std::string_view text_;
  std::size_t position_ = 0;
};

}  // namespace platform

#pragma once

#include "platform/security/requirement.hpp"
#include "platform/security/requirement_lexer.hpp"

namespace platform {

/// Reads the text of one requirement. Of the operators `!` binds most tightly and `or` least.
class RequirementParser {
 public:
  /// `text` outlives the parser.
  explicit RequirementParser(std::string_view text) : text_(text), lexer_(text), token_(lexer_.next()) {}

  /// The whole text. Throws `FormatError`.
  RequirementNode parse();

 private:
  RequirementNode disjunction(unsigned depth);
  RequirementNode conjunction(unsigned depth);
  RequirementNode primary(unsigned depth);
  RequirementNode anchor();
  RequirementNode certificate();
  RequirementNode information();

  RequirementToken take();
  bool takeWord(std::string_view word);
  bool takeSymbol(std::string_view symbol);
  void requireSymbol(std::string_view symbol);
  std::string takeText();
  std::string takeHash();
  int takeCertificateNumber();
  /// The part behind a key: `= "…"` gives a value; `exists`, or nothing at all, gives none.
  std::optional<std::string> takeMatch();

  std::string_view text_;
  RequirementLexer lexer_;
  RequirementToken token_;
  std::size_t end_ = 0;
};

}  // namespace platform

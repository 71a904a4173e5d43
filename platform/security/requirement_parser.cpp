#include <algorithm>
#include <array>
#include <charconv>

#include "platform/security/requirement.hpp"
#include "platform/security/requirement_lexer.hpp"
#include "platform/security/security_error.hpp"

namespace platform {
namespace {

using Kind = RequirementNode::Kind;

constexpr unsigned kDeepestNesting = 128;
constexpr std::size_t kHashSize = 20;

/// Keywords are strings only in quotes.
bool isReserved(std::string_view word) {
  constexpr std::array<std::string_view, 15> kWords{
      "always",      "never", "and",   "or",      "exists",  "identifier", "cdhash", "anchor",
      "certificate", "info",  "apple", "generic", "trusted", "leaf",       "root"};
  return std::find(kWords.begin(), kWords.end(), word) != kWords.end();
}

bool isDottedIdentifier(std::string_view text) {
  if (text.empty() || text.front() == '.' || text.back() == '.' || text.find("..") != std::string_view::npos)
    return false;
  return text.find_first_not_of("0123456789.") == std::string_view::npos &&
         text.find('.') != std::string_view::npos;
}

/// A recursive descent parser. Of the operators `!` binds most tightly and `or` least.
class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text), lexer_(text), token_(lexer_.next()) {}

  RequirementNode parse() {
    RequirementNode root = disjunction(kDeepestNesting);
    if (token_.kind != RequirementToken::Kind::end)
      throw FormatError("it has unexpected text at its end");
    return root;
  }

 private:
  RequirementNode disjunction(unsigned depth) {
    const std::size_t begin = token_.begin;
    RequirementNode node{.kind = Kind::any};
    do {
      node.operands.push_back(conjunction(depth));
    } while (takeWord("or"));
    if (node.operands.size() == 1) {
      RequirementNode only = std::move(node.operands.front());
      return only;
    }
    node.text = text_.substr(begin, end_ - begin);
    return node;
  }

  RequirementNode conjunction(unsigned depth) {
    RequirementNode node{.kind = Kind::all};
    do {
      node.operands.push_back(primary(depth));
    } while (takeWord("and"));
    if (node.operands.size() == 1) {
      RequirementNode only = std::move(node.operands.front());
      return only;
    }
    return node;
  }

  RequirementNode primary(unsigned depth) {
    if (depth == 0)
      throw FormatError("it is nested too deeply");
    const std::size_t begin = token_.begin;
    if (takeSymbol("(")) {
      RequirementNode node = disjunction(depth - 1);
      requireSymbol(")");
      return node;
    }
    RequirementNode node;
    if (takeSymbol("!")) {
      node.kind = Kind::negation;
      node.operands.push_back(primary(depth - 1));
    } else if (takeWord("always")) {
      node.kind = Kind::always;
    } else if (takeWord("never")) {
      node.kind = Kind::never;
    } else if (takeWord("identifier")) {
      node = {.kind = Kind::identifier, .value = takeText()};
    } else if (takeWord("cdhash")) {
      node = {.kind = Kind::codeDirectoryHash, .value = takeHash()};
    } else if (takeWord("anchor")) {
      node = anchor();
    } else if (takeWord("certificate")) {
      node = certificate();
    } else if (takeWord("info")) {
      node = information();
    } else {
      throw FormatError("a condition was expected");
    }
    node.text = text_.substr(begin, end_ - begin);
    return node;
  }

  RequirementNode anchor() {
    if (takeWord("trusted"))
      return {.kind = Kind::anchorGeneric};
    if (!takeWord("apple"))
      throw FormatError("it names an unknown anchor");
    return {.kind = takeWord("generic") ? Kind::anchorGeneric : Kind::anchorOwn};
  }

  RequirementNode certificate() {
    constexpr std::string_view kField = "field.";
    constexpr std::string_view kSubject = "subject.";
    RequirementNode node{.certificate = takeCertificateNumber()};
    if (takeSymbol("=")) {
      node.kind = Kind::certificateHash;
      node.value = takeHash();
      return node;
    }
    requireSymbol("[");
    const std::string key = takeText();
    requireSymbol("]");
    node.value = takeMatch();
    if (key.starts_with(kField) && isDottedIdentifier(key.substr(kField.size())) && !node.value) {
      node.kind = Kind::certificateField;
      node.key = key.substr(kField.size());
    } else if (key.starts_with(kSubject) && Certificate::isSubjectField(key.substr(kSubject.size()))) {
      node.kind = Kind::certificateSubject;
      node.key = key.substr(kSubject.size());
    } else {
      throw FormatError("it asks for an unknown part of a certificate");
    }
    return node;
  }

  RequirementNode information() {
    requireSymbol("[");
    RequirementNode node{.kind = Kind::information, .key = takeText()};
    requireSymbol("]");
    node.value = takeMatch();
    return node;
  }

  /// The part after a key: `= "…"` gives a value; `exists`, or nothing at all, gives none.
  std::optional<std::string> takeMatch() {
    if (takeSymbol("="))
      return takeText();
    takeWord("exists");
    return std::nullopt;
  }

  int takeCertificateNumber() {
    if (takeWord("leaf"))
      return 0;
    if (takeWord("anchor") || takeWord("root"))
      return -1;
    const RequirementToken number = take();
    int value = 0;
    const char* end = number.text.data() + number.text.size();
    const auto [last, error] = std::from_chars(number.text.data(), end, value);
    // Only the canonical form of a number: "00" or "-0" may be meant as something else.
    if (number.kind != RequirementToken::Kind::word || error != std::errc() || last != end ||
        number.text != std::to_string(value))
      throw FormatError("it names an unknown certificate");
    return value;
  }

  std::string takeHash() {
    RequirementToken hash = take();
    if (hash.kind != RequirementToken::Kind::hexadecimal || hash.text.size() != kHashSize)
      throw FormatError("a hash must have 20 bytes");
    return std::move(hash.text);
  }

  std::string takeText() {
    RequirementToken text = take();
    const bool isWord = text.kind == RequirementToken::Kind::word && !isReserved(text.text);
    if (!isWord && text.kind != RequirementToken::Kind::string)
      throw FormatError("a string was expected");
    return std::move(text.text);
  }

  RequirementToken take() {
    RequirementToken taken = std::move(token_);
    end_ = taken.end;
    token_ = lexer_.next();
    return taken;
  }

  bool takeWord(std::string_view word) {
    const bool found = token_.isWord(word);
    if (found)
      take();
    return found;
  }

  bool takeSymbol(std::string_view symbol) {
    const bool found = token_.isSymbol(symbol);
    if (found)
      take();
    return found;
  }

  void requireSymbol(std::string_view symbol) {
    if (!takeSymbol(symbol))
      throw FormatError(platform::quoted(symbol) + " was expected");
  }

  std::string_view text_;
  RequirementLexer lexer_;
  RequirementToken token_;
  std::size_t end_ = 0;
};

}  // namespace

RequirementNode parseRequirement(std::string_view text) {
  return Parser(text).parse();
}

}  // namespace platform

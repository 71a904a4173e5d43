#include "platform/foundation/error.hpp"

#include <system_error>
#include <utility>

#include "platform/foundation/bytes.hpp"
#include "platform/foundation/utf8.hpp"

namespace platform {
namespace {

/// Control characters, line and paragraph separators, and the controls of bidirectional text.
bool isMisleading(char32_t scalar) {
  const auto isWithin = [scalar](char32_t first, char32_t last) { return scalar >= first && scalar <= last; };
  return isWithin(0, 0x1F) || isWithin(0x7F, 0x9F) || isWithin(0x2028, 0x202E) || isWithin(0x2066, 0x2069);
}

void appendBytes(std::string& text, std::string_view bytes) {
  for (; !bytes.empty(); bytes.remove_prefix(1))
    text.append("\\x").append(hexadecimal(bytes.substr(0, 1), kUpperCaseDigits));
}

}  // namespace

Error::Error(std::string description)
    : description_(std::make_shared<const std::string>(std::move(description))) {}

SystemError::SystemError(std::string_view what, int errorNumber)
    : Error(sentence(what, reasonOf(errorNumber))), errorNumber_(errorNumber) {}

ItemError::ItemError(std::string reason)
    : Error(sentence("The item cannot be used", reason)),
      reason_(std::make_shared<const std::string>(std::move(reason))) {}

std::string sentence(std::string_view what, std::string_view reason) {
  return std::string(what).append(": ").append(reason) += '.';
}

std::string sentence(std::string_view what, const Error& cause) {
  if (const auto* item = dynamic_cast<const ItemError*>(&cause))
    return sentence(what, item->reason());
  return std::string(what).append(": ").append(cause.what());
}

std::string quoted(std::string_view name) {
  return '"' + printable(name) + '"';
}

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const auto first = firstScalar(text);
    const auto character = text.substr(0, first ? first->length : 1);
    if (first && !isMisleading(first->scalar))
      result += character;
    else
      appendBytes(result, character);
    text.remove_prefix(character.size());
  }
  return result;
}

std::string reasonOf(int errorNumber) {
  return std::generic_category().message(errorNumber);
}

}  // namespace platform

#include "platform/foundation/error.hpp"

#include <utf8proc.h>

#include <system_error>
#include <utility>

#include "platform/foundation/bytes.hpp"

namespace platform {
namespace {

/// Control characters, line and paragraph separators, and the controls of bidirectional text.
bool isMisleading(utf8proc_int32_t scalar) {
  const auto category = utf8proc_category(scalar);
  return category == UTF8PROC_CATEGORY_CC || category == UTF8PROC_CATEGORY_ZL ||
         category == UTF8PROC_CATEGORY_ZP || (scalar >= 0x202A && scalar <= 0x202E) ||
         (scalar >= 0x2066 && scalar <= 0x2069);
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
  std::string text = "\"";
  while (!name.empty()) {
    utf8proc_int32_t scalar = 0;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): utf8proc reads unsigned bytes
    const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(name.data()),
                                         static_cast<utf8proc_ssize_t>(name.size()), &scalar);
    const auto character = name.substr(0, length > 0 ? static_cast<std::size_t>(length) : 1);
    if (length > 0 && !isMisleading(scalar))
      text += character;
    else
      appendBytes(text, character);
    name.remove_prefix(character.size());
  }
  return text + '"';
}

std::string reasonOf(int errorNumber) {
  return std::generic_category().message(errorNumber);
}

}  // namespace platform

#include "platform/formats/json_syntax.hpp"

#include <algorithm>
#include <string>

namespace platform {

DecodingError invalidJSON(std::string_view text, std::size_t position) {
  const std::string_view before = text.substr(0, position == 0 ? 0 : position - 1);
  const auto line = std::count(before.begin(), before.end(), '\n') + 1;
  const auto lineStart = before.rfind('\n') == std::string_view::npos ? 0 : before.rfind('\n') + 1;
  return DecodingError("The data is not valid JSON at line " + std::to_string(line) + ", column " +
                       std::to_string(before.size() - lineStart + 1) + ".");
}

void requireNoNullCharacter(std::string_view text) {
  const auto null = text.find('\0');
  if (null != std::string_view::npos)
    throw invalidJSON(text, null + 1);
}

}  // namespace platform

#include "updater/install/tool_message.hpp"

#include "platform/foundation/text.hpp"

namespace QuorinOstrevalUpdater {

std::string text(const platform::Data& output, const std::string& fallback) {
  const auto decoded = platform::stringFromUTF8(output.bytes());
  if (!decoded)
    return fallback;
  const std::string trimmed =
      platform::trimmingCharactersIn(*decoded, platform::CharacterSet::whitespacesAndNewlines());
  return trimmed.empty() ? fallback : trimmed;
}

}  // namespace QuorinOstrevalUpdater

#include <array>
#include <charconv>

#include "platform/foundation/error.hpp"
#include "rehearse/start/start_check.hpp"

namespace rehearse {

SystemVersion systemVersion(const std::string& text) {
  std::array<unsigned, 3> numbers{};
  const char* position = text.data();
  const char* const end = position + text.size();
  for (unsigned& number : numbers) {
    const auto [next, error] = std::from_chars(position, end, number);
    if (error != std::errc())
      break;
    if (next == end)
      return {.major = numbers[0], .minor = numbers[1], .patch = numbers[2]};
    if (*next != '.')
      break;
    position = next + 1;
  }
  throw platform::Error(platform::quoted(text) + " is not a version of macOS, such as 14.0.");
}

std::string versionText(SystemVersion version) {
  const std::string text = std::to_string(version.major) + "." + std::to_string(version.minor);
  return version.patch == 0 ? text : text + "." + std::to_string(version.patch);
}

}  // namespace rehearse

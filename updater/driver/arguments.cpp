#include "updater/driver/arguments.hpp"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <system_error>

#include "platform/processes/process.hpp"
#include "updater/records/installer_error.hpp"

namespace QuorinOstrevalUpdater {
namespace {

using platform::URL;

/// The element after the first occurrence of `option`; absent when the option is missing or the last element.
std::optional<std::string> valueOf(std::string_view option, const std::vector<std::string>& argumentVector) {
  const auto found = std::find(argumentVector.begin(), argumentVector.end(), option);
  if (found == argumentVector.end() || found + 1 == argumentVector.end())
    return std::nullopt;
  return *(found + 1);
}

/// A decimal number of at most one sign and then digits, within 32 bits.
std::optional<std::int32_t> number(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-'))
      return std::nullopt;
  }
  std::int32_t value = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && rest == end ? std::optional(value) : std::nullopt;
}

}  // namespace

Arguments parseArguments(const std::vector<std::string>& argumentVector) {
  const auto plan = valueOf("--plan", argumentVector);
  const auto parent = valueOf("--parent-pid", argumentVector);
  const auto parentPID = parent ? number(*parent) : std::nullopt;
  if (!plan || !parentPID || *parentPID <= 1)
    throw InstallerError::invalidArguments();
  Arguments arguments{
      .planURL = URL::fileURLWithPath(*plan), .parentPID = *parentPID, .readyURL = std::nullopt};
  if (const auto ready = valueOf("--ready-file", argumentVector))
    arguments.readyURL = URL::fileURLWithPath(*ready);
  return arguments;
}

Arguments parseArguments() {
  return parseArguments(platform::ProcessInfo::arguments());
}

}  // namespace QuorinOstrevalUpdater

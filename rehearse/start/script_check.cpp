#include "rehearse/start/script_check.hpp"

#include <algorithm>
#include <array>
#include <vector>

#include "platform/foundation/error.hpp"

namespace rehearse {
namespace {

/// Interpreters that earlier systems had, and the first one without them.
struct Removed {
  std::string_view path;
  SystemVersion since;
};
constexpr std::array<Removed, 3> kRemoved{
    {{"/usr/bin/php", {12, 0, 0}}, {"/usr/bin/python", {12, 3, 0}}, {"/usr/bin/python2.7", {12, 3, 0}}}};

/// What `env` finds on every Mac: an application does not get the search path of a user's shell.
constexpr std::array<std::string_view, 14> kFoundByEnv{"awk",  "bash",      "csh",     "dash", "expect",
                                                       "ksh",  "osascript", "perl",    "ruby", "sh",
                                                       "tcsh", "tclsh",     "python3", "zsh"};

bool isSystemProgram(std::string_view path) {
  constexpr std::array<std::string_view, 6> kPlaces{"/bin/",      "/sbin/",        "/usr/bin/",
                                                    "/usr/sbin/", "/usr/libexec/", "/System/Library/"};
  return path.find("/../") == std::string_view::npos &&
         std::ranges::any_of(kPlaces, [&](std::string_view place) { return path.starts_with(place); });
}

std::vector<std::string> words(std::string_view line) {
  constexpr std::string_view kBlanks = " \t";
  std::vector<std::string> all;
  while (true) {
    const auto begin = line.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos)
      return all;
    line.remove_prefix(begin);
    const auto end = std::min(line.find_first_of(kBlanks), line.size());
    all.emplace_back(line.substr(0, end));
    line.remove_prefix(end);
  }
}

/// The program that `env` is asked to run: its options and variables come before it.
std::string_view programForEnv(const std::vector<std::string>& line) {
  const auto program = std::find_if(line.begin() + 1, line.end(), [](const std::string& word) {
    return !word.starts_with('-') && word.find('=') == std::string::npos;
  });
  return program == line.end() ? std::string_view() : *program;
}

}  // namespace

std::optional<std::string> obstacleToScript(std::string_view beginning, SystemVersion system) {
  if (!beginning.starts_with("#!"))
    return "Its executable is neither a Mach-O file nor a script with an interpreter.";
  const std::string_view head = beginning.substr(2, kLongestFirstLine - 2);
  const auto end = head.find('\n');
  if (end == std::string_view::npos && head.size() == kLongestFirstLine - 2)
    return "The first line of its executable, a script, is too long.";
  const std::string_view first = head.substr(0, end);
  if (first.ends_with('\r'))
    return "Its executable is a script with line ends of Windows, so that its interpreter is not found.";
  const std::vector<std::string> line = words(first);
  if (line.empty())
    return "Its executable is a script that names no interpreter.";
  const std::string& interpreter = line.front();
  for (const Removed& removed : kRemoved) {
    if (interpreter == removed.path && system >= removed.since)
      return "Its executable is a script for " + platform::quoted(interpreter) +
             ", which macOS does not have since " + versionText(removed.since) + ".";
  }
  if (!isSystemProgram(interpreter))
    return "Its executable is a script for " + platform::quoted(interpreter) +
           ", which is not part of the system.";
  if (interpreter != "/usr/bin/env")
    return std::nullopt;
  const std::string_view program = programForEnv(line);
  if (std::ranges::find(kFoundByEnv, program) == kFoundByEnv.end() && !isSystemProgram(program))
    return "Its executable is a script for " + platform::quoted(program) +
           ", which is not part of the system.";
  return std::nullopt;
}

}  // namespace rehearse

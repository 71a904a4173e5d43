#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "rehearse/start/start_check.hpp"

namespace rehearse {

/// Why the system cannot run a file that is not a Mach-O file, a sentence; nothing when it is a script whose
/// interpreter every Mac with that version of the system has. `beginning` is the file's first bytes, at least
/// `kLongestFirstLine` of them unless the file is shorter.
std::optional<std::string> obstacleToScript(std::string_view beginning, SystemVersion system);

/// The bytes in which the system looks for the interpreter.
inline constexpr std::size_t kLongestFirstLine = 512;

}  // namespace rehearse

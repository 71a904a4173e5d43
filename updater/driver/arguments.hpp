#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/url.hpp"

namespace QuorinOstrevalUpdater {

/// The options of the command line.
struct Arguments {
  platform::URL planURL;
  std::int32_t parentPID = 0;             ///< the process to wait for, 2 or greater
  std::optional<platform::URL> readyURL;  ///< absent when the caller asked for no ready file
};

/// Reads "--plan PATH", "--parent-pid NUMBER" and "--ready-file PATH" from an argument vector, including the
/// program's name. The first occurrence of an option counts, in any order; everything else is
/// ignored. Throws `InstallerError::invalidArguments`.
Arguments parseArguments(const std::vector<std::string>& argumentVector);

/// The same for the process's own argument vector.
Arguments parseArguments();

}  // namespace QuorinOstrevalUpdater

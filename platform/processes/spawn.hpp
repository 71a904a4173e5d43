#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"

namespace platform {

enum class Session { inherited, own };

/// How a program is started. Whatever is not named here is not passed on, except the inherited environment.
struct SpawnRequest {
  URL executable;
  std::vector<std::string> arguments;  ///< without the program's own name
  std::array<int, 3> standardStreams;  ///< descriptors for 0, 1 and 2, each from 3 on
  Session session = Session::inherited;
  std::string workingDirectory = {};  ///< empty: the caller's
};

/// Starts a program with default signal dispositions, no blocked signal and no further descriptor, and
/// returns its process identifier once it executes. Throws `SystemError` when it cannot be executed; then no
/// process remains.
std::int32_t spawn(const SpawnRequest& request);

}  // namespace platform

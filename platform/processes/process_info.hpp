#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

/// The calling process.
class ProcessInfo {
 public:
  /// Every argument, the program's name first. Throws `SystemError` where the system does not tell.
  static std::vector<std::string> arguments();

  /// To be called before anything is opened or written. Afterwards the numbers of the standard streams are
  /// taken, those that were closed by a stream without content, so that no other file gets into their place;
  /// and writing to a stream whose reader is gone, or past a size limit, is a failure of the write instead of
  /// the end of the process.
  static void secureStandardStreams();
};

}  // namespace platform

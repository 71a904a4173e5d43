#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace platform {

/// A random identifier of 128 bits (RFC 4122, version 4), different at every construction.
class UUID {
 public:
  /// Throws `SystemError` where the system has no random numbers to give.
  UUID();

  /// 36 characters, upper case, as in "6FA1C3E0-0F0B-4C55-9D0E-4B6C5E3B9A77".
  std::string uuidString() const;

 private:
  std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace platform

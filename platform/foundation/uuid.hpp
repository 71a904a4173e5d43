#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace platform {

/// A random 128-bit identifier (RFC 4122, version 4), different for every object that is constructed.
class UUID {
 public:
  /// Throws `SystemError` if the system provides no random numbers.
  UUID();

  /// 36 characters, upper case, as in "6FA1C3E0-0F0B-4C55-9D0E-4B6C5E3B9A77".
  std::string uuidString() const;

 private:
  std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace platform

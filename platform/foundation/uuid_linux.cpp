#include <sys/random.h>

#include "platform/foundation/bytes.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/uuid.hpp"

namespace platform {

UUID::UUID() {
  // Requests of up to 256 bytes are never filled partially.
  if (uninterrupted([&] { return ::getrandom(bytes_.data(), bytes_.size(), 0); }) < 0)
    throw SystemError("A random identifier could not be created", errno);
  bytes_[6] = static_cast<std::uint8_t>((bytes_[6] & 0x0FU) | 0x40U);
  bytes_[8] = static_cast<std::uint8_t>((bytes_[8] & 0x3FU) | 0x80U);
}

std::string UUID::uuidString() const {
  std::string text =
      hexadecimal({reinterpret_cast<const char*>(bytes_.data()), bytes_.size()}, kUpperCaseDigits);
  for (const std::size_t place : {20U, 16U, 12U, 8U})
    text.insert(place, 1, '-');
  return text;
}

}  // namespace platform

#include <sys/random.h>

#include <string_view>

#include "platform/foundation/error.hpp"
#include "platform/foundation/system_call.hpp"
#include "platform/foundation/uuid.hpp"

namespace platform {

UUID::UUID() {
  // A request of up to 256 bytes is never answered in part.
  if (uninterrupted([&] { return ::getrandom(bytes_.data(), bytes_.size(), 0); }) < 0)
    throw SystemError("No random identifier could be made", errno);
  bytes_[6] = static_cast<std::uint8_t>((bytes_[6] & 0x0FU) | 0x40U);
  bytes_[8] = static_cast<std::uint8_t>((bytes_[8] & 0x3FU) | 0x80U);
}

std::string UUID::uuidString() const {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text;
  for (std::size_t index = 0; index < bytes_.size(); ++index) {
    if (index == 4 || index == 6 || index == 8 || index == 10)
      text += '-';
    text += kDigits[bytes_.at(index) >> 4U];
    text += kDigits[bytes_.at(index) & 0x0FU];
  }
  return text;
}

}  // namespace platform

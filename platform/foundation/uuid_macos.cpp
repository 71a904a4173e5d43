#include <uuid/uuid.h>

#include "platform/foundation/uuid.hpp"

namespace platform {

UUID::UUID() {
  ::uuid_generate_random(bytes_.data());
}

std::string UUID::uuidString() const {
  std::array<char, 37> text{};
  ::uuid_unparse_upper(bytes_.data(), text.data());
  return text.data();
}

}  // namespace platform

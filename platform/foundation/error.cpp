#include "platform/foundation/error.hpp"

#include <system_error>
#include <utility>

namespace platform {

Error::Error(std::string description)
    : description_(std::make_shared<const std::string>(std::move(description))) {}

SystemError::SystemError(std::string_view what, int errorNumber)
    : Error(std::string(what) + ": " + reasonOf(errorNumber) + "."), errorNumber_(errorNumber) {}

std::string quoted(std::string_view name) {
  return '"' + std::string(name) + '"';
}

std::string reasonOf(int errorNumber) {
  return std::generic_category().message(errorNumber);
}

}  // namespace platform

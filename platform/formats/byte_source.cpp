#include "platform/formats/byte_source.hpp"

#include "platform/security/security_error.hpp"

namespace platform {

std::string ByteSource::read(std::uint64_t offset, std::uint64_t length) const {
  if (!ByteRange{offset, length}.within(size()))
    throw FormatError("the file ends too early");
  std::string bytes(length, '\0');
  readAt(offset, bytes);
  return bytes;
}

}  // namespace platform

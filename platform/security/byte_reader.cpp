#include "platform/security/byte_reader.hpp"

#include "platform/security/security_error.hpp"

namespace platform {

std::string_view ByteReader::bytesAt(std::uint64_t offset, std::uint64_t length) const {
  if (offset > bytes_.size() || length > bytes_.size() - offset)
    throw FormatError(std::string(item_) + " ends too early");
  return bytes_.substr(offset, length);
}

std::string_view ByteReader::textAt(std::uint64_t offset) const {
  bytesAt(offset, 0);
  const std::string_view rest = bytes_.substr(offset);
  const std::size_t length = rest.find('\0');
  if (length == std::string_view::npos)
    throw FormatError(std::string(item_) + " holds a text without an end");
  return rest.substr(0, length);
}

std::string_view ByteReader::readBytes(std::uint64_t count) {
  const std::string_view bytes = bytesAt(position_, count);
  position_ += count;
  return bytes;
}

std::uint64_t ByteReader::read(std::uint64_t count) {
  const std::string_view bytes = readBytes(count);
  std::uint64_t value = 0;
  for (std::size_t index = 0; index < count; ++index) {
    const std::size_t place = order_ == ByteOrder::big ? index : count - 1 - index;
    value = value << 8U | static_cast<std::uint8_t>(bytes[place]);
  }
  return value;
}

}  // namespace platform

#include "platform/formats/byte_reader.hpp"

#include "platform/formats/bytes.hpp"
#include "platform/security/security_error.hpp"

namespace platform {

std::string_view ByteReader::bytesAt(std::uint64_t offset, std::uint64_t length) const {
  const auto part = partOf(bytes_, offset, length);
  if (!part)
    throw FormatError(std::string(item_) + " ends too early");
  return *part;
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
  return order_ == ByteOrder::big ? bigEndian(bytes) : littleEndian(bytes);
}

}  // namespace platform

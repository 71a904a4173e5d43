#pragma once

#include <cstdint>
#include <string>

#include "platform/formats/byte_reader.hpp"
#include "platform/formats/byte_source.hpp"

namespace platform {

struct MachOArchitecture {
  std::uint32_t type = 0;
  std::uint32_t subtype = 0;  ///< without the capability bits

  static MachOArchitecture read(ByteReader& reader);
  /// The usual name, such as "arm64".
  std::string name() const;

  bool operator==(const MachOArchitecture&) const = default;
};

/// True for the magic number of the code of one architecture, read as a big-endian number.
bool isMachOMagic(std::uint32_t magic) noexcept;

/// The header and the load commands of the code for one architecture.
class LoadCommands {
 public:
  /// `code` is a range of the file. Throws `FormatError` when the header is invalid or the commands are not
  /// inside the code, and what reading the file throws.
  LoadCommands(const ByteSource& file, const ByteRange& code);

  bool isWide() const noexcept { return wide_; }  ///< 64-bit
  const MachOArchitecture& architecture() const noexcept { return architecture_; }
  std::uint32_t fileType() const noexcept { return fileType_; }
  /// The offset in the code of the first byte after the commands.
  std::uint64_t end() const noexcept { return end_; }

  /// Calls `visit` with the number of each command and a reader of the whole command, positioned after its
  /// header of eight bytes. Throws `FormatError` when a command is not inside the list.
  template <typename Visit>
  void forEach(Visit&& visit) const {
    ByteReader list(bytes_, "the list of load commands", order_);
    for (std::uint32_t index = 0; index < count_; ++index) {
      const std::uint64_t start = list.position();
      const std::uint32_t command = list.readU32();
      const std::uint32_t size = list.readU32();
      if (size < 8)
        throw FormatError("a load command is too short");
      ByteReader body(list.bytes(start, size), "a load command", order_);
      body.skip(8);
      visit(command, body);
      list.skip(size - 8);
    }
  }

 private:
  bool wide_ = false;
  ByteOrder order_ = ByteOrder::little;
  MachOArchitecture architecture_;
  std::uint32_t fileType_ = 0;
  std::uint32_t count_ = 0;
  std::uint64_t end_ = 0;
  std::string bytes_;
};

}  // namespace platform

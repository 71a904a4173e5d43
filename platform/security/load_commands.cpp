#include "platform/security/load_commands.hpp"

#include <array>
#include <optional>

#include "platform/security/mach_o_format.hpp"

namespace platform {
namespace {

/// Real ones need tens of kilobytes.
constexpr std::uint32_t kMostCommandBytes = 16U << 20U;

constexpr std::string_view kHeader = "the Mach-O header";

struct Format {
  bool wide;
  ByteOrder order;
};

std::optional<Format> formatOf(std::uint32_t magic) {
  switch (magic) {
    case mach_o::kMagic32:
      return Format{false, ByteOrder::big};
    case mach_o::kMagic64:
      return Format{true, ByteOrder::big};
    case 0xCEFAEDFE:
      return Format{false, ByteOrder::little};
    case 0xCFFAEDFE:
      return Format{true, ByteOrder::little};
    default:
      return std::nullopt;
  }
}

}  // namespace

MachOArchitecture MachOArchitecture::read(ByteReader& reader) {
  constexpr std::uint32_t kCapabilities = 0xFF000000;
  const std::uint32_t type = reader.readU32();
  return {.type = type, .subtype = reader.readU32() & ~kCapabilities};
}

std::string MachOArchitecture::name() const {
  struct Known {
    MachOArchitecture architecture;
    const char* name;
  };
  static constexpr std::array<Known, 6> kKnown{{{{mach_o::cpu::kX86_64, 3}, "x86_64"},
                                                {{mach_o::cpu::kX86_64, 8}, "x86_64h"},
                                                {{mach_o::cpu::kArm64, 0}, "arm64"},
                                                {{mach_o::cpu::kArm64, 2}, "arm64e"},
                                                {{mach_o::cpu::kI386, 3}, "i386"},
                                                {{mach_o::cpu::kPowerPc, 0}, "ppc"}}};
  for (const Known& known : kKnown) {
    if (known.architecture == *this)
      return known.name;
  }
  return std::to_string(type) + "/" + std::to_string(subtype);
}

bool isMachOMagic(std::uint32_t magic) noexcept {
  return formatOf(magic).has_value();
}

LoadCommands::LoadCommands(const ByteSource& file, const ByteRange& code) {
  if (code.length < mach_o::kHeaderSize32)
    throw FormatError("the code of an architecture is too short");
  const std::string header = file.read(code.offset, mach_o::kHeaderSize32);
  const std::optional<Format> format = formatOf(ByteReader(header, kHeader).u32(0));
  if (!format)
    throw FormatError("the code of an architecture is not a Mach-O file");
  wide_ = format->wide;
  order_ = format->order;
  ByteReader reader(header, kHeader, order_);
  reader.skip(4);
  architecture_ = MachOArchitecture::read(reader);
  fileType_ = reader.readU32();
  count_ = reader.readU32();
  const std::uint32_t length = reader.readU32();
  const std::uint64_t headerSize = wide_ ? mach_o::kHeaderSize64 : mach_o::kHeaderSize32;
  if (length > kMostCommandBytes || !ByteRange{headerSize, length}.within(code.length))
    throw FormatError("its load commands are too long");
  end_ = headerSize + length;
  bytes_ = file.read(code.offset + headerSize, length);
}

}  // namespace platform

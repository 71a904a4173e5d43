#include "platform/security/mach_o.hpp"

#include <algorithm>
#include <array>

#include "platform/formats/byte_reader.hpp"
#include "platform/security/mach_o_format.hpp"
#include "platform/security/security_error.hpp"

namespace platform {
namespace {

/// Real ones need tens of kilobytes.
constexpr std::uint32_t kMostCommandBytes = 16U << 20U;

constexpr std::array kLoadedTypes{mach_o::file_type::kExecutable,     mach_o::file_type::kPreloadedProgram,
                                  mach_o::file_type::kDynamicLibrary, mach_o::file_type::kDynamicLinker,
                                  mach_o::file_type::kLoadableBundle, mach_o::file_type::kKernelExtension};

constexpr std::string_view kHeader = "the Mach-O header";
constexpr std::string_view kCommand = "a load command";

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

struct Architecture {
  std::uint32_t type;
  std::uint32_t subtype;  ///< without the capability bits

  bool operator==(const Architecture&) const = default;
};

std::string nameOf(const Architecture& architecture) {
  struct Known {
    Architecture architecture;
    const char* name;
  };
  static constexpr std::array<Known, 6> kKnown{{{{mach_o::cpu::kX86_64, 3}, "x86_64"},
                                                {{mach_o::cpu::kX86_64, 8}, "x86_64h"},
                                                {{mach_o::cpu::kArm64, 0}, "arm64"},
                                                {{mach_o::cpu::kArm64, 2}, "arm64e"},
                                                {{mach_o::cpu::kI386, 3}, "i386"},
                                                {{mach_o::cpu::kPowerPc, 0}, "ppc"}}};
  for (const Known& known : kKnown) {
    if (known.architecture == architecture)
      return known.name;
  }
  return std::to_string(architecture.type) + "/" + std::to_string(architecture.subtype);
}

Architecture readArchitecture(ByteReader& reader) {
  constexpr std::uint32_t kCapabilities = 0xFF000000;
  const std::uint32_t type = reader.readU32();
  return {.type = type, .subtype = reader.readU32() & ~kCapabilities};
}

std::string_view fixedText(std::string_view bytes) {
  return bytes.substr(0, bytes.find('\0'));
}

/// Finds the section with the embedded Info.plist.
void readSegment(ByteReader reader, bool wide, MachOSlice& slice) {
  reader.skip(8 + 16);
  reader.skip(wide ? 32 : 16);
  reader.skip(8);
  const std::uint32_t sections = reader.readU32();
  reader.skip(4);
  for (std::uint32_t index = 0; index < sections; ++index) {
    const std::string_view section = fixedText(reader.readBytes(16));
    const std::string_view segment = fixedText(reader.readBytes(16));
    reader.skip(wide ? 8 : 4);
    const std::uint64_t size = wide ? reader.readU64() : reader.readU32();
    const std::uint64_t offset = reader.readU32();
    reader.skip(wide ? 28 : 20);
    if (section != "__info_plist" || segment != "__TEXT")
      continue;
    if (slice.informationSection)
      throw FormatError("it has two Info.plist sections");
    slice.informationSection = ByteRange{offset, size};
    if (!slice.informationSection->within(slice.range.length))
      throw FormatError("its Info.plist section is outside the code");
  }
}

void readSignatureCommand(ByteReader reader, MachOSlice& slice) {
  reader.skip(8);
  if (slice.signature)
    throw FormatError("it has two signatures");
  slice.signature = ByteRange{reader.readU32(), reader.readU32()};
}

void readCommands(std::string_view commands, std::uint32_t count, const Format& format, MachOSlice& slice) {
  ByteReader reader(commands, "the list of load commands", format.order);
  for (std::uint32_t index = 0; index < count; ++index) {
    const std::uint64_t start = reader.position();
    const std::uint32_t command = reader.readU32();
    const std::uint32_t size = reader.readU32();
    if (size < 8)
      throw FormatError("a load command is too short");
    const ByteReader body(reader.bytes(start, size), kCommand, format.order);
    if (command == mach_o::command::kCodeSignature)
      readSignatureCommand(body, slice);
    else if (command == (format.wide ? mach_o::command::kSegment64 : mach_o::command::kSegment32))
      readSegment(body, format.wide, slice);
    reader.skip(size - 8);
  }
}

bool isUniversal(std::uint32_t magic) {
  return magic == mach_o::kFatMagic || magic == mach_o::kFatMagic64;
}

std::uint32_t magicAt(const ByteSource& file, std::uint64_t offset) {
  const std::string bytes = file.read(offset, 4);
  return ByteReader(bytes, kHeader).u32(0);
}

/// Reads the slice at `range`, which must be inside the file.
MachOSlice readSlice(const ByteSource& file, const ByteRange& range,
                     const std::optional<Architecture>& declared) {
  if (range.length < mach_o::kHeaderSize32)
    throw FormatError("the code of an architecture is too short");
  const std::optional<Format> format = formatOf(magicAt(file, range.offset));
  if (!format)
    throw FormatError("the code of an architecture is not a Mach-O file");
  const std::uint64_t headerSize = format->wide ? mach_o::kHeaderSize64 : mach_o::kHeaderSize32;
  const std::string header = file.read(range.offset, mach_o::kHeaderSize32);
  ByteReader reader(header, kHeader, format->order);
  reader.skip(4);
  const Architecture architecture = readArchitecture(reader);
  if (declared && architecture != *declared)
    throw FormatError("it declares another architecture than its code has");
  const std::uint32_t fileType = reader.readU32();
  const std::uint32_t count = reader.readU32();
  const std::uint32_t commandBytes = reader.readU32();
  if (commandBytes > kMostCommandBytes || !ByteRange{headerSize, commandBytes}.within(range.length))
    throw FormatError("its load commands are too long");

  MachOSlice slice{
      .architecture = nameOf(architecture),
      .isLoaded = std::find(kLoadedTypes.begin(), kLoadedTypes.end(), fileType) != kLoadedTypes.end(),
      .range = range,
      .signature = {},
      .informationSection = {}};
  const std::string commands = file.read(range.offset + headerSize, commandBytes);
  readCommands(commands, count, *format, slice);
  // Nothing would cover bytes after the signature.
  if (slice.signature &&
      (!slice.signature->within(range.length) || slice.signature->offset < headerSize + commandBytes ||
       slice.signature->offset + slice.signature->length != range.length))
    throw FormatError("its signature is not at the end of the code");
  return slice;
}

void requireZeros(const ByteSource& file, std::uint64_t begin, std::uint64_t end) {
  std::array<char, 16384> buffer{};
  while (begin < end) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), end - begin));
    file.readAt(begin, std::span(buffer).first(count));
    if (std::any_of(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(count),
                    [](char byte) { return byte != 0; }))
      throw FormatError("it has bytes that belong to none of its architectures");
    begin += count;
  }
}

std::vector<MachOSlice> readUniversal(const ByteSource& file, bool wide, std::uint32_t count) {
  const std::uint64_t tableSize =
      mach_o::kFatHeaderSize +
      std::uint64_t{count} * (wide ? mach_o::kFatEntrySize64 : mach_o::kFatEntrySize32);
  const std::string table = file.read(0, tableSize);
  ByteReader reader(table, "the table of architectures");
  reader.skip(8);
  struct Entry {
    Architecture architecture;
    ByteRange range;
  };
  std::vector<Entry> entries;
  for (std::uint32_t index = 0; index < count; ++index) {
    const Architecture architecture = readArchitecture(reader);
    const std::uint64_t offset = wide ? reader.readU64() : reader.readU32();
    const std::uint64_t size = wide ? reader.readU64() : reader.readU32();
    reader.skip(wide ? 8 : 4);
    for (const Entry& other : entries) {
      if (other.architecture == architecture)
        throw FormatError("it has an architecture twice");
    }
    entries.push_back({architecture, {offset, size}});
  }
  std::sort(entries.begin(), entries.end(),
            [](const Entry& left, const Entry& right) { return left.range.offset < right.range.offset; });
  std::uint64_t end = tableSize;
  for (const Entry& entry : entries) {
    if (entry.range.offset < end || !entry.range.within(file.size()))
      throw FormatError("its architectures overlap or extend past the end of the file");
    end = entry.range.offset + entry.range.length;
  }
  std::vector<MachOSlice> slices;
  end = tableSize;
  for (const Entry& entry : entries) {
    slices.push_back(readSlice(file, entry.range, entry.architecture));
    requireZeros(file, end, entry.range.offset);
    end = entry.range.offset + entry.range.length;
  }
  if (end != file.size())
    throw FormatError("it has trailing data after its last architecture");
  return slices;
}

}  // namespace

std::optional<std::vector<MachOSlice>> readMachO(const ByteSource& file) {
  if (!beginsLikeMachO(file))
    return std::nullopt;
  const std::uint32_t magic = magicAt(file, 0);
  std::vector<MachOSlice> slices = isUniversal(magic)
                                       ? readUniversal(file, magic == mach_o::kFatMagic64, magicAt(file, 4))
                                       : std::vector{readSlice(file, {0, file.size()}, std::nullopt)};
  if (std::none_of(slices.begin(), slices.end(), [](const MachOSlice& slice) { return slice.isLoaded; }))
    return std::nullopt;
  return slices;
}

bool beginsLikeMachO(const ByteSource& file) {
  if (file.size() < 8)
    return false;
  const std::uint32_t magic = magicAt(file, 0);
  if (!isUniversal(magic))
    return formatOf(magic).has_value();
  const std::uint32_t count = magicAt(file, 4);
  return count >= 1 && count <= mach_o::kMostArchitectures;
}

}  // namespace platform

#include "platform/security/mach_o.hpp"

#include <algorithm>
#include <array>

#include "platform/formats/byte_reader.hpp"
#include "platform/security/load_commands.hpp"
#include "platform/security/mach_o_format.hpp"
#include "platform/security/security_error.hpp"

namespace platform {
namespace {

constexpr std::array kLoadedTypes{mach_o::file_type::kExecutable,     mach_o::file_type::kPreloadedProgram,
                                  mach_o::file_type::kDynamicLibrary, mach_o::file_type::kDynamicLinker,
                                  mach_o::file_type::kLoadableBundle, mach_o::file_type::kKernelExtension};

std::string_view fixedText(std::string_view bytes) {
  return bytes.substr(0, bytes.find('\0'));
}

/// Finds the section with the embedded Info.plist.
void readSegment(ByteReader& reader, bool wide, MachOSlice& slice) {
  reader.skip(16);
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

void readSignatureCommand(ByteReader& reader, MachOSlice& slice) {
  if (slice.signature)
    throw FormatError("it has two signatures");
  slice.signature = ByteRange{reader.readU32(), reader.readU32()};
}

bool isUniversal(std::uint32_t magic) {
  return magic == mach_o::kFatMagic || magic == mach_o::kFatMagic64;
}

std::uint32_t magicAt(const ByteSource& file, std::uint64_t offset) {
  const std::string bytes = file.read(offset, 4);
  return ByteReader(bytes, "the Mach-O header").u32(0);
}

/// Reads the slice at `range`, which must be inside the file.
MachOSlice readSlice(const ByteSource& file, const ByteRange& range,
                     const std::optional<MachOArchitecture>& declared) {
  const LoadCommands commands(file, range);
  if (declared && commands.architecture() != *declared)
    throw FormatError("it declares another architecture than its code has");
  const auto* loaded = std::find(kLoadedTypes.begin(), kLoadedTypes.end(), commands.fileType());
  MachOSlice slice{.architecture = commands.architecture().name(),
                   .isLoaded = loaded != kLoadedTypes.end(),
                   .range = range,
                   .signature = {},
                   .informationSection = {}};
  const std::uint32_t segment = commands.isWide() ? mach_o::command::kSegment64 : mach_o::command::kSegment32;
  commands.forEach([&](std::uint32_t command, ByteReader& reader) {
    if (command == mach_o::command::kCodeSignature)
      readSignatureCommand(reader, slice);
    else if (command == segment)
      readSegment(reader, commands.isWide(), slice);
  });
  // Nothing would cover bytes after the signature.
  if (slice.signature &&
      (!slice.signature->within(range.length) || slice.signature->offset < commands.end() ||
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
    MachOArchitecture architecture;
    ByteRange range;
  };
  std::vector<Entry> entries;
  for (std::uint32_t index = 0; index < count; ++index) {
    const MachOArchitecture architecture = MachOArchitecture::read(reader);
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
    return isMachOMagic(magic);
  const std::uint32_t count = magicAt(file, 4);
  return count >= 1 && count <= mach_o::kMostArchitectures;
}

}  // namespace platform

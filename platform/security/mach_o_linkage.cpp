#include "platform/security/mach_o_linkage.hpp"

#include "platform/security/load_commands.hpp"
#include "platform/security/mach_o_format.hpp"

namespace platform {
namespace {

namespace build_platform = mach_o::build_platform;
namespace command = mach_o::command;

/// The text at the offset that is next in a command; a zero byte or the command's end ends it.
std::string readText(ByteReader& reader) {
  const std::string_view rest = reader.bytesFrom(reader.readU32());
  return std::string(rest.substr(0, rest.find('\0')));
}

MachOTarget readTarget(std::uint32_t platform, ByteReader& reader) {
  const std::uint32_t version = reader.readU32();
  return {.platform = platform,
          .major = version >> 16U,
          .minor = version >> 8U & 0xFFU,
          .patch = version & 0xFFU};
}

/// Newer linkers give the kind of the load as flags after the versions; the marker takes the place of a date.
MachOLibrary readLibrary(std::uint32_t number, ByteReader& reader) {
  constexpr std::uint32_t kMarker = 0x1A741800;
  constexpr std::uint32_t kWeakFlag = 1;
  constexpr std::uint64_t kFlagsOffset = 24;
  const std::uint32_t nameOffset = reader.u32(reader.position());
  MachOLibrary library{.name = readText(reader), .isWeak = number == command::kLoadWeakDynamicLibrary};
  if (reader.readU32() == kMarker && nameOffset > kFlagsOffset)
    library.isWeak |= (reader.u32(kFlagsOffset) & kWeakFlag) != 0;
  return library;
}

void readCommand(std::uint32_t number, ByteReader& reader, MachOLinkage& linkage) {
  switch (number) {
    case command::kLoadDynamicLibrary:
    case command::kLoadWeakDynamicLibrary:
    case command::kReexportDynamicLibrary:
    case command::kLoadUpwardDynamicLibrary:
    case command::kLazyLoadDynamicLibrary:
      linkage.libraries.push_back(readLibrary(number, reader));
      break;
    case command::kDynamicLibraryIdentity:
      linkage.installName = readText(reader);
      break;
    case command::kRunPath:
      linkage.runPaths.push_back(readText(reader));
      break;
    case command::kBuildVersion: {
      const std::uint32_t platform = reader.readU32();
      linkage.targets.push_back(readTarget(platform, reader));
      break;
    }
    case command::kLeastMacOS:
      linkage.targets.push_back(readTarget(build_platform::kMacOS, reader));
      break;
    case command::kLeastIOS:
      linkage.targets.push_back(readTarget(build_platform::kIOS, reader));
      break;
    case command::kLeastTvOS:
      linkage.targets.push_back(readTarget(build_platform::kTvOS, reader));
      break;
    case command::kLeastWatchOS:
      linkage.targets.push_back(readTarget(build_platform::kWatchOS, reader));
      break;
    default:
      break;
  }
}

}  // namespace

MachOLinkage readMachOLinkage(const ByteSource& file, const ByteRange& code) {
  const LoadCommands commands(file, code);
  MachOLinkage linkage{
      .fileType = commands.fileType(), .targets = {}, .libraries = {}, .runPaths = {}, .installName = {}};
  commands.forEach([&](std::uint32_t number, ByteReader& reader) { readCommand(number, reader, linkage); });
  return linkage;
}

}  // namespace platform

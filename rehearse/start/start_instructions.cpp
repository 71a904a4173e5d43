#include "rehearse/start/start_instructions.hpp"

#include <fcntl.h>

#include <sstream>

#include "platform/files/file_descriptor.hpp"
#include "platform/files/file_manager.hpp"
#include "platform/formats/property_list.hpp"
#include "platform/foundation/error.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

using platform::Data;
using platform::DataReadingOptions;
using platform::NSPropertyListSerialization;
using platform::PropertyList;
using platform::URL;

constexpr const char* kSystemVersion = "SystemVersion";
constexpr const char* kRefusedExecutables = "RefusedExecutables";
constexpr std::size_t kLargestFile = 1U << 20U;

URL location(const fs::path& path) {
  return URL::fileURLWithPath(path.native());
}

std::string textOf(SystemVersion version) {
  return std::to_string(version.major) + "." + std::to_string(version.minor) + "." +
         std::to_string(version.patch);
}

}  // namespace

JudgedStart JudgedStart::decode(const platform::KeyedDecodingContainer& container) {
  return {.application = container.decodeString("application"),
          .version = container.decodeString("version"),
          .starts = container.decodeBool("starts"),
          .reason = container.decodeString("reason")};
}

void JudgedStart::encode(platform::KeyedEncodingContainer& container) const {
  container.encode("application", application);
  container.encode("version", version);
  container.encode("starts", starts);
  container.encode("reason", reason);
}

fs::path instructionsIn(const fs::path& prefix) {
  return prefix / "share/quorin/start/instructions.plist";
}

fs::path startsIn(const fs::path& prefix) {
  return prefix / "share/quorin/start/starts";
}

void instruct(const fs::path& prefix, const StartInstructions& instructions) {
  const auto& manager = platform::NSFileManager::defaultManager();
  const URL file = location(instructionsIn(prefix));
  manager.createDirectoryAtURL(file.deletingLastPathComponent(), platform::IntermediateDirectories::yes);
  const PropertyList::Array refused(instructions.refusedExecutables.begin(),
                                    instructions.refusedExecutables.end());
  NSPropertyListSerialization::dataWithPropertyList(
      PropertyList(PropertyList::Dictionary{{kSystemVersion, textOf(instructions.system)},
                                            {kRefusedExecutables, PropertyList(refused)}}))
      .write(file, platform::DataWritingOptions::atomic);
  Data().write(location(startsIn(prefix)), platform::DataWritingOptions::atomic);
}

StartInstructions readInstructions(const fs::path& prefix) {
  const PropertyList list = NSPropertyListSerialization::propertyListWithData(
      Data::contentsOf(location(instructionsIn(prefix)), DataReadingOptions::none, kLargestFile));
  const std::optional<std::string> system = list.stringForKey(kSystemVersion);
  const PropertyList* refused = list.valueForKey(kRefusedExecutables);
  if (!system || refused == nullptr || refused->array() == nullptr)
    throw platform::Error(platform::quoted(instructionsIn(prefix).native()) + " lacks a value.");
  StartInstructions instructions{.system = systemVersion(*system), .refusedExecutables = {}};
  for (const PropertyList& digest : *refused->array()) {
    if (digest.string() == nullptr)
      throw platform::Error(platform::quoted(instructionsIn(prefix).native()) +
                            " has a digest that is no text.");
    instructions.refusedExecutables.push_back(*digest.string());
  }
  return instructions;
}

void recordStart(const fs::path& prefix, const JudgedStart& start) {
  const fs::path path = startsIn(prefix);
  platform::FileDescriptor file =
      platform::FileDescriptor::open(location(path), O_WRONLY | O_CREAT | O_APPEND, 0644);
  const std::string line = std::string(platform::JSONEncoder().encode(start).bytes()) + "\n";
  file.writeAll(line, path.native());
  file.close(path.native());
}

std::vector<JudgedStart> judgedStarts(const fs::path& prefix) {
  std::istringstream lines(std::string(Data::contentsOf(location(startsIn(prefix))).bytes()));
  std::vector<JudgedStart> starts;
  for (std::string line; std::getline(lines, line);)
    starts.push_back(platform::JSONDecoder().decode<JudgedStart>(Data(line)));
  return starts;
}

}  // namespace rehearse

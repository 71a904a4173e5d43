#include "platform/open/application_launch.hpp"

#include <cerrno>
#include <string>
#include <string_view>

#include "platform/files/data.hpp"
#include "platform/files/file_handle.hpp"
#include "platform/files/file_manager.hpp"
#include "platform/formats/property_list.hpp"
#include "platform/foundation/error.hpp"
#include "platform/processes/spawn.hpp"

namespace platform::open {
namespace {

[[noreturn]] void fail(const URL& bundle, const std::string& reason) {
  throw Error("The application " + quoted(bundle.path()) + " cannot be opened: " + reason);
}

PropertyList readInfo(const URL& bundle) {
  try {
    return NSPropertyListSerialization::propertyListWithData(
        Data::contentsOf(bundle.appendingPathComponent("Contents/Info.plist")));
  } catch (const Error& error) {
    fail(bundle, error.localizedDescription());
  }
}

/// False for an item that cannot be examined: using it fails with the reason.
bool isAbsent(const URL& item) {
  return NSFileManager::defaultManager().presenceOfItemAtPath(item.path()) == ItemPresence::absent;
}

/// True for a path of plain names only, which cannot leave the directory that it is relative to.
bool staysBelow(std::string_view path) {
  while (true) {
    const auto slash = path.find('/');
    const std::string_view name = path.substr(0, slash);
    if (name.empty() || name == "." || name == "..")
      return false;
    if (slash == std::string_view::npos)
      return true;
    path.remove_prefix(slash + 1);
  }
}

URL mainExecutable(const URL& bundle) {
  const std::optional<std::string> name = readInfo(bundle).stringForKey("CFBundleExecutable");
  if (!name)
    fail(bundle, "Its Info.plist names no executable.");
  if (!staysBelow(*name))
    fail(bundle, "The executable " + quoted(*name) + " is not in its Contents/MacOS.");
  URL executable = bundle.appendingPathComponent("Contents/MacOS").appendingPathComponent(*name);
  if (isAbsent(executable))
    fail(bundle, "Its executable " + quoted(*name) + " is missing.");
  return executable;
}

}  // namespace

void launchApplication(const URL& bundle) {
  if (isAbsent(bundle))
    fail(bundle, "There is no such bundle.");
  const URL executable = mainExecutable(bundle);
  const NSFileHandle nullDevice = NSFileHandle::fileHandleWithNullDevice();
  const int stream = nullDevice.descriptor().get();
  try {
    spawn({.executable = executable,
           .arguments = {},
           .standardStreams = {stream, stream, stream},
           .session = Session::own,
           .workingDirectory = "/"});
  } catch (const SystemError& error) {
    // The executable exists, so what is missing is a script's interpreter or a program's loader.
    if (error.errorNumber() == ENOENT)
      fail(bundle, "The interpreter that its executable names is missing.");
    fail(bundle, error.localizedDescription());
  }
}

}  // namespace platform::open

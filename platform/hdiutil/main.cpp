#include <sys/stat.h>
#include <unistd.h>

#include <exception>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"
#include "platform/formats/property_list.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"
#include "platform/hdiutil/attach.hpp"
#include "platform/hdiutil/image_registry.hpp"
#include "platform/processes/process.hpp"

namespace {

using platform::quoted;
using platform::sentence;
using platform::URL;

void write(int stream, std::string_view text) {
  platform::FileDescriptor descriptor(stream);
  try {
    descriptor.writeAll(text, "the output");
  } catch (...) {
    static_cast<void>(descriptor.release());
    throw;
  }
  static_cast<void>(descriptor.release());
}

int fail(const std::string& sentence) {
  // If standard error cannot be written, the exit status still reports the failure.
  platform::bestEffort([&] { write(STDERR_FILENO, sentence + "\n"); });
  return 1;
}

int attach(const std::string& path) {
  try {
    platform::hdiutil::ImageRegistry registry(platform::hdiutil::registryLocation());
    platform::hdiutil::attach(URL::fileURLWithPath(path), registry, [](const platform::PropertyList& list) {
      write(STDOUT_FILENO, platform::NSPropertyListSerialization::dataWithPropertyList(list).bytes());
    });
    return 0;
  } catch (const platform::Error& error) {
    return fail(sentence(quoted(path) + " could not be attached", error));
  }
}

int detach(const std::string& deviceOrMountPoint) {
  try {
    platform::hdiutil::ImageRegistry(platform::hdiutil::registryLocation()).detach(deviceOrMountPoint);
    return 0;
  } catch (const platform::Error& error) {
    return fail(sentence(quoted(deviceOrMountPoint) + " could not be detached", error));
  }
}

int run(const std::vector<std::string>& arguments) {
  if (arguments.size() == 6 && arguments[1] == "attach" && arguments[2] == "-readonly" &&
      arguments[3] == "-nobrowse" && arguments[4] == "-plist")
    return attach(arguments[5]);
  if (arguments.size() == 3 && arguments[1] == "detach")
    return detach(arguments[2]);
  return fail(
      "Usage: hdiutil attach -readonly -nobrowse -plist PATH, or hdiutil detach DEVICE-OR-MOUNT-POINT.");
}

}  // namespace

int main() {
  // Entries have the permissions of the image, independent of the umask; private files are created as such.
  ::umask(0);
  try {
    platform::ProcessInfo::secureStandardStreams();
    return run(platform::ProcessInfo::arguments());
  } catch (const std::exception& error) {
    return fail(std::string("The disk image tool failed: ") + error.what());
  }
}

#include <fcntl.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "platform/files/file_manager.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/uuid.hpp"
#include "platform/processes/process.hpp"
#include "tools/make_disk_image/hfs_plus_maker.hpp"
#include "tools/make_disk_image/udif_writer.hpp"

namespace make_disk_image {
namespace {

using platform::FileDescriptor;
using platform::NSFileManager;
using platform::URL;

void makeDiskImage(const URL& folder, const std::string& volumeName, const URL& image) {
  const auto& files = NSFileManager::defaultManager();
  const URL parent = image.deletingLastPathComponent();
  const URL temporary = parent.appendingPathComponent(std::string(".").append(platform::UUID().uuidString()));
  FileDescriptor file = FileDescriptor::open(temporary, O_WRONLY | O_CREAT | O_EXCL, 0666);
  // Has no effect after the rename.
  const platform::ScopeExit removal([&] { files.removeItemAtURL(temporary); });
  const FileDescriptor directory = FileDescriptor::open(parent, O_RDONLY | O_DIRECTORY);
  const MadeVolume volume = makeHfsPlusVolume(folder, volumeName, directory);
  UdifWriter writer(file);
  writer.addTable(
      {"whole disk (Apple_HFS : 0)", *volume.disk, volume.partition.offset, volume.partition.length, 0},
      zlibEncoding());
  writer.finish();
  file.close(image.path());
  files.moveItemAtURL(temporary, image);
}

int fail(const std::string& sentence) {
  // If stderr cannot be written, the exit status still reports the failure.
  static_cast<void>(std::fputs((sentence + "\n").c_str(), stderr));
  return 1;
}

int run() {
  try {
    platform::ProcessInfo::secureStandardStreams();
    const std::vector<std::string> arguments = platform::ProcessInfo::arguments();
    if (arguments.size() != 4)
      return fail(
          "Usage: make_disk_image FOLDER VOLUME-NAME IMAGE. Makes a compressed disk image of a folder.");
    makeDiskImage(URL::fileURLWithPath(arguments[1]), arguments[2], URL::fileURLWithPath(arguments[3]));
    return 0;
  } catch (const std::exception& error) {
    return fail(error.what());
  }
}

}  // namespace
}  // namespace make_disk_image

int main() {
  return make_disk_image::run();
}

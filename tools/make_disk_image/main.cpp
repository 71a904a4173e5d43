#include <fcntl.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "platform/files/file_manager.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/uuid.hpp"
#include "platform/processes/process_info.hpp"
#include "tools/make_disk_image/hfs_plus_maker.hpp"
#include "tools/make_disk_image/udif_writer.hpp"

namespace make_disk_image {
namespace {

using platform::FileDescriptor;
using platform::NSFileManager;
using platform::URL;

/// A temporary file beside the image, renamed to it on `commit` and removed otherwise.
class UnfinishedImage {
 public:
  explicit UnfinishedImage(const URL& image)
      : image_(image),
        place_(image.deletingLastPathComponent().appendingPathComponent(
            std::string(".").append(platform::UUID().uuidString()))),
        file_(FileDescriptor::open(place_, O_WRONLY | O_CREAT | O_EXCL, 0666)) {}
  UnfinishedImage(const UnfinishedImage&) = delete;
  UnfinishedImage& operator=(const UnfinishedImage&) = delete;
  ~UnfinishedImage() {
    if (file_.isOpen())
      platform::bestEffort([this] { NSFileManager::defaultManager().removeItemAtURL(place_); });
  }

  const FileDescriptor& file() const { return file_; }

  void commit() {
    NSFileManager::defaultManager().moveItemAtURL(place_, image_);
    file_.close(image_.path());
  }

 private:
  URL image_;
  URL place_;
  FileDescriptor file_;
};

void makeDiskImage(const URL& folder, const std::string& volumeName, const URL& image) {
  UnfinishedImage unfinished(image);
  const FileDescriptor directory =
      FileDescriptor::open(image.deletingLastPathComponent(), O_RDONLY | O_DIRECTORY);
  const MadeVolume volume = makeHfsPlusVolume(folder, volumeName, directory);
  UdifWriter writer(unfinished.file());
  writer.addTable(
      {"whole disk (Apple_HFS : 0)", *volume.disk, volume.partition.offset, volume.partition.length, 0},
      zlibEncoding());
  writer.finish();
  unfinished.commit();
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

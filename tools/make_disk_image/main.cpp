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

namespace {

using platform::FileDescriptor;
using platform::NSFileManager;
using platform::URL;

std::string hiddenName() {
  std::string name(".");
  return name.append(platform::UUID().uuidString());
}

/// A file beside the image, which takes the image's name when it is complete and else is gone.
class UnfinishedImage {
 public:
  explicit UnfinishedImage(const URL& image)
      : image_(image),
        place_(image.deletingLastPathComponent().appendingPathComponent(hiddenName())),
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
  const quorin_tools::MadeVolume volume = quorin_tools::makeHfsPlusVolume(folder, volumeName, directory);
  quorin_tools::UdifWriter writer(unfinished.file());
  writer.addTable(
      {"whole disk (Apple_HFS : 0)", *volume.disk, volume.partition.offset, volume.partition.length, 0},
      quorin_tools::zlibEncoding());
  writer.finish();
  unfinished.commit();
}

int fail(const std::string& sentence) {
  // Without anybody to read it, the exit status still tells.
  static_cast<void>(std::fputs((sentence + "\n").c_str(), stderr));
  return 1;
}

}  // namespace

int main() {
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

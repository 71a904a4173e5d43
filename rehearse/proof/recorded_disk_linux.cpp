#include <fcntl.h>
#include <linux/fuse.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <utility>

#include "platform/foundation/error.hpp"
#include "rehearse/files/served_disks.hpp"
#include "rehearse/proof/recorded_disk.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

constexpr std::uint32_t kMaxWrite = 128 << 10;
constexpr std::size_t kRequestSize = kMaxWrite + 4096;
constexpr std::uint64_t kForever = 3600;

template <typename Structure>
Structure take(std::string_view& bytes) {
  Structure structure;
  if (bytes.size() < sizeof structure)
    throw std::out_of_range("a short request");
  std::memcpy(&structure, bytes.data(), sizeof structure);
  bytes.remove_prefix(sizeof structure);
  return structure;
}

template <typename Structure>
std::string_view bytesOf(const Structure& structure) {
  return {reinterpret_cast<const char*>(&structure), sizeof structure};
}

fuse_init_out agreement(const fuse_init_in& offer) {
  fuse_init_out answer{};
  answer.major = FUSE_KERNEL_VERSION;
  answer.minor = std::min<std::uint32_t>(offer.minor, FUSE_KERNEL_MINOR_VERSION);
  answer.max_readahead = offer.max_readahead;
  answer.flags = offer.flags & FUSE_BIG_WRITES;
  answer.max_write = kMaxWrite;
  return answer;
}

fuse_attr_out attributes(std::uint64_t size) {
  fuse_attr_out answer{};
  answer.attr_valid = kForever;
  answer.attr.ino = FUSE_ROOT_ID;
  answer.attr.size = size;
  answer.attr.mode = S_IFREG | 0600;
  answer.attr.nlink = 1;
  return answer;
}

}  // namespace

RecordedDisk::RecordedDisk(ReversibleFile& content, fs::path path, DiskHistory* history)
    : content_(content),
      path_(std::move(path)),
      device_(::open("/dev/fuse", O_RDWR | O_NONBLOCK | O_CLOEXEC)),
      history_(history) {
  if (!device_.isOpen())
    throw platform::SystemError("/dev/fuse could not be opened", errno);
  const std::string options = "fd=" + std::to_string(device_.get()) +
                              ",rootmode=100600,user_id=" + std::to_string(::geteuid()) +
                              ",group_id=" + std::to_string(::getegid());
  if (::mount(kServedDisk, path_.c_str(), "fuse", MS_NOSUID | MS_NODEV, options.c_str()) != 0)
    throw platform::SystemError("A FUSE mount was refused", errno);
  // The signals of the process are for its other thread, which waits for them.
  sigset_t all;
  sigset_t before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  server_ = std::thread([this] { serve(); });
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

RecordedDisk::~RecordedDisk() {
  // The server ends when the mount does, and soon anyway.
  ::umount2(path_.c_str(), MNT_DETACH);
  ends_ = true;
  server_.join();
}

std::size_t RecordedDisk::writes() const {
  const std::scoped_lock lock(mutex_);
  if (!failure_.empty())
    throw platform::Error(failure_);
  return history_ == nullptr ? 0 : history_->writes();
}

void RecordedDisk::serve() {
  constexpr int kPatience = 500;  // milliseconds
  std::string request(kRequestSize, '\0');
  while (!ends_) {
    pollfd stream{device_.get(), POLLIN, 0};
    ::poll(&stream, 1, kPatience);
    const ssize_t size = ::read(device_.get(), request.data(), request.size());
    if (size < 0 && errno == ENODEV)
      return;
    if (size > 0)
      answer(std::string_view(request).substr(0, static_cast<std::size_t>(size)));
  }
}

void RecordedDisk::answer(std::string_view request) {
  fuse_in_header header{};
  try {
    header = take<fuse_in_header>(request);
    switch (header.opcode) {
      case FUSE_INIT:
        return reply(header.unique, 0, bytesOf(agreement(take<fuse_init_in>(request))));
      case FUSE_GETATTR:
        return reply(header.unique, 0, bytesOf(attributes(content_.size())));
      case FUSE_OPEN: {
        // Its last member has another name in newer headers.
        fuse_open_out opened{};
        opened.open_flags = FOPEN_KEEP_CACHE;
        return reply(header.unique, 0, bytesOf(opened));
      }
      case FUSE_READ: {
        const auto range = take<fuse_read_in>(request);
        return reply(header.unique, 0, content_.read(range.offset, range.size));
      }
      case FUSE_WRITE: {
        const auto range = take<fuse_write_in>(request);
        const std::string_view bytes = request.substr(0, range.size);
        content_.write(range.offset, bytes);
        record([&](DiskHistory& history) { history.addWrite(range.offset, bytes); });
        return reply(header.unique, 0, bytesOf(fuse_write_out{.size = range.size, .padding = 0}));
      }
      case FUSE_FSYNC:
        record([](DiskHistory& history) { history.addFlush(); });
        return reply(header.unique, 0);
      case FUSE_FLUSH:
      case FUSE_RELEASE:
        return reply(header.unique, 0);
      case FUSE_FORGET:
      case FUSE_BATCH_FORGET:
      case FUSE_INTERRUPT:
        return;
      default:
        return reply(header.unique, ENOSYS);
    }
  } catch (const std::exception&) {
    reply(header.unique, EIO);
  }
}

void RecordedDisk::reply(std::uint64_t request, int error, std::string_view body) const {
  fuse_out_header header{.len = static_cast<std::uint32_t>(sizeof(fuse_out_header) + body.size()),
                         .error = -error,
                         .unique = request};
  const std::array parts{iovec{&header, sizeof header}, iovec{const_cast<char*>(body.data()), body.size()}};
  // Fails only where nobody waits for it any more.
  [[maybe_unused]] const ssize_t written =
      ::writev(device_.get(), parts.data(), static_cast<int>(parts.size()));
}

void RecordedDisk::record(const std::function<void(DiskHistory&)>& add) {
  const std::scoped_lock lock(mutex_);
  if (history_ == nullptr || !failure_.empty())
    return;
  try {
    add(*history_);
  } catch (const platform::Error& failure) {
    failure_ = failure.localizedDescription();
  }
}

}  // namespace rehearse

#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <list>
#include <optional>
#include <sstream>
#include <system_error>

#include "platform/files/file_descriptor.hpp"
#include "rehearse/proof/sweep.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

constexpr char kFieldEnd = '\x1f';

void require(bool holds, const char* what) {
  if (!holds)
    throw std::system_error(errno, std::generic_category(), what);
}

/// A result on one line.
std::string line(const Result& result) {
  std::string text = result.point + kFieldEnd + result.outcome;
  for (const std::string& violation : result.violations)
    text += kFieldEnd + violation;
  std::ranges::replace(text, '\n', ' ');
  return text + "\n";
}

Result fromLine(const std::string& text) {
  std::istringstream fields(text);
  Result result;
  std::getline(fields, result.point, kFieldEnd);
  std::getline(fields, result.outcome, kFieldEnd);
  for (std::string violation; std::getline(fields, violation, kFieldEnd);)
    result.violations.push_back(violation);
  return result;
}

/// A process that takes every n-th task and writes its results to a pipe.
class Worker {
 public:
  Worker(const std::vector<Task>& tasks, std::size_t first, std::size_t step, const fs::path& directory) {
    int ends[2] = {};
    require(::pipe(ends) == 0, "pipe");
    process_ = ::fork();
    require(process_ >= 0, "fork");
    if (process_ == 0) {
      ::close(ends[0]);
      work(tasks, first, step, directory, ends[1]);
      ::_exit(0);
    }
    ::close(ends[1]);
    results_ = platform::FileDescriptor(ends[0]);
  }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  ~Worker() {
    if (process_ > 0)
      end();
  }

  /// Waits for its end. True when it did all its tasks.
  bool end() {
    int status = 0;
    while (::waitpid(process_, &status, 0) < 0 && errno == EINTR)
      continue;
    process_ = 0;
    return status == 0;
  }

  int stream() const { return results_.get(); }

  /// Takes what has come and tells of it. False at the end.
  bool read(const std::function<void(const Result&)>& report) {
    char chunk[4096];
    const ssize_t count = ::read(results_.get(), chunk, sizeof chunk);
    if (count <= 0)
      return false;
    text_.append(chunk, static_cast<std::size_t>(count));
    for (std::size_t end = 0; (end = text_.find('\n')) != std::string::npos; text_.erase(0, end + 1))
      report(fromLine(text_.substr(0, end)));
    return true;
  }

 private:
  static void tell(int stream, const Result& result) {
    const std::string text = line(result);
    if (::write(stream, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
      ::_exit(1);
  }

  static void work(const std::vector<Task>& tasks, std::size_t first, std::size_t step,
                   const fs::path& directory, int stream) {
    std::optional<Place> place;
    for (std::size_t index = first; index < tasks.size(); index += step) {
      try {
        if (!place)
          place = settle(directory);
        tasks[index](*place, [stream](const Result& result) { tell(stream, result); });
      } catch (const std::exception& failure) {
        tell(stream,
             {"task " + std::to_string(index), "none", {std::string("It failed: ") + failure.what()}});
      }
    }
  }

  pid_t process_ = 0;
  platform::FileDescriptor results_;
  std::string text_;
};

}  // namespace

Place settle(const fs::path& directory) {
  fs::create_directories(directory);
  require(::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) == 0, "prctl");
  require(::unshare(CLONE_NEWNS) == 0, "unshare");
  require(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "a private mount");
  require(::mount("tmpfs", directory.c_str(), "tmpfs", 0, "mode=0755") == 0, "a file system in memory");
  Place place{directory / "home", directory / "tmp"};
  for (const fs::path& path : {place.home, place.temporary}) {
    fs::create_directories(path);
    require(::mount("tmpfs", path.c_str(), "tmpfs", 0, "mode=0777") == 0, "a file system in memory");
  }
  require(::mount(place.temporary.c_str(), "/tmp", nullptr, MS_BIND, nullptr) == 0,
          "the temporary directory");
  return place;
}

void leave(const fs::path& directory) {
  // What cannot be unmounted is gone with the process's namespace.
  for (const fs::path& path : {fs::path("/tmp"), directory / "tmp", directory / "home", directory})
    static_cast<void>(::umount2(path.c_str(), MNT_DETACH));
}

void runTasks(const std::vector<Task>& tasks, const fs::path& directory, unsigned workers,
              const std::function<void(const Result&)>& report) {
  std::list<Worker> running;
  for (unsigned index = 0; index < workers; ++index)
    running.emplace_back(tasks, index, workers, directory / ("worker-" + std::to_string(index)));
  while (!running.empty()) {
    std::vector<pollfd> streams;
    for (const Worker& worker : running)
      streams.push_back({worker.stream(), POLLIN, 0});
    require(::poll(streams.data(), streams.size(), -1) > 0 || errno == EINTR, "poll");
    auto worker = running.begin();
    for (const pollfd& stream : streams) {
      const auto current = worker++;
      if (stream.revents == 0 || current->read(report))
        continue;
      if (!current->end())
        report({"a worker", "none", {"It died, and its other tasks were not tried."}});
      running.erase(current);
    }
  }
}

}  // namespace rehearse

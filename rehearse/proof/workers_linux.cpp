#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <list>
#include <memory>
#include <sstream>
#include <string_view>
#include <system_error>

#include "platform/files/file_descriptor.hpp"
#include "rehearse/files/private_place.hpp"
#include "rehearse/proof/proof_refused.hpp"
#include "rehearse/proof/workers.hpp"

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
  std::string text =
      result.point + kFieldEnd + std::to_string(static_cast<int>(result.outcome)) + kFieldEnd + result.state;
  for (const std::string& violation : result.violations)
    text += kFieldEnd + violation;
  std::ranges::replace(text, '\n', ' ');
  return text + "\n";
}

Result fromLine(const std::string& text) {
  std::istringstream fields(text);
  Result result;
  std::string outcome;
  std::getline(fields, result.point, kFieldEnd);
  std::getline(fields, outcome, kFieldEnd);
  std::getline(fields, result.state, kFieldEnd);
  result.outcome = static_cast<PointOutcome>(std::stoi(outcome));
  for (std::string violation; std::getline(fields, violation, kFieldEnd);)
    result.violations.push_back(violation);
  return result;
}

/// Ends the process where nobody reads any more.
void writeAll(int stream, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(stream, text.data(), text.size());
    if (count < 0 && errno != EINTR)
      ::_exit(1);
    text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }
}

/// A process with a pipe on which it tells something.
class Child {
 public:
  explicit Child(const std::function<void(int stream)>& body) {
    std::array<int, 2> ends{};
    require(::pipe2(ends.data(), O_CLOEXEC) == 0, "pipe");
    stream_ = platform::FileDescriptor(ends[0]);
    const platform::FileDescriptor writing(ends[1]);
    process_ = ::fork();
    require(process_ >= 0, "fork");
    if (process_ == 0) {
      // Nothing that the parent owns may be given up here.
      body(ends[1]);
      ::_exit(0);
    }
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    if (process_ > 0)
      end();
  }

  /// Waits for its end. True when it did what it was made for.
  bool end() {
    int status = 0;
    while (::waitpid(process_, &status, 0) < 0 && errno == EINTR)
      continue;
    process_ = 0;
    return status == 0;
  }

  int stream() const { return stream_.get(); }

  /// Takes what has come. Empty at the end.
  std::string read() const {
    std::array<char, 65'536> chunk{};
    ssize_t count = 0;
    do
      count = ::read(stream_.get(), chunk.data(), chunk.size());
    while (count < 0 && errno == EINTR);
    return {chunk.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
  }

 private:
  pid_t process_ = 0;
  platform::FileDescriptor stream_;
};

/// The process's place, which lasts as long as it.
Place settle(const fs::path& directory, const Workshop& workshop) {
  static std::unique_ptr<PrivatePlace> place;
  try {
    place = std::make_unique<PrivatePlace>(directory, PrivatePlace::Storage::inMemory);
  } catch (const platform::Error& refusal) {
    throw ProofRefused(refusal.localizedDescription());
  }
  if (workshop.settle)
    workshop.settle();
  return {place->home(), place->temporary()};
}

/// Takes every so many of the points.
class Worker {
 public:
  Worker(const std::vector<const PlannedPoint*>& points, std::size_t first, const Workshop& workshop)
      : child_([&](int stream) { work(points, first, workshop, stream); }) {}

  int stream() const { return child_.stream(); }
  bool end() { return child_.end(); }

  /// Takes what has come and tells of it. False at the end.
  bool read(const std::function<void(const Result&)>& report) {
    const std::string chunk = child_.read();
    text_ += chunk;
    for (std::size_t end = 0; (end = text_.find('\n')) != std::string::npos; text_.erase(0, end + 1))
      report(fromLine(text_.substr(0, end)));
    return !chunk.empty();
  }

 private:
  static void work(const std::vector<const PlannedPoint*>& points, std::size_t first,
                   const Workshop& workshop, int stream) {
    Place place;
    for (std::size_t index = first; index < points.size(); index += workshop.workers) {
      const PlannedPoint& point = *points[index];
      const auto tell = [&](Result result) {
        if (result.point.empty())
          result.point = point.name;
        writeAll(stream, line(result));
      };
      try {
        if (place.home.empty())
          place = settle(workshop.directory / ("worker-" + std::to_string(first)), workshop);
        point.task(place, tell);
      } catch (const std::exception& failure) {
        tell({"", PointOutcome::notTried, {std::string("It failed: ") + failure.what()}});
      }
    }
  }

  Child child_;
  std::string text_;
};

}  // namespace

std::string inPlace(const Workshop& workshop, const std::function<std::string(const Place&)>& body) {
  constexpr char kResult = 'r';
  constexpr char kRefusal = 'n';
  constexpr char kFailure = 'f';
  Child child([&](int stream) {
    try {
      const Place place = settle(workshop.directory / "recording", workshop);
      writeAll(stream, kResult + body(place));
    } catch (const fs::filesystem_error& failure) {
      writeAll(stream, kFailure + std::string(failure.what()));
    } catch (const std::system_error& refusal) {
      writeAll(stream, kRefusal + std::string("Tracing programs is not allowed: ") + refusal.what());
    } catch (const ProofRefused& refusal) {
      writeAll(stream, kRefusal + refusal.localizedDescription());
    } catch (const std::exception& failure) {
      writeAll(stream, kFailure + std::string(failure.what()));
    }
  });
  std::string text;
  for (std::string chunk = child.read(); !chunk.empty(); chunk = child.read())
    text += chunk;
  if (!child.end() || text.empty())
    throw platform::Error("A process of the proof died.");
  const char kind = text.front();
  text.erase(0, 1);
  if (kind == kRefusal)
    throw ProofRefused(text);
  if (kind == kFailure)
    throw platform::Error(text);
  return text;
}

void runPoints(const std::vector<const PlannedPoint*>& points, const Workshop& workshop,
               const std::function<void(const Result&)>& report) {
  std::list<Worker> running;
  for (std::size_t index = 0; index < std::min<std::size_t>(workshop.workers, points.size()); ++index)
    running.emplace_back(points, index, workshop);
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
        report({"a worker", PointOutcome::notTried, {"It died, and its other points were not tried."}});
      running.erase(current);
    }
  }
}

}  // namespace rehearse

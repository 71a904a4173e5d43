#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "rehearse/proof/disk_volume.hpp"
#include "rehearse/proof/home.hpp"
#include "rehearse/proof/sweep.hpp"

namespace rehearse {

/// An update whose every write to its disk is to be recorded.
struct RecordedConditions {
  const DiskFileSystem& fileSystem;
  std::string options;  ///< of the mount, see `Volume`
  Story story;
  bool withoutFlush = false;  ///< the flush before the exchange is taken out
  /// Which calls that change a file are in the sample, by their names; the first and the last are.
  std::function<bool(const SystemCall& call, const std::string& name)> samples;
  bool commits = false;  ///< the file system's records are written behind each sampled call
};

/// What had been written when a call ended that changes a file, or the update did.
struct Mark {
  /// Counted among those that change a file, since a file system lists a directory in an order that is not
  /// the same twice, and a tool reads it in that order; "the end" for the last one. See `CallNames`.
  std::string call;
  std::size_t writes = 0;
  bool isSampled = false;
};

/// A record of an update, for several processes that make its disk anew. The destructor removes its files.
class RecordedUpdate {
 public:
  /// Runs the update in a process with a place below the workshop, and keeps the record in `directory`, which
  /// must not exist. Throws `ProofRefused` where the system does not allow to trace, and `platform::Error`
  /// where the update does not go as its story does.
  RecordedUpdate(const Material& material, const RecordedConditions& conditions, const Workshop& workshop,
                 std::filesystem::path directory);

  const std::vector<Mark>& marks() const { return marks_; }
  /// How many writes there were before the update.
  std::size_t begin() const { return begin_; }
  /// The disk before all writes.
  std::filesystem::path firstContent() const { return directory_.path / "disk"; }
  /// Opened by each process that needs it.
  DiskHistory history() const { return DiskHistory::open(historyFile()); }

 private:
  struct Directory {
    explicit Directory(std::filesystem::path name);
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;
    ~Directory();
    std::filesystem::path path;
  };

  std::filesystem::path historyFile() const { return directory_.path / "history"; }
  std::string record(const Material& material, const RecordedConditions& conditions,
                     const Place& place) const;
  void readMarks(const std::string& text);

  Directory directory_;
  std::size_t begin_ = 0;
  std::vector<Mark> marks_;
};

}  // namespace rehearse

#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "rehearse/start/start_check.hpp"

namespace rehearse {

/// What an update has started.
class Starts {
 public:
  Starts() = default;
  Starts(const Starts&) = delete;
  Starts& operator=(const Starts&) = delete;
  virtual ~Starts() = default;

  /// For a process that runs updates and has private mounts, before its first.
  virtual void settle() const {}
  /// Forgets earlier starts. With `refused` the offered application is not started from now on, as far as
  /// that is not its own doing.
  virtual void begin(const std::filesystem::path& home, bool refused) const = 0;
  /// The versions that were started since, in order.
  virtual std::vector<std::string> versions(const std::filesystem::path& home) const = 0;
  /// Whether a judge is in `open`'s place, so that its calls prove nothing.
  virtual bool areJudged() const = 0;
};

/// Applications that add their version to the file "starts" in the home.
class WrittenStarts : public Starts {
 public:
  void begin(const std::filesystem::path& home, bool refused) const override;
  std::vector<std::string> versions(const std::filesystem::path& home) const override;
  bool areJudged() const override { return false; }
};

/// Applications that are not executed: the judge in the place of the prefix's `open` decides and writes down.
class JudgedStarts : public Starts {
 public:
  /// `executable` is the SHA-256 of the offered application's main executable, in lower-case hexadecimal.
  JudgedStarts(std::filesystem::path prefix, SystemVersion system, std::string executable);

  /// Processes that run updates at the same time have an instruction and a record each.
  void settle() const override;
  void begin(const std::filesystem::path& home, bool refused) const override;
  std::vector<std::string> versions(const std::filesystem::path& home) const override;
  bool areJudged() const override { return true; }

 private:
  std::filesystem::path prefix_;
  SystemVersion system_;
  std::string executable_;
};

}  // namespace rehearse

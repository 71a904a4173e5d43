#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace rehearse {

/// Gives the calling process mounts that only it and the programs that it starts see, from now on: as the
/// superuser a mount namespace, as another user a user namespace in addition, in which the user and its group
/// are what they were. The process must have one thread. Throws `platform::Error` with what is needed where
/// the system refuses it.
void enterPrivateMounts();

/// A file system mounted in a private mount namespace. The destructor unmounts it, lazily when it is in use.
/// Operations throw `platform::SystemError`.
class Mount {
 public:
  /// An empty file system in memory at the directory `at`, writable for everybody. It holds `bytes` at the
  /// most, and half of the memory without a size.
  static Mount inMemory(const std::filesystem::path& at, std::optional<std::uint64_t> bytes = std::nullopt);
  /// Makes the directory `what` visible at the directory `at`, with what is mounted in it.
  static Mount bound(const std::filesystem::path& what, const std::filesystem::path& at);
  /// Makes the directory `at` read-only, for the superuser too, without what is mounted in it.
  static Mount readOnly(const std::filesystem::path& at);

  Mount(Mount&& other) noexcept : at_(std::move(other.at_)) { other.at_.clear(); }
  Mount& operator=(Mount&& other) noexcept {
    at_.swap(other.at_);
    return *this;
  }
  Mount(const Mount&) = delete;
  Mount& operator=(const Mount&) = delete;
  ~Mount();

  /// Changes how much a file system in memory holds.
  void resize(std::uint64_t bytes) const;

 private:
  explicit Mount(std::filesystem::path at) : at_(std::move(at)) {}

  std::filesystem::path at_;
};

/// The part of the file system in which updates are rehearsed. The process that makes one keeps its private
/// mounts until it ends, and adopts the orphans of what it starts.
class PrivatePlace {
 public:
  enum class Storage {
    onDisk,    ///< `home` and `temporary` are directories on the file system of `directory`
    inMemory,  ///< each is a file system in memory
  };

  /// Creates `directory`, which must not be below "/tmp", with "home" and "tmp" in it if they are missing;
  /// "tmp" becomes "/tmp" for this process and the programs that it starts. Throws `platform::Error`.
  explicit PrivatePlace(const std::filesystem::path& directory, Storage storage = Storage::onDisk);

  /// For the application and what belongs to the user.
  const std::filesystem::path& home() const { return home_; }
  /// What the updater and its tools see as "/tmp", by a path that does not pass it.
  const std::filesystem::path& temporary() const { return temporary_; }
  /// The path by which this process reaches what was at `path` before: another one for what is below "/tmp".
  /// `path` is absolute and without links; resolve them before the place is made.
  std::filesystem::path reachable(const std::filesystem::path& path) const;

 private:
  std::filesystem::path home_;
  std::filesystem::path temporary_;
  std::filesystem::path systemTemporary_;  ///< where the system's "/tmp" is reached
  std::optional<Mount> directoryMount_;
  std::optional<Mount> homeMount_;
  std::optional<Mount> temporaryMount_;
  std::optional<Mount> systemTemporaryMount_;
  std::optional<Mount> ownTemporaryMount_;
};

}  // namespace rehearse

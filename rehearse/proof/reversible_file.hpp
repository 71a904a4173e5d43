#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/file_descriptor.hpp"

namespace rehearse {

/// A file of constant size whose latest writes can be taken back. What is zero takes no memory to remember,
/// and no space once it is zero again. For one thread at a time. Operations throw `platform::SystemError`.
class ReversibleFile {
 public:
  explicit ReversibleFile(const std::filesystem::path& path);

  std::uint64_t size() const { return size_; }
  /// The bytes from `offset` on, as many as there are, at most `count`.
  std::string read(std::uint64_t offset, std::size_t count) const;
  /// Throws `std::out_of_range` for bytes behind the end.
  void write(std::uint64_t offset, std::string_view bytes);

  /// How many writes can be taken back.
  std::size_t writes() const { return replaced_.size(); }
  /// Takes back the latest writes, until `writes` are left.
  void takeBack(std::size_t writes);
  /// Makes what has been written so far final.
  void keep() { replaced_.clear(); }

 private:
  struct Replaced {
    std::uint64_t offset;
    std::size_t size;
    std::string bytes;  ///< empty when they were all zero
  };

  void restore(const Replaced& replaced) const;

  platform::FileDescriptor file_;
  std::uint64_t size_;
  std::vector<Replaced> replaced_;
};

}  // namespace rehearse

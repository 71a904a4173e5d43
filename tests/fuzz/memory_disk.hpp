#pragma once

#include <sys/mman.h>

#include <algorithm>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "platform/hdiutil/disk.hpp"

namespace fuzz {

/// A disk in memory. Behind the bytes that are given it is empty.
class MemoryDisk : public platform::hdiutil::Disk {
 public:
  MemoryDisk(std::string bytes, std::uint64_t size) : bytes_(std::move(bytes)), size_(size) {}

  using Disk::read;
  std::uint64_t size() const override { return size_; }
  void read(std::uint64_t offset, std::span<char> buffer) override {
    requireInside(offset, buffer.size());
    const std::string_view given =
        std::string_view(bytes_).substr(std::min<std::uint64_t>(offset, bytes_.size()));
    const auto end = std::copy_n(given.begin(), std::min(given.size(), buffer.size()), buffer.begin());
    std::fill(end, buffer.end(), '\0');
  }
  void take(std::uint64_t offset, std::span<char> buffer) override { read(offset, buffer); }
  void skip(std::uint64_t) override {}
  void finish() override {}

 private:
  std::string bytes_;
  std::uint64_t size_;
};

/// A file in memory with that content, the same one every time.
inline const platform::FileDescriptor& memoryFile(std::string_view content) {
  static const platform::FileDescriptor file(::memfd_create("fuzzed", MFD_CLOEXEC));
  if (::ftruncate(file.get(), 0) != 0)
    __builtin_trap();
  platform::hdiutil::writeAt(file, 0, {content.data(), content.size()});
  return file;
}

}  // namespace fuzz

#pragma once

#include <algorithm>
#include <string>

#include "platform/formats/byte_source.hpp"

namespace test {

/// Bytes in memory instead of a file.
class MemorySource : public platform::ByteSource {
 public:
  explicit MemorySource(std::string bytes) : bytes_(std::move(bytes)) {}

  std::uint64_t size() const noexcept override { return bytes_.size(); }
  void readAt(std::uint64_t offset, std::span<char> buffer) const override {
    std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), buffer.size(), buffer.begin());
  }

 private:
  std::string bytes_;
};

}  // namespace test

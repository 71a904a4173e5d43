#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/files/url.hpp"

namespace platform {

enum class DataReadingOptions {
  none = 0,
  /// The system need not keep the file's pages in its cache.
  uncached = 2,
};

enum class DataWritingOptions {
  /// The file appears or changes as a whole, and is on stable storage afterwards.
  atomic = 1,
};

/// A value of bytes.
class Data {
 public:
  Data() = default;
  explicit Data(std::string bytes) : bytes_(std::move(bytes)) {}

  /// The whole content of a file. Throws `SystemError`, and `Error` for a file of more than `limit` bytes.
  static Data contentsOf(const URL& url, DataReadingOptions options = DataReadingOptions::none,
                         std::size_t limit = std::string::npos);

  /// Creates or replaces the file `to`, which keeps its permissions. Throws `SystemError`, with no partial
  /// file and no temporary file left behind. What is there and is neither a file nor a link to one is not
  /// replaced.
  void write(const URL& to, DataWritingOptions options) const;

  std::string_view bytes() const noexcept { return bytes_; }
  std::size_t size() const noexcept { return bytes_.size(); }
  bool empty() const noexcept { return bytes_.empty(); }

  bool operator==(const Data&) const = default;

 private:
  std::string bytes_;
};

}  // namespace platform

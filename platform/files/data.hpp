#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/files/url.hpp"

namespace platform {

enum class DataReadingOptions {
  none = 0,
  /// The file's pages may be dropped from the cache afterwards.
  uncached = 2,
};

enum class DataWritingOptions {
  /// The file is created or replaced as a whole, and is on stable storage afterwards.
  atomic = 1,
};

/// An immutable sequence of bytes, read from or written to a file.
class Data {
 public:
  Data() = default;
  explicit Data(std::string bytes) : bytes_(std::move(bytes)) {}

  /// The whole content of a file. Throws `SystemError`, and `Error` if it exceeds `limit` bytes or is a FIFO
  /// or a device.
  static Data contentsOf(const URL& url, DataReadingOptions options = DataReadingOptions::none,
                         std::size_t limit = std::string::npos);

  /// Creates or replaces the file `to`, which keeps its permissions. A link to a file is replaced itself.
  /// Refuses to replace a directory, a link to one, or a special file. Throws `SystemError`; then `to` is
  /// unchanged and no temporary file remains, unless only the final sync of the directory failed.
  void write(const URL& to, DataWritingOptions options) const;

  std::string_view bytes() const noexcept { return bytes_; }
  std::size_t size() const noexcept { return bytes_.size(); }
  bool empty() const noexcept { return bytes_.empty(); }

  bool operator==(const Data&) const = default;

 private:
  std::string bytes_;
};

}  // namespace platform

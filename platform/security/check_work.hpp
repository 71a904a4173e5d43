#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>

#include "platform/security/code_directory.hpp"
#include "platform/security/code_file.hpp"

namespace platform {

/// What one check still has to do, and what it has done. Hard links and nested code must not multiply the
/// bytes on disk: a file is digested once in each way, however many names it has, and what is read and parsed
/// is limited as a whole.
class CheckWork {
 public:
  enum class Comparison {
    needed,    ///< nothing has compared these bytes with these digests
    made,      ///< an earlier comparison, which the check waits for, was the same
    hopeless,  ///< the same bytes were expected to have other digests
  };

  /// Whether the file's digest has to be compared with `digest`.
  Comparison ofFile(const ItemStatus& file, DigestAlgorithm algorithm, std::string_view digest);

  /// Whether the pages of `code` in the file have to be compared with those of the directory. Throws `Error`
  /// when too many directories divide the same code into different pages.
  Comparison ofPages(const CodeFile& file, const ByteRange& code, const CodeDirectory& directory);

  /// Counts bytes that were read and parsed, or steps that cost as much as that. Throws `Error`, naming
  /// `path`, when no real application takes as many.
  void parse(const std::string& path, std::uint64_t bytes);

  /// The bytes of all comparisons that were needed.
  std::uint64_t comparedBytes() const noexcept { return comparedBytes_; }
  std::uint64_t parsedBytes() const noexcept { return parsedBytes_; }

 private:
  using FileKey = std::tuple<FileIdentity, DigestAlgorithm>;
  using PageLayout = std::tuple<int, std::uint64_t>;         ///< strength of the digests and size of a page
  using PagesKey = std::tuple<FileIdentity, std::uint64_t>;  ///< the file and where in it the code begins

  // Only of files with hard links: no other is met twice.
  std::map<FileKey, std::string> files_;
  std::map<PagesKey, std::map<PageLayout, std::string>> pages_;
  std::uint64_t comparedBytes_ = 0;
  std::uint64_t parsedBytes_ = 0;
};

}  // namespace platform

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>

#include "platform/security/code_directory.hpp"
#include "platform/security/code_file.hpp"

namespace platform {

/// The work of one check, so that a small bundle cannot cost much: a file is hashed once with each algorithm,
/// however many hard links it has, and the bytes that are parsed are limited in total. Not thread-safe: only
/// the thread that runs the check uses it.
class CheckWork {
 public:
  enum class Comparison {
    needed,    ///< these bytes have not been compared with these digests
    made,      ///< the same comparison is already queued or done; its failure is reported there
    hopeless,  ///< the same bytes are also expected to have other digests, so one of the two must fail
  };

  /// Whether the file's digest must be compared with `digest`. Records the comparison as queued.
  Comparison ofFile(const ItemStatus& file, DigestAlgorithm algorithm, std::string_view digest);

  /// The same for the pages of the range `code` and the directory's digests. Throws `Error` when the same
  /// code is divided into pages in too many ways.
  Comparison ofPages(const CodeFile& file, const ByteRange& code, const CodeDirectory& directory);

  /// Counts parsed bytes, or steps that take as long. Throws `Error`, naming `path`, above a limit that no
  /// real application reaches.
  void parse(const std::string& path, std::uint64_t bytes);

  /// Bytes hashed by all comparisons that were needed.
  std::uint64_t comparedBytes() const noexcept { return comparedBytes_; }
  std::uint64_t parsedBytes() const noexcept { return parsedBytes_; }

 private:
  using FileKey = std::tuple<FileIdentity, DigestAlgorithm>;
  using PageLayout = std::tuple<int, std::uint64_t>;         ///< strength of the digests and size of a page
  using PagesKey = std::tuple<FileIdentity, std::uint64_t>;  ///< file, and offset of the code in it

  // Only files with hard links: no other is reached twice.
  std::map<FileKey, std::string> files_;
  std::map<PagesKey, std::map<PageLayout, std::string>> pages_;
  std::uint64_t comparedBytes_ = 0;
  std::uint64_t parsedBytes_ = 0;
};

}  // namespace platform

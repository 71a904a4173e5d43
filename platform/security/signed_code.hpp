#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/security/code_blobs.hpp"
#include "platform/security/code_directory.hpp"
#include "platform/security/code_file.hpp"

namespace platform {

/// The code for one architecture, with its signature read but not verified.
struct SignedSlice {
  SignedSlice() = default;
  SignedSlice(const SignedSlice&) = delete;
  SignedSlice(SignedSlice&&) noexcept = default;
  SignedSlice& operator=(const SignedSlice&) = delete;
  SignedSlice& operator=(SignedSlice&&) = delete;
  ~SignedSlice() = default;

  std::string place;  ///< path and architecture, as a sentence begins with them
  ByteRange code;     ///< range of the file that the pages must cover
  CodeComponents components;
  std::vector<CodeDirectory> directories;  ///< views of `components`, in the order of their slots; not empty
  std::optional<std::string> informationSection;  ///< the embedded Info.plist

  /// The directory with the strongest digest, with which the code is checked.
  const CodeDirectory& strongestDirectory() const;
};

/// A main executable, or another file of code.
struct SignedCode {
  std::shared_ptr<const CodeFile> file;
  std::vector<SignedSlice> slices;  ///< one for each architecture; one for a file that is not Mach-O
  std::uint64_t bytesRead = 0;      ///< while reading the signature
};

/// Reads the signature of every architecture. For a file that is not Mach-O, reads the detached signature in
/// the directory `signatures`; without that directory the file is unsigned. Throws `SecurityError`.
SignedCode readSignedCode(CodeFile file, const std::optional<Directory>& signatures);

}  // namespace platform

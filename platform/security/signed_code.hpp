#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/security/code_blobs.hpp"
#include "platform/security/code_directory.hpp"
#include "platform/security/code_file.hpp"

namespace platform {

/// The code for one architecture with its signature, read and not verified.
struct SignedSlice {
  SignedSlice() = default;
  SignedSlice(const SignedSlice&) = delete;
  SignedSlice(SignedSlice&&) noexcept = default;
  SignedSlice& operator=(const SignedSlice&) = delete;
  SignedSlice& operator=(SignedSlice&&) = delete;
  ~SignedSlice() = default;

  std::string place;  ///< path and architecture, as they begin a sentence
  ByteRange code;     ///< what the pages have to cover, in the file
  CodeComponents components;
  std::vector<CodeDirectory> directories;         ///< views of the components, in the order of their slots
  std::optional<std::string> informationSection;  ///< the Info.plist that the code itself carries

  /// The directory with the strongest digest, which is the one to check the code with.
  const CodeDirectory& strongestDirectory() const;
};

/// A main executable, or code that is a file by itself.
struct SignedCode {
  std::shared_ptr<const CodeFile> file;
  std::vector<SignedSlice> slices;  ///< one for each architecture; one for a file that is no Mach-O
  std::uint64_t bytesRead = 0;      ///< to get this
};

/// Reads the signature of every architecture. That of a file which is no Mach-O lies beside it, in
/// `signatures`; without that directory such a file is unsigned. Throws `SecurityError`.
SignedCode readSignedCode(CodeFile file, const std::optional<Directory>& signatures);

}  // namespace platform

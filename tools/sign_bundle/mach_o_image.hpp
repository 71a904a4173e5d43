#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace sign_bundle {

/// The Mach-O image of one architecture, prepared for a signature at its end.
class MachOImage {
 public:
  static constexpr std::size_t kSignatureAlignment = 16;

  /// `bytes` is one slice. Removes an existing signature. Throws `platform::Error` for an image that is
  /// damaged or does not end with its link edit segment.
  explicit MachOImage(std::string bytes);

  /// Whether the bytes begin with the header of an image or of a universal file.
  static bool isMachO(std::string_view bytes);

  std::uint32_t cpuType() const { return number(4); }
  bool isMainProgram() const;
  std::uint64_t textFileOffset() const { return text_.fileOffset; }
  std::uint64_t textFileSize() const { return text_.fileSize; }

  /// Everything before the signature, padded to its alignment.
  std::string_view code() const { return bytes_; }

  /// Reserves `size` bytes after the code for a signature, in its load command and the link edit segment.
  void reserveSignature(std::size_t size);

 private:
  struct Segment {
    /// Offset of the load command; 0 if there is no such segment.
    std::size_t command = 0;
    std::uint64_t fileOffset = 0;
    std::uint64_t fileSize = 0;
  };

  std::uint32_t number(std::size_t offset) const;
  std::uint64_t word(std::size_t offset) const;
  void setNumber(std::size_t offset, std::uint32_t value);
  void setWord(std::size_t offset, std::uint64_t value);
  void readCommand(std::size_t offset, std::size_t size);
  void readSegment(std::size_t offset);
  void noteFirstSection(std::size_t segment);
  void cutSignatureOff();
  void appendSignatureCommand();

  std::string bytes_;
  std::endian order_ = std::endian::little;
  bool wide_ = true;
  std::size_t commandsEnd_ = 0;
  std::size_t signatureCommand_ = 0;
  std::size_t firstSection_ = 0;
  Segment text_;
  Segment linkEdit_;
};

}  // namespace sign_bundle

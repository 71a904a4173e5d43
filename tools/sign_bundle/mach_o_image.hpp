#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace sign_bundle {

/// One architecture's Mach-O image, and the place for a signature at its end.
class MachOImage {
 public:
  static constexpr std::size_t kSignatureAlignment = 16;

  /// `bytes` are one slice. A signature that is there is cut off. Throws `platform::Error` for an image that
  /// is damaged, or that has something behind its link edit segment.
  explicit MachOImage(std::string bytes);

  /// True when a file begins like an image or a universal file.
  static bool isMachO(std::string_view bytes);

  std::uint32_t cpuType() const { return number(4); }
  bool isMainProgram() const;
  std::uint64_t textFileOffset() const { return text_.fileOffset; }
  std::uint64_t textFileSize() const { return text_.fileSize; }

  /// Everything in front of the signature; aligned as one has to be.
  std::string_view code() const { return bytes_; }

  /// Announces a signature of `size` bytes behind the code: in its load command and in the link edit segment.
  void announceSignature(std::size_t size);

 private:
  struct Segment {
    /// Of the load command; 0 when there is no such segment.
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

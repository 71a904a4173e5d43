#include "platform/security/signed_code.hpp"

#include <algorithm>
#include <array>

#include "platform/security/at_place.hpp"
#include "platform/security/mach_o.hpp"

namespace platform {
namespace {

constexpr std::uint64_t kMebibyte = 1U << 20U;
/// For all architectures together.
constexpr std::uint64_t kLargestSignatures = 64 * kMebibyte;
constexpr std::uint64_t kLargestInformation = kMebibyte;

constexpr const char* kResources = "CodeResources";

struct ComponentFile {
  const char* name;
  std::uint32_t slot;
};

/// The files of a detached signature. Signing tools name those of alternate code directories after the
/// requirements.
constexpr std::array<ComponentFile, 9> kComponentFiles{{{"CodeDirectory", slot::kCodeDirectory},
                                                        {"CodeRequirements-1", slot::kFirstAlternate},
                                                        {"CodeRequirements-2", slot::kFirstAlternate + 1},
                                                        {"CodeRequirements-3", slot::kFirstAlternate + 2},
                                                        {"CodeRequirements-4", slot::kFirstAlternate + 3},
                                                        {"CodeRequirements-5", slot::kLastAlternate},
                                                        {"CodeRequirements", slot::kRequirements},
                                                        {"CodeEntitlements", slot::kEntitlements},
                                                        {"CodeSignature", slot::kSignature}}};

[[noreturn]] void refuseUnsigned(const std::string& place) {
  throw SecurityError(errSecCSUnsigned, place + " is not signed at all.");
}

/// Counts the bytes read from a file.
class MeteredFile : public ByteSource {
 public:
  explicit MeteredFile(const CodeFile& file) : file_(file) {}

  std::uint64_t size() const noexcept override { return file_.size(); }
  void readAt(std::uint64_t offset, std::span<char> buffer) const override {
    file_.readAt(offset, buffer);
    bytesRead_ += buffer.size();
  }

  const std::string& path() const noexcept { return file_.path(); }
  std::uint64_t bytesRead() const noexcept { return bytesRead_; }

 private:
  const CodeFile& file_;
  mutable std::uint64_t bytesRead_ = 0;
};

/// Enough for several digests per page and the other components.
std::uint64_t largestSignature(std::uint64_t codeLength) {
  return std::min(kMebibyte + codeLength / 16, kLargestSignatures);
}

/// Reads the code directory and its alternates, whose slots must be consecutive.
void readDirectories(SignedSlice& slice) {
  std::uint32_t expected = slot::kCodeDirectory;
  for (const auto& [number, blob] : slice.components) {
    const bool isAlternate = number >= slot::kFirstAlternate && number <= slot::kLastAlternate;
    if (number != slot::kCodeDirectory && !isAlternate)
      continue;
    if (number != expected)
      throw FormatError("its signature lacks a code directory");
    slice.directories.push_back(CodeDirectory::read(blob));
    expected = isAlternate ? number + 1 : slot::kFirstAlternate;
  }
  if (slice.directories.empty())
    throw FormatError("its signature lacks the code directory");
}

SignedSlice readSlice(const MeteredFile& file, const MachOSlice& machO) {
  SignedSlice slice;
  slice.place = platform::quoted(file.path()) + " (" + machO.architecture + ")";
  if (!machO.signature)
    refuseUnsigned(slice.place);
  if (machO.signature->length > largestSignature(machO.signature->offset))
    throw FormatError("its signature is too large");
  slice.code = {machO.range.offset, machO.signature->offset};
  const ByteRange signature{machO.range.offset + machO.signature->offset, machO.signature->length};
  slice.components = readEmbeddedSignature(file.read(signature.offset, signature.length));
  readDirectories(slice);
  if (machO.informationSection) {
    if (machO.informationSection->length > kLargestInformation)
      throw FormatError("its embedded Info.plist is too large");
    slice.informationSection =
        file.read(machO.range.offset + machO.informationSection->offset, machO.informationSection->length);
  }
  return slice;
}

/// The directory may contain only components of a signature, as no seal covers it. Beside an embedded
/// signature they are ignored.
void requireOnlySignature(const Directory& signatures) {
  for (const ListedItem& entry : signatures.entries()) {
    const bool isComponent =
        entry.kind == ItemKind::file &&
        std::any_of(kComponentFiles.begin(), kComponentFiles.end(),
                    [&](const ComponentFile& component) { return entry.name == component.name; });
    if (!isComponent && entry.name != kResources)
      throw SecurityError(errSecCSBadResource,
                          platform::quoted(signatures.pathOf(entry.name)) + " was added after signing.");
  }
}

SignedSlice readDetached(const CodeFile& file, const Directory& signatures) {
  SignedSlice slice;
  slice.place = platform::quoted(file.path());
  slice.code = {0, file.size()};
  for (const ComponentFile& component : kComponentFiles) {
    if (!signatures.kindOf(component.name))
      continue;
    std::string blob = CodeFile(signatures.entry(component.name)).content(largestSignature(file.size()));
    if (component.slot != slot::kSignature)  // whose file has no header
      requireBlobForSlot(component.slot, blob);
    slice.components.emplace(component.slot, std::move(blob));
  }
  if (slice.components.empty())
    refuseUnsigned(slice.place);
  readDirectories(slice);
  return slice;
}

}  // namespace

const CodeDirectory& SignedSlice::strongestDirectory() const {
  return *std::max_element(directories.begin(), directories.end(),
                           [](const CodeDirectory& left, const CodeDirectory& right) {
                             return left.strength() < right.strength();
                           });
}

SignedCode readSignedCode(CodeFile file, const std::optional<Directory>& signatures) {
  SignedCode code{.file = std::make_shared<const CodeFile>(std::move(file)), .slices = {}};
  const MeteredFile metered(*code.file);
  atPlace(platform::quoted(code.file->path()), errSecCSSignatureFailed, [&] {
    const auto machO = readMachO(metered);
    if (signatures)
      requireOnlySignature(*signatures);
    if (machO) {
      std::uint64_t room = kLargestSignatures;
      for (const MachOSlice& slice : *machO) {
        const std::uint64_t length = slice.signature ? slice.signature->length : 0;
        if (length > room)
          throw FormatError("its signatures are too large");
        room -= length;
        code.slices.push_back(readSlice(metered, slice));
      }
    } else if (signatures) {
      code.slices.push_back(readDetached(*code.file, *signatures));
      for (const auto& [number, blob] : code.slices.front().components)
        code.bytesRead += blob.size();
    } else {
      refuseUnsigned(platform::quoted(code.file->path()));
    }
  });
  code.bytesRead += metered.bytesRead();
  return code;
}

}  // namespace platform

#include "tools/sign_bundle/code_signer.hpp"

#include <filesystem>
#include <limits>
#include <map>

#include "platform/files/file_manager.hpp"
#include "platform/foundation/error.hpp"
#include "platform/security/code_signature_format.hpp"
#include "platform/security/mach_o_format.hpp"
#include "tools/byte_writer.hpp"
#include "tools/sign_bundle/mach_o_image.hpp"
#include "tools/sign_bundle/requirement_writer.hpp"
#include "tools/sign_bundle/universal_file.hpp"

namespace fs = std::filesystem;

namespace sign_bundle {
namespace {

namespace code_flag = platform::code_flag;
namespace magic = platform::magic;
namespace mach_o = platform::mach_o;
namespace slot = platform::slot;

using platform::Data;
using platform::URL;

constexpr unsigned kPageExponent = 12;
constexpr unsigned kPageExponentArm64 = 14;
/// Version 14.0 of the system.
constexpr std::uint32_t kRuntimeVersion = 0x0E0000;
/// In the code directory: the slice is a main executable.
constexpr std::uint64_t kMainBinary = 1;
constexpr std::uint32_t kLaterMagic = 0xFADE9999;
constexpr const char* kSignatureDirectory = "_CodeSignature";

/// The files for a signature's components if the main executable is not a Mach-O file.
std::map<std::uint32_t, std::string> componentFiles() {
  return {{slot::kCodeDirectory, "CodeDirectory"},
          {slot::kRequirements, "CodeRequirements"},
          {slot::kEntitlements, "CodeEntitlements"},
          {slot::kFirstAlternate, "CodeRequirements-1"},
          {slot::kSignature, "CodeSignature"}};
}

void writeFile(const URL& file, std::string content) {
  Data(std::move(content)).write(file, platform::DataWritingOptions::atomic);
}

/// Creates the directory for the signature's files; removes an existing signature.
URL emptySignatureDirectory(const BundleLayout& bundle) {
  const auto& files = platform::NSFileManager::defaultManager();
  URL directory = bundle.content.appendingPathComponent(kSignatureDirectory);
  if (fs::exists(fs::symlink_status(directory.path())))
    files.removeItemAtURL(directory);
  files.createDirectoryAtURL(directory, platform::IntermediateDirectories::no);
  return directory;
}

void writeComponentFiles(const URL& directory, const Components& components) {
  const auto files = componentFiles();
  for (const auto& [slot, blob] : components) {
    const auto name = files.find(slot);
    if (name == files.end())
      throw platform::Error("Only a Mach-O file can have this component.");
    // The file contains the bare CMS message.
    const std::size_t header = slot == slot::kSignature ? platform::kBlobHeaderSize : 0;
    writeFile(directory.appendingPathComponent(name->second), blob.substr(header));
  }
}

/// The default identifier of a bare file: its name, without the extension of a library.
std::string identifierOf(const URL& file) {
  fs::path name = file.lastPathComponent();
  return name.extension() == ".dylib" ? name.stem() : name;
}

}  // namespace

CodeSigner::CodeSigner(const SigningIdentity* identity, SigningOptions options)
    : identity_(identity), options_(std::move(options)) {}

SealedCode CodeSigner::sign(const URL& code, const std::optional<std::string>& identifier) const {
  return signItem(code, identifier, Role::outermost);
}

SealedCode CodeSigner::signItem(const URL& code, const std::optional<std::string>& identifier,
                                Role role) const {
  if (!fs::is_directory(code.path()))
    return signBareFile(code, identifier.value_or(identifierOf(code)), role);
  SealedCode sealed;
  for (const BundleLayout& layout : layoutsOf(code)) {
    const std::string name = identifier.value_or(layout.identifier);
    if (name.empty())
      throw platform::Error(platform::quoted(layout.infoPlist.path()) + " has no bundle identifier.");
    sealed = signBundle(layout, name, role);
  }
  return sealed;
}

SealedCode CodeSigner::signBundle(const BundleLayout& bundle, const std::string& identifier,
                                  Role role) const {
  const std::vector<ContentItem> items = surveyContent(bundle);
  std::map<std::string, SealedCode> nestedCode;
  for (const ContentItem& item : items) {
    if (item.kind != ItemKind::nestedCode)
      continue;
    SealedCode sealed =
        signItem(bundle.content.appendingPathComponent(item.path), std::nullopt, Role::nested);
    if (options_.withoutRequirements)
      sealed.requirementText.clear();
    nestedCode.emplace(item.path, std::move(sealed));
  }
  CodeDescription description = describe(identifier, role);
  const Data seal = makeResourceSeal(bundle, items, nestedCode, options_.sealedDigests);
  description.specialSlots[slot::kInfo] = Data::contentsOf(bundle.infoPlist).bytes();
  description.specialSlots[slot::kResources] = seal.bytes();

  const Data executable = Data::contentsOf(bundle.mainExecutable);
  const URL directory = emptySignatureDirectory(bundle);
  writeFile(directory.appendingPathComponent("CodeResources"), std::string(seal.bytes()));
  if (MachOImage::isMachO(executable.bytes()))
    return signMachO(bundle.mainExecutable, executable, description);
  description.code = executable.bytes();
  description.pageSizeExponent = options_.pageSizeExponent.value_or(kPageExponent);
  const CodeSignature signature = signCode(description, identity_, options_.signature);
  writeComponentFiles(directory, signature.components);
  return signature.sealed;
}

SealedCode CodeSigner::signBareFile(const URL& file, const std::string& identifier, Role role) const {
  const Data content = Data::contentsOf(file);
  if (!MachOImage::isMachO(content.bytes()))
    throw platform::Error(platform::quoted(file.path()) +
                          " is in a place for code but is not a Mach-O file.");
  return signMachO(file, content, describe(identifier, role));
}

SealedCode CodeSigner::signMachO(const URL& file, const Data& content, const CodeDescription& common) const {
  UniversalFile universal = UniversalFile::parse(content.bytes());
  std::optional<SealedCode> sealed;
  for (UniversalFile::Slice& slice : universal.slices) {
    MachOImage image(std::move(slice.bytes));
    CodeDescription description = common;
    const unsigned usualPage = image.cpuType() == mach_o::cpu::kArm64 ? kPageExponentArm64 : kPageExponent;
    description.pageSizeExponent = options_.pageSizeExponent.value_or(usualPage);
    description.executableSegmentBase = image.textFileOffset();
    description.executableSegmentLimit = image.textFileSize();
    description.executableSegmentFlags = image.isMainProgram() ? kMainBinary : 0;
    description.code = image.code();
    const std::size_t room = tools::alignedUp(
        largestSignatureSize(description, identity_, options_.signature), MachOImage::kSignatureAlignment);
    image.reserveSignature(room);
    description.code = image.code();
    const CodeSignature signature = signCode(description, identity_, options_.signature);
    const std::string blob = makeSuperBlob(magic::kEmbeddedSignature, signature.components);
    if (blob.size() > room)
      throw platform::Error("The signature of " + platform::quoted(file.path()) +
                            " exceeds the space reserved for it.");
    slice.bytes = image.code();
    slice.bytes += blob;
    slice.bytes.append(room - blob.size(), '\0');
    if (!sealed)
      sealed = signature.sealed;
    else if (identity_ == nullptr)
      // Without a certificate a slice is identified by its hash only.
      sealed->requirementText += " or " + signature.sealed.requirementText;
  }
  if (!sealed)
    throw platform::Error(platform::quoted(file.path()) + " contains no code.");
  writeFile(file, universal.bytes());
  return *sealed;
}

CodeDescription CodeSigner::describe(const std::string& identifier, Role role) const {
  CodeDescription code;
  code.identifier = identifier;
  code.team = options_.team.value_or(identity_ == nullptr ? std::string() : identity_->team);
  if (identity_ == nullptr)
    code.flags |= code_flag::kAdHoc;
  if (options_.hardenedRuntime) {
    code.flags |= code_flag::kHardenedRuntime;
    code.runtimeVersion = kRuntimeVersion;
  }
  code.specialSlots[slot::kRequirements] = makeRequirementSet(identifier, identity_);
  if (options_.entitlements && role == Role::outermost)
    code.specialSlots[slot::kEntitlements] = makeBlob(magic::kEntitlements, options_.entitlements->bytes());
  if (options_.laterComponent)
    code.specialSlots[kLaterSlot] = makeBlob(kLaterMagic, options_.laterComponent->bytes());
  return code;
}

}  // namespace sign_bundle

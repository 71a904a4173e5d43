#include "tools/sign_bundle/make_mach_o.hpp"

#include <bit>
#include <cstdint>
#include <string_view>

#include "tools/sign_bundle/byte_writer.hpp"
#include "tools/sign_bundle/code_digest.hpp"
#include "tools/sign_bundle/mach_o_constants.hpp"
#include "tools/sign_bundle/universal_file.hpp"

namespace sign_bundle {
namespace {

using namespace std::string_view_literals;

struct Traits {
  std::uint32_t cpuType;
  std::uint32_t cpuSubtype;
  bool wide;
  std::endian order;
  unsigned pageExponent;
  /// Returns 0.
  std::string_view program;
};

const Traits& traitsOf(Architecture architecture) {
  static constexpr Traits kX86_64{mach_o::kCpuX86_64, 3, true, std::endian::little, 12, "\x31\xC0\xC3"sv};
  static constexpr Traits kArm64{mach_o::kCpuArm64,   0,  true,
                                 std::endian::little, 14, "\x00\x00\x80\x52\xC0\x03\x5F\xD6"sv};
  static constexpr Traits kI386{mach_o::kCpuI386, 3, false, std::endian::little, 12, "\x31\xC0\xC3"sv};
  static constexpr Traits kPowerPc{mach_o::kCpuPowerPc, 0,  false,
                                   std::endian::big,    12, "\x38\x60\x00\x00\x4E\x80\x00\x20"sv};
  switch (architecture) {
    case Architecture::x86_64:
      return kX86_64;
    case Architecture::arm64:
      return kArm64;
    case Architecture::i386:
      return kI386;
    case Architecture::powerPc:
      break;
  }
  return kPowerPc;
}

constexpr std::uint32_t kReadAndExecute = 5;
constexpr std::uint32_t kReadOnly = 1;
/// No undefined symbols, dynamically linked, two-level name space.
constexpr std::uint32_t kHeaderFlags = 0x85;
constexpr std::uint32_t kPositionIndependent = 0x200000;
constexpr std::uint32_t kSectionOfInstructions = 0x80000400;
constexpr std::uint32_t kSectionOfStrings = 2;
constexpr std::uint32_t kPlatform = 1;
constexpr std::uint32_t kLeastSystem = 0x000B0000;
constexpr std::uint32_t kSystemSdk = 0x000E0000;
constexpr std::uint32_t kLibraryVersion = 0x00010000;
constexpr std::uint64_t kImageBase64 = 0x100000000;
constexpr std::uint64_t kImageBase32 = 0x1000;
/// Room behind the load commands, as linkers leave it for later commands.
constexpr std::size_t kHeaderPad = 256;
constexpr std::size_t kStringTableSize = 16;
constexpr std::string_view kSystemLibrary = "/usr/lib/libSystem.B.dylib";

struct Span {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
};

/// Writes the image of one architecture. The load commands are written twice: their size decides where things
/// lie.
class ImageWriter {
 public:
  ImageWriter(const Traits& traits, const MachOOptions& options) : traits_(traits), options_(options) {}

  std::string image() {
    place(commands().size());
    const std::string commandBytes = commands();
    ByteWriter writer = header(commandBytes.size());
    writer.raw(commandBytes).zerosUpTo(instructions_.offset);
    writer.raw(traits_.program).raw(constant());
    writer.zerosUpTo(text_.size + kStringTableSize);
    return std::move(writer).bytes();
  }

 private:
  bool isExecutable() const { return options_.kind == MachOKind::executable; }
  std::string constant() const { return options_.text + '\0'; }
  std::size_t page() const { return std::size_t{1} << traits_.pageExponent; }
  std::size_t headerSize() const { return traits_.wide ? mach_o::kHeaderSize64 : mach_o::kHeaderSize32; }

  std::uint64_t imageBase() const {
    if (!isExecutable())
      return 0;
    return traits_.wide ? kImageBase64 : kImageBase32;
  }

  void place(std::size_t commandsSize) {
    instructions_ = {alignedUp(headerSize() + commandsSize + kHeaderPad, 16), traits_.program.size()};
    constant_ = {instructions_.offset + instructions_.size, constant().size()};
    text_ = {0, alignedUp(std::max<std::uint64_t>(constant_.offset + constant_.size, options_.leastTextSize),
                          page())};
  }

  std::uint32_t fileType() const {
    switch (options_.kind) {
      case MachOKind::executable:
        return mach_o::kExecutable;
      case MachOKind::dynamicLibrary:
        return mach_o::kDynamicLibrary;
      case MachOKind::objectFile:
        return mach_o::kObjectFile;
      case MachOKind::loadableBundle:
        break;
    }
    return mach_o::kLoadableBundle;
  }

  ByteWriter header(std::size_t commandsSize) const {
    ByteWriter writer(traits_.order);
    writer.u32(traits_.wide ? mach_o::kMagic64 : mach_o::kMagic32)
        .u32(traits_.cpuType)
        .u32(traits_.cpuSubtype);
    writer.u32(fileType()).u32(commandCount_).u32(static_cast<std::uint32_t>(commandsSize));
    writer.u32(kHeaderFlags | (isExecutable() ? kPositionIndependent : 0));
    if (traits_.wide)
      writer.u32(0);
    return writer;
  }

  std::string commands() {
    commands_.clear();
    commandCount_ = 0;
    if (isExecutable())
      segment("__PAGEZERO", {0, imageBase()}, {0, 0}, 0, {});
    segment("__TEXT", {imageBase(), text_.size}, text_, kReadAndExecute,
            {section("__text", instructions_, kSectionOfInstructions),
             section("__cstring", constant_, kSectionOfStrings)});
    const Span linkEdit{text_.size, kStringTableSize};
    segment("__LINKEDIT", {imageBase() + text_.size, page()}, linkEdit, kReadOnly, {});
    command(mach_o::kSymbolTable, body().u32(0).u32(0).u32(lower(linkEdit.offset)).u32(kStringTableSize));
    command(mach_o::kUuid, body().raw(identity()));
    command(mach_o::kBuildVersion, body().u32(kPlatform).u32(kLeastSystem).u32(kSystemSdk).u32(0));
    if (isExecutable()) {
      command(mach_o::kLoadDynamicLinker, body().u32(12).raw("/usr/lib/dyld"));
      command(mach_o::kMain, body().u64(instructions_.offset).u64(0));
    }
    if (options_.kind == MachOKind::dynamicLibrary)
      library(mach_o::kDynamicLibraryIdentity, "@rpath/" + options_.text);
    library(mach_o::kLoadDynamicLibrary, kSystemLibrary);
    return commands_;
  }

  ByteWriter body() const { return ByteWriter(traits_.order); }
  static std::uint32_t lower(std::uint64_t value) { return static_cast<std::uint32_t>(value); }

  /// An address or size in the image's own width.
  void word(ByteWriter& writer, std::uint64_t value) const {
    if (traits_.wide)
      writer.u64(value);
    else
      writer.u32(lower(value));
  }

  void command(std::uint32_t kind, const ByteWriter& content) {
    const std::size_t size = alignedUp(8 + content.size(), traits_.wide ? 8 : 4);
    ByteWriter writer(traits_.order);
    writer.u32(kind).u32(lower(size)).raw(content.bytes()).zerosUpTo(size);
    commands_ += writer.bytes();
    ++commandCount_;
  }

  void segment(std::string_view name, const Span& memory, const Span& file, std::uint32_t protection,
               const std::vector<std::string>& sections) {
    ByteWriter writer(traits_.order);
    writer.field(name, mach_o::kSegmentNameSize);
    for (const std::uint64_t value : {memory.offset, memory.size, file.offset, file.size})
      word(writer, value);
    writer.u32(protection).u32(protection).u32(lower(sections.size())).u32(0);
    for (const std::string& bytes : sections)
      writer.raw(bytes);
    command(traits_.wide ? mach_o::kSegment64 : mach_o::kSegment32, writer);
  }

  std::string section(std::string_view name, const Span& span, std::uint32_t flags) const {
    ByteWriter writer(traits_.order);
    writer.field(name, mach_o::kSegmentNameSize).field("__TEXT", mach_o::kSegmentNameSize);
    word(writer, imageBase() + span.offset);
    word(writer, span.size);
    writer.u32(lower(span.offset)).u32(0).u32(0).u32(0).u32(flags).u32(0).u32(0);
    if (traits_.wide)
      writer.u32(0);
    return std::move(writer).bytes();
  }

  void library(std::uint32_t kind, std::string_view path) {
    command(kind, body().u32(24).u32(2).u32(kLibraryVersion).u32(kLibraryVersion).raw(path).raw("\0"sv));
  }

  std::string identity() const {
    const std::string seed = options_.text + '\0' + std::to_string(traits_.cpuType);
    return digestOf(seed, DigestAlgorithm::sha256).substr(0, 16);
  }

  const Traits& traits_;
  const MachOOptions& options_;
  Span text_;
  Span instructions_;
  Span constant_;
  std::string commands_;
  std::uint32_t commandCount_ = 0;
};

}  // namespace

std::string makeMachO(const MachOOptions& options) {
  UniversalFile file;
  if (options.architectures.size() > 1)
    file.form = options.wideUniversal ? UniversalFile::Form::fat64 : UniversalFile::Form::fat;
  for (const Architecture architecture : options.architectures) {
    const Traits& traits = traitsOf(architecture);
    file.slices.push_back(
        {traits.cpuType, traits.cpuSubtype, traits.pageExponent, ImageWriter(traits, options).image()});
  }
  return file.bytes();
}

}  // namespace sign_bundle

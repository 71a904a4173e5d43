#include "tools/sign_bundle/mach_o_maker.hpp"

#include <array>
#include <bit>
#include <cstdint>
#include <string_view>

#include "platform/crypto/digest.hpp"
#include "platform/security/mach_o_format.hpp"
#include "tools/byte_writer.hpp"
#include "tools/sign_bundle/universal_file.hpp"

namespace sign_bundle {
namespace {

namespace mach_o = platform::mach_o;
using tools::alignedUp;
using tools::ByteWriter;

using namespace std::string_view_literals;

struct Traits {
  std::uint32_t cpuType;
  std::uint32_t cpuSubtype;
  bool wide;
  std::endian order;
  unsigned pageExponent;
  /// Machine code that returns 0.
  std::string_view program;
};

const Traits& traitsOf(Architecture architecture) {
  using enum std::endian;
  // In the order of the enumeration.
  static constexpr std::array<Traits, 4> kTraits{
      {{mach_o::cpu::kX86_64, 3, true, little, 12, "\x31\xC0\xC3"sv},
       {mach_o::cpu::kArm64, 0, true, little, 14, "\x00\x00\x80\x52\xC0\x03\x5F\xD6"sv},
       {mach_o::cpu::kI386, 3, false, little, 12, "\x31\xC0\xC3"sv},
       {mach_o::cpu::kPowerPc, 0, false, big, 12, "\x38\x60\x00\x00\x4E\x80\x00\x20"sv}}};
  return kTraits.at(static_cast<std::size_t>(architecture));
}

std::uint32_t fileTypeOf(MachOKind kind) {
  namespace type = mach_o::file_type;
  // In the order of the enumeration.
  static constexpr std::array kTypes{type::kExecutable, type::kDynamicLibrary, type::kLoadableBundle,
                                     type::kObjectFile};
  return kTypes.at(static_cast<std::size_t>(kind));
}

constexpr std::uint32_t kReadAndExecute = 5;
constexpr std::uint32_t kReadOnly = 1;
/// No undefined symbols, dynamically linked, two-level namespace.
constexpr std::uint32_t kHeaderFlags = 0x85;
constexpr std::uint32_t kPositionIndependent = 0x200000;
constexpr std::uint32_t kSectionOfInstructions = 0x80000400;
constexpr std::uint32_t kSectionOfStrings = 2;
constexpr std::uint32_t kSystemSdk = 0x000E0000;
constexpr std::uint32_t kLibraryVersion = 0x00010000;
constexpr std::uint64_t kImageBase64 = 0x100000000;
constexpr std::uint64_t kImageBase32 = 0x1000;
/// Linkers leave room for additional load commands.
constexpr std::size_t kHeaderPad = 256;
constexpr std::size_t kStringTableSize = 16;
constexpr std::string_view kSystemLibrary = "/usr/lib/libSystem.B.dylib";

struct Span {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
};

/// Writes the image of one architecture. The load commands are written twice: their size determines the
/// offsets in them.
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

  ByteWriter header(std::size_t commandsSize) const {
    ByteWriter writer(traits_.order);
    writer.u32(traits_.wide ? mach_o::kMagic64 : mach_o::kMagic32)
        .u32(traits_.cpuType)
        .u32(traits_.cpuSubtype);
    writer.u32(fileTypeOf(options_.kind)).u32(commandCount_).u32(static_cast<std::uint32_t>(commandsSize));
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
    command(mach_o::command::kSymbolTable,
            body().u32(0).u32(0).u32(lower(linkEdit.offset)).u32(kStringTableSize));
    command(mach_o::command::kUuid, body().raw(identity()));
    command(mach_o::command::kBuildVersion,
            body().u32(options_.platform).u32(options_.leastSystem).u32(kSystemSdk).u32(0));
    if (isExecutable()) {
      command(mach_o::command::kLoadDynamicLinker, body().u32(12).raw("/usr/lib/dyld"));
      command(mach_o::command::kMain, body().u64(instructions_.offset).u64(0));
    }
    if (options_.kind == MachOKind::dynamicLibrary)
      library(mach_o::command::kDynamicLibraryIdentity,
              options_.installName.empty() ? "@rpath/" + options_.text : options_.installName);
    library(mach_o::command::kLoadDynamicLibrary, kSystemLibrary);
    for (const std::string& name : options_.libraries)
      library(mach_o::command::kLoadDynamicLibrary, name);
    for (const std::string& name : options_.weakLibraries)
      library(mach_o::command::kLoadWeakDynamicLibrary, name);
    for (const std::string& path : options_.runPaths)
      command(mach_o::command::kRunPath, body().u32(12).raw(path).raw("\0"sv));
    return commands_;
  }

  ByteWriter body() const { return ByteWriter(traits_.order); }
  static std::uint32_t lower(std::uint64_t value) { return static_cast<std::uint32_t>(value); }

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
    writer.field(name, mach_o::kNameSize);
    for (const std::uint64_t value : {memory.offset, memory.size, file.offset, file.size})
      writer.word(value, traits_.wide);
    writer.u32(protection).u32(protection).u32(lower(sections.size())).u32(0);
    for (const std::string& bytes : sections)
      writer.raw(bytes);
    command(traits_.wide ? mach_o::command::kSegment64 : mach_o::command::kSegment32, writer);
  }

  std::string section(std::string_view name, const Span& span, std::uint32_t flags) const {
    ByteWriter writer(traits_.order);
    writer.field(name, mach_o::kNameSize).field("__TEXT", mach_o::kNameSize);
    writer.word(imageBase() + span.offset, traits_.wide);
    writer.word(span.size, traits_.wide);
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
    return platform::digestOf(platform::DigestAlgorithm::sha256, seed).substr(0, 16);
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

#include "tools/sign_bundle/universal_file.hpp"

#include <limits>

#include "platform/formats/bytes.hpp"
#include "platform/foundation/error.hpp"
#include "platform/security/mach_o_format.hpp"
#include "tools/byte_writer.hpp"

namespace sign_bundle {
namespace {

namespace mach_o = platform::mach_o;
using tools::ByteWriter;

constexpr std::uint32_t kLargestAlignment = 15;

[[noreturn]] void refuse(const std::string& reason) {
  throw platform::Error("The universal file " + reason + ".");
}

/// Reads consecutive big-endian numbers.
class Cursor {
 public:
  explicit Cursor(std::string_view bytes) : bytes_(bytes) {}

  std::uint64_t number(std::size_t size) {
    const auto number = platform::partOf(bytes_, position_, size);
    if (!number)
      refuse("is cut short");
    position_ += size;
    return platform::bigEndian(*number);
  }
  std::uint32_t u32() { return static_cast<std::uint32_t>(number(4)); }

 private:
  std::string_view bytes_;
  std::size_t position_ = 0;
};

}  // namespace

UniversalFile UniversalFile::parse(std::string_view bytes) {
  UniversalFile file;
  Cursor cursor(bytes);
  const std::uint32_t magic = cursor.u32();
  if (magic != mach_o::kFatMagic && magic != mach_o::kFatMagic64) {
    file.slices.push_back({.bytes = std::string(bytes)});
    return file;
  }
  file.form = magic == mach_o::kFatMagic ? Form::fat : Form::fat64;
  const std::size_t placeSize = file.form == Form::fat ? 4 : 8;
  for (std::uint32_t left = cursor.u32(); left > 0; --left) {
    Slice slice{.cpuType = cursor.u32(), .cpuSubtype = cursor.u32(), .bytes = {}};
    const std::uint64_t offset = cursor.number(placeSize);
    const std::uint64_t size = cursor.number(placeSize);
    slice.alignment = cursor.u32();
    if (file.form == Form::fat64)
      cursor.u32();
    if (offset > bytes.size() || size > bytes.size() - offset || slice.alignment > kLargestAlignment)
      refuse("has a slice that does not fit");
    slice.bytes = bytes.substr(offset, size);
    file.slices.push_back(std::move(slice));
  }
  return file;
}

std::string UniversalFile::bytes() const {
  if (form == Form::thin)
    return slices.front().bytes;
  const bool wide = form == Form::fat64;
  ByteWriter header;
  header.u32(wide ? mach_o::kFatMagic64 : mach_o::kFatMagic).u32(static_cast<std::uint32_t>(slices.size()));
  ByteWriter content;
  content.zerosUpTo(mach_o::kFatHeaderSize +
                    slices.size() * (wide ? mach_o::kFatEntrySize64 : mach_o::kFatEntrySize32));
  for (const Slice& slice : slices) {
    content.zerosUpTo(tools::alignedUp(content.size(), std::uint64_t{1} << slice.alignment));
    if (!wide && content.size() + slice.bytes.size() > std::numeric_limits<std::uint32_t>::max())
      refuse("is too large for its form");
    header.u32(slice.cpuType).u32(slice.cpuSubtype);
    header.word(content.size(), wide).word(slice.bytes.size(), wide).u32(slice.alignment);
    if (wide)
      header.u32(0);
    content.raw(slice.bytes);
  }
  std::string file = std::move(content).bytes();
  file.replace(0, header.size(), header.bytes());
  return file;
}

}  // namespace sign_bundle

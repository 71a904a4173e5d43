#include "tools/sign_bundle/universal_file.hpp"

#include <limits>

#include "platform/formats/byte_reader.hpp"
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

}  // namespace

UniversalFile UniversalFile::parse(std::string_view bytes) {
  UniversalFile file;
  platform::ByteReader reader(bytes, "the universal file");
  const std::uint32_t magic = reader.readU32();
  if (magic != mach_o::kFatMagic && magic != mach_o::kFatMagic64) {
    file.slices.push_back({.bytes = std::string(bytes)});
    return file;
  }
  file.form = magic == mach_o::kFatMagic ? Form::fat : Form::fat64;
  const std::size_t placeSize = file.form == Form::fat ? 4 : 8;
  for (std::uint32_t left = reader.readU32(); left > 0; --left) {
    Slice slice{.cpuType = reader.readU32(), .cpuSubtype = reader.readU32(), .bytes = {}};
    const std::uint64_t offset = reader.readNumber(placeSize);
    const std::uint64_t size = reader.readNumber(placeSize);
    slice.alignment = reader.readU32();
    if (file.form == Form::fat64)
      reader.skip(4);
    if (slice.alignment > kLargestAlignment)
      refuse("has a slice that does not fit");
    slice.bytes = reader.bytes(offset, size);
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

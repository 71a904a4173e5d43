#include "tools/sign_bundle/blob_writer.hpp"

#include "tools/byte_writer.hpp"

namespace sign_bundle {
namespace {

using tools::ByteWriter;

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kCountSize = 4;
constexpr std::size_t kIndexEntrySize = 8;

}  // namespace

std::string makeBlob(std::uint32_t magic, std::string_view payload) {
  ByteWriter blob;
  blob.u32(magic).u32(static_cast<std::uint32_t>(kHeaderSize + payload.size())).raw(payload);
  return std::move(blob).bytes();
}

std::string makeSuperBlob(std::uint32_t magic, const Components& blobs) {
  ByteWriter index;
  index.u32(static_cast<std::uint32_t>(blobs.size()));
  std::string content;
  const std::size_t start = kHeaderSize + kCountSize + kIndexEntrySize * blobs.size();
  for (const auto& [type, blob] : blobs) {
    index.u32(type).u32(static_cast<std::uint32_t>(start + content.size()));
    content += blob;
  }
  return makeBlob(magic, index.bytes() + content);
}

}  // namespace sign_bundle

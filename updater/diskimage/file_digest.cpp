#include "updater/diskimage/file_digest.hpp"

#include <memory>

#include "platform/crypto/digest.hpp"
#include "platform/files/file_handle.hpp"
#include "platform/foundation/bytes.hpp"

namespace QuorinOstrevalUpdater {
namespace {

constexpr std::size_t kChunkSize = 1048576;

}  // namespace

std::string sha256(const platform::URL& file) {
  auto handle = platform::NSFileHandle::fileHandleForReadingFromURL(file);
  platform::Digest state(platform::DigestAlgorithm::sha256);
  // NOLINTNEXTLINE(modernize-avoid-c-arrays): reading fills it, so it is not cleared first
  const auto chunk = std::make_unique_for_overwrite<char[]>(kChunkSize);
  while (true) {
    const std::string_view bytes = handle.readInto({chunk.get(), kChunkSize});
    if (bytes.empty())
      break;
    state.update(bytes);
  }
  return platform::hexadecimal(state.finish());
}

}  // namespace QuorinOstrevalUpdater

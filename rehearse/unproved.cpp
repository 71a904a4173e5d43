#include "platform/foundation/error.hpp"
#include "rehearse/proving.hpp"

namespace rehearse {

std::vector<Sweep> proveUpdate(const CommandLine&, const PrivatePrefix&, const OfferedRelease&,
                               const Application&, const std::filesystem::path&,
                               const std::function<void(const std::string&)>&) {
  throw platform::Error("This build cannot trace programs.");
}

}  // namespace rehearse

#include "platform/foundation/error.hpp"
#include "rehearse/proving.hpp"

namespace rehearse {

std::vector<Sweep> proveUpdate(const CommandLine&, const PrivatePrefix&, const OfferedRelease&,
                               const Application&, const std::filesystem::path&,
                               const std::function<void(const std::string&)>&) {
  throw platform::Error("Programs can be traced on x86_64 only.");
}

}  // namespace rehearse

#include "rehearse/proving.hpp"

#include "platform/foundation/best_effort.hpp"
#include "rehearse/proof/prove.hpp"

namespace fs = std::filesystem;

namespace rehearse {

std::vector<Sweep> proveUpdate(const CommandLine& line, const PrivatePrefix& prefix,
                               const OfferedRelease& release, const Application& installed,
                               const fs::path& directory,
                               const std::function<void(const std::string&)>& progress) {
  fs::create_directory(directory);
  const platform::ScopeExit removal([&] { removeItem(directory); });
  const ApplicationName& offered = release.application->name;
  return prove({.kinds = line.proof,
                .every = line.every,
                .jobs = line.jobs,
                .shard = line.shard,
                .directory = directory,
                .fileSystems = line.fileSystems},
               {.prefix = prefix.path(),
                .system = line.system,
                .installed = installed.bundle,
                .installedVersion = installed.name.version,
                .installedBuild = installed.name.build,
                .identifier = offered.identifier,
                .team = release.application->team,
                .offered = {.image = release.image,
                            .digest = release.digest,
                            .version = offered.version,
                            .build = offered.build,
                            .application = release.application->bundle},
                .next = {}},
               [&](const ProofProgress& state) {
                 progress(installed.name.version + ": " + state.sweep + ", " + std::to_string(state.done) +
                          " of " + std::to_string(state.selected));
               });
}

}  // namespace rehearse

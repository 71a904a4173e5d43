#include "rehearse/proof/starts.hpp"

#include <fstream>
#include <memory>
#include <utility>

#include "rehearse/files/private_place.hpp"
#include "rehearse/start/start_instructions.hpp"

namespace fs = std::filesystem;

namespace rehearse {

void WrittenStarts::begin(const fs::path& home, bool) const {
  fs::remove(home / "starts");
}

std::vector<std::string> WrittenStarts::versions(const fs::path& home) const {
  std::vector<std::string> versions;
  std::ifstream lines(home / "starts");
  for (std::string line; std::getline(lines, line);)
    versions.push_back(line);
  return versions;
}

JudgedStarts::JudgedStarts(fs::path prefix, SystemVersion system, std::string executable)
    : prefix_(std::move(prefix)), system_(system), executable_(std::move(executable)) {
  fs::create_directories(startsIn(prefix_).parent_path());
}

void JudgedStarts::settle() const {
  // It stays as long as the process, whose mounts nobody else sees.
  static std::unique_ptr<Mount> mount;
  mount = std::make_unique<Mount>(Mount::inMemory(startsIn(prefix_).parent_path()));
}

void JudgedStarts::begin(const fs::path&, bool refused) const {
  StartInstructions instructions{.system = system_, .refusedExecutables = {}};
  if (refused)
    instructions.refusedExecutables.push_back(executable_);
  instruct(prefix_, instructions);
  // Where processes are limited, another user runs the judge.
  fs::permissions(startsIn(prefix_), fs::perms(0666));
}

std::vector<std::string> JudgedStarts::versions(const fs::path&) const {
  std::vector<std::string> versions;
  for (const JudgedStart& start : judgedStarts(prefix_))
    if (start.starts)
      versions.push_back(start.version);
  return versions;
}

}  // namespace rehearse

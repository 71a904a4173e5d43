#include "tests/platform/security/signed_sample.hpp"

#include "platform/foundation/uuid.hpp"
#include "platform/security/static_code.hpp"

namespace fs = std::filesystem;

namespace test {

void trustOnly(const fs::path& root, const fs::path& anchors) {
  fs::create_directories(anchors);
  fs::copy_file(root, anchors / "root.pem");
  fs::permissions(anchors, fs::perms(0755));
  fs::permissions(anchors / "root.pem", fs::perms(0644));
}

SigningWorkshop::SigningWorkshop(const std::vector<std::string>& options)
    : chain_(directory_ / "chain", SampleChain::kTeam, options) {
  trustOnly(chain_.root(), anchors());
}

Verdict SigningWorkshop::judge(const fs::path& code, const std::optional<std::string>& requirement) const {
  try {
    std::optional<platform::Requirement> compiled;
    if (requirement)
      compiled = platform::Requirement::parse(*requirement);
    platform::StaticCode::atLocation(platform::URL::fileURLWithPath(code.native()))
        .checkValidity(compiled ? &*compiled : nullptr, platform::URL::fileURLWithPath(anchors().native()));
    return {};
  } catch (const platform::SecurityError& error) {
    return {error.status(), error.localizedDescription()};
  }
}

fs::path SigningWorkshop::newDirectory() const {
  const fs::path directory = directory_ / platform::UUID().uuidString();
  fs::create_directory(directory);
  return directory;
}

fs::path SigningWorkshop::signedApplication(const SampleOptions& sample,
                                            const std::vector<std::string>& options) const {
  fs::path application = makeSampleApplication(newDirectory(), sample);
  chain_.sign(application, options);
  return application;
}

fs::path SigningWorkshop::signedPlainApplication(const std::vector<std::string>& options) const {
  fs::path application = makePlainApplication(newDirectory());
  chain_.sign(application, options);
  return application;
}

const SigningWorkshop& workshop() {
  static const SigningWorkshop shared;
  return shared;
}

std::string sampleRequirement(const std::string& identifier) {
  return "anchor apple generic and identifier \"" + identifier +
         "\" and certificate 1[field.1.2.840.113635.100.6.2.6] exists"
         " and certificate leaf[field.1.2.840.113635.100.6.1.13] exists"
         " and certificate leaf[subject.OU] = \"" +
         SampleChain::kTeam + "\"";
}

}  // namespace test

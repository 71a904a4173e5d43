#include "rehearse/findings/findings.hpp"

#include "rehearse/findings/bundle_facts.hpp"
#include "rehearse/findings/finding_kinds.hpp"
#include "rehearse/findings/judgements.hpp"

namespace rehearse {

ApplicationName nameOf(const std::filesystem::path& application, const std::string& source) {
  return readFacts(application, source).name;
}

std::vector<Finding> compare(const std::filesystem::path& installed, const std::filesystem::path& offered) {
  const BundleFacts before = readFacts(installed, installed.native());
  const BundleFacts after = readFacts(offered, offered.native());
  std::vector<Finding> findings;
  for (const auto judge : {judgeVersions, judgeSignatures, judgeEntitlements, judgeLibraries, judgeFiles})
    judge(before, after, findings);
  sortWorstFirst(findings);
  return findings;
}

}  // namespace rehearse

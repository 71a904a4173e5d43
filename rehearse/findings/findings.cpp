#include "rehearse/findings/findings.hpp"

#include "rehearse/findings/bundle_facts.hpp"
#include "rehearse/findings/finding_kinds.hpp"
#include "rehearse/findings/judgements.hpp"

namespace rehearse {

Identity identityOf(const std::filesystem::path& application, const std::string& source) {
  const BundleFacts facts = readFacts(application, source);
  return {facts.name, facts.whyNotIdentified};
}

std::vector<Finding> compare(const std::filesystem::path& installed, const std::filesystem::path& offered) {
  const BundleFacts before = readFacts(installed, installed.native());
  const BundleFacts after = readFacts(offered, offered.native());
  std::vector<Finding> findings;
  for (const auto judge :
       {judgeIdentities, judgeVersions, judgeSignatures, judgeEntitlements, judgeLibraries, judgeFiles})
    judge(before, after, findings);
  sortWorstFirst(findings);
  return findings;
}

}  // namespace rehearse

#pragma once

#include <vector>

#include "rehearse/findings/bundle_facts.hpp"

namespace rehearse {

// The parts of `compare`, one for each subject. Each adds what it finds, in any order.

void judgeIdentities(const BundleFacts& installed, const BundleFacts& offered,
                     std::vector<Finding>& findings);
void judgeVersions(const BundleFacts& installed, const BundleFacts& offered, std::vector<Finding>& findings);
void judgeSignatures(const BundleFacts& installed, const BundleFacts& offered,
                     std::vector<Finding>& findings);
void judgeEntitlements(const BundleFacts& installed, const BundleFacts& offered,
                       std::vector<Finding>& findings);
void judgeLibraries(const BundleFacts& installed, const BundleFacts& offered, std::vector<Finding>& findings);
void judgeFiles(const BundleFacts& installed, const BundleFacts& offered, std::vector<Finding>& findings);

}  // namespace rehearse

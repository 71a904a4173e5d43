#include <gtest/gtest.h>

#include "platform/files/url.hpp"
#include "platform/security/cms_signature.hpp"
#include "platform/security/code_blobs.hpp"
#include "platform/security/requirement.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"

namespace fs = std::filesystem;

namespace {

using platform::CodeDirectory;
using platform::Requirement;
using platform::TrustAnchors;

// Signatures as they are in published files, without the code that they cover.
TEST(PublishedSignature, isValidAndTheRequirementTellsDeveloperIDApart) {
  const auto anchors = TrustAnchors::inDirectory(
      platform::URL::fileURLWithPath((test::buildPrefix() / "share/quorin/anchors").native()));
  const Requirement developerID = Requirement::parse(
      "anchor apple generic and certificate 1[field.1.2.840.113635.100.6.2.6] exists"
      " and certificate leaf[field.1.2.840.113635.100.6.1.13] exists");
  for (const auto& [name, isDeveloperID] :
       {std::pair{"kernel-extension-maker", true}, {"unsorted-digest-set", true}, {"store-leaf", false}}) {
    SCOPED_TRACE(name);
    const platform::CodeComponents components = platform::readEmbeddedSignature(
        test::readFile(fs::path(QUORIN_PUBLISHED_SIGNATURES) / (std::string(name) + ".superblob")));
    std::vector<CodeDirectory> directories;
    for (const std::uint32_t slot : {platform::slot::kCodeDirectory, platform::slot::kFirstAlternate}) {
      if (const auto found = components.find(slot); found != components.end())
        directories.push_back(CodeDirectory::read(found->second));
    }
    const std::string_view signature = components.at(platform::slot::kSignature);
    std::vector<platform::Certificate> chain;
    ASSERT_NO_THROW(chain = platform::verifyCMSSignature(signature, directories, anchors));
    const platform::CodeIdentity identity{.place = name,
                                          .identifier = directories.back().identifier(),
                                          .teamIdentifier = directories.back().teamIdentifier(),
                                          .codeDirectoryHash = directories.back().codeDirectoryHash(),
                                          .chain = chain};
    EXPECT_EQ(!developerID.failingClause(identity, nullptr), isDeveloperID);
    EXPECT_EQ(directories.back().teamIdentifier(), chain.front().subjectField("OU"));

    std::string otherCode(directories.front().blob());
    otherCode.back() = static_cast<char>(otherCode.back() ^ 1);
    directories.front() = CodeDirectory::read(otherCode);
    EXPECT_THROW(platform::verifyCMSSignature(signature, directories, anchors), platform::Error);
  }
}

}  // namespace

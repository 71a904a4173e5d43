#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/security/resource_rules.hpp"
#include "tests/platform/security/signed_sample.hpp"

namespace fs = std::filesystem;

namespace {

using platform::errSecCSBadResource;
using test::Verdict;
using test::workshop;
using testing::HasSubstr;

/// Replaces the sample's helper tool by other code, signed as `options` say.
Verdict withOtherHelper(const fs::path& application, const std::vector<std::string>& options) {
  const fs::path helper = application / "Contents/MacOS/sample-helper";
  fs::remove(helper);
  test::runSignBundle({"make-mach-o", helper.native(), "--arch", "both", "--text", "other"});
  std::vector<std::string> arguments{"sign", helper.native()};
  arguments.insert(arguments.end(), options.begin(), options.end());
  test::runSignBundle(arguments);
  return workshop().judge(application, test::sampleRequirement());
}

TEST(NestedCode, hasToSatisfyTheSealedRequirement) {
  const fs::path application = workshop().signedApplication();
  const std::string chain = workshop().chain().directory().native();
  const Verdict same = withOtherHelper(application, {"--chain", chain});
  EXPECT_TRUE(same.accepted()) << "a new version by the same signer: " << same.sentence;
  const Verdict renamed =
      withOtherHelper(application, {"--chain", chain, "--identifier", "com.example.other"});
  EXPECT_EQ(renamed.status, errSecCSBadResource);
  EXPECT_THAT(renamed.sentence, HasSubstr("sample-helper\" (x86_64) does not satisfy the requirement"));
  EXPECT_EQ(withOtherHelper(application, {"--ad-hoc"}).status, errSecCSBadResource);
}

TEST(NestedCode, isRefusedInAnyArchitecture) {
  const fs::path application = workshop().signedApplication();
  const fs::path helper = application / "Contents/MacOS/sample-helper";
  std::string content = test::readFile(helper);
  // The text stands in the code of each architecture.
  const std::size_t second = content.rfind("sample-helper", content.size() / 2 + content.size() / 4);
  ASSERT_NE(second, std::string::npos);
  content[second] = 'S';
  test::writeFile(helper, content);
  EXPECT_FALSE(workshop().judge(application).accepted());
}

/// A framework with a library for one architecture, which holds the text.
void writeFramework(const fs::path& framework, const std::string& text) {
  const fs::path version = framework / "Versions/A";
  test::writeInfoPlist(version / "Resources/Info.plist", "com.example.framework", "F", "1", "1");
  test::runSignBundle(
      {"make-mach-o", (version / "F").native(), "--arch", "arm64", "--kind", "library", "--text", text});
  fs::create_symlink("A", framework / "Versions/Current");
  fs::create_symlink("Versions/Current/F", framework / "F");
}

TEST(NestedCode, aHashAloneBindsEveryArchitecture) {
  for (const bool universal : {false, true}) {
    const fs::path application = workshop().signedPlainApplication();
    const fs::path helper = application / "Contents/MacOS/helper";
    test::runSignBundle({"make-mach-o", helper.native(), "--arch", universal ? "both" : "arm64"});
    workshop().chain().sign(application, {"--without-requirements"});
    // The sealed hash is that of the first architecture; nothing says whose the other one is.
    const Verdict verdict = workshop().judge(application, test::sampleRequirement());
    EXPECT_EQ(verdict.accepted(), !universal) << verdict.sentence;
  }
}

TEST(NestedCode, aHashAloneBindsEveryVersion) {
  const fs::path application = workshop().signedPlainApplication();
  const fs::path framework = application / "Contents/Frameworks/F.framework";
  writeFramework(framework, "good");
  workshop().chain().sign(application, {"--without-requirements"});
  ASSERT_TRUE(workshop().judge(application, test::sampleRequirement()).accepted());
  const fs::path foreign = application.parent_path() / "F.framework";
  writeFramework(foreign, "evil");
  test::runSignBundle({"sign", foreign.native(), "--ad-hoc"});
  fs::rename(foreign / "Versions/A", framework / "Versions/B");
  const Verdict verdict = workshop().judge(application, test::sampleRequirement());
  EXPECT_EQ(verdict.status, errSecCSBadResource);
  EXPECT_THAT(verdict.sentence, HasSubstr("is not the code that was sealed"));
}

struct LinkCase {
  const char* link;
  const char* target;
  bool accepted;
};

TEST(NestedCode, otherLinksThatStayInAFrameworkAreAccepted) {
  const fs::path application = workshop().signedPlainApplication();
  const fs::path framework = application / "Contents/Frameworks/F.framework";
  writeFramework(framework, "good");
  workshop().chain().sign(application);
  for (const auto& [name, target, accepted] :
       {LinkCase{"F", "Versions/A/F", true}, LinkCase{"F", "A/F", false},
        LinkCase{"F", "Versions/A/Resources", false}, LinkCase{"F", "Versions/B/F", false},
        LinkCase{"F", "Versions/../Versions/A/F", false}, LinkCase{"Versions/B", "Current", true},
        LinkCase{"Versions/B", "C", false}, LinkCase{"Versions/B", "B", false},
        LinkCase{"Versions/B", "../Versions", false}, LinkCase{"Versions/Current", "./A", true},
        LinkCase{"Versions/Current", "/A", false}, LinkCase{"Versions/Current", ".", false}}) {
    const fs::path link = framework / name;
    const fs::path usual = fs::is_symlink(link) ? fs::read_symlink(link) : fs::path();
    fs::remove(link);
    fs::create_symlink(target, link);
    const Verdict verdict = workshop().judge(application);
    EXPECT_EQ(verdict.accepted(), accepted) << name << " -> " << target << ": " << verdict.sentence;
    fs::remove(link);
    if (!usual.empty())
      fs::create_symlink(usual, link);
  }
}

TEST(NestedCode, itsLinksMayLeadAnywhereInTheApplication) {
  for (const auto& [target, accepted] :
       {std::pair{"../../../Resources", true}, {"../../../../Contents", true}, {"../../../../../x", false}}) {
    const fs::path application = workshop().signedPlainApplication();
    const fs::path nested = application / "Contents/Helpers/H.app/Contents";
    test::writeInfoPlist(nested / "Info.plist", "com.example.nested", "H", "1", "1");
    test::writeFile(nested / "MacOS/H", "#!/bin/sh\n");
    fs::create_symlink(target, nested / "Shared");
    workshop().chain().sign(application);
    EXPECT_EQ(workshop().judge(application).accepted(), accepted) << target;
  }
}

TEST(NestedCode, nestingWithoutEndIsRefusedQuickly) {
  const fs::path application = workshop() / "deep.app";
  fs::path bundle = application;
  for (int level = 0; level < 20; ++level) {
    test::writeInfoPlist(bundle / "Contents/Info.plist", "com.example.deep", "deep", "1", "1");
    test::writeFile(bundle / "Contents/MacOS/deep", "#!/bin/sh\n");
    bundle = bundle / "Contents/Helpers/d.app";
  }
  test::writeFile(bundle.parent_path().parent_path() / "Resources/end", "end");
  fs::remove(bundle.parent_path());
  test::runSignBundle({"sign", application.native(), "--ad-hoc"});
  const Verdict verdict = workshop().judge(application);
  EXPECT_EQ(verdict.status, errSecCSBadResource);
  EXPECT_THAT(verdict.sentence, HasSubstr("nested too deeply"));
}

TEST(NestedCode, directoriesWithoutEndAreRefused) {
  const fs::path application = workshop().signedPlainApplication();
  fs::path directory = application / "Contents/Resources";
  for (int level = 0; level < 200; ++level)
    directory /= "d";
  fs::create_directories(directory);
  EXPECT_THAT(workshop().judge(application).sentence, HasSubstr("nested too deeply"));
}

TEST(UnsealedItems, linksThatLeadOutAreRefusedEvenWhereNothingIsSealed) {
  const fs::path application = workshop().signedPlainApplication();
  const fs::path link = application / "Contents/Resources/.DS_Store";
  for (const auto& [target, accepted] : {std::pair{"../../Contents/Info.plist", true},
                                         {"missing", true},
                                         {"/etc/hostname", false},
                                         {"../../../other", false},
                                         {"../Resources/../../../x", false},
                                         {".DS_Store", false}}) {
    fs::create_symlink(target, link);
    EXPECT_EQ(workshop().judge(application).accepted(), accepted) << target;
    fs::remove(link);
  }
}

TEST(UnsealedItems, linksThatLeadOverManyDirectoriesAreRefusedQuickly) {
  const fs::path application = workshop().signedPlainApplication();
  const fs::path links = application / "Contents/_MASReceipt";
  fs::create_directories(links / "d");
  std::string detour;
  for (int turn = 0; turn < 100; ++turn)
    detour += "d/../";
  // Each is short enough, and leads over the next.
  for (int index = 0; index < 3; ++index)
    fs::create_symlink(detour + std::to_string(index + 1), links / std::to_string(index));
  EXPECT_THAT(workshop().judge(application).sentence, HasSubstr("leads out of the bundle"));
  fs::remove(links / "1");
  EXPECT_TRUE(workshop().judge(application).accepted());
}

TEST(UnsealedItems, noRuleLeavesCodeOut) {
  using platform::PropertyList;
  PropertyList::Dictionary rule;
  rule.emplace("omit", true);
  rule.emplace("weight", 9999.0);
  PropertyList::Dictionary list;
  list.emplace(".*", std::move(rule));
  const platform::ResourceRules rules{PropertyList(std::move(list))};
  for (const char* path :
       {"MacOS/tool", "macos/tool", "Frameworks/E.framework/Versions/A/E", "SharedFrameworks/a", "PlugIns/a",
        "Plug-ins/a", "XPCServices/a", "Helpers/a/b", "Library/LoginItems/a", "MacOS/x.DS_Store"})
    EXPECT_FALSE(rules.omits(path)) << path;
  for (const char* path : {"MacOS/.DS_Store", "Resources/a", "Resources/MacOS/a", "a"})
    EXPECT_TRUE(rules.omits(path)) << path;
  const fs::path application = workshop().signedPlainApplication();
  const fs::path omitted = application / "Contents/Resources/en.lproj/locversion.plist";
  test::writeFile(omitted, "text");
  EXPECT_TRUE(workshop().judge(application).accepted());
  for (const char* architectures : {"arm64", "both"}) {
    test::runSignBundle({"make-mach-o", omitted.native(), "--arch", architectures});
    EXPECT_EQ(workshop().judge(application).status, errSecCSBadResource) << architectures;
  }
}

TEST(UnsealedItems, onlyWhatTheSystemAddsMayBeAdded) {
  const fs::path application = workshop().signedApplication({.executable = test::SampleExecutable::machO});
  const fs::path signatures = application / "Contents/_CodeSignature";
  test::writeFile(application / "Contents/_MASReceipt/receipt", "receipt");
  test::writeFile(application / "Contents/CodeResources", "ticket");
  test::writeFile(signatures / "CodeRequirements", "of an older signature, beside one that is embedded");
  EXPECT_TRUE(workshop().judge(application).accepted());
  for (const char* added : {"added", "CodeDirectory/added"}) {
    test::writeFile(signatures / added, "added");
    EXPECT_EQ(workshop().judge(application).status, errSecCSBadResource) << added;
    fs::remove(signatures / added);
  }
}

}  // namespace

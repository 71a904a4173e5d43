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
  // Each architecture contains the text.
  const std::size_t second = content.rfind("sample-helper", content.size() / 2 + content.size() / 4);
  ASSERT_NE(second, std::string::npos);
  content[second] = 'S';
  test::writeFile(helper, content);
  EXPECT_FALSE(workshop().judge(application).accepted());
}

/// A framework with a library for one architecture, which contains the text.
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
    // The sealed hash is that of the first architecture; no hash covers the other.
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

TEST(NestedCode, aFrameworkHasAFewVersions) {
  const fs::path application = workshop().signedPlainApplication();
  const fs::path framework = application / "Contents/Frameworks/F.framework";
  writeFramework(framework, "good");
  workshop().chain().sign(application);
  for (int version = 1; version <= 32; ++version) {
    EXPECT_TRUE(workshop().judge(application).accepted()) << version;
    fs::copy(framework / "Versions/A", framework / "Versions" / std::to_string(version),
             fs::copy_options::recursive | fs::copy_options::create_hard_links);
  }
  EXPECT_THAT(workshop().judge(application).sentence, HasSubstr("has too many versions"));
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
  const fs::path other = workshop().signedPlainApplication();
  fs::path directory = other / "Contents/Resources";
  for (int level = 0; level < 200; ++level)
    directory /= "d";
  fs::create_directories(directory);
  EXPECT_THAT(workshop().judge(other).sentence, HasSubstr("nested too deeply"));
}

TEST(NestedCode, aRequirementBeyondReasonIsNotParsed) {
  const fs::path application = workshop().signedPlainApplication();
  const fs::path contents = application / "Contents/Helpers/long.app/Contents";
  test::writeInfoPlist(contents / "Info.plist", std::string(70'000, 'i'), "long", "1", "1");
  test::writeFile(contents / "MacOS/long", "#!/bin/sh\n");
  workshop().chain().sign(application);
  EXPECT_THAT(workshop().judge(application).sentence, HasSubstr("a requirement that is too long"));
}

TEST(UnsealedItems, aLinkCountsByItsTextAlone) {
  const fs::path application = workshop().signedPlainApplication();
  const fs::path contents = application / "Contents";
  for (const char* target : {"/etc/hostname", "../../..", "missing"}) {
    const fs::path link = contents / "Resources/link";
    fs::create_symlink(target, link);
    EXPECT_EQ(workshop().judge(application).status, errSecCSBadResource) << "unsealed: " << target;
    workshop().chain().sign(application);
    EXPECT_TRUE(workshop().judge(application).accepted()) << "sealed: " << target;
    fs::remove(link);
    fs::create_symlink(std::string(target) + "/.", link);
    EXPECT_EQ(workshop().judge(application).status, errSecCSBadResource) << "changed: " << target;
    fs::remove(link);
    workshop().chain().sign(application);
    // An item that the rules omit may be a link as well as a file.
    fs::create_symlink(target, contents / "Resources/.DS_Store");
    EXPECT_TRUE(workshop().judge(application).accepted()) << "omitted: " << target;
    fs::remove(contents / "Resources/.DS_Store");
  }
}

TEST(UnsealedItems, nothingIsReadThroughALink) {
  const fs::path application = workshop().signedPlainApplication();
  const fs::path contents = application / "Contents";
  for (const char* item : {"Info.plist", "MacOS", "_CodeSignature", "_CodeSignature/CodeDirectory"}) {
    const fs::path original = application.parent_path() / "original";
    fs::rename(contents / item, original);
    fs::create_symlink(original, contents / item);
    EXPECT_FALSE(workshop().judge(application).accepted()) << item;
    fs::remove(contents / item);
    fs::rename(original, contents / item);
  }
}

/// The file is accepted without execute permission, if at all, and never a link in its place.
void expectOnlyPlainFile(const fs::path& application, const fs::path& item, bool accepted) {
  test::writeFile(item, "not sealed");
  for (const unsigned mode : {0644U, 0744U, 0654U, 0645U}) {
    fs::permissions(item, fs::perms(mode));
    EXPECT_EQ(workshop().judge(application).accepted(), accepted && mode == 0644) << item << " " << mode;
  }
  fs::remove(item);
  fs::create_symlink("Contents", item);
  EXPECT_FALSE(workshop().judge(application).accepted()) << item << " as a link";
  fs::remove(item);
}

TEST(UnsealedItems, fewFilesMayBeBesideWhatIsSealed) {
  const fs::path application = workshop().signedPlainApplication();
  writeFramework(application / "Contents/Frameworks/F.framework", "good");
  workshop().chain().sign(application);
  const std::string framework = "Contents/Frameworks/F.framework/";
  for (const auto& [path, accepted] : {std::pair<std::string, bool>{".DS_Store", true},
                                       {".LSOverride", true},
                                       {"Icon\r", true},
                                       {".SoftwareDepot.tracking", true},
                                       {"Icon", false},
                                       {"icon\r", false},
                                       {"module.map", false},
                                       {"Contents/Icon\r", false},
                                       {"Contents/Resources/Icon\r", false},
                                       {framework + ".DS_Store", true},
                                       {framework + "module.map", true},
                                       {framework + "Icon\r", false},
                                       {framework + "Versions/.DS_Store", true},
                                       {framework + "Versions/module.map", false}}) {
    const fs::path item = application / path;
    expectOnlyPlainFile(application, item, accepted);
    fs::create_directory(item);
    if (!path.starts_with("Contents/") || path.starts_with(framework)) {
      EXPECT_FALSE(workshop().judge(application).accepted()) << path << " as a directory";
    }
    fs::remove(item);
  }
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

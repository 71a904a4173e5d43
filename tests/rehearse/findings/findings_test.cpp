#include "rehearse/findings/findings.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "platform/foundation/error.hpp"
#include "rehearse/findings/finding_kinds.hpp"
#include "tests/platform/security/signed_sample.hpp"
#include "tools/sign_bundle/mach_o_maker.hpp"

namespace fs = std::filesystem;

namespace {

using rehearse::compare;
using rehearse::Finding;
using rehearse::Severity;
using sign_bundle::Architecture;
using test::SampleChain;
using test::workshop;
using testing::ElementsAre;
using testing::HasSubstr;

using Change = std::function<void(const fs::path&)>;

/// An application to be made; by default one without a fault.
struct Release {
  std::string version = "1.0";
  std::string build = "1";
  std::string identifier = "com.example.sample";
  std::vector<std::string> options = {"--hardened-runtime", "--time-stamp"};
  Change beforeSigning = [](const fs::path&) {};
  Change afterSigning = [](const fs::path&) {};
  std::function<const SampleChain&()> chain = []() -> const SampleChain& { return workshop().chain(); };
};

Release next() {
  return {.version = "2.0", .build = "2"};
}

fs::path make(const test::TemporaryDirectory& directory, const Release& release) {
  fs::path application = test::makePlainApplication(
      directory.path(),
      {.identifier = release.identifier, .shortVersion = release.version, .version = release.build});
  test::writeFile(application / "Contents/MacOS/Sample Application",
                  sign_bundle::makeMachO({.architectures = {Architecture::x86_64, Architecture::arm64}}));
  test::writeFile(application / "Contents/CodeResources", "ticket");
  release.beforeSigning(application);
  if (!release.options.empty())
    release.chain().sign(application, release.options);
  fs::permissions(application, fs::perms(0755));
  for (const auto& entry : fs::recursive_directory_iterator(application)) {
    if (!entry.is_symlink())
      fs::permissions(entry.path(), fs::perms(entry.is_directory() ? 0755 : 0644));
  }
  fs::permissions(application / "Contents/MacOS/Sample Application", fs::perms(0755));
  release.afterSigning(application);
  return application;
}

std::vector<Finding> findings(const Release& installed, const Release& offered) {
  const test::TemporaryDirectory first;
  const test::TemporaryDirectory second;
  return compare(make(first, installed), make(second, offered));
}

/// The keys of all findings but the one that every update has.
std::vector<std::string> keys(const std::vector<Finding>& all) {
  std::vector<std::string> texts;
  for (const Finding& item : all) {
    if (item.key != "space-needed")
      texts.push_back(item.key);
  }
  return texts;
}

/// A signing identity of its own, made once.
const SampleChain& chainWith(const std::string& name, const std::string& team,
                             const std::vector<std::string>& options) {
  static std::map<std::string, SampleChain> chains;
  return chains.try_emplace(name, workshop() / name, team, options).first->second;
}

struct Case {
  std::vector<std::string> keys;
  std::function<void(Release& installed, Release& offered)> change;
};

void expectKeys(const std::vector<Case>& cases) {
  for (std::size_t index = 0; index < cases.size(); ++index) {
    Release installed;
    Release offered = next();
    cases[index].change(installed, offered);
    EXPECT_EQ(keys(findings(installed, offered)), cases[index].keys) << index;
  }
}

Change executableFor(const std::vector<Architecture>& architectures, std::uint32_t leastSystem = 0x000B0000) {
  return [=](const fs::path& application) {
    test::writeFile(application / "Contents/MacOS/Sample Application",
                    sign_bundle::makeMachO({.architectures = architectures, .leastSystem = leastSystem}));
  };
}

std::vector<std::string> withEntitlements(const std::string& name, const std::string& content) {
  const fs::path file = workshop() / name;
  test::writeFile(file, "<plist><dict>" + content + "</dict></plist>");
  return {"--hardened-runtime", "--time-stamp", "--entitlements", file.native()};
}

TEST(Findings, ofVersionsAndArchitectures) {
  const std::vector<Case> cases{
      {{}, [](Release&, Release&) {}},
      {{"downgrade"}, [](Release& installed, Release&) { installed.build = "10"; }},
      {{"downgrade"},
       [](Release& installed, Release& offered) {
         offered.build = installed.build = "2", installed.version = "2.0.1";
       }},
      {{"build-does-not-rise"}, [](Release&, Release& offered) { offered.build = "1.0"; }},
      {{"version-falls"}, [](Release& installed, Release&) { installed.version = "2.10"; }},
      {{"version-does-not-rise"}, [](Release& installed, Release&) { installed.version = "2"; }},
      {{"identifier-changed"}, [](Release&, Release& offered) { offered.identifier = "com.example.other"; }},
      {{"architecture-lost"},
       [](Release&, Release& offered) { offered.beforeSigning = executableFor({Architecture::arm64}); }},
      {{},
       [](Release& installed, Release&) { installed.beforeSigning = executableFor({Architecture::arm64}); }},
      {{"minimum-system-raised"}, [](Release&, Release& offered) {
         offered.beforeSigning = executableFor({Architecture::x86_64, Architecture::arm64}, 0x000C0000);
       }}};
  expectKeys(cases);
}

TEST(Findings, ofSignatures) {
  const auto expired = []() -> const SampleChain& {
    return chainWith("expired", SampleChain::kTeam, {"--defect", "expired"});
  };
  const auto development = []() -> const SampleChain& {
    return chainWith("development", SampleChain::kTeam, {"--leaf", "development"});
  };
  const auto otherTeam = []() -> const SampleChain& { return chainWith("other", "OTHERTEAM1", {}); };
  const std::vector<Case> cases{
      {{"not-signed"}, [](Release&, Release& offered) { offered.options = {}; }},
      {{"not-signed"},
       [](Release&, Release& offered) {
         offered.afterSigning = [](const fs::path& application) {
           fs::resize_file(application / "Contents/MacOS/Sample Application", 40'000);
         };
       }},
      {{"installed-not-signed"}, [](Release& installed, Release&) { installed.options = {}; }},
      {{"not-developer-id"}, [&](Release&, Release& offered) { offered.chain = development; }},
      {{"team-changed"}, [&](Release&, Release& offered) { offered.chain = otherTeam; }},
      // What was signed with one certificate only is known by that certificate.
      {{"requirement-changed"}, [&](Release& installed, Release&) { installed.chain = development; }},
      {{"certificate-expired", "no-time-stamp"},
       [&](Release&, Release& offered) {
         offered.chain = expired;
         offered.options = {"--hardened-runtime"};
       }},
      {{"no-time-stamp"}, [](Release&, Release& offered) { offered.options = {"--hardened-runtime"}; }},
      {{"no-hardened-runtime"}, [](Release&, Release& offered) { offered.options = {"--time-stamp"}; }},
      {{"no-notarization-ticket"}, [](Release&, Release& offered) {
         offered.afterSigning = [](const fs::path& application) {
           fs::remove(application / "Contents/CodeResources");
           fs::create_symlink("_CodeSignature/CodeResources", application / "Contents/CodeResources");
         };
       }}};
  expectKeys(cases);
}

TEST(Findings, ofLibrariesUnderTheHardenedRuntime) {
  const auto library = [](const fs::path& application) {
    return application / "Contents/Frameworks/libone.dylib";
  };
  Release offered = next();
  offered.beforeSigning = [&](const fs::path& application) {
    test::writeFile(application / "Contents/MacOS/Sample Application",
                    sign_bundle::makeMachO({.libraries = {"@executable_path/../Frameworks/libone.dylib"}}));
    test::writeFile(library(application),
                    sign_bundle::makeMachO({.kind = sign_bundle::MachOKind::dynamicLibrary}));
  };
  Release installed;
  installed.beforeSigning = executableFor({Architecture::x86_64});
  EXPECT_EQ(keys(findings(installed, offered)), std::vector<std::string>{});
  offered.afterSigning = [&](const fs::path& application) {
    chainWith("other", "OTHERTEAM1", {}).sign(library(application));
  };
  const auto all = findings(installed, offered);
  ASSERT_EQ(keys(all), std::vector<std::string>{"library-of-other-team"});
  EXPECT_THAT(all[0].sentence, HasSubstr("libone.dylib\" is signed by \"OTHERTEAM1\": "));
  installed.options = offered.options = withEntitlements(
      "without validation", "<key>com.apple.security.cs.disable-library-validation</key><true/>");
  EXPECT_EQ(keys(findings(installed, offered)), std::vector<std::string>{});
}

TEST(Findings, ofEntitlements) {
  Release installed;
  Release offered = next();
  installed.options =
      withEntitlements("installed.plist",
                       "<key>a.gone</key><true/><key>a.kept</key><array><string>x</string></array>"
                       "<key>a.changed</key><string>one</string>");
  offered.options = withEntitlements(
      "offered.plist",
      "<key>a.kept</key><array><string>x</string></array><key>a.changed</key><string>two</string>"
      "<key>a.new</key><true/><key>com.apple.security.get-task-allow</key><true/>"
      "<key>keychain-access-groups</key><array><string>TEAM.group</string></array>");
  const auto all = findings(installed, offered);
  ASSERT_EQ(keys(all), (std::vector<std::string>{"debuggable", "entitlement-needs-profile",
                                                 "entitlements-lost", "entitlements-added"}));
  EXPECT_THAT(all[2].sentence, HasSubstr("a.changed is two instead of one; a.gone (true) is gone."));
  EXPECT_THAT(all[3].sentence, HasSubstr("a.new (true); "));

  offered.beforeSigning = [](const fs::path& application) {
    test::writeFile(application / "Contents/embedded.provisionprofile", "profile");
  };
  installed.options = offered.options;
  EXPECT_EQ(keys(findings(installed, offered)), std::vector<std::string>{"debuggable"});
}

TEST(Findings, ofFiles) {
  Release offered = next();
  offered.beforeSigning = [](const fs::path& application) {
    test::writeFile(application / "Contents/MacOS/run.sh", sign_bundle::makeMachO({}));
    test::writeFile(application / "Contents/Resources/TEXT.txt", "");
    fs::create_symlink("/etc", application / "Contents/Resources/out");
    fs::create_symlink("../../../beside", application / "Contents/Resources/beside");
    fs::create_symlink("nothing", application / "Contents/Resources/broken");
    fs::create_symlink("text.txt", application / "Contents/Resources/inside");
  };
  offered.afterSigning = [](const fs::path& application) {
    const fs::path resources = application / "Contents/Resources";
    test::writeFile(application / "Contents/MacOS/run.sh", "#!/bin/sh\n");
    for (const char* name : {"one", "two", "three", "four"}) {
      test::writeFile(resources / name, "");
      fs::permissions(resources / name, fs::perms(0640));
    }
    test::writeFile(resources / "five", "");
    fs::permissions(resources / "five", fs::perms(0666));
  };
  const auto all = findings({}, offered);
  ASSERT_EQ(keys(all),
            (std::vector<std::string>{"names-collide", "signature-in-attributes", "unreadable-for-others",
                                      "writable-for-others", "link-leaves-bundle", "link-broken"}));
  EXPECT_THAT(all[1].sentence, HasSubstr("\"Contents/MacOS/run.sh\""));
  EXPECT_THAT(all[2].sentence, HasSubstr("\"Contents/Resources/three\" and 1 more."));
  EXPECT_THAT(all[4].sentence, HasSubstr("\"Contents/Resources/beside\", \"Contents/Resources/out\"."));
}

TEST(Findings, areTheWorstFirstWithKeysOfTheTable) {
  Release offered = next();
  offered.build = "0";
  offered.options = {};
  const auto all = findings({}, offered);
  ASSERT_GE(all.size(), 3U);
  EXPECT_TRUE(std::ranges::is_sorted(all, std::ranges::greater(), &Finding::severity));
  EXPECT_TRUE(std::ranges::is_sorted(rehearse::kFindingKinds, std::ranges::greater(),
                                     &rehearse::FindingKind::severity));
  for (const Finding& item : all)
    EXPECT_TRUE(item.sentence.ends_with('.') && item.advice.ends_with('.')) << item.key;
}

TEST(Findings, everyKeyIsExplained) {
  constexpr std::array kNames{"note", "warning", "fault"};
  const std::string page = test::readFile(QUORIN_REHEARSAL_PAGE);
  for (const rehearse::FindingKind& kind : rehearse::kFindingKinds)
    EXPECT_THAT(page, HasSubstr("| `" + std::string(kind.key) + "` | " +
                                kNames.at(static_cast<std::size_t>(kind.severity)) + " | "));
}

TEST(Findings, whatCannotBeRead) {
  const test::TemporaryDirectory directory;
  const fs::path application = make(directory, {});
  EXPECT_EQ(rehearse::identityOf(application, "given").name,
            (rehearse::ApplicationName{"Sample Application.app", "com.example.sample", "1.0", "1", "given"}));
  EXPECT_EQ(rehearse::identityOf(application, "given").whyNotIdentified, "");
  EXPECT_THROW(compare(directory / "none.app", application), platform::Error);
  test::copyTree(application, directory / "Renamed.app");
  EXPECT_EQ(keys(compare(directory / "Renamed.app", application)),
            (std::vector<std::string>{"build-does-not-rise", "bundle-renamed"}));
  test::writeInfoPlist(application / "Contents/Info.plist", "com.example.sample", "", "1.0", "1");
  // Without an executable there is nothing to be signed, which is a finding.
  EXPECT_THAT(keys(compare(application, application)), testing::Contains("not-signed"));

  // What the updater does not take for an application is told once for each of the two.
  const fs::path complete = directory / "Renamed.app";
  const fs::path information = application / "Contents/Info.plist";
  for (const auto& [text, reason] :
       {std::pair("<plist><dict/></plist>", "has no CFBundleIdentifier"),
        std::pair("<plist><dict><key>CFBundleIdentifier</key><string>a</string></dict></plist>",
                  "has no CFBundleShortVersionString"),
        std::pair("{", "has an Info.plist that cannot be read"), std::pair("", "has no Info.plist")}) {
    test::writeFile(information, text);
    if (*text == '\0')
      fs::remove(information);
    EXPECT_EQ(rehearse::identityOf(application, "given").whyNotIdentified, reason);
    EXPECT_EQ(compare(complete, application).front().key, "not-identified");
    EXPECT_EQ(compare(application, complete).front().key, "installed-not-identified");
  }
  EXPECT_THAT(keys(compare(complete, application)), testing::Not(testing::Contains("not-signed")));
  EXPECT_THAT(keys(compare(application, complete)),
              ElementsAre("installed-not-identified", "bundle-renamed"));
}

}  // namespace

#include "rehearse/start/start_check.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "platform/foundation/error.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/sample_application.hpp"
#include "tools/sign_bundle/mach_o_maker.hpp"

namespace fs = std::filesystem;

namespace {

using rehearse::obstaclesToStart;
using rehearse::SystemVersion;
using sign_bundle::Architecture;
using sign_bundle::MachOKind;
using sign_bundle::MachOOptions;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr SystemVersion kSystem{14, 0, 0};
constexpr std::uint32_t kIOS = 2;
constexpr std::uint32_t kCatalyst = 6;
const std::vector<Architecture> kBoth{Architecture::x86_64, Architecture::arm64};

/// An application for two architectures that needs a framework and, through it, a library.
class Application {
 public:
  Application() {
    test::writeInfoPlist(path() / "Contents/Info.plist", "com.example.start", "Start", "2.0", "2");
    program({.libraries = {"@rpath/Kit.framework/Versions/A/Kit"},
             .runPaths = {"/usr/lib/swift", "@executable_path/../Frameworks"}});
    library("Kit.framework/Versions/A/Kit", {.libraries = {"@loader_path/../../../libdeep.dylib"}});
    fs::create_symlink("A", frameworks() / "Kit.framework/Versions/Current");
    library("libdeep.dylib", {.libraries = {"@rpath/Kit.framework/Kit"}});  // a cycle
    fs::create_symlink("Versions/Current/Kit", frameworks() / "Kit.framework/Kit");
  }

  fs::path path() const { return directory_ / "Start.app"; }
  fs::path frameworks() const { return path() / "Contents/Frameworks"; }
  fs::path executable() const { return path() / "Contents/MacOS/Start"; }

  void program(MachOOptions options) const {
    if (options.architectures.size() == 1)
      options.architectures = kBoth;
    program(sign_bundle::makeMachO(options));
  }
  void program(std::string_view content) const {
    test::writeFile(executable(), content);
    fs::permissions(executable(), fs::perms(0755));
  }
  void library(const std::string& name, MachOOptions options,
               const std::vector<Architecture>& architectures = kBoth) const {
    options.kind = MachOKind::dynamicLibrary;
    options.architectures = architectures;
    test::writeFile(frameworks() / name, sign_bundle::makeMachO(options));
  }
  void information(const std::string& key, const std::string& value) const {
    std::string text = test::readFile(path() / "Contents/Info.plist");
    text.replace(text.find("<dict>") + 6, 0, "<key>" + key + "</key><string>" + value + "</string>");
    test::writeFile(path() / "Contents/Info.plist", text);
  }
  std::vector<std::string> obstacles(SystemVersion system = kSystem) const {
    std::vector<std::string> sentences;
    for (const auto& [kind, sentence] : obstaclesToStart(path(), system))
      sentences.push_back(sentence);
    return sentences;
  }

 private:
  test::TemporaryDirectory directory_;
};

using Change = std::function<void(const Application&)>;

TEST(StartCheck, whatRealApplicationsDoIsNoObstacle) {
  const std::vector<std::pair<const char*, Change>> cases{
      {"nothing", [](const Application&) {}},
      {"libraries of the system's language, and one that may be missing",
       [](const Application& app) {
         app.program({.libraries = {"@rpath/libswiftCore.dylib", "/System/Library/Frameworks/A.framework/A"},
                      .weakLibraries = {"@rpath/libnone.dylib", "/opt/none.dylib"},
                      .runPaths = {"/usr/lib/swift"}});
       }},
      {"a run path in the loader's own place, and one of the library alone",
       [](const Application& app) {
         app.program({.libraries = {"@loader_path/../Frameworks/libone.dylib"}});
         app.library("libone.dylib", {.libraries = {"@rpath/libtwo.dylib"}, .runPaths = {"@loader_path"}});
         app.library("libtwo.dylib", {.libraries = {"@rpath/libthree.dylib"}});  // of the one that loaded it
         app.library("libthree.dylib", {});
       }},
      {"a library that another one has loaded under the same name",
       [](const Application& app) {
         app.program({.libraries = {"@executable_path/../Frameworks/libone.dylib",
                                    "@executable_path/../Frameworks/libtwo.dylib"}});
         app.library("libone.dylib", {.libraries = {"@rpath/libtwo.dylib"}});
         app.library("libtwo.dylib", {.installName = "@rpath/libtwo.dylib"});
       }},
      {"a name in another case, and a path in the usual place of applications",
       [](const Application& app) {
         app.program({.libraries = {"@executable_path/../frameworks/LibDeep.dylib",
                                    "/Applications/Start.app/Contents/Frameworks/libdeep.dylib"},
                      .runPaths = {"@executable_path/../Frameworks"}});
       }},
      {"a library built for a later system, and one for Catalyst",
       [](const Application& app) {
         app.library("libdeep.dylib", {.platform = kCatalyst, .leastSystem = 0x00110000});
       }},
      {"a program for Catalyst, which counts other versions",
       [](const Application& app) { app.program({.platform = kCatalyst, .leastSystem = 0x00110000}); }},
      {"the system itself as the least one", [](const Application& app) {
         app.information("LSMinimumSystemVersion", "14.0");
         app.program({.leastSystem = 0x000E0000});
       }}};
  for (const auto& [name, change] : cases) {
    const Application application;
    change(application);
    EXPECT_THAT(application.obstacles(), IsEmpty()) << name;
  }
}

TEST(StartCheck, whatKeepsAnExecutableFromRunning) {
  const std::vector<std::pair<std::string, Change>> cases{
      {"\"Contents/Info.plist\" is missing",
       [](const Application& app) { fs::remove(app.path() / "Contents/Info.plist"); }},
      {"\"Contents/Info.plist\" cannot be read",
       [](const Application& app) { test::writeFile(app.path() / "Contents/Info.plist", "{"); }},
      {"names no executable",
       [](const Application& app) {
         test::writeInfoPlist(app.path() / "Contents/Info.plist", "com.example.start", "", "2.0", "2");
       }},
      {"\"../Start\" is not in its Contents/MacOS",
       [](const Application& app) {
         test::writeInfoPlist(app.path() / "Contents/Info.plist", "a.b", "../Start", "2.0", "2");
       }},
      {"\"Start\" is missing", [](const Application& app) { fs::remove(app.executable()); }},
      {"is a link out of the application",
       [](const Application& app) {
         fs::remove(app.executable());
         fs::create_symlink("/bin/sh", app.executable());
       }},
      {"has no permission to execute",
       [](const Application& app) { fs::permissions(app.executable(), fs::perms(0644)); }},
      {"no code for arm64 or x86_64, only for i386, ppc",
       [](const Application& app) {
         app.program(sign_bundle::makeMachO({.architectures = {Architecture::i386, Architecture::powerPc}}));
       }},
      {"but not a program",
       [](const Application& app) {
         app.program(sign_bundle::makeMachO({.kind = MachOKind::loadableBundle}));
       }},
      {"is not a valid Mach-O file",
       [](const Application& app) { fs::resize_file(app.executable(), 20'000); }},
      {"neither a Mach-O file nor a script",
       [](const Application& app) {
         app.program(
             "\x7F"
             "ELF");
       }},
      {"requires macOS 14.0.1",
       [](const Application& app) { app.information("LSMinimumSystemVersion", "14.0.1"); }},
      // What Info.plist requires is not told again of the code.
      {"It requires macOS 15.0", [](const Application& app) {
         app.information("LSMinimumSystemVersion", "15.0");
         app.program({.leastSystem = 0x000F0000});
       }}};
  for (const auto& [part, change] : cases) {
    const Application application;
    change(application);
    EXPECT_THAT(application.obstacles(), ElementsAre(HasSubstr(part)));
  }
}

TEST(StartCheck, whatMachOCodeIsBuiltFor) {
  const Application application;
  application.program({.leastSystem = 0x000E0100});
  EXPECT_THAT(application.obstacles(),
              ElementsAre(HasSubstr("(x86_64, arm64) is built for macOS 14.1 and later")));
  application.program({.platform = kIOS});
  EXPECT_THAT(application.obstacles(), ElementsAre(HasSubstr("another system than macOS")));
  // No Mac with that system runs the other code.
  application.program({.leastSystem = 0x000B0000});
  EXPECT_THAT(application.obstacles({10, 15, 0}), ElementsAre(HasSubstr("(x86_64) is built for macOS 11.0")));
}

TEST(StartCheck, librariesThatCannotBeLoaded) {
  const std::vector<std::pair<std::string, Change>> cases{
      {"\"Contents/Frameworks/Kit.framework/Versions/A/Kit\" (x86_64, arm64) needs the library "
       "\"@loader_path/../../../libdeep.dylib\": \"Contents/Frameworks/libdeep.dylib\" is missing.",
       [](const Application& app) { fs::remove(app.frameworks() / "libdeep.dylib"); }},
      {"Kit\": \"Contents/Frameworks/Kit.framework/Versions/A/Kit\" is missing.",
       [](const Application& app) { fs::remove_all(app.frameworks() / "Kit.framework"); }},
      {"\"/opt/homebrew/lib/libz.dylib\" is neither in the application nor part of the system",
       [](const Application& app) {
         app.library("libdeep.dylib", {.libraries = {"/opt/homebrew/lib/libz.dylib"}});
       }},
      {"needs the library \"libz.dylib\"",
       [](const Application& app) { app.library("libdeep.dylib", {.libraries = {"libz.dylib"}}); }},
      {"\"/usr/lib/../local/lib/libz.dylib\"",
       [](const Application& app) {
         app.library("libdeep.dylib", {.libraries = {"/usr/lib/../local/lib/libz.dylib"}});
       }},
      {"\"@rpath/libswiftCompatibilitySpan.dylib\": \"Contents/Frameworks/libswift",
       [](const Application& app) {
         app.library("libdeep.dylib", {.libraries = {"@rpath/libswiftCompatibilitySpan.dylib"}});
       }},
      {"no LC_RPATH leads to it in the application",
       [](const Application& app) { app.program({.libraries = {"@rpath/libdeep.dylib"}}); }},
      {"leads out of the application",
       [](const Application& app) {
         fs::rename(app.frameworks() / "libdeep.dylib", app.path() / "../libdeep.dylib");
         fs::create_symlink("../../../libdeep.dylib", app.frameworks() / "libdeep.dylib");
       }},
      {"is not a library",
       [](const Application& app) { test::writeFile(app.frameworks() / "libdeep.dylib", "text"); }},
      {"is built for another system",
       [](const Application& app) { app.library("libdeep.dylib", {.platform = kIOS}); }},
      // The run path of a library counts for what that library loads, and not for others.
      {"needs the library \"@rpath/libtwo.dylib\"", [](const Application& app) {
         app.program({.libraries = {"@executable_path/../Frameworks/libone.dylib",
                                    "@executable_path/../Frameworks/libdeep.dylib"},
                      .runPaths = {"@executable_path/../Other"}});
         app.library("libone.dylib", {.runPaths = {"@loader_path"}});
         app.library("libdeep.dylib", {.libraries = {"@rpath/libtwo.dylib"}});
         app.library("libtwo.dylib", {.installName = "/elsewhere/libtwo.dylib"});
       }}};
  for (const auto& [part, change] : cases) {
    const Application application;
    change(application);
    EXPECT_THAT(application.obstacles(), ElementsAre(HasSubstr(part)));
  }

  const Application application;
  application.library("libdeep.dylib", {}, {Architecture::x86_64});
  EXPECT_THAT(application.obstacles(), ElementsAre(HasSubstr("libdeep.dylib\" has no code for arm64")));
}

TEST(StartCheck, scriptsNeedAnInterpreterThatEveryMacHas) {
  const Application application;
  for (const char* line : {"#!/bin/sh", "#! /usr/bin/env  -S FOO=1 zsh -f", "#!/usr/bin/env /bin/bash",
                           "#!/usr/bin/perl -w", "#!/usr/bin/osascript"}) {
    application.program(std::string(line) + "\n");
    EXPECT_THAT(application.obstacles(), IsEmpty()) << line;
  }
  for (const char* line : {"#!/usr/local/bin/python3", "#!/usr/bin/env node", "#!/usr/bin/env", "#!",
                           "#!/bin/sh\r", "#!/usr/bin/python", "#!/bin/../opt/bin/sh", "#!bin/sh"}) {
    application.program(std::string(line) + "\n");
    EXPECT_EQ(application.obstacles().size(), 1U) << line;
  }
  application.program("#!/usr/bin/python\n");
  EXPECT_THAT(application.obstacles({12, 2, 1}), IsEmpty());
}

TEST(StartCheck, namesThatAMacTakesForOne) {
  const Application application;
  const fs::path resources = application.path() / "Contents/Resources";
  test::writeFile(resources / "Caf\u00E9", "");
  test::writeFile(resources / "Cafe\u0301s", "");
  EXPECT_THAT(application.obstacles(), IsEmpty());
  test::writeFile(resources / "CAFE\u0301", "");
  test::writeFile(resources / "Images/a", "");
  test::writeFile(resources / "images/b", "");
  EXPECT_EQ(application.obstacles().size(), 2U);
}

TEST(StartCheck, everyCutOfACommandIsRefusedOrJudged) {
  const Application application;
  const std::string whole = sign_bundle::makeMachO(
      {.libraries = {"@rpath/libdeep.dylib"}, .runPaths = {"@executable_path/../Frameworks"}});
  const std::size_t commands =
      32 + static_cast<unsigned char>(whole[20]) + 256U * static_cast<unsigned char>(whole[21]);
  for (std::size_t place = 0; place < commands; place += 3) {
    application.program(std::string(whole).replace(place, 1, "\xFF"));
    EXPECT_NO_THROW(application.obstacles()) << place;
    application.program(whole.substr(0, place));
    EXPECT_THAT(application.obstacles(), testing::Not(IsEmpty())) << place;
  }
}

TEST(SystemVersion, textsOfVersions) {
  EXPECT_EQ(rehearse::systemVersion("14"), (SystemVersion{14, 0, 0}));
  EXPECT_EQ(rehearse::systemVersion("10.15.7"), (SystemVersion{10, 15, 7}));
  for (const char* text : {"", "14.", ".1", "14.0.0.1", "fourteen", "14 ", "-1", "99999999999"})
    EXPECT_THROW(rehearse::systemVersion(text), platform::Error) << text;
}

}  // namespace

// The port to macOS against the recorder: what it passes, what it releases, and what it makes of
// failures.

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "platform/crypto/digest.hpp"
#include "platform/files/file_handle.hpp"
#include "platform/files/file_manager.hpp"
#include "platform/formats/property_list.hpp"
#include "platform/foundation/text.hpp"
#include "platform/foundation/uuid.hpp"
#include "platform/processes/process.hpp"
#include "platform/processes/spawn.hpp"
#include "support/code_signature.hpp"

namespace {

using platform::CharacterSet;
using platform::Data;
using platform::NSFileManager;
using platform::NSPropertyListSerialization;
using platform::PropertyList;
using platform::URL;
using QuorinSupport::CodeSignature::Failure;
using stand_in::Object;
using stand_in::recorder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class MacOSTest : public testing::Test {
 protected:
  MacOSTest() { recorder = {}; }
  ~MacOSTest() override { expectReleased("at the end"); }

  static void expectReleased(const std::string& what) {
    EXPECT_THAT(recorder.owned, IsEmpty()) << what;
    EXPECT_THAT(recorder.violations, IsEmpty()) << what;
  }

  template <typename Operation>
  static std::string sentenceOf(Operation operation) {
    try {
      operation();
      return "";
    } catch (const platform::Error& error) {
      return error.localizedDescription();
    } catch (const std::bad_alloc&) {
      return "out of memory";
    }
  }
};

class CodeCheck : public MacOSTest {
 protected:
  CodeCheck() { recorder.information = &information_; }

  QuorinSupport::CodeSignature::Info validate() {
    return QuorinSupport::CodeSignature::validate(URL::fileURLWithPath("/A.app"), "the requirement");
  }

  Object identifierKey_{stand_in::string, "identifier"};
  Object identifier_{stand_in::string, "com.example"};
  Object teamKey_{stand_in::string, "teamid"};
  Object team_{stand_in::string, "TEAM"};
  Object information_{stand_in::dictionary, "", {&identifierKey_, &identifier_, &teamKey_, &team_}};
};

TEST_F(CodeCheck, AsksWithTheFlagsAndReadsTheSigner) {
  const auto info = validate();
  EXPECT_EQ(info.identifier, "com.example");
  EXPECT_EQ(info.teamIdentifier, "TEAM");
  EXPECT_THAT(recorder.calls,
              ElementsAre("SecStaticCodeCreateWithPath 0", "SecRequirementCreateWithString 0",
                          "/A.app: the requirement", "SecStaticCodeCheckValidityWithErrors 25",
                          "SecCodeCopySigningInformation 2"));
  team_.kind = stand_in::number;
  EXPECT_EQ(validate().teamIdentifier, std::nullopt);
  QuorinSupport::CodeSignature::validate(URL::fileURLWithPath("/B.app"), std::nullopt);
  EXPECT_THAT(recorder.calls, testing::Contains("/B.app: no requirement"));
}

TEST_F(CodeCheck, EveryFailureIsTheSentenceThatItHasOnLinux) {
  const std::string untrusted = "The code signature is not a Developer ID signature from the expected team: ";
  const std::string unreadable = "Could not read code signature.";
  const std::string noRequirement = "Invalid code requirement.";
  const std::string invalid = "Code signature validation failed.";
  const std::string noIdentity = "Could not inspect signing identity.";
  using Outcomes = std::map<std::string, stand_in::Outcome>;
  const auto check = [](OSStatus status, bool withObject) {
    return Outcomes{{"SecStaticCodeCheckValidityWithErrors", {status, withObject}}};
  };
  Outcomes withoutDescription = check(-67061, true);
  withoutDescription["CFErrorCopyDescription"] = {};
  const std::pair<Outcomes, std::string> cases[] = {
      {{{"CFURLCreateFromFileSystemRepresentation", {}}}, unreadable},
      {{{"SecStaticCodeCreateWithPath", {-67068, false}}}, unreadable},
      {{{"SecStaticCodeCreateWithPath", {-67068, true}}}, unreadable},
      {{{"SecStaticCodeCreateWithPath", {0, false}}}, unreadable},
      {{{"CFStringCreateWithBytes", {}}}, noRequirement},
      {{{"SecRequirementCreateWithString", {-67052, false}}}, noRequirement},
      {{{"SecRequirementCreateWithString", {-67052, true}}}, noRequirement},
      {{{"SecRequirementCreateWithString", {0, false}}}, noRequirement},
      {check(-67050, true), untrusted + "What is wrong."},
      {check(-67050, false), untrusted + invalid},
      {check(-67061, true), "What is wrong."},
      {check(-67061, false), invalid},
      {withoutDescription, invalid},
      {{{"SecCodeCopySigningInformation", {-1, true}}}, noIdentity},
      {{{"SecCodeCopySigningInformation", {0, false}}}, noIdentity}};
  for (const auto& [outcomes, sentence] : cases) {
    recorder.outcomes = outcomes;
    EXPECT_EQ(sentenceOf([&] { validate(); }), sentence) << testing::PrintToString(outcomes.begin()->first);
    expectReleased(outcomes.begin()->first);
  }
  recorder.outcomes = {};
  information_.kind = stand_in::array;
  EXPECT_EQ(sentenceOf([&] { validate(); }), noIdentity);
}

PropertyList read(const Object& list) {
  recorder.propertyList = &list;
  return NSPropertyListSerialization::propertyListWithData(Data("bytes"));
}

TEST_F(MacOSTest, PropertyListsAreTakenOver) {
  const Object key{stand_in::string, "key"};
  const Object text{stand_in::string, "text"};
  const Object number{stand_in::number};
  const Object items{stand_in::array, "", {&text, &number}};
  const PropertyList list = read({stand_in::dictionary, "", {&key, &items}});
  ASSERT_NE(list.valueForKey("key"), nullptr);
  const PropertyList::Array& array = *list.valueForKey("key")->array();
  ASSERT_EQ(array.size(), 2U);
  EXPECT_EQ(*array[0].string(), "text");
  EXPECT_EQ(array[1].string(), nullptr);
}

TEST_F(MacOSTest, PropertyListsThatCannotBeTakenOver) {
  const Object broken{stand_in::string, "\xFF"};
  const Object text{stand_in::string, std::string(1 << 20, 'x')};
  const Object shared{stand_in::array, "", std::vector<const Object*>(64, &text)};
  std::vector<std::unique_ptr<Object>> levels;
  const Object* deep = &text;
  for (std::size_t level = 0; level <= PropertyList::kGreatestDepth; ++level)
    deep = levels.emplace_back(new Object{stand_in::array, "", {deep}}).get();
  EXPECT_EQ(sentenceOf([&] { read(*deep->items[0]); }), "");
  const std::string invalid = "The data is not a valid property list: ";
  for (const auto& [list, reason] : {std::pair<const Object*, std::string>(&broken, "a string is damaged."),
                                     {&shared, "its parts are shared too often."},
                                     {deep, "it is nested too deeply."}}) {
    const Object& object = *list;
    EXPECT_EQ(sentenceOf([&] { read(object); }), invalid + reason);
  }
  for (const auto& [function, sentence] :
       {std::pair("CFDataCreate", std::string("out of memory")),
        {"CFPropertyListCreateWithData", invalid + "the system cannot read it."}}) {
    recorder.outcomes = {{function, {}}};
    EXPECT_EQ(sentenceOf([&] { read(text); }), sentence);
  }
}

TEST_F(MacOSTest, TextIsComparedAndLoweredByTheSystem) {
  EXPECT_EQ(platform::lowercased("ABC"), "abc");
  EXPECT_FALSE(platform::canonicallyEquivalent("a", "b"));
  EXPECT_THAT(recorder.calls, ElementsAre("CFStringLowercase", "CFStringCompare 16"));
  recorder.calls = {};
  EXPECT_EQ(platform::lowercased("A\xFF"), "A\xFF");
  EXPECT_FALSE(platform::canonicallyEquivalent("\xFF", "\xFE"));
  EXPECT_THAT(recorder.calls, IsEmpty());
  for (const char* function : {"CFStringCreateWithBytes", "CFStringCreateMutableCopy"}) {
    recorder.outcomes = {{function, {}}};
    EXPECT_EQ(sentenceOf([] { platform::lowercased("A"); }), "out of memory") << function;
  }
}

TEST_F(MacOSTest, SetsOfCharactersAreTheSystems) {
  const auto members = [](const CharacterSet& set) {
    std::vector<int> result;
    for (char32_t scalar = 0; scalar < 128; ++scalar) {
      if (set.contains(scalar))
        result.push_back(static_cast<int>(scalar));
    }
    return result;
  };
  EXPECT_THAT(members(CharacterSet::whitespacesAndNewlines()), ElementsAre(3));
  EXPECT_THAT(members(CharacterSet::uppercaseLetters().unionWith(CharacterSet::decimalDigits())),
              ElementsAre(4, 7));
  EXPECT_THAT(members(CharacterSet::alphanumerics().unionWith(CharacterSet::charactersIn("-"))),
              ElementsAre(10, '-'));
}

TEST_F(MacOSTest, DigestsTakeMoreThanALengthOf32BitsHolds) {
  platform::Digest digest(platform::DigestAlgorithm::sha256);
  const char byte = 0;
  digest.update({&byte, (std::size_t{5} << 30U) + 7});
  EXPECT_EQ(digest.finish().substr(0, 30), "000000000000000000005368709127");
  for (const char* call : {"CC_SHA256_Init", "CC_SHA256_Update", "CC_SHA256_Final"}) {
    recorder.errorNumbers = {{call, EIO}};
    EXPECT_EQ(sentenceOf([] {
                platform::Digest failing(platform::DigestAlgorithm::sha256);
                failing.update("x");
                failing.finish();
              }),
              "The digest SHA256 could not be computed.")
        << call;
  }
}

class Files : public MacOSTest {
 protected:
  Files() {
    std::filesystem::create_directories(directory_ / "new/inside");
    std::ofstream(directory_ / "new/inside/file") << "new";
    std::filesystem::create_symlink("nowhere", directory_ / "new/link");
    std::ofstream(directory_ / "old") << "old";
  }
  ~Files() override { std::filesystem::remove_all(directory_); }

  std::string replace() {
    recorder.calls = {};
    return sentenceOf([&] {
      NSFileManager::defaultManager().replaceItemAt(
          at("old"), at("new"), "backup", platform::ItemReplacementOptions::withoutDeletingBackupItem);
    });
  }
  URL at(const char* name) const { return URL::fileURLWithPath((directory_ / name).string()); }

  std::filesystem::path directory_ = [] {
    std::string name = "/tmp/quorin-macos-XXXXXX";
    return std::filesystem::path(::mkdtemp(name.data()));
  }();
};

TEST_F(Files, AReplacementIsOneExchangeBetweenFlushes) {
  EXPECT_EQ(replace(), "");
  EXPECT_THAT(recorder.calls,
              ElementsAre("fsync", "fsync", "fsync", "F_FULLFSYNC", "EXCL", "SWAP", "F_FULLFSYNC"));
  EXPECT_TRUE(std::filesystem::exists(directory_ / "old/inside/file"));
}

TEST_F(Files, AVolumeThatCannotExchangeGetsRenames) {
  for (const int number : {ENOTSUP, EOPNOTSUPP, EINVAL}) {
    recorder.errorNumbers = {{"SWAP", number}, {"EXCL", number}, {"F_FULLFSYNC", number}};
    EXPECT_EQ(replace(), "");
    std::filesystem::rename(directory_ / "old", directory_ / "new");
    std::filesystem::rename(directory_ / "backup", directory_ / "old");
  }
  // A failure that means something else changes nothing.
  for (const char* call : {"SWAP", "EXCL", "fsync", "F_FULLFSYNC"}) {
    recorder.errorNumbers = {{call, EIO}};
    EXPECT_THAT(replace(), HasSubstr(": Input/output error.")) << call;
    EXPECT_TRUE(std::filesystem::is_regular_file(directory_ / "old")) << call;
    EXPECT_TRUE(std::filesystem::exists(directory_ / "new/inside/file")) << call;
  }
}

TEST_F(Files, ALinkIsHeldItself) {
  const platform::HeldItem link(at("new/link"));
  EXPECT_TRUE(link.isAt(at("new/link")));
}

TEST_F(MacOSTest, ProgramsStartWithTheirStreamsOnly) {
  using platform::Session;
  const auto stream = platform::NSFileHandle::fileHandleWithNullDevice();
  const int number = stream.descriptor().get();
  const auto start = [&](Session session, bool diesWithParent) {
    recorder.calls = {};
    return sentenceOf([&] {
      platform::spawn({.executable = URL::fileURLWithPath("/no/such/program"),
                       .arguments = {},
                       .standardStreams = {number, 1, number},
                       .session = session,
                       .workingDirectory = "/",
                       .diesWithParent = diesWithParent});
    });
  };
  const std::string failed = "\"/no/such/program\" could not be started: ";
  for (const auto& [session, flag] : {std::pair(Session::inherited, 0), {Session::own, POSIX_SPAWN_SETSID}}) {
    EXPECT_EQ(start(session, false), failed + "No such file or directory.");
    EXPECT_THAT(
        recorder.calls,
        ElementsAre("inherit 1", "spawn " + std::to_string(flag | POSIX_SPAWN_CLOEXEC_DEFAULT |
                                                           POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF)));
  }
  for (int call = 1; call <= 10; ++call) {
    recorder.spawnCallsBeforeFailure = call;
    EXPECT_EQ(start(Session::own, false), failed + "Too many open files in system.") << call;
    expectReleased("after call " + std::to_string(call));
  }
  EXPECT_EQ(start(Session::inherited, true), failed + "Operation not supported.");
  EXPECT_THAT(recorder.calls, IsEmpty());
  EXPECT_THAT(platform::ProcessInfo::arguments(), ElementsAre("program", "--option"));
  EXPECT_EQ(platform::UUID().uuidString().size(), 36U);
}

TEST_F(Files, ProgramsGetTheRequestedEnvironment) {
  const auto output = platform::FileDescriptor::open(at("output"), O_RDWR | O_CREAT, 0600);
  platform::ChildProcess program({.executable = URL::fileURLWithPath("/usr/bin/env"),
                                  .arguments = {},
                                  .standardStreams = {0, output.get(), 2},
                                  .environment = {{"ONLY=this"}}});
  program.wait();
  EXPECT_EQ(Data::contentsOf(at("output")).bytes(), "ONLY=this\n");
}

}  // namespace

#include "updater/driver/arguments.hpp"

#include <gtest/gtest.h>

#include "updater/records/installer_error.hpp"

using QuorinOstrevalUpdater::Arguments;
using QuorinOstrevalUpdater::InstallerError;
using QuorinOstrevalUpdater::parseArguments;

namespace {

/// "plan pid ready" of a command line, or "rejected".
std::string parsed(std::vector<std::string> words) {
  words.insert(words.begin(), "updater");
  try {
    const Arguments arguments = parseArguments(words);
    return arguments.planURL.path() + " " + std::to_string(arguments.parentPID) + " " +
           (arguments.readyURL ? arguments.readyURL->path() : "none");
  } catch (const InstallerError&) {
    return "rejected";
  }
}

TEST(ArgumentsTest, CommandLines) {
  struct Case {
    std::vector<std::string> words;
    std::string result;
  };
  const Case cases[] = {
      {{}, "rejected"},
      {{"--plan", "/p"}, "rejected"},
      {{"--parent-pid", "7", "--plan"}, "rejected"},
      {{"--plan", "/p", "--parent-pid"}, "rejected"},
      {{"--ready-file", "/r", "--parent-pid", "7", "--plan", "/p"}, "/p 7 /r"},
      {{"--plan", "/p", "--parent-pid", "7", "--ready-file"}, "/p 7 none"},
      {{"x", "--plan", "/p", "-v", "--parent-pid", "7", "--help", "y"}, "/p 7 none"},
      {{"--plan", "/p", "--plan", "/q", "--parent-pid", "7", "--parent-pid", "x"}, "/p 7 none"},
      {{"--plan=/p", "--parent-pid", "7"}, "rejected"},
  };
  for (const Case& each : cases)
    EXPECT_EQ(parsed(each.words), each.result) << testing::PrintToString(each.words);
}

TEST(ArgumentsTest, ParentIdentifiers) {
  for (const char* accepted : {"2", "+7", "007", "2147483647"})
    EXPECT_EQ(parsed({"--plan", "/p", "--parent-pid", accepted}),
              "/p " + std::to_string(std::stoi(accepted)) + " none");
  for (const char* rejected : {"1", "0", "-7", "2147483648", "99999999999999999999", "", "+", " 7", "7 ",
                               "7x", "+-7", "0x7", "7.0", "\xD9\xA7"})
    EXPECT_EQ(parsed({"--plan", "/p", "--parent-pid", rejected}), "rejected") << '"' << rejected << '"';
}

}  // namespace

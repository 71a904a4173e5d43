#include "updater/install/tool_message.hpp"

#include <gtest/gtest.h>

TEST(ToolMessageTest, TrimsOrFallsBack) {
  const std::pair<const char*, const char*> cases[] = {{"", " fallback\n"},
                                                       {" \t\r\n ", " fallback\n"},
                                                       {"bad \xFF byte", " fallback\n"},
                                                       {"\n said \n so\n\n", "said \n so"},
                                                       {"\xC3\xA9", "\xC3\xA9"}};
  for (const auto& [output, message] : cases)
    EXPECT_EQ(QuorinOstrevalUpdater::text(platform::Data(output), " fallback\n"), message) << output;
}

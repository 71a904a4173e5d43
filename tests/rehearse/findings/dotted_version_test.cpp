#include "rehearse/findings/dotted_version.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(DottedVersion, isOrderedByNumbers) {
  const std::vector<std::vector<std::string>> rising{{"", "0", "0.0"},
                                                     {"0.9"},
                                                     {"1.0b3"},
                                                     {"1.0b10"},
                                                     {"1", "1.0", "01.0.0", "1."},
                                                     {"1.0.1"},
                                                     {"1.2"},
                                                     {"1.9"},
                                                     {"1.10"},
                                                     {"2.0a"},
                                                     {"2.0b", "2.0b.0"},
                                                     {"2.0"},
                                                     {"10.0"},
                                                     {"99999999999999999999"},
                                                     {"100000000000000000000"}};
  for (std::size_t low = 0; low < rising.size(); ++low) {
    for (std::size_t high = low; high < rising.size(); ++high) {
      for (const std::string& one : rising[low]) {
        for (const std::string& other : rising[high]) {
          EXPECT_EQ(rehearse::compareVersions(one, other) < 0, low < high) << one << " and " << other;
          EXPECT_EQ(rehearse::compareVersions(other, one) > 0, low < high) << one << " and " << other;
        }
      }
    }
  }
}

}  // namespace

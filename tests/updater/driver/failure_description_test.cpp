#include "updater/driver/failure_description.hpp"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "updater/records/installer_error.hpp"

using QuorinOstrevalUpdater::FailureDescription;
using QuorinOstrevalUpdater::InstallerError;

namespace {

template <typename Thrown>
std::string describe(const Thrown& thrown) {
  try {
    throw thrown;
  } catch (...) {
    return std::string(FailureDescription().text());
  }
}

TEST(FailureDescriptionTest, WhateverIsThrownHasASentence) {
  EXPECT_EQ(describe(InstallerError::parentStillRunning()), "Quorin Ostreval did not terminate in time.");
  EXPECT_EQ(describe(std::bad_alloc()), "There is not enough memory.");
  EXPECT_EQ(describe(std::length_error("too long")), "too long");
  EXPECT_EQ(describe(42), "An unexpected error occurred.");
}

}  // namespace

#pragma once

#include <string>

#include "rehearse/files/trees.hpp"

namespace test {

using rehearse::copyTree;
using rehearse::digestWhereLong;
using rehearse::Inventory;
using rehearse::inventory;
using rehearse::readFile;
using rehearse::TemporaryDirectory;
using rehearse::writeFile;

/// The entries in which two inventories differ, a line each; empty when they are the same.
std::string difference(const Inventory& expected, const Inventory& actual);

}  // namespace test

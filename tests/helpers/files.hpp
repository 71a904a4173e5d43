#pragma once

#include "rehearse/files/trees.hpp"

namespace test {

using rehearse::copyTree;
using rehearse::difference;
using rehearse::digestWhereLong;
using rehearse::Inventory;
using rehearse::inventory;
using rehearse::readFile;
using rehearse::TemporaryDirectory;
using rehearse::writeFile;

}  // namespace test

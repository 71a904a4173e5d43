#pragma once

#include <string>
#include <vector>

#include "rehearse/proof/tracer.hpp"

namespace rehearse {

/// A system call that touches files, memory or processes.
struct SystemCallKind {
  long number = 0;
  std::string name;
  /// The error numbers that it can give where nothing is wrong with its arguments.
  std::vector<int> errors;
  /// True where the call changes the file system.
  bool changesFiles = false;
};

/// Every call that a program's survival may hang on, apart from those that only wait: how often a run looks
/// whether something has ended is not the same twice.
const std::vector<SystemCallKind>& systemCallKinds();

const SystemCallKind& kindOf(long number);

/// True where a file system that has become read-only refuses the call.
bool changesFiles(const SystemCall& call);
bool isRename(const SystemCall& call);
/// The numbers of the calls for which that may be true.
std::vector<long> callsThatChangeFiles();
std::vector<long> renames();
bool isExchangeOfNames(const SystemCall& call);
/// True where the call puts a whole file system on the disk.
bool isFlush(const SystemCall& call);

}  // namespace rehearse

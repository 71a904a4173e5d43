#pragma once

#include <cstdint>
#include <optional>

namespace test {

/// A system call that is to fail, for good, with an error of the test's choice.
struct SyscallFault {
  long number = 0;
  int errorNumber = 0;
  struct Argument {
    unsigned index = 0;
    std::uint32_t value = 0;
  };
  /// Only calls whose argument has this value fail; without it, all do.
  std::optional<Argument> argument = std::nullopt;
};

/// Makes the kernel fail that call in this process and the programs that it starts. There is no way back: for
/// a child of the test only. False where the kernel does not offer it.
bool inject(const SyscallFault& fault);

}  // namespace test

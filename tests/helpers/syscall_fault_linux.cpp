#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

#include <cstddef>
#include <vector>

#include "tests/helpers/syscall_fault.hpp"

namespace test {
namespace {

sock_filter load(std::size_t offset) {
  return {BPF_LD | BPF_W | BPF_ABS, 0, 0, static_cast<std::uint32_t>(offset)};
}

/// Skips to the end of the program unless the loaded value is `value`; `rest` instructions follow.
sock_filter requireEqual(std::uint32_t value, std::uint8_t rest) {
  return {BPF_JMP | BPF_JEQ | BPF_K, 0, rest, value};
}

sock_filter result(std::uint32_t value) {
  return {BPF_RET | BPF_K, 0, 0, value};
}

}  // namespace

bool inject(const SyscallFault& fault) {
  std::vector<sock_filter> filter;
  filter.push_back(load(offsetof(seccomp_data, nr)));
  filter.push_back(requireEqual(static_cast<std::uint32_t>(fault.number), fault.argument ? 3 : 1));
  if (fault.argument) {
    filter.push_back(load(offsetof(seccomp_data, args) + sizeof(std::uint64_t) * fault.argument->index));
    filter.push_back(requireEqual(fault.argument->value, 1));
  }
  filter.push_back(result(SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(fault.errorNumber)));
  filter.push_back(result(SECCOMP_RET_ALLOW));
  sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

}  // namespace test

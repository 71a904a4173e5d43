#pragma once

namespace test {

/// What becomes of the next changes of names by `renameat2` in this process, a digit in base 4 for each, the
/// first one last: 0 made, 1 refused with EIO, 2 reported as made, 3 made and reported as failed. It stands
/// before the C library's function: a filter in the kernel cannot let the first calls pass.
extern unsigned renameFates;

}  // namespace test

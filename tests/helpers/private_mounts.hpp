#pragma once

namespace test {

/// Gives this process a mount namespace of its own, so that nobody else sees what it mounts from now on.
/// False where the system refuses that.
bool enterPrivateMounts();

}  // namespace test

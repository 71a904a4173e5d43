#pragma once

#include "platform/foundation/url.hpp"

namespace QuorinOstrevalUpdater {

/// Puts the previous application, at `backup`, in the place of the rejected one at `target`, which is
/// removed. The two lie in one directory. They change places in one step, so that a complete application
/// stands at `target` at every instant; a process that dies behind that step leaves the rejected one beside
/// it under the name of a staged copy. Throws `platform::Error` when the previous application cannot be
/// moved; it then still lies at `backup`.
void restore(const platform::URL& target, const platform::URL& backup);

}  // namespace QuorinOstrevalUpdater

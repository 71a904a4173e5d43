#pragma once

#include "platform/foundation/url.hpp"

namespace QuorinOstrevalUpdater {

/// Puts the previous application, at `backup`, in the place of the rejected one at `target`, which is
/// removed. The two lie in one directory and change places in one step, so that a complete application stands
/// at `target` at every instant. Only where that step is refused, or nothing stands at `target`, moves take
/// its place. Nothing is removed before the previous application stands at `target`, and never by a name that
/// it has had.
///
/// Throws `platform::Error` when the previous application cannot be moved; it then still lies at `backup`,
/// and `target` is as it was, or empty where that was refused too.
void restore(const platform::URL& target, const platform::URL& backup);

}  // namespace QuorinOstrevalUpdater

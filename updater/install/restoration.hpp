#pragma once

#include "platform/files/held_item.hpp"
#include "platform/files/url.hpp"

namespace QuorinOstrevalUpdater {

/// Puts the application at `backup` in the place of the rejected one at `target`, which is removed.
/// `previous` is the previous application, held since it was known to be that; nothing is moved when it is at
/// `target` already. The two change places in one step, so that `target` is a complete application at every
/// instant. Only where that step is refused, or nothing is at `target`, moves take its place, with the name
/// of the transaction's staged copy between them.
///
/// The rejected application is removed last, and only while `previous` is seen at `target` and is not what is
/// removed. If it cannot be removed it stays at `backup`.
///
/// Throws `platform::Error` when the previous application cannot be moved; it is then still at `backup`, and
/// `target` is as it was, or empty where that was refused too.
void restore(const platform::URL& target, const platform::URL& backup, const platform::HeldItem& previous);

}  // namespace QuorinOstrevalUpdater

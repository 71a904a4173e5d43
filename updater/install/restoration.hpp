#pragma once

#include "platform/files/held_item.hpp"
#include "platform/files/url.hpp"

namespace QuorinOstrevalUpdater {

/// Puts the application at `backup` back to `target` and removes the rejected one there. `previous` is the
/// previous application, held since before the swap, or in a rollback since its beginning; if it is at
/// `target` already, nothing is moved. The two names are exchanged in one step, so that `target` is a
/// complete application at every instant. Where the exchange fails or nothing is at `target`, they are moved
/// instead, by way of the staged copy's name.
///
/// The rejected application is removed last, and only while `previous` is seen at `target` and is not what is
/// removed. If it cannot be removed, it remains at `backup`.
///
/// Throws `platform::Error` when the previous application cannot be moved; it is then still at `backup`, and
/// `target` is as it was, or empty if undoing the first move failed too.
void restore(const platform::URL& target, const platform::URL& backup, const platform::HeldItem& previous);

}  // namespace QuorinOstrevalUpdater

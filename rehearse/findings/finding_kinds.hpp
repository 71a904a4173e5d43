#pragma once

#include <array>
#include <string>
#include <string_view>

#include "rehearse/record/rehearsal.hpp"

namespace rehearse {

/// What is said of every finding with a key.
struct FindingKind {
  std::string_view key;
  Severity severity;
  std::string_view advice;
};

/// Every key, the worst first. docs/rehearsal.md explains each.
inline constexpr std::array<FindingKind, 41> kFindingKinds{{
    {"plan-differs", Severity::fault, "Publish the image that the plan names, or correct the plan."},
    {"no-application", Severity::fault, "Put the application into the image."},
    {"not-identified", Severity::fault,
     "Give CFBundleIdentifier, CFBundleShortVersionString and CFBundleVersion in Info.plist, and sign "
     "again."},
    {"installed-not-identified", Severity::fault,
     "Compare your copy with what was published. If that is the same, users of this version must install the "
     "new one by hand; tell them how."},
    {"not-signed", Severity::fault,
     "Sign the application with a Developer ID before it goes into the image."},
    {"installed-not-signed", Severity::fault,
     "Users of this version must install the new one by hand; tell them how."},
    {"changed-after-signing", Severity::fault,
     "Sign the application again after the last change to it, and make the image then."},
    {"signature-invalid", Severity::fault,
     "Sign the application with a Developer ID after the last change to it. The root of a test chain is "
     "named "
     "with --anchors."},
    {"installed-signature-invalid", Severity::fault,
     "Compare your copy with what was published. If that is the same, users of this version must install the "
     "new one by hand; tell them how. The root of a test chain is named with --anchors."},
    {"not-developer-id", Severity::fault, "Sign with the team's Developer ID Application certificate."},
    {"identifier-changed", Severity::fault,
     "Keep CFBundleIdentifier. Another identifier takes an installation by the user."},
    {"team-changed", Severity::fault,
     "Sign with the team of the installed version. Another team takes an installation by the user."},
    {"downgrade", Severity::fault, "Offer a newer version, or exclude these users in the feed."},
    {"names-collide", Severity::fault, "Rename one of the two and sign again."},
    {"signature-in-attributes", Severity::fault,
     "Move scripts and data to Contents/Resources, where the seal covers them, and sign again."},
    {"library-of-other-team", Severity::fault,
     "Sign all libraries with the application's certificate, or give the application the entitlement "
     "com.apple.security.cs.disable-library-validation."},
    {"cannot-start", Severity::fault, "Publish a version that starts."},
    {"update-failed", Severity::fault, "Do not publish before the reason is known."},
    {"build-does-not-rise", Severity::warning, "Raise CFBundleVersion with every release."},
    {"version-falls", Severity::warning, "Raise CFBundleShortVersionString with every release."},
    {"architecture-lost", Severity::warning,
     "Build a universal executable, or offer this release only to the Macs that it runs on."},
    {"minimum-system-raised", Severity::warning,
     "Offer this release only to users with that system or later."},
    {"certificate-expired", Severity::warning, "Renew the certificate, and sign again with a time stamp."},
    {"no-time-stamp", Severity::warning, "Sign with a secure time stamp (codesign --timestamp)."},
    {"no-hardened-runtime", Severity::warning,
     "Sign with the hardened runtime (codesign --options runtime)."},
    {"no-notarization-ticket", Severity::warning,
     "Notarize the application and staple the ticket to it before it goes into the image."},
    {"debuggable", Severity::warning,
     "Leave com.apple.security.get-task-allow out of the entitlements of a release."},
    {"entitlement-needs-profile", Severity::warning,
     "Put the profile at Contents/embedded.provisionprofile, or leave the entitlement out."},
    {"entitlements-lost", Severity::warning, "Make sure that the application no longer needs them."},
    {"requirement-changed", Severity::warning,
     "Sign with the kind of certificate and the identifier of the installed version, without a designated "
     "requirement of another form."},
    {"unreadable-for-others", Severity::warning, "Make files readable for everyone (chmod -R go+rX)."},
    {"writable-for-others", Severity::warning, "Take the permission away (chmod -R go-w)."},
    {"link-leaves-bundle", Severity::warning, "Link to items in the application only, by relative paths."},
    {"left-over", Severity::warning, "Users can remove it; report it to the maintainers of the updater."},
    {"link-broken", Severity::note, "Remove the link, or add what it leads to."},
    {"requirement-not-judged", Severity::note,
     "Check with codesign on a Mac that the new version satisfies the designated requirement of the "
     "installed one."},
    {"entitlements-not-judged", Severity::note, "Compare them with codesign on a Mac."},
    {"version-does-not-rise", Severity::note, "Raise CFBundleShortVersionString with every release."},
    {"entitlements-added", Severity::note, "Make sure that the application needs them."},
    {"bundle-renamed", Severity::note, "Nothing to do, unless the new name matters."},
    {"space-needed", Severity::note, "Nothing to do, unless users are short of space."},
}};

/// A finding of the kind with that key, which must be one of the table.
Finding finding(std::string_view key, const std::string& sentence);

/// Sorts by severity, the worst first, then in the table's order.
void sortWorstFirst(std::vector<Finding>& findings);

}  // namespace rehearse

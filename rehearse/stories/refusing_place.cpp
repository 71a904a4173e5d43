#include "rehearse/stories/refusing_place.hpp"

#include <algorithm>

namespace rehearse {
namespace {

bool contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

/// The start of the new application, which comes before that of the previous one, was refused, and for this.
bool wasRefusedStart(const UpdateRun& run) {
  return !run.starts.empty() && !run.starts.front().starts && !run.starts.front().reason.empty() &&
         run.sentence.find(run.starts.front().reason) != std::string::npos;
}

/// Of an application that is not accepted: its path is in the sentence of a signature's check.
std::string placeOfApplication(const std::string& sentence, bool wasSwapped) {
  if (contains(sentence, ".quorin-update-"))
    return kByCopy;
  if (contains(sentence, "quorin-images-") || contains(sentence, "was found in the disk image") ||
      contains(sentence, "does not match the update feed"))
    return kByImage;
  return wasSwapped ? kBySwapped : kByInstalled;
}

}  // namespace

std::string refusingPlace(const UpdateRun& run, bool wasSwapped) {
  const std::string& sentence = run.sentence;
  if (wasRefusedStart(run))
    return kByStart;
  if (contains(sentence, "did not finish in time"))
    return kByTool;
  if (contains(sentence, "did not terminate in time"))
    return kByParent;
  if (contains(sentence, "no longer matches its verified SHA-256 checksum"))
    return kByDigest;
  if (sentence.starts_with("The update DMG is invalid: "))
    return kByAttaching;
  if (sentence.starts_with("The application could not be replaced: "))
    return kByCopy;
  if (sentence.starts_with("The update application is invalid: "))
    return placeOfApplication(sentence, wasSwapped);
  return {};
}

}  // namespace rehearse

#include "rehearse/report/matrix_picture.hpp"

#include <algorithm>

#include "rehearse/report/summary.hpp"
#include "rehearse/report/wording.hpp"

namespace rehearse {
namespace {

/// The names of all steps, in the order of the first version that has them.
std::vector<std::string> stepNames(const std::vector<Pairing>& pairings) {
  std::vector<std::string> names;
  for (const Pairing& pairing : pairings)
    for (const Step& step : pairing.steps)
      if (std::ranges::find(names, step.name) == names.end())
        names.push_back(step.name);
  return names;
}

void writeMark(HTMLWriter& html, const char* tone, const char* mark, const std::string& word) {
  html.element("span", {{"class", std::string("word ") + tone}}, [&] {
    html.element("span", {{"aria-hidden", "true"}}, mark);
    html.text(" " + word);
  });
}

void writeProof(HTMLWriter& html, const Pairing& pairing) {
  std::uint64_t tried = 0;
  std::uint64_t lost = 0;
  std::uint64_t faults = 0;
  for (const Sweep& sweep : pairing.sweeps) {
    const Counts counts = countsOf(sweep);
    tried += sweep.points.size() - counts.of(PointOutcome::notTried);
    lost += counts.losses;
    faults += counts.faults;
  }
  const bool hasFault =
      std::ranges::any_of(pairing.sweeps, [](const Sweep& sweep) { return isFault(sweep); });
  if (lost > 0)
    writeMark(html, "failed", "✕", textOf(lost) + " lost");
  else if (faults > 0)
    writeMark(html, "failed", "✕", textOf(faults) + " broken");
  else if (hasFault)
    writeMark(html, "failed", "✕", "control failed");
  else if (tried > 0)
    writeMark(html, "passed", "✓", "kept");
  else
    writeMark(html, "not-tried", "–", "not tried");
}

}  // namespace

std::string anchorOf(std::size_t index) {
  return "pairing-" + std::to_string(index + 1);
}

void writeStepWord(HTMLWriter& html, const Step& step) {
  switch (step.verdict) {
    case StepVerdict::passed:
      return writeMark(html, "passed", "✓", wordFor(step));
    case StepVerdict::failed:
      return writeMark(html, "failed", "✕", wordFor(step));
    case StepVerdict::notTried:
      return writeMark(html, "not-tried", "–", wordFor(step));
  }
}

void writeMatrix(HTMLWriter& html, const Rehearsal& rehearsal) {
  const std::vector<Pairing>& pairings = rehearsal.pairings;
  const auto writeRow = [&](const std::string& name, const auto& writeCell) {
    html.element("tr", {}, [&] {
      html.element("th", {{"scope", "row"}}, name);
      for (const Pairing& pairing : pairings)
        html.element("td", {}, [&] { writeCell(pairing); });
    });
  };
  // A wide table is scrolled in its own frame, which the keyboard must reach.
  html.element(
      "div", {{"class", "frame"}, {"role", "region"}, {"aria-label", "Matrix"}, {"tabindex", "0"}}, [&] {
        html.element("table", {{"class", "matrix"}}, [&] {
          html.element("caption", {}, "What was rehearsed with each installed version");
          html.element("thead", {}, [&] {
            html.element("tr", {}, [&] {
              html.element("th", {{"scope", "col"}}, "Installed");
              for (std::size_t index = 0; index < pairings.size(); ++index)
                html.element("th", {{"scope", "col"}}, [&] {
                  html.element("a", {{"href", "#" + anchorOf(index)}}, versionOf(pairings[index].installed));
                });
            });
          });
          html.element("tbody", {}, [&] {
            for (const std::string& name : stepNames(pairings))
              writeRow(name, [&](const Pairing& pairing) {
                const auto step = std::ranges::find(pairing.steps, name, &Step::name);
                if (step == pairing.steps.end())
                  writeMark(html, "not-tried", "–", "not tried");
                else
                  writeStepWord(html, *step);
              });
            if (std::ranges::any_of(pairings, [](const Pairing& pairing) { return !pairing.sweeps.empty(); }))
              writeRow("promises, in the sweeps", [&](const Pairing& pairing) { writeProof(html, pairing); });
          });
        });
      });
}

}  // namespace rehearse

#include "rehearse/report/text_report.hpp"

#include <algorithm>
#include <array>

#include "platform/foundation/error.hpp"
#include "platform/foundation/text.hpp"
#include "rehearse/report/summary.hpp"
#include "rehearse/report/wording.hpp"

namespace rehearse {
namespace {

enum class Colour { plain, bold, green, yellow, red, dim };

Colour colourOf(Severity severity) {
  return severity == Severity::fault     ? Colour::red
         : severity == Severity::warning ? Colour::yellow
                                         : Colour::dim;
}

Colour colourOf(StepVerdict verdict) {
  return verdict == StepVerdict::passed   ? Colour::green
         : verdict == StepVerdict::failed ? Colour::red
                                          : Colour::yellow;
}

/// Columns that a text of the reports takes: its characters, all of one column.
std::size_t width(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(
      text, [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80; }));
}

std::string padded(std::string text, std::size_t columns) {
  text.append(columns - std::min(columns, width(text)), ' ');
  return text;
}

std::string paddedLeft(const std::string& text, std::size_t columns) {
  return std::string(columns - std::min(columns, width(text)), ' ') + text;
}

class TextReport {
 public:
  explicit TextReport(Colours colours) : colours_(colours) {}

  std::string text(const Rehearsal& rehearsal);

 private:
  void line(const std::string& text = "") { text_ += text + "\n"; }
  void heading(const std::string& text) { line("\n" + coloured(Colour::bold, platform::printable(text))); }
  std::string coloured(Colour colour, const std::string& text) const;

  void appendLines(const std::string& label, const std::vector<std::string>& texts);
  void append(const Concern& concern, bool hasSeveralVersions);
  void append(const Pairing& pairing);
  void append(const Step& step);
  void append(const Aftermath& aftermath);
  void append(const std::vector<Sweep>& sweeps);

  Colours colours_;
  std::string text_;
};

std::string TextReport::coloured(Colour colour, const std::string& text) const {
  if (colours_ == Colours::none || colour == Colour::plain)
    return text;
  const auto code = [colour] {
    switch (colour) {
      case Colour::bold:
        return "1";
      case Colour::green:
        return "32";
      case Colour::yellow:
        return "33";
      case Colour::red:
        return "1;31";
      case Colour::dim:
        return "2";
      case Colour::plain:
        break;
    }
    return "0";
  };
  return std::string("\x1B[") + code() + "m" + text + "\x1B[0m";
}

void TextReport::appendLines(const std::string& label, const std::vector<std::string>& texts) {
  std::string start = label;
  for (const std::string& text : texts) {
    line("  " + padded(start, 18) + platform::printable(text));
    start.clear();
  }
}

void TextReport::append(const Concern& concern, bool hasSeveralVersions) {
  line(coloured(colourOf(concern.severity), wordFor(concern.severity)) + ": " +
       platform::printable(concern.title) +
       (hasSeveralVersions ? ", over " + platform::printable(listed(concern.versions)) : ""));
  line("  " + platform::printable(concern.sentence));
  if (!concern.advice.empty())
    line("  → " + platform::printable(concern.advice));
}

void TextReport::append(const Step& step) {
  std::string text = "  " + coloured(colourOf(step.verdict), padded(wordFor(step), 9)) + " " +
                     paddedLeft(step.verdict == StepVerdict::notTried ? "" : textOf(step.duration), 8) +
                     "  " + platform::printable(step.name);
  if (!step.refusedBy.empty())
    text += " [" + platform::printable(step.refusedBy) + "]";
  if (!step.message.empty())
    text += ": " + platform::printable(step.message);
  line(text);
}

void TextReport::append(const Aftermath& aftermath) {
  line();
  line("What a user finds");
  const int status = aftermath.exitStatus;
  appendLines("exit status", {status == -1 ? "none, a signal ended the updater" : std::to_string(status)});
  appendLines("status file", linesOf(aftermath.statusFile.empty() ? "none" : aftermath.statusFile));
  appendLines("at the target", {aftermath.atTarget});
  appendLines("left over",
              aftermath.leftOver.empty() ? std::vector<std::string>{"nothing"} : aftermath.leftOver);
  appendLines("disk, at the most", {bytesOf(aftermath.greatestBesideTarget) + " beside the target",
                                    bytesOf(aftermath.greatestTemporary) + " in /tmp"});
}

void TextReport::append(const std::vector<Sweep>& sweeps) {
  if (sweeps.empty())
    return;
  constexpr std::array kColumns = {PointOutcome::previous, PointOutcome::offered,    PointOutcome::beside,
                                   PointOutcome::lost,     PointOutcome::notReached, PointOutcome::notTried};
  std::size_t nameWidth = 0;
  for (const Sweep& sweep : sweeps)
    nameWidth = std::max(nameWidth, width(platform::printable(sweep.name)));
  line();
  std::string header = padded("Sweep", nameWidth + 2) + paddedLeft("points", 10);
  for (const PointOutcome outcome : kColumns)
    header += "  " + paddedLeft(wordFor(outcome), std::max<std::size_t>(7, wordFor(outcome).size()));
  line(header + "    at fault");
  for (const Sweep& sweep : sweeps) {
    const Counts counts = countsOf(sweep);
    std::string row = "  " + padded(platform::printable(sweep.name), nameWidth) +
                      paddedLeft(textOf(std::uint64_t{sweep.points.size()}), 10);
    for (const PointOutcome outcome : kColumns)
      row += "  " + paddedLeft(textOf(counts.of(outcome)), std::max<std::size_t>(7, wordFor(outcome).size()));
    row += "  " + paddedLeft(textOf(counts.faults), 10);
    line(coloured(isFault(sweep) ? Colour::red : Colour::plain, row));
  }
  for (const Sweep& sweep : sweeps) {
    if (sweep.points.size() < sweep.total)
      line("  " + platform::printable(sweep.name) + ": " + textOf(std::uint64_t{sweep.points.size()}) +
           " of " + textOf(sweep.total) + " points.");
    if (sweep.isControl)
      line("  " + judgementOf(sweep));
  }
  for (const Sweep& sweep : sweeps)
    for (const Point& point : sweep.points)
      if (isFault(sweep, point)) {
        std::string text = "  " + coloured(Colour::red, wordFor(point.outcome)) + "  " +
                           platform::printable(sweep.name) + ": " + platform::printable(point.name) + ":";
        for (const std::string& violation : point.violations)
          text += " " + platform::printable(violation);
        line(text);
      }
}

void TextReport::append(const Pairing& pairing) {
  heading("Over " + versionOf(pairing.installed) + ", " + pairing.installed.source);
  line(platform::printable(pairing.verdict));
  if (pairing.steps.size() > 1)
    line(std::string("\nSteps. ") + kWhatMustBeRefused);
  for (const Step& step : pairing.steps)
    append(step);
  append(pairing.aftermath);
  append(pairing.sweeps);
}

std::string TextReport::text(const Rehearsal& rehearsal) {
  const std::vector<Concern> all = concerns(rehearsal);
  const bool hasSeveralVersions = rehearsal.pairings.size() > 1;
  line(coloured(exitStatus(rehearsal) == 0 ? Colour::green : Colour::red,
                platform::printable(verdictOf(rehearsal))));
  line(judgementOf(rehearsal, all));
  for (const Concern& concern : all)
    append(concern, hasSeveralVersions);
  for (const Pairing& pairing : rehearsal.pairings)
    append(pairing);
  const auto section = [&](const char* title, const std::vector<std::string>& sentences) {
    if (sentences.empty())
      return;
    heading(title);
    for (const std::string& sentence : sentences)
      line("  " + platform::printable(sentence));
  };
  section("Judged and not run", rehearsal.judgedNotRun);
  section("Not tried", rehearsal.notTried);
  return std::move(text_);
}

}  // namespace

std::string textReport(const Rehearsal& rehearsal, Colours colours) {
  return TextReport(colours).text(rehearsal);
}

}  // namespace rehearse

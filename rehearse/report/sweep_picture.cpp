#include "rehearse/report/sweep_picture.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/foundation/error.hpp"
#include "rehearse/report/summary.hpp"
#include "rehearse/report/wording.hpp"

namespace rehearse {
namespace {

// A mark's place, in units of the picture.
constexpr std::size_t kPitch = 5;
constexpr std::size_t kMarkHeight = 10;
constexpr std::size_t kRowHeight = 14;
constexpr std::size_t kMarksInShortRow = 128;
// More rows than this are not shown in full size.
constexpr std::size_t kMostShortRows = 64;
// Above and below the rows, for the marks that are larger.
constexpr std::size_t kMargin = 8;

/// How an outcome is drawn: a line along the row whose dashes are the marks, so that a run of thousands is
/// one short path. Height and position differ, since not everybody sees the colours.
struct Stroke {
  const char* name;
  std::size_t centre;  ///< from the row's top
};

Stroke strokeOf(PointOutcome outcome) {
  switch (outcome) {
    case PointOutcome::previous:
      return {"previous", 8};
    case PointOutcome::offered:
      return {"offered", 5};
    case PointOutcome::beside:
      return {"beside", 2};
    case PointOutcome::lost:
      return {"lost", 5};
    case PointOutcome::notReached:
      return {"not-reached", 9};
    case PointOutcome::notTried:
      return {"not-tried", 5};
  }
  return {"", 0};
}

/// Points `first` to `last` have one outcome.
struct Run {
  std::size_t first;
  std::size_t last;
};

std::vector<Run> runsOf(const std::vector<Point>& points) {
  std::vector<Run> runs;
  for (std::size_t index = 0; index < points.size(); ++index)
    if (runs.empty() || points[index].outcome != points[runs.back().first].outcome)
      runs.push_back({index, index});
    else
      runs.back().last = index;
  return runs;
}

/// Where the marks are. A strip with many has longer rows, which are drawn smaller.
class Grid {
 public:
  explicit Grid(std::size_t marks) : marks_(marks) {
    while (marks > scale_ * kMarksInShortRow * scale_ * kMostShortRows)
      ++scale_;
  }

  /// How much larger the picture is than it is shown.
  std::size_t scale() const { return scale_; }
  std::size_t width() const { return std::min(marks_, marksInRow()) * kPitch; }
  std::size_t height() const { return y(marks_ - 1) + kMarkHeight + margin(); }
  std::size_t x(std::size_t index) const { return index % marksInRow() * kPitch; }
  std::size_t y(std::size_t index) const { return margin() + index / marksInRow() * kRowHeight; }

  std::string pathOf(const Run& run, std::size_t centre) const {
    std::string path;
    for (std::size_t first = run.first; first <= run.last;) {
      const std::size_t last = std::min(run.last, first / marksInRow() * marksInRow() + marksInRow() - 1);
      path += "M" + std::to_string(x(first)) + " " + std::to_string(y(first) + centre) + "h" +
              std::to_string((last - first + 1) * kPitch - 1);
      first = last + 1;
    }
    return path;
  }

 private:
  std::size_t marksInRow() const { return scale_ * kMarksInShortRow; }
  std::size_t margin() const { return scale_ * kMargin; }

  std::size_t marks_;
  std::size_t scale_ = 1;
};

/// "Points 12 to 400: previous, ditto: write 12 … ditto: fsync 400"
std::string inWords(const Run& run, const Sweep& sweep) {
  const Point& first = sweep.points[run.first];
  const std::string start = textOf(std::uint64_t{run.first + 1});
  if (run.first == run.last)
    return "Point " + start + ": " + wordFor(first.outcome) + ", " + first.name;
  return "Points " + start + " to " + textOf(std::uint64_t{run.last + 1}) + ": " + wordFor(first.outcome) +
         ", " + first.name + " … " + sweep.points[run.last].name;
}

std::string anchorOf(const std::string& sweep, std::size_t point) {
  return sweep + "-point-" + std::to_string(point + 1);
}

/// Larger than its neighbours, so that it is seen among thousands.
void writeFault(HTMLWriter& html, const Point& point, std::size_t index, const Grid& grid) {
  const std::string place = "translate(" + std::to_string(grid.x(index) + 2) + " " +
                            std::to_string(grid.y(index) + kMarkHeight / 2) + ") scale(" +
                            std::to_string(grid.scale()) + ")";
  const bool isLost = point.outcome == PointOutcome::lost;
  html.element("g", {{"class", isLost ? "fault loss" : "fault"}, {"transform", place}}, [&] {
    html.element("title", {},
                 point.name + ": " + wordFor(point.outcome) + (isLost ? "" : ", a promise is broken"));
    html.element("path", {{"class", "disc"}, {"d", "M-7 0a7 7 0 1 0 14 0a7 7 0 1 0-14 0"}});
    html.element("path", {{"class", "sign"}, {"d", isLost ? "M-3-3l6 6m0-6l-6 6" : "M0-4v5m0 2v1"}});
  });
}

void writeStrip(HTMLWriter& html, const Sweep& sweep, const std::vector<Run>& runs) {
  const Grid grid(sweep.points.size());
  // Short strips are not stretched.
  html.element("svg",
               {{"class", sweep.isControl ? "strip control" : "strip"},
                {"role", "img"},
                {"viewBox", "0 0 " + std::to_string(grid.width()) + " " + std::to_string(grid.height())},
                {"style", "max-width:" + std::to_string(grid.width() * 5 / 4 / grid.scale()) + "px"},
                {"aria-label", "Strip of the sweep " + sweep.name + ": " + summaryOf(sweep)}},
               [&] {
                 for (const Run& run : runs) {
                   const Stroke stroke = strokeOf(sweep.points[run.first].outcome);
                   html.element("path", {{"class", stroke.name}, {"d", grid.pathOf(run, stroke.centre)}},
                                [&] { html.element("title", {}, inWords(run, sweep)); });
                 }
                 for (std::size_t index = 0; index < sweep.points.size(); ++index)
                   if (isFault(sweep, sweep.points[index]))
                     writeFault(html, sweep.points[index], index, grid);
               });
}

void writeFaults(HTMLWriter& html, const Sweep& sweep, const std::string& anchor) {
  html.element("ul", {{"class", "faults"}}, [&] {
    for (std::size_t index = 0; index < sweep.points.size(); ++index) {
      const Point& point = sweep.points[index];
      if (!isFault(sweep, point))
        continue;
      html.element("li", {{"id", anchorOf(anchor, index)}}, [&] {
        html.element("strong", {}, point.outcome == PointOutcome::lost ? "lost" : "promise broken");
        html.text(" at ");
        html.element("code", {}, point.name);
        html.text(", point " + textOf(std::uint64_t{index + 1}));
        if (point.outcome != PointOutcome::lost)
          html.text(", which leaves: " + wordFor(point.outcome));
        for (const std::string& violation : point.violations)
          html.element("span", {{"class", "violation"}}, violation);
      });
    }
  });
}

void writeKey(HTMLWriter& html, const Point& point, const std::string& word, const char* meaning) {
  const Stroke stroke = strokeOf(point.outcome);
  html.element("li", {}, [&] {
    html.element("svg", {{"class", "strip"}, {"viewBox", "-7 4 18 18"}, {"aria-hidden", "true"}}, [&] {
      if (isFault(Sweep(), point))
        writeFault(html, point, 0, Grid(1));
      else
        html.element("path",
                     {{"class", stroke.name}, {"d", "M-5 " + std::to_string(stroke.centre + 8) + "h14"}});
    });
    html.element("strong", {}, word);
    html.text(std::string(": ") + meaning);
  });
}

}  // namespace

void writeKeyOfStrips(HTMLWriter& html) {
  constexpr std::array<std::pair<PointOutcome, const char*>, 6> kMeanings = {
      {{PointOutcome::previous, "the previous application, complete"},
       {PointOutcome::offered, "the new one, complete"},
       {PointOutcome::beside, "the previous one, complete beside the target"},
       {PointOutcome::lost, "no complete application"},
       {PointOutcome::notReached, "the update ended before"},
       {PointOutcome::notTried, "could not be tried"}}};
  Point point;
  html.element("ul", {{"class", "key"}}, [&] {
    for (const auto& [outcome, meaning] : kMeanings) {
      point.outcome = outcome;
      writeKey(html, point, wordFor(outcome), meaning);
    }
    point.violations = {""};
    writeKey(html, point, "promise broken", "the list below the strip says which");
  });
}

void writeSweep(HTMLWriter& html, const Sweep& sweep, const std::string& anchor) {
  html.element("article", {{"class", "sweep"}, {"id", anchor}}, [&] {
    html.element("h4", {}, sweep.name + (sweep.isControl ? " (control)" : ""));
    html.element("p", {}, [&] {
      html.element("span", {{"class", isFault(sweep) ? "judgement bad" : "judgement"}}, judgementOf(sweep));
      html.text(" " + summaryOf(sweep) + ".");
    });
    if (sweep.points.empty())
      return;
    const std::vector<Run> runs = runsOf(sweep.points);
    writeStrip(html, sweep, runs);
    if (countsOf(sweep).faults > 0)
      writeFaults(html, sweep, anchor);
    html.element("details", {}, [&] {
      html.element("summary", {}, "The strip in words");
      html.element("ul", {{"class", "runs"}}, [&] {
        for (const Run& run : runs)
          html.element("li", {}, inWords(run, sweep));
      });
    });
  });
}

}  // namespace rehearse

#include "rehearse/report/road_picture.hpp"

#include <algorithm>

#include "rehearse/report/wording.hpp"

namespace rehearse {
namespace {

/// "12.5%"
std::string percentage(Milliseconds part, Milliseconds whole) {
  const auto tenths = part.count() * 1000 / std::max(whole.count(), Milliseconds::rep{1});
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + "%";
}

}  // namespace

Milliseconds endOf(const Pairing& pairing) {
  Milliseconds end{};
  for (const Phase& phase : pairing.phases)
    end = std::max(end, phase.end);
  for (const DiskUse& use : pairing.diskUse)
    end = std::max(end, use.time);
  return end;
}

void writeRoad(HTMLWriter& html, const Pairing& pairing) {
  if (pairing.phases.empty())
    return;
  const Milliseconds end = endOf(pairing);
  html.element("table", {{"class", "road"}}, [&] {
    html.element("caption", {}, "The update takes " + textOf(end) + ".");
    html.element("thead", {}, [&] {
      html.element("tr", {}, [&] {
        html.element("th", {{"scope", "col"}}, "Phase");
        html.element("th", {{"scope", "col"}}, "When");
        html.element("th", {{"scope", "col"}}, "Takes");
      });
    });
    html.element("tbody", {}, [&] {
      for (const Phase& phase : pairing.phases) {
        const Milliseconds duration = phase.end - phase.begin;
        html.element("tr", {}, [&] {
          html.element("th", {{"scope", "row"}}, phase.name);
          html.element("td", {}, [&] {
            html.element("span", {{"class", "bar"},
                                  {"style", "margin-left:" + percentage(phase.begin, end) +
                                                ";width:" + percentage(duration, end)}});
            html.element("span", {{"class", "unseen"}},
                         "from " + textOf(phase.begin) + " to " + textOf(phase.end));
          });
          html.element("td", {}, textOf(duration));
        });
      }
    });
  });
}

}  // namespace rehearse

#include "rehearse/report/disk_use_picture.hpp"

#include <algorithm>
#include <string_view>

#include "rehearse/report/road_picture.hpp"
#include "rehearse/report/wording.hpp"

namespace rehearse {
namespace {

/// The picture is stretched to the width that there is; units are arbitrary.
constexpr long kWidth = 1000;
constexpr long kHeight = 100;

using Member = std::uint64_t DiskUse::*;

const DiskUse& greatest(const std::vector<DiskUse>& use, Member member) {
  return *std::ranges::max_element(use, {}, member);
}

/// The least 1, 2 or 5 times a power of ten that is not below `value`.
std::uint64_t axisEnd(std::uint64_t value) {
  std::uint64_t unit = 1;
  while (unit < value / 10)
    unit *= 10;
  for (const std::uint64_t factor : {1U, 2U, 5U})
    if (unit * factor >= value)
      return unit * factor;
  return unit * 10;
}

class Scale {
 public:
  Scale(Milliseconds end, std::uint64_t top)
      : end_(static_cast<double>(std::max(end.count(), Milliseconds::rep{1}))),
        top_(static_cast<double>(top)) {}

  std::string x(Milliseconds time) const {
    return std::to_string(static_cast<long>(static_cast<double>(time.count()) / end_ * kWidth));
  }
  std::string y(std::uint64_t bytes) const {
    return std::to_string(kHeight - static_cast<long>(static_cast<double>(bytes) / top_ * kHeight));
  }

 private:
  double end_;
  double top_;
};

/// Steps, since a value holds until the next one was measured.
std::string line(const std::vector<DiskUse>& use, Member member, const Scale& scale) {
  std::string path = "M0 " + std::to_string(kHeight);
  for (const DiskUse& each : use)
    path += "H" + scale.x(each.time) + "V" + scale.y(each.*member);
  return path + "H" + std::to_string(kWidth);
}

void writeKey(HTMLWriter& html, const char* series, std::string_view where, const DiskUse& most,
              Member member) {
  html.element("li", {}, [&] {
    html.element("svg", {{"class", series}, {"viewBox", "0 0 24 12"}, {"aria-hidden", "true"}}, [&] {
      html.element("path", {{"class", "line"}, {"d", "M0 6H24"}});
    });
    html.text(std::string(where) + ": " + bytesOf(most.*member) + " at the most, after " + textOf(most.time));
  });
}

}  // namespace

void writeDiskUse(HTMLWriter& html, const Pairing& pairing) {
  const std::vector<DiskUse>& use = pairing.diskUse;
  if (use.empty())
    return;
  const DiskUse& beside = greatest(use, &DiskUse::besideTarget);
  const DiskUse& temporary = greatest(use, &DiskUse::temporary);
  const std::uint64_t top =
      axisEnd(std::max({beside.besideTarget, temporary.temporary, std::uint64_t{1000}}));
  const Milliseconds end = endOf(pairing);
  const Scale scale(end, top);
  const std::string besideLine = line(use, &DiskUse::besideTarget, scale);

  html.element("figure", {{"class", "disk"}}, [&] {
    html.element("figcaption", {}, "Disk space in use, beyond what was there before");
    html.element("div", {{"class", "plot"}}, [&] {
      html.element("div", {{"class", "scale"}, {"aria-hidden", "true"}}, [&] {
        for (const std::uint64_t value : {top, top / 2, std::uint64_t{0}})
          html.element("span", {}, value == 0 ? "0" : bytesOf(value));
      });
      html.element(
          "svg",
          {{"role", "img"},
           {"viewBox", "0 0 1000 100"},
           {"preserveAspectRatio", "none"},
           {"aria-label",
            "Disk space in use over the " + textOf(end) + " of the update: beside the application " +
                bytesOf(beside.besideTarget) + " at the most, after " + textOf(beside.time) + "; in /tmp " +
                bytesOf(temporary.temporary) + " at the most, after " + textOf(temporary.time)}},
          [&] {
            html.element("path", {{"class", "grid"}, {"d", "M0 0H1000M0 50H1000M0 100H1000"}});
            html.element("g", {{"class", "beside-target"}}, [&] {
              html.element("path", {{"class", "area"}, {"d", besideLine + "V100Z"}});
              html.element("path", {{"class", "line"}, {"d", besideLine}});
            });
            html.element("g", {{"class", "temporary"}}, [&] {
              html.element("path", {{"class", "line"}, {"d", line(use, &DiskUse::temporary, scale)}});
            });
          });
      html.element("div", {{"class", "time"}, {"aria-hidden", "true"}}, [&] {
        for (const Milliseconds time : {Milliseconds{0}, end / 2, end})
          html.element("span", {}, time.count() == 0 ? "0 s" : textOf(time));
      });
    });
    html.element("ul", {{"class", "key"}}, [&] {
      writeKey(html, "beside-target", "Beside the application", beside, &DiskUse::besideTarget);
      writeKey(html, "temporary", "In /tmp", temporary, &DiskUse::temporary);
    });
  });
}

}  // namespace rehearse

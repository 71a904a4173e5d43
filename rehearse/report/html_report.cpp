#include "rehearse/report/html_report.hpp"

#include <algorithm>

#include "rehearse/report/disk_use_picture.hpp"
#include "rehearse/report/html_writer.hpp"
#include "rehearse/report/matrix_picture.hpp"
#include "rehearse/report/road_picture.hpp"
#include "rehearse/report/style.hpp"
#include "rehearse/report/summary.hpp"
#include "rehearse/report/sweep_picture.hpp"
#include "rehearse/report/wording.hpp"

namespace rehearse {
namespace {

class HTMLReport {
 public:
  explicit HTMLReport(const Rehearsal& rehearsal)
      : rehearsal_(rehearsal), concerns_(concerns(rehearsal)), verdict_(verdictOf(rehearsal)) {}

  std::string html();

 private:
  void writeHead();
  void writeVerdict();
  void writeFacts();
  void writeConcerns();
  void writeConcern(const Concern& concern);
  void writePairing(const Pairing& pairing, std::size_t index);
  /// The titles of the faults that concern an installed version.
  std::vector<std::string> faultsOf(std::size_t pairing) const;
  void writeStep(const Step& step);
  void writeSteps(const Pairing& pairing);
  void writeAftermath(const Aftermath& aftermath);
  void writeSweeps(const Pairing& pairing, std::size_t index);
  void writeSentences(const char* title, const std::vector<std::string>& sentences);
  void writeSubject();

  /// A term of a description list.
  void term(const char* name, const auto& writeValue) {
    html_.element("div", {}, [&] {
      html_.element("dt", {}, name);
      html_.element("dd", {}, writeValue);
    });
  }
  void section(const char* title, const auto& content) {
    html_.element("section", {}, [&] {
      html_.element("h2", {}, title);
      content();
    });
  }

  const Rehearsal& rehearsal_;
  std::vector<Concern> concerns_;
  std::string verdict_;
  HTMLWriter html_;
};

void HTMLReport::writeHead() {
  html_.element("head", {}, [&] {
    html_.voidElement("meta", {{"charset", "utf-8"}});
    // Even a mistake in the escaping could not load or run anything.
    html_.voidElement("meta", {{"http-equiv", "Content-Security-Policy"},
                               {"content",
                                "default-src 'none'; style-src 'unsafe-inline'; img-src data:; "
                                "base-uri 'none'; form-action 'none'"}});
    html_.voidElement("meta", {{"name", "viewport"}, {"content", "width=device-width, initial-scale=1"}});
    html_.voidElement("meta", {{"name", "color-scheme"}, {"content", "light dark"}});
    html_.voidElement("link", {{"rel", "icon"}, {"href", "data:,"}});
    html_.element("title", {}, verdict_);
    html_.style(kStyle);
  });
}

void HTMLReport::writeVerdict() {
  const bool isGood = exitStatus(rehearsal_) == 0;
  html_.element("header", {{"class", isGood ? "verdict good" : "verdict bad"}}, [&] {
    const ApplicationName& offered = rehearsal_.offered;
    html_.element("p", {{"class", "kicker"}},
                  "Rehearsal of an update · " + (offered.bundleName.empty()
                                                     ? rehearsal_.subject.image
                                                     : offered.bundleName + " " + versionOf(offered)));
    const std::size_t colon = verdict_.find(':');
    html_.element("h1", {}, [&] {
      html_.element("span", {{"class", "mark"}, {"aria-hidden", "true"}}, isGood ? "✓" : "✕");
      if (colon != std::string::npos)
        html_.element("span", {{"class", "outcome"}}, verdict_.substr(0, colon + 1));
      html_.text(colon == std::string::npos ? verdict_ : verdict_.substr(colon + 1));
    });
    html_.element("p", {{"class", "judgement"}}, judgementOf(rehearsal_, concerns_));
  });
}

void HTMLReport::writeFacts() {
  std::uint64_t installs = 0;
  std::uint64_t passed = 0;
  std::uint64_t failed = 0;
  std::uint64_t untried = 0;
  std::uint64_t points = 0;
  std::uint64_t lost = 0;
  std::uint64_t beside = 0;
  std::uint64_t temporary = 0;
  for (const Pairing& pairing : rehearsal_.pairings) {
    installs += pairing.wouldInstall ? 1U : 0U;
    for (const Step& step : pairing.steps) {
      passed += step.verdict == StepVerdict::passed ? 1U : 0U;
      failed += step.verdict == StepVerdict::failed ? 1U : 0U;
      untried += step.verdict == StepVerdict::notTried ? 1U : 0U;
    }
    for (const Sweep& sweep : pairing.sweeps) {
      const Counts counts = countsOf(sweep);
      points += sweep.points.size() - counts.of(PointOutcome::notTried);
      lost += counts.losses;
    }
    beside = std::max(beside, pairing.aftermath.greatestBesideTarget);
    temporary = std::max(temporary, pairing.aftermath.greatestTemporary);
  }
  const auto fact = [&](const char* name, const std::string& value, const std::string& more) {
    term(name, [&] {
      html_.element("b", {}, value);
      html_.text(" " + more);
    });
  };
  html_.element("dl", {{"class", "facts"}}, [&] {
    fact("Installed versions", textOf(installs),
         "of " + textOf(rehearsal_.pairings.size()) + " would install");
    fact("Steps", textOf(passed),
         "of " + textOf(passed + failed) + " went as they must" +
             (untried > 0 ? ", " + textOf(untried) + " not tried" : ""));
    if (points > 0)
      fact("Points of failure", textOf(points), lost == 0 ? "none lost" : textOf(lost) + " lost");
    if (installs > 0)
      fact("Disk needed", bytesOf(beside), "and " + bytesOf(temporary) + " in /tmp");
  });
}

void HTMLReport::writeConcern(const Concern& concern) {
  html_.element("li", {{"class", "concern " + wordFor(concern.severity)}}, [&] {
    html_.element("h3", {}, [&] {
      html_.element("span", {{"class", "severity"}}, wordFor(concern.severity));
      html_.text(" " + concern.title);
    });
    html_.element("p", {}, concern.sentence);
    if (!concern.advice.empty())
      html_.element("p", {{"class", "advice"}}, concern.advice);
    if (rehearsal_.pairings.size() > 1)
      html_.element("p", {{"class", "about"}}, "Installed: " + listed(concern.versions));
  });
}

void HTMLReport::writeConcerns() {
  section("Findings", [&] {
    if (concerns_.empty())
      html_.element("p", {}, "None.");
    else
      html_.element("ul", {{"class", "concerns"}}, [&] {
        for (const Concern& concern : concerns_)
          writeConcern(concern);
      });
  });
}

void HTMLReport::writeStep(const Step& step) {
  html_.element("tr", {}, [&] {
    html_.element("td", {}, [&] { writeStepWord(html_, step); });
    html_.element("th", {{"scope", "row"}}, [&] {
      html_.text(step.name);
      if (!step.refusedBy.empty())
        html_.element("span", {{"class", "by"}}, " refused at: " + step.refusedBy);
      if (!step.message.empty())
        html_.element("span", {{"class", "message"}}, step.message);
    });
    html_.element("td", {}, step.verdict == StepVerdict::notTried ? "" : textOf(step.duration));
  });
}

void HTMLReport::writeSteps(const Pairing& pairing) {
  html_.element("h3", {}, "Steps");
  if (pairing.steps.size() > 1)
    html_.element("p", {}, kWhatMustBeRefused);
  html_.element("table", {{"class", "steps"}}, [&] {
    html_.element("thead", {}, [&] {
      html_.element("tr", {}, [&] {
        for (const char* title : {"Verdict", "Step", "Time"})
          html_.element("th", {{"scope", "col"}}, title);
      });
    });
    html_.element("tbody", {}, [&] {
      for (const Step& step : pairing.steps)
        writeStep(step);
    });
  });
}

void HTMLReport::writeAftermath(const Aftermath& aftermath) {
  html_.element("h3", {}, "What a user finds");
  html_.element("dl", {{"class", "terms"}}, [&] {
    const auto text = [&](const char* name, const std::string& value) {
      term(name, [&] { html_.text(value); });
    };
    text("At the target", aftermath.atTarget);
    text("Exit status", aftermath.exitStatus == -1 ? "none, a signal ended the updater"
                                                   : std::to_string(aftermath.exitStatus));
    term("Status file", [&] {
      if (aftermath.statusFile.empty())
        html_.text("none");
      else
        html_.preformatted(aftermath.statusFile);
    });
    term("Left over", [&] {
      if (aftermath.leftOver.empty())
        html_.text("nothing");
      else
        html_.element("ul", {}, [&] {
          for (const std::string& name : aftermath.leftOver)
            html_.element("li", {}, [&] { html_.element("code", {}, name); });
        });
    });
    text("Disk, at the most", bytesOf(aftermath.greatestBesideTarget) + " beside the target, " +
                                  bytesOf(aftermath.greatestTemporary) + " in /tmp");
  });
}

void HTMLReport::writeSweeps(const Pairing& pairing, std::size_t index) {
  if (pairing.sweeps.empty())
    return;
  html_.element("h3", {}, "Sweeps");
  html_.element("p", {},
                "Each mark is one point at which the update was disturbed. It shows what is at the "
                "target's path afterwards.");
  writeKeyOfStrips(html_);
  for (std::size_t sweep = 0; sweep < pairing.sweeps.size(); ++sweep)
    writeSweep(html_, pairing.sweeps[sweep], anchorOf(index) + "-sweep-" + std::to_string(sweep + 1));
}

std::vector<std::string> HTMLReport::faultsOf(std::size_t pairing) const {
  std::vector<std::string> titles;
  for (const Concern& concern : concerns_)
    if (concern.severity == Severity::fault &&
        std::ranges::find(concern.pairings, pairing) != concern.pairings.end())
      titles.push_back(concern.title);
  return titles;
}

void HTMLReport::writePairing(const Pairing& pairing, std::size_t index) {
  html_.element("section", {{"class", "pairing"}, {"id", anchorOf(index)}}, [&] {
    html_.element("h2", {}, "Over " + versionOf(pairing.installed));
    html_.element("p", {{"class", "source"}}, [&] {
      html_.element("code", {}, pairing.installed.source);
      html_.text(", " + pairing.installed.identifier);
    });
    html_.element("p", {{"class", pairing.wouldInstall ? "judgement" : "judgement bad"}}, pairing.verdict);
    if (const std::vector<std::string> faults = faultsOf(index); pairing.wouldInstall && !faults.empty())
      html_.element("p", {{"class", "judgement bad"}}, "But: " + listed(faults) + ".");
    if (!pairing.phases.empty() || !pairing.diskUse.empty())
      html_.element("h3", {}, "The update");
    writeRoad(html_, pairing);
    writeDiskUse(html_, pairing);
    writeAftermath(pairing.aftermath);
    writeSteps(pairing);
    writeSweeps(pairing, index);
  });
}

void HTMLReport::writeSentences(const char* title, const std::vector<std::string>& sentences) {
  if (sentences.empty())
    return;
  section(title, [&] {
    html_.element("ul", {{"class", "sentences"}}, [&] {
      for (const std::string& sentence : sentences)
        html_.element("li", {}, sentence);
    });
  });
}

void HTMLReport::writeSubject() {
  const Subject& subject = rehearsal_.subject;
  section("What was rehearsed", [&] {
    html_.element("dl", {{"class", "terms"}}, [&] {
      const auto code = [&](const char* name, const std::string& value) {
        term(name, [&] { html_.element("code", {}, value); });
      };
      code("Image", subject.image);
      code("SHA-256 of it", subject.imageDigest);
      code("SHA-256 of the updater", subject.updaterDigest);
      if (!subject.options.empty())
        term("Options", [&] { html_.element("code", {}, listed(subject.options)); });
      if (rehearsal_.shards.size() == 1 && rehearsal_.shards.front().count > 1)
        term("Shard", [&] {
          html_.text(textOf(std::uint64_t{rehearsal_.shards.front().number}) + " of " +
                     textOf(std::uint64_t{rehearsal_.shards.front().count}) +
                     ": not all points are in this report");
        });
      term("Date", [&] { html_.text(rehearsal_.date + ", took " + textOf(rehearsal_.duration)); });
      term("Plan", [&] { html_.preformatted(rehearsal_.plan); });
    });
  });
}

std::string HTMLReport::html() {
  html_.documentType();
  html_.element("html", {{"lang", "en"}}, [&] {
    writeHead();
    html_.element("body", {}, [&] {
      writeVerdict();
      html_.element("main", {}, [&] {
        writeFacts();
        writeConcerns();
        if (rehearsal_.pairings.size() > 1)
          section("Overview", [&] { writeMatrix(html_, rehearsal_); });
        for (std::size_t index = 0; index < rehearsal_.pairings.size(); ++index)
          writePairing(rehearsal_.pairings[index], index);
        writeSentences("Judged and not run", rehearsal_.judgedNotRun);
        writeSentences("Not tried", rehearsal_.notTried);
        writeSubject();
      });
    });
  });
  return html_.take();
}

}  // namespace

std::string htmlReport(const Rehearsal& rehearsal) {
  return HTMLReport(rehearsal).html();
}

}  // namespace rehearse

#!/usr/bin/python3
"""Opens reports in a browser and checks what a reader relies on: inspect_report.py [--controls] [--picture FILE] REPORT.html...

Where REPORT.json is beside a report, its faults must be found on the page, and it must follow the schema. With --controls,
copies of the first report and its record are damaged, and each damage must be found. With --picture, pictures of the first report are
written: FILE.png, and the same with -dark, -narrow, -narrow-dark and -page in its name.
"""

import argparse
import json
import pathlib
import subprocess
import sys
import tempfile

import jsonschema

from browser import Browser

WIDE, NARROW = (1280, 800), (360, 740)
SCHEMA = pathlib.Path(__file__).parents[3] / "rehearse/record/rehearsal.schema.json"

# The least contrast of text that is smaller than 24 pixels, and of larger text (Web Content Accessibility Guidelines 2.2, 1.4.3).
FAINT_TEXT = """(() => {
  const parse = text => { const n = text.match(/[\\d.]+/g).map(Number); return n.length < 4 ? [...n, 1] : n; };
  const channel = c => (c /= 255) <= .04045 ? c / 12.92 : ((c + .055) / 1.055) ** 2.4;
  const luminance = ([r, g, b]) => .2126 * channel(r) + .7152 * channel(g) + .0722 * channel(b);
  const over = (top, below) => [0, 1, 2].map(i => top[i] * top[3] + below[i] * (1 - top[3]));
  const background = element => {
    if (!element) return [255, 255, 255];
    const own = parse(getComputedStyle(element).backgroundColor);
    return own[3] === 1 ? own : over(own, background(element.parentElement));
  };
  const faint = [];
  const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
  while (walker.nextNode()) {
    const element = walker.currentNode.parentElement;
    if (!walker.currentNode.data.trim() || element.closest('svg, .unseen') || !element.checkVisibility()) continue;
    const style = getComputedStyle(element);
    const behind = background(element);
    const [light, dark] = [luminance(over(parse(style.color), behind)), luminance(behind)].sort((a, b) => b - a);
    const contrast = (light + .05) / (dark + .05);
    if (contrast < (parseFloat(style.fontSize) >= 24 ? 3 : 4.5))
      faint.push(walker.currentNode.data.trim().slice(0, 40) + ' (' + contrast.toFixed(2) + ')');
  }
  return faint;
})()"""

# What of the verdict, and of the first finding's title, is not within the window.
OUT_OF_SIGHT = """['h1', '.verdict .judgement', '.concern h3'].filter(selector => {
  const element = document.querySelector(selector);
  if (!element) return selector !== '.concern h3';
  const box = element.getBoundingClientRect();
  return !element.checkVisibility() || box.height < 10 || box.top < 0 || box.left < 0 ||
    box.bottom > innerHeight || box.right > innerWidth;
})"""

BROKEN_STRUCTURE = """(() => {
  const broken = [];
  if (!document.documentElement.lang) broken.push('no language');
  if (document.compatMode !== 'CSS1Compat') broken.push('quirks mode');
  if (document.querySelectorAll('script, iframe, object, embed').length) broken.push('active content');
  const levels = [...document.querySelectorAll('h1,h2,h3,h4,h5,h6')].map(each => Number(each.tagName[1]));
  if (levels[0] !== 1 || levels.filter(level => level === 1).length !== 1) broken.push('not one h1 at the start');
  if (levels.some((level, index) => index && level > levels[index - 1] + 1)) broken.push('a heading level is left out');
  for (const table of document.querySelectorAll('table'))
    if (!table.querySelector('th[scope=col]') || !table.querySelector('th[scope=row]')) broken.push('a table without headers');
  const ids = [...document.querySelectorAll('[id]')].map(each => each.id);
  if (new Set(ids).size !== ids.length) broken.push('an identifier twice');
  for (const link of document.querySelectorAll('a'))
    if (!document.getElementById(link.getAttribute('href').slice(1))) broken.push('link to nothing: ' + link.textContent);
  return broken;
})()"""


# The list items in which the browser's search, which finds only what is visible, finds a text.
SEARCH = """text => {
  const items = [];
  getSelection().removeAllRanges();
  while (items.length < 100 && find(text, true, false, false, false, false, false))
    items.push(getSelection().anchorNode.parentElement.closest('li')?.innerText ?? '');
  return items.join('\\n');
}"""


class Report:
    """A report in a browser. Each check returns what is wrong, a list."""

    def __init__(self, browser, file):
        self.browser = browser
        self.file = pathlib.Path(file).resolve()
        record = self.file.with_suffix(".json")
        self.record = json.loads(record.read_text()) if record.exists() else None

    def checks(self):
        yield "loads nothing else and has no error", self.load
        for scheme in ("light", "dark"):
            for size in (WIDE, NARROW):
                name = f"{size[0]} × {size[1]}, {scheme}"
                yield f"verdict within the first screen, {name}", lambda: self.at(size, scheme, OUT_OF_SIGHT)
                yield f"enough contrast, {name}", lambda: self.at(size, scheme, FAINT_TEXT)
        for width in (320, 360, 1280):
            yield f"no horizontal scrolling at {width}", lambda: self.scrolling(width)
        yield "dark is dark, light is light", self.schemes
        yield "structure", lambda: self.at(WIDE, "light", BROKEN_STRUCTURE)
        yield "pictures and links have names", self.names
        if self.record:
            yield "the record follows its schema", self.schema
            yield "faults are found by their text", self.faults
        yield "prints", self.prints

    def load(self):
        self.browser.open(self.file.as_uri())
        wrong = []
        for event in self.browser.events:
            parameters = event["params"]
            if event["method"] == "Network.requestWillBeSent":
                url = parameters["request"]["url"]
                if url != self.file.as_uri() and not url.startswith("data:"):
                    wrong.append("requests " + url)
            elif event["method"] == "Log.entryAdded":
                wrong.append(parameters["entry"]["text"])
            elif event["method"] == "Runtime.exceptionThrown":
                wrong.append("throws an exception")
        return wrong

    def at(self, size, scheme, expression):
        self.browser.show(*size, scheme)
        return self.browser.evaluate("scrollTo(0, 0)," + expression)

    def scrolling(self, width):
        self.browser.show(width, 740)
        actual = self.browser.evaluate("document.documentElement.scrollWidth")
        return [] if actual <= width else [f"{actual} wide"]

    def schemes(self):
        shades = []
        for scheme in ("light", "dark"):
            self.browser.show(*WIDE, scheme)
            colour = self.browser.evaluate("getComputedStyle(document.documentElement).backgroundColor.match(/\\d+/g).map(Number)")
            shades.append(sum(colour[:3]))
        return [] if shades[0] > 650 and shades[1] < 150 else [f"the paper is {shades}"]

    def names(self):
        named = {"image", "graphics-document", "link", "button", "region"}
        return [node["role"]["value"] + " without a name"
                for node in self.browser.call("Accessibility.getFullAXTree")["nodes"]
                if not node["ignored"] and node["role"]["value"] in named and not node.get("name", {}).get("value", "").strip()]

    def schema(self):
        validator = jsonschema.Draft202012Validator(json.loads(SCHEMA.read_text()))
        return [f"{error.json_path}: {error.message[:80]}" for error in validator.iter_errors(self.record)]

    def faulty_points(self):
        for pairing in self.record["pairings"]:
            for sweep in pairing["sweeps"]:
                for point in sweep["points"]:
                    if not sweep["isControl"] if point["outcome"] == "lost" else point["violations"]:
                        yield point

    def faults(self):
        self.browser.show(*WIDE)
        wrong = []
        for point in self.faulty_points():
            found = self.browser.evaluate(f"({SEARCH})({json.dumps(point['name'])})")
            if not found:
                wrong.append(f"{point['name']} is not found")
            elif not all(violation in found for violation in point["violations"]):
                wrong.append(f"{point['name']}: its violations are missing")
        return wrong

    def prints(self):
        self.browser.show(*WIDE)
        document = self.browser.pdf()
        text = subprocess.run(["pdftotext", "-", "-"], input=document, capture_output=True, check=True).stdout.decode()
        words = lambda each: "".join(each.split())
        expected = [self.browser.evaluate("document.querySelector('.outcome').innerText")]
        expected += [point["name"] for point in self.faulty_points()] if self.record else []
        return [f"{each} is missing" for each in expected if words(each) not in words(text)]


def inspect(browser, file, quiet=False):
    """The names of the checks that fail; prints a line for each check unless `quiet`."""
    failed = []
    for name, check in Report(browser, file).checks():
        wrong = check()
        if wrong:
            failed.append(name)
        if not quiet:
            print(f"  {'FAILED' if wrong else 'ok    '}  {name}" + "".join(f"\n            {each}" for each in wrong[:5]))
    return failed


# A damage of a report or of its record, and the check that must find it.
CONTROLS = [
    ("<main>", "<main><img src='http://127.0.0.1:9/x.png' alt='x'>", "loads nothing else and has no error"),
    ("<main>", "<script>1</script><main>", "loads nothing else and has no error"),
    ("<body>", "<body><div style='height:60rem'></div>", "verdict within the first screen, 1280 × 800, light"),
    ("<main>", "<main><p style='color:#888;background:#777'>faint</p>", "enough contrast, 360 × 740, dark"),
    ("<main>", "<main><div style='width:400px'>wide</div>", "no horizontal scrolling at 360"),
    ("prefers-color-scheme: dark", "prefers-color-scheme: neither", "dark is dark, light is light"),
    (" lang=\"en\"", "", "structure"),
    ("<h3>", "<h5>", "structure"),
    ("<main>", "<main><svg role='img' width='9' height='9'></svg>", "pictures and links have names"),
    ("class=\"faults\"", "class=\"faults\" style=\"display:none\"", "faults are found by their text"),
    ("\"verdict\":\"passed\"", "\"verdict\":\"fine\"", "the record follows its schema"),
    ("@media print {", "@media print { body { display: none; }", "prints"),
]


def failed_controls(browser, file):
    failed = []
    originals = [file, file.with_suffix(".json")]
    with tempfile.TemporaryDirectory() as directory:
        for part, by, check in CONTROLS:
            texts = [original.read_text() for original in originals]
            for original, text in zip(originals, texts):
                (pathlib.Path(directory) / original.name).write_text(text.replace(part, by, 1))
            damaged = pathlib.Path(directory) / file.name
            found = any(part in text for text in texts) and check in inspect(browser, damaged, quiet=True)
            print(f"  {'ok    ' if found else 'FAILED'}  damaged, so that it fails: {check}")
            if not found:
                failed.append(check)
    return failed


def write_pictures(browser, report, file):
    browser.open(report.resolve().as_uri())
    for suffix, size, scheme, whole in (("", WIDE, "light", False), ("-dark", WIDE, "dark", False), ("-narrow", NARROW, "light", False),
                                        ("-narrow-dark", NARROW, "dark", False), ("-page", WIDE, "light", True)):
        browser.show(*size, scheme)
        browser.evaluate("scrollTo(0, 0)")
        browser.picture(file.with_stem(file.stem + suffix), whole)


def main():
    parser = argparse.ArgumentParser(description="Checks reports in a browser.")
    parser.add_argument("--controls", action="store_true")
    parser.add_argument("--picture", type=pathlib.Path)
    parser.add_argument("reports", type=pathlib.Path, nargs="+")
    arguments = parser.parse_args()
    failed = 0
    with Browser() as browser:
        for report in arguments.reports:
            print(f"{report.name}, {report.stat().st_size // 1024} KiB")
            failed += len(inspect(browser, report))
        if arguments.controls:
            failed += len(failed_controls(browser, arguments.reports[0]))
        if arguments.picture:
            write_pictures(browser, arguments.reports[0], arguments.picture)
    print(f"check_report: {failed} checks failed" if failed else "check_report: every check passed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

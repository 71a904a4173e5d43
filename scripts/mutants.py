"""Measures the tests by faults put into the product: scripts/mutants [--list] [--named] [SELECTION]...

Each mutant in scripts/mutants.txt changes a few lines in a copy of the checkout, in build/mutants. The programs of the
tests that are named for it are built and run; if none of them fails, all tests are. A mutant that no test sees has
survived. A SELECTION is a mutant's name, its number or a range such as 3-7. The last lines are a table for a document.
The exit status is 0 when every mutant was seen, apart from those that the list explains.
  --named       runs only the named tests
  --against=RE  runs the tests whose names match, instead of the named ones, and all of them: each mutant's line has every
                test that saw it, and the last lines name the tests without which these mutants would be seen as well
  --list        prints the mutants
"""
import collections
import filecmp
import json
import os
import pathlib
import re
import resource
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
COPY = ROOT / "build/mutants"
TREE = COPY / "tree"
# The checkout as it was when the run began.
ORIGINAL = COPY / "checkout"
LONGEST_TEST = "300"
# In bytes. A mutant without a limit of its own must not take the machine's memory.
LARGEST_TEST = 4 << 30
# One point in so many of each sweep is tried, as in the proof's short form.
PROOF_STRIDE = "131"
PROOF_SKIPPED = 77
# With ccache, a mutant that was built before and a file that is as it was before cost next to nothing.
ENVIRONMENT = dict(os.environ, **({"CMAKE_CXX_COMPILER_LAUNCHER": "ccache", "CCACHE_NOHASHDIR": "1",
                                   "CCACHE_BASEDIR": str(COPY)} if shutil.which("ccache") else {}))

Mutant = collections.namedtuple("Mutant", "number name promise tests sweeps survives changes")


def parse(text):
    """`changes` is a list of [file, old text, new text]."""
    mutants = []
    for block in re.split(r"^= ", text, flags=re.MULTILINE)[1:]:
        name, *lines = block.rstrip().split("\n")
        fields, changes, last = {}, [], ""
        for line in lines:
            if line[:1] in ("-", "+"):
                if line[0] == "-" and last != "-":
                    changes.append([fields["file"], [], []])
                changes[-1][1 if line[0] == "-" else 2].append(line[1:])
                last = line[:1]
            elif line and not line.startswith("#"):
                key, value = line.split(": ", 1)
                fields[key] = value
                last = ""
        mutants.append(Mutant(len(mutants) + 1, name, fields["promise"], fields["tests"], fields.get("sweeps"),
                              fields.get("survives"), [[file, "\n".join(old), "\n".join(new)] for file, old, new in changes]))
    return mutants


def selected(mutants, selections):
    def matches(mutant, selection):
        ends = re.fullmatch(r"(\d+)(?:-(\d+))?", selection)
        return int(ends[1]) <= mutant.number <= int(ends[2] or ends[1]) if ends else mutant.name == selection

    for selection in selections:
        if not any(matches(mutant, selection) for mutant in mutants):
            sys.exit(f"mutants: there is no mutant {selection}")
    return [m for m in mutants if not selections or any(matches(m, selection) for selection in selections)]


def apply(mutant):
    for file, old, new in mutant.changes:
        text = (TREE / file).read_text()
        if text.count(old) != 1:
            raise LookupError(f"{text.count(old)} places in {file} match")
        (TREE / file).write_text(text.replace(old, new))


def restore(files):
    """A file that differs gets a new time, so that what was built of its mutant is built again."""
    for file in files:
        if not (TREE / file).exists() or not filecmp.cmp(ORIGINAL / file, TREE / file, shallow=False):
            (TREE / file).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ORIGINAL / file, TREE / file)


def files_in(directory):
    files = subprocess.run(["find", ".", "-path", "./build", "-prune", "-o", "!", "-type", "d", "-print0"],
                           cwd=directory, capture_output=True, text=True, check=True).stdout
    return set(files.split("\0")) - {""}


def synchronise():
    shutil.rmtree(ORIGINAL, ignore_errors=True)
    subprocess.run([ROOT / "scripts/copy_checkout", ORIGINAL], check=True)
    TREE.mkdir(exist_ok=True)
    files = files_in(ORIGINAL)
    restore(files)
    for file in files_in(TREE) - files:
        (TREE / file).unlink()


def build(targets=()):
    subprocess.run(["cmake", "--preset", "dev", "-DQUORIN_TESTS=ON"], cwd=TREE, env=ENVIRONMENT, capture_output=True)
    chosen = ["--target", *targets] if targets else []
    return subprocess.run(["cmake", "--build", "--preset", "dev", *chosen], cwd=TREE, env=ENVIRONMENT,
                          capture_output=True, text=True)


def programs(pattern):
    """The programs of these tests, as targets of the build. They depend on those that they start."""
    command = ["ctest", "--preset", "dev", "--show-only=json-v1", "-R", pattern]
    listing = subprocess.run(command, cwd=TREE, capture_output=True, text=True)
    if listing.returncode != 0:
        return []
    tests = json.loads(listing.stdout)["tests"]
    return sorted({str(pathlib.Path(test["command"][0]).relative_to(TREE / "build/dev")) for test in tests
                   if "command" in test})


def run_tests(command):
    return subprocess.run(command, cwd=TREE, capture_output=True, text=True, errors="replace",
                          preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (LARGEST_TEST, LARGEST_TEST)))


def failing_test(pattern, extra=()):
    """The first test that fails, or None."""
    command = ["ctest", "--preset", "dev", "--stop-on-failure", "--timeout", LONGEST_TEST, "-R", pattern, *extra]
    outcome = run_tests(command)
    if outcome.returncode == 0:
        return None
    failed = re.search(r"^\s*\d+ - (\S+) \((?!Skipped|Not Run|Disabled)(\w+)", outcome.stdout, re.MULTILINE)
    if not failed:
        raise LookupError("no test could be run: " + (outcome.stdout + outcome.stderr).strip()[-200:])
    return failed[1] + (", which did not end" if failed[2] == "Timeout" else "")


def failing_tests(pattern):
    """All that fail."""
    command = ["ctest", "--preset", "dev", "--timeout", LONGEST_TEST, "-R", pattern]
    outcome = run_tests(command)
    return re.findall(r"^\s*\d+ - (\S+) \((?!Skipped|Not Run|Disabled)", outcome.stdout, re.MULTILINE)


def compare(mutants, pattern):
    """Which tests see each mutant, and which of them are not needed for any."""
    listing = subprocess.run(["ctest", "--preset", "dev", "--show-only", "-R", pattern], cwd=TREE, capture_output=True,
                             text=True, check=True)
    spare = set(re.findall(r"^ +Test +#\d+: (\S+)", listing.stdout, re.MULTILINE))
    for mutant in mutants:
        try:
            apply(mutant)
            built = build(programs(pattern)).returncode == 0
            tests = failing_tests(pattern) if built else []
        finally:
            restore(file for file, _, _ in mutant.changes)
        print(f"{mutant.number:3} {mutant.name:34} {' '.join(tests) if built else 'NOT TRIED'}", flush=True)
        if len(tests) == 1:
            spare -= set(tests)
    print("\nNone of these tests is the only one that sees one of the mutants:", *sorted(spare), sep="\n  ")


def failing_sweep(words):
    """The first sweep of the proof that fails, of those with one of the words in their names, or None."""
    command = ["build/dev/tests/prove_updates", "--every", PROOF_STRIDE, *words.split("|")]
    outcome = run_tests(command)
    if outcome.returncode == 0:
        return None
    if outcome.returncode == PROOF_SKIPPED or "No sweep has" in outcome.stderr:
        raise LookupError("the proof could not be run: " + (outcome.stdout + outcome.stderr).strip()[-200:])
    failed = re.search(r"^(\S.*?)(?: +\d+){4,}  (?!none$|.*as a control must$)\S", outcome.stdout, re.MULTILINE)
    if not failed:
        print(outcome.stderr.strip(), file=sys.stderr)
    return "prove_updates: " + (failed[1] if failed else "a story that nothing disturbs")


def verdict(mutant, only_named):
    """Returns whether the mutant was seen, and by what."""
    try:
        apply(mutant)
        if build(programs(mutant.tests)).returncode != 0:
            raise LookupError("it does not build")
        seen_by = failing_sweep(mutant.sweeps) if mutant.sweeps else failing_test(mutant.tests)
        if not seen_by and not only_named:
            if build().returncode != 0:
                raise LookupError("it does not build")
            seen_by = failing_test(".") if mutant.sweeps else failing_test(".", ["-E", mutant.tests])
    except LookupError as problem:
        return False, f"NOT TRIED: {problem}"
    finally:
        restore(file for file, _, _ in mutant.changes)
    if seen_by:
        return True, seen_by
    if mutant.survives:
        return True, f"survived: {mutant.survives}"
    return False, "SURVIVED" + (" the named tests" if only_named else "")


def main():
    arguments = sys.argv[1:]
    options = {argument for argument in arguments if argument.startswith("-")}
    against = [option.removeprefix("--against=") for option in options if option.startswith("--against=")]
    if options - {"--list", "--named"} - {f"--against={pattern}" for pattern in against}:
        sys.exit(__doc__)
    mutants = selected(parse((ROOT / "scripts/mutants.txt").read_text()),
                       [argument for argument in arguments if argument not in options])
    if "--list" in options:
        for mutant in mutants:
            print(f"{mutant.number:3} {mutant.name:34} {mutant.promise}")
        return 0
    synchronise()
    # Before the first build no test is known, and everything is built.
    outcome = build(programs(against[0] if against else "|".join(mutant.tests for mutant in mutants)))
    if outcome.returncode != 0:
        sys.exit("mutants: the checkout does not build:\n" + outcome.stdout[-3000:])
    if against:
        if failing_tests(against[0]):
            sys.exit("mutants: one of these tests fails without any mutant")
        compare(mutants, against[0])
        return 0
    tests = [mutant.tests for mutant in mutants if not mutant.sweeps]
    sweeps = [mutant.sweeps for mutant in mutants if mutant.sweeps]
    broken = (tests and failing_test("|".join(tests))) or (sweeps and failing_sweep("|".join(sweeps)))
    if broken:
        sys.exit(f"mutants: {broken} fails without any mutant")
    missed, table = 0, []
    for mutant in mutants:
        seen, by = verdict(mutant, "--named" in options)
        missed += not seen
        table.append(f"| {mutant.name} | {mutant.promise} | {by} |")
        print(f"{mutant.number:3} {mutant.name:34} {by}", flush=True)
    print("", "| Mutant | Promise | Seen by |", "|---|---|---|", *table, "", sep="\n")
    print(f"{len(mutants)} mutants, {missed} not seen")
    return 1 if missed else 0


sys.exit(main())

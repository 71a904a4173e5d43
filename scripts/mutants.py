"""Measures the tests by faults put into the product: scripts/mutants [--list] [--named] [SELECTION]...

Each mutant in scripts/mutants.txt changes a few lines in a copy of the checkout, in build/mutants. What it touches is
built; then the tests that are named for it run and, if none of them fails, all tests. A mutant that no test sees
has survived. A SELECTION is a mutant's name, its number or a range such as 3-7; --named runs only the named tests
and --list prints the mutants. The exit status is 0 when every mutant was seen, apart from those that the list explains.
"""
import collections
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
COPY = ROOT / "build/mutants"
TREE = COPY / "tree"
# The files that a mutant was built of and that no build without mutants has followed; a run may be interrupted.
PENDING = COPY / "changed"
LONGEST_TEST = "120"

Mutant = collections.namedtuple("Mutant", "number name promise tests survives changes")


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
        mutants.append(Mutant(len(mutants) + 1, name, fields["promise"], fields["tests"], fields.get("survives"),
                              [[file, "\n".join(old), "\n".join(new)] for file, old, new in changes]))
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
        PENDING.write_text(PENDING.read_text() + file + "\n")
        (TREE / file).write_text(text.replace(old, new))


def restore(files):
    """A file gets a new time, so that what was built of its mutant is built again."""
    for file in files:
        if (ROOT / file).exists():
            shutil.copyfile(ROOT / file, TREE / file)


def build():
    steps = ["cmake --preset dev -DQUORIN_TESTS=ON", "cmake --build --preset dev"]
    return subprocess.run(" && ".join(steps), shell=True, cwd=TREE, capture_output=True, text=True)


def failing_test(pattern, extra=()):
    """The first test that fails, or None."""
    command = ["ctest", "--preset", "dev", "--stop-on-failure", "--timeout", LONGEST_TEST, "-R", pattern, *extra]
    outcome = subprocess.run(command, cwd=TREE, capture_output=True, text=True, errors="replace")
    if outcome.returncode == 0:
        return None
    failed = re.search(r"^\s*\d+ - (\S+) \((?!Skipped|Not Run|Disabled)", outcome.stdout, re.MULTILINE)
    if not failed:
        raise LookupError("no test could be run: " + (outcome.stdout + outcome.stderr).strip()[-200:])
    return failed[1]


def verdict(mutant, only_named):
    """Returns whether the mutant was seen, and by what."""
    try:
        apply(mutant)
        if build().returncode != 0:
            raise LookupError("it does not build")
        seen_by = failing_test(mutant.tests) or (None if only_named else failing_test(".", ["-E", mutant.tests]))
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
    if options - {"--list", "--named"}:
        sys.exit(__doc__)
    mutants = selected(parse((ROOT / "scripts/mutants.txt").read_text()),
                       [argument for argument in arguments if argument not in options])
    if "--list" in options:
        for mutant in mutants:
            print(f"{mutant.number:3} {mutant.name:34} {mutant.promise}")
        return 0
    subprocess.run([ROOT / "scripts/copy_checkout", TREE], check=True)
    PENDING.touch()
    restore(set(PENDING.read_text().split()))
    outcome = build()
    if outcome.returncode != 0:
        sys.exit("mutants: the checkout does not build:\n" + outcome.stdout[-3000:])
    PENDING.write_text("")
    named = "|".join(mutant.tests for mutant in mutants)
    broken = failing_test(named)
    if broken:
        sys.exit(f"mutants: {broken} fails without any mutant")
    missed = 0
    for mutant in mutants:
        seen, by = verdict(mutant, "--named" in options)
        missed += not seen
        print(f"{mutant.number:3} {mutant.name:34} {by}\n      {mutant.promise}", flush=True)
    print(f"{len(mutants)} mutants, {missed} not seen")
    return 1 if missed else 0


sys.exit(main())

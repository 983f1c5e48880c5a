#!/usr/bin/env python3
"""Measures how many small faults the tests catch.

Picks a fixed, seeded sample of small mutations in src/ (a comparison
flipped, a boundary moved by one, && and || swapped, a statement dropped, a
returned truth value inverted), and for each one: applies it, rebuilds the
test programs of the mutated module, runs their tests through CTest, and
puts the file back. A mutant is killed when a test fails, survives when all
pass, and is left out when it does not build. The same seed gives the same
mutants, so two runs compare the suite before and after a change to it.

  scripts/mutation-sample.py [--build build] [--count 60] [--seed 14] [--sample-rev REV] [--report FILE]

--sample-rev draws the sample from src/ as it was at a commit, and finds each
mutated line in today's sources by its text, so that a change elsewhere in a
file (or a new file) does not change which mutants run.
"""

import argparse
import json
import os
import random
import re
import subprocess
import sys
import tarfile
import tempfile
import io
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent

# The tests of each module, by the folder of tests/ that mirrors it. Tests
# that play audio at real-time pace or run a language model take minutes
# and are left to the full suite.
MODULES = {
    "base": ["base"],
    "prefs": ["prefs"],
    "documents": ["documents"],
    "library": ["library"],
    "generation": ["generation"],
    "capture": ["capture"],
    "speech": ["speech"],
    "core": ["core"],
}
SLOW_LABELS = {"e2e"}
SLOW_PROGRAMS = {
    "whisper_real_speech_test", "pocketsphinx_speech_test", "generation_smollm_test",
    "core_summary_smollm_test", "sherpa_diarisation_test", "core_recovery_durability_tests",
}

OPERATORS = [
    ("flip equality", re.compile(r" (==|!=) "), lambda m: " != " if m.group(1) == "==" else " == "),
    ("flip order", re.compile(r" (<=|>=|<|>) "),
     lambda m: {"<": " <= ", "<=": " < ", ">": " >= ", ">=": " > "}[m.group(1)]),
    ("swap logic", re.compile(r" (&&|\|\|) "), lambda m: " || " if m.group(1) == "&&" else " && "),
    ("boundary by one", re.compile(r"(?<=[<>=] )(\d+)\b(?![.\w])"), lambda m: str(int(m.group(1)) + 1)),
    ("plus one to minus one", re.compile(r" ([+-]) 1\b(?![.\w])"),
     lambda m: " - 1" if m.group(1) == "+" else " + 1"),
    ("invert returned truth", re.compile(r"\breturn (true|false);"),
     lambda m: "return false;" if m.group(1) == "true" else "return true;"),
]
CALL_STATEMENT = re.compile(r"^\s+(?!return\b|if\b|for\b|while\b|else\b|case\b|delete\b|throw\b)"
                            r"[A-Za-z_][\w:]*(?:(?:\.|->)[A-Za-z_]\w*)*\([^;{}]*\);\s*$")


def outside_strings(line, position):
    """True when position is not inside a string or character literal."""
    quotes = 0
    i = 0
    while i < position:
        if line[i] == "\\":
            i += 2
            continue
        if line[i] in "\"'":
            quotes += 1
        i += 1
    return quotes % 2 == 0


def candidates(root=ROOT):
    found = []
    for module in sorted(MODULES):
        for path in sorted((root / "src" / module).rglob("*.cpp")):
            lines = path.read_text(encoding="utf-8").split("\n")
            depth = 0
            for number, line in enumerate(lines):
                code = line.split("//")[0] if "//" in line and outside_strings(line, line.index("//")) else line
                stripped = code.strip()
                if depth > 0 and stripped and not stripped.startswith(("#", "*", "/*")):
                    for name, pattern, replace in OPERATORS:
                        for m in pattern.finditer(code):
                            if not outside_strings(code, m.start()) or "template" in code or "#include" in code:
                                continue
                            mutated = line[:m.start()] + replace(m) + line[m.end():]
                            found.append((module, str(path.relative_to(root)), number, name, mutated, line))
                    if CALL_STATEMENT.match(code) and not code.rstrip().endswith(("(", ",")):
                        found.append((module, str(path.relative_to(root)), number, "drop statement", None, line))
                depth += code.count("{") - code.count("}")
    return found


def ctest_plan(build):
    """The CTest numbers and programs of every test, and the programs' targets."""
    out = subprocess.run(["ctest", "--show-only=json-v1"], cwd=build, check=True,
                         capture_output=True, text=True).stdout
    tests = json.loads(out)["tests"]
    plan = []
    for index, test in enumerate(tests, start=1):
        program = Path(test["command"][0])
        labels = []
        for prop in test.get("properties", []):
            if prop["name"] == "LABELS":
                labels = prop["value"]
        plan.append((index, program, labels))
    return plan


def module_tests(plan, build, module):
    numbers, programs = [], set()
    for index, program, labels in plan:
        try:
            folder = program.relative_to(Path(build).resolve() / "tests").parts[0]
        except ValueError:
            continue
        if folder in MODULES[module] and program.name not in SLOW_PROGRAMS and not SLOW_LABELS & set(labels):
            numbers.append(index)
            programs.add(program.name)
    return numbers, sorted(programs)


def run(command, cwd, timeout):
    try:
        return subprocess.run(command, cwd=cwd, capture_output=True, text=True, timeout=timeout).returncode
    except subprocess.TimeoutExpired:
        return "timeout"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default=str(ROOT / "build"))
    parser.add_argument("--count", type=int, default=60)
    parser.add_argument("--seed", type=int, default=14)
    parser.add_argument("--report", default=None)
    parser.add_argument("--sample-rev", default=None, help="draw the sample from src/ at this commit")
    parser.add_argument("--list", action="store_true", help="print the sample and stop")
    args = parser.parse_args()
    build = str(Path(args.build).resolve())

    if args.sample_rev:
        with tempfile.TemporaryDirectory() as old:
            archive = subprocess.run(["git", "archive", args.sample_rev, "src"], cwd=ROOT, check=True,
                                     capture_output=True).stdout
            tarfile.open(fileobj=io.BytesIO(archive)).extractall(old)
            population = candidates(Path(old))
    else:
        population = candidates()
    sample = random.Random(args.seed).sample(population, args.count)
    sample.sort(key=lambda c: (c[0], c[1], c[2]))
    if args.list:
        for module, path, number, name, _, _ in sample:
            print(f"{path}:{number + 1} {name}")
        return 0
    plan = ctest_plan(build)
    results = []
    started = time.monotonic()
    for i, (module, path, number, name, mutated, text) in enumerate(sample, start=1):
        source = ROOT / path
        original = source.read_text(encoding="utf-8") if source.exists() else ""
        lines = original.split("\n")
        # The line where it is today: the same text nearest its old place.
        places = [n for n, line in enumerate(lines) if line == text]
        if not places:
            results.append({"file": path, "line": number + 1, "mutation": name, "outcome": "gone"})
            print(f"[{i}/{len(sample)}] gone      {path}:{number + 1} {name}", flush=True)
            continue
        number = min(places, key=lambda n: abs(n - number))
        if mutated is None:
            lines[number] = ""
        else:
            lines[number] = mutated
        numbers, programs = module_tests(plan, build, module)
        source.write_text("\n".join(lines), encoding="utf-8")
        try:
            built = run(["ninja", "-C", build] + programs, ROOT, 1200) == 0
            if not built:
                outcome = "not built"
            else:
                selection = "0,0,0," + ",".join(map(str, numbers))
                code = run(["ctest", "-j", "2", "--timeout", "120", "--stop-on-failure", "-I", selection], build, 1800)
                outcome = "killed" if code != 0 else "survived"
        finally:
            source.write_text(original, encoding="utf-8")
            os.utime(source)
        results.append({"file": path, "line": number + 1, "mutation": name, "outcome": outcome})
        print(f"[{i}/{len(sample)}] {outcome:9} {path}:{number + 1} {name}", flush=True)
    # Leave the build as the sources are.
    subprocess.run(["ninja", "-C", build], cwd=ROOT, capture_output=True)

    built = [r for r in results if r["outcome"] in ("killed", "survived")]
    killed = [r for r in built if r["outcome"] == "killed"]
    survivors = [r for r in built if r["outcome"] == "survived"]
    rate = 100.0 * len(killed) / len(built) if built else 0.0
    print(f"\n{len(sample)} mutants, {len(built)} built, {len(killed)} killed, {len(survivors)} survived: "
          f"kill rate {rate:.1f}% in {(time.monotonic() - started) / 60:.0f} min")
    for r in survivors:
        print(f"  survived: {r['file']}:{r['line']} {r['mutation']}")
    if args.report:
        Path(args.report).write_text(json.dumps({"seed": args.seed, "results": results}, indent=1))
    return 0


if __name__ == "__main__":
    sys.exit(main())

"""Counts the tests of one ctest run: passed and failed, from GoogleTest's XML results.

What is no GoogleTest program (its name has no _test) is one test, and ctest's own list says
how it ended. A test program that left no result, because it crashed or hung, is one failure. Tests that were
skipped are neither; each is told on standard error, as is each that failed.
Usage: count_tests.py RESULTS_DIR BUILD_DIR
"""
import json
import pathlib
import subprocess
import sys
import xml.etree.ElementTree as ElementTree


def passed_by_ctest(listing: pathlib.Path) -> set[str]:
    if not listing.exists():
        return set()
    return {case.get("name") for case in ElementTree.parse(listing).getroot().iter("testcase")
            if case.get("status") == "run"}


def main() -> None:
    results, build = pathlib.Path(sys.argv[1]), sys.argv[2]
    listing = subprocess.run(
        ["ctest", "--test-dir", build, "--show-only=json-v1"], capture_output=True, check=True)
    programs = {test["name"] for test in json.loads(listing.stdout)["tests"]}
    passed = failed = 0
    seen = set()
    for path in results.glob("*.xml"):
        try:
            suite = ElementTree.parse(path).getroot()
        except ElementTree.ParseError:
            continue
        seen.add(path.stem)
        bad = int(suite.get("failures", 0)) + int(suite.get("errors", 0))
        skipped = [case for case in suite.iter("testcase") if case.find("skipped") is not None]
        for case in skipped:
            why = case.find("skipped").get("message", "").splitlines()[-1:]
            print(f"skipped: {case.get('classname')}.{case.get('name')}:", *why, file=sys.stderr)
        for case in suite.iter("testcase"):
            for failure in case.findall("failure")[:1]:
                where = " ".join(failure.get("message", "").split())
                print(f"failed: {case.get('classname')}.{case.get('name')}: {where}", file=sys.stderr)
        failed += bad
        passed += int(suite.get("tests", 0)) - bad - int(suite.get("disabled", 0)) - len(skipped)
    silent = programs - seen
    fine = {name for name in silent & passed_by_ctest(results / "ctest.junit") if "_test" not in name}
    passed += len(fine)
    failed += len(silent - fine)
    print(passed, failed)


main()

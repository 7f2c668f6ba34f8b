"""Prints "PASSED FAILED SKIPPED NAMES" of a JUnit results file, or of a folder of them, with the names of the tests that
failed; fails when there is no test."""

import pathlib
import sys
import xml.etree.ElementTree


def outcome(case):
    if case.find("failure") is not None or case.find("error") is not None or case.get("status") == "fail":
        return "failed"
    if case.find("skipped") is not None or case.get("status") in ("notrun", "disabled") or case.get("result") == "skipped":
        return "skipped"
    return "passed"


def main():
    given = pathlib.Path(sys.argv[1])
    files = sorted(given.glob("*.xml")) if given.is_dir() else [given]
    cases = [case for file in files for case in xml.etree.ElementTree.parse(file).iter("testcase")]
    outcomes = [outcome(case) for case in cases]
    failed = [case.get("name") for case, result in zip(cases, outcomes) if result == "failed"]
    print(*(outcomes.count(name) for name in ("passed", "failed", "skipped")), *failed)
    return 0 if outcomes else 1


if __name__ == "__main__":
    sys.exit(main())

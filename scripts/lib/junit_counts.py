"""Prints "PASSED FAILED SKIPPED NAMES" of a JUnit results file, with the names of the tests that failed; fails when it
holds no test."""

import sys
import xml.etree.ElementTree


def outcome(case):
    if case.find("failure") is not None or case.find("error") is not None or case.get("status") == "fail":
        return "failed"
    if case.find("skipped") is not None or case.get("status") in ("notrun", "disabled"):
        return "skipped"
    return "passed"


def main():
    cases = list(xml.etree.ElementTree.parse(sys.argv[1]).iter("testcase"))
    outcomes = [outcome(case) for case in cases]
    failed = [case.get("name") for case, result in zip(cases, outcomes) if result == "failed"]
    print(*(outcomes.count(name) for name in ("passed", "failed", "skipped")), *failed)
    return 0 if outcomes else 1


if __name__ == "__main__":
    sys.exit(main())

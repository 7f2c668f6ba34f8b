# Sourced by scripts/check: runs checks, shows what failed and counts.
# shellcheck shell=bash

passed=0
failed=0
skipped=0
failures=()

fail() { # NAME WHY
    failed=$((failed + 1))
    failures+=("$1: $2")
    printf 'FAILED   %s: %s\n' "$1" "$2"
}

skip() { # NAME WHY
    skipped=$((skipped + 1))
    printf 'skipped  %s: %s\n' "$1" "$2"
}

# check NAME COMMAND...: one check, passed when the command succeeds. Its output is shown only when it fails, and the last
# of it once more at the end: of a long run often only the end is kept.
check() {
    local name=$1 log start=$SECONDS
    shift
    log=$(mktemp)
    if "$@" >"$log" 2>&1; then
        passed=$((passed + 1))
        printf 'ok       %s (%d s)\n' "$name" $((SECONDS - start))
        rm -f "$log"
        return 0
    fi
    tail -n 200 "$log"
    fail "$name" 'see above'
    failures[-1]="$name:"$'\n'$(tail -n 20 "$log")
    rm -f "$log"
    return 1
}

# tests NAME JUNIT COMMAND...: a test runner that writes its results to the file JUNIT; every test case counts.
tests() {
    local name=$1 junit=$2 start=$SECONDS status counts case_passed case_failed case_skipped case_names
    shift 2
    rm -f "$junit"
    "$@"
    status=$?
    if ! counts=$(/usr/bin/python3 scripts/lib/junit_counts.py "$junit"); then
        fail "$name" "no results (status $status)"
        return 1
    fi
    read -r case_passed case_failed case_skipped case_names <<<"$counts"
    passed=$((passed + case_passed))
    failed=$((failed + case_failed))
    skipped=$((skipped + case_skipped))
    [ "$case_failed" -eq 0 ] || failures+=("$name: $case_failed failed: $case_names")
    if [ "$status" -ne 0 ] && [ "$case_failed" -eq 0 ]; then
        fail "$name" "the runner ended with status $status"
    fi
    printf '%s: %d, %d, %d of %d (%d s)\n' "$name" "$case_passed" "$case_failed" "$case_skipped" \
        $((case_passed + case_failed + case_skipped)) $((SECONDS - start))
    [ "$status" -eq 0 ]
}

# The last line of the run, and its exit status.
closing_line() {
    [ ${#failures[@]} -eq 0 ] || printf 'FAILED   %s\n' "${failures[@]}"
    printf '%d passed, %d failed, %d skipped\n' "$passed" "$failed" "$skipped"
    [ "$failed" -eq 0 ]
}

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

# check NAME COMMAND...: one check, passed when the command succeeds.
check() {
    local name=$1 log start=$SECONDS status
    shift
    log=$(mktemp)
    "$@" >"$log" 2>&1
    status=$?
    outcome "$name" "$status" "$log" $((SECONDS - start))
}

# outcome NAME STATUS LOG SECONDS: counts a check. Its output is shown only when it failed, and the last of it once more
# at the end: of a long run often only the end is kept. Takes the log away.
outcome() {
    local name=$1 status=$2 log=$3
    if [ "$status" -eq 0 ]; then
        passed=$((passed + 1))
        printf 'ok       %s (%d s)\n' "$name" "$4"
    else
        tail -n 200 "$log"
        fail "$name" 'see above'
        failures[-1]="$name:"$'\n'$(tail -n 20 "$log")
    fi
    rm -f "$log"
    return "$status"
}

# beside NAME COMMAND...: begins a check that runs beside what follows, as a process group of its own; join_all waits for
# all of these and counts them. None outlives the run.
declare -A beside_process beside_log
beside() {
    local name=$1
    shift
    beside_log[$name]=$(mktemp)
    set -m
    "$@" >"${beside_log[$name]}" 2>&1 &
    set +m
    beside_process[$name]=$!
}
join_all() {
    local name start=$SECONDS
    for name in "${!beside_process[@]}"; do
        wait "${beside_process[$name]}"
        outcome "$name" $? "${beside_log[$name]}" $((SECONDS - start))
        unset "beside_process[$name]"
    done
}
end_beside() {
    local process
    for process in "${beside_process[@]}"; do kill -- "-$process"; done 2>/dev/null
}
trap end_beside EXIT

# tests NAME JUNIT COMMAND...: a test runner that writes its results to JUNIT, a file or a folder of files; every test case
# counts.
tests() {
    local name=$1 junit=$2 start=$SECONDS status counts case_passed case_failed case_skipped case_names
    shift 2
    rm -rf "$junit"
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

#!/bin/bash
# run.sh BUILD SCRIPT - runs one Wine test, headless.
#
# BUILD is the windows preset's build folder. SCRIPT is a test, tests/wine/run_NAME.sh: bash, sourced here with
#     $EXE      zorpmsvc.exe                      (paths of the host; wine takes them)
#     $PROBES   folder of the probe programs: tests/wine/NAME.cpp is built as $PROBES/NAME.exe
#     $SCRATCH  an empty folder of this run
#     run SECONDS STATUS PROGRAM [ARGUMENT...]    runs a Windows program, waits for it at most that long, and fails
#                                                 the test unless it exits with that status; output to the console
#     start PROGRAM [ARGUMENT...]                 starts one and goes on; it is ended with the test
#     fail TEXT                                   ends the test as failed
# A script that reaches its end has passed. Cases whose arguments bash would spoil, or that need more than an exit
# status, belong into a probe: a console program (entry wmain) that starts zorpmsvc.exe, looks and exits 0 if all holds.
#
# Everything is private to the build folder: the Wine prefix, and a virtual display of our own. Tests may run beside each
# other: each takes the first prefix that is free. At the end only what was started here is ended.
set -u

build=$(realpath "$1")
script=$(realpath "$2")
EXE=$build/zorpmsvc.exe
PROBES=$build/tests
SCRATCH=$build/wine-scratch/$(basename "$script" .sh)

fail() {
    echo "FAILED: $*"
    exit 1
}

run() { # SECONDS STATUS PROGRAM [ARGUMENT...]
    local seconds=$1 expected=$2 status=0
    shift 2
    timeout -k 5 "$seconds" "$wine" "$@" </dev/null || status=$?
    [ $status -ne 124 ] && [ $status -ne 137 ] || fail "still running after $seconds s: $*"
    [ $status -eq "$expected" ] || fail "exit status $status, expected $expected: $*"
    echo "ok: $(basename "$1") ${*:2}"
}

start() { # PROGRAM [ARGUMENT...]
    "$wine" "$@" </dev/null &
}

rm -rf "$SCRATCH"
mkdir -p "$SCRATCH"
for ((slot = 1;; ++slot)); do
    WINEPREFIX=$(dirname "$build")/wine-prefix-$slot
    exec 6>"$WINEPREFIX.lock"
    flock -n 6 && break
done
# On one processor: what runs under Wine mostly hands over, from thread to thread and to Wine's server, and that takes
# three times as long from one processor to another.
taskset -cp $(((slot - 1) % $(nproc))) $$ >/dev/null
source "$(dirname "$0")/../../tools/wine_session.sh"
source "$script"
exit 0

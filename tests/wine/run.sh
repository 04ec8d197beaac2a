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
# Everything is private to the build folder: the Wine prefix (made by the first run), and a virtual display of our own.
# The tests take turns (CTest's resource lock "wine"). At the end only what was started here is ended.
set -u

build=$(realpath "$1")
script=$(realpath "$2")
EXE=$build/zorpmsvc.exe
PROBES=$build/tests
SCRATCH=$build/wine-scratch/$(basename "$script" .sh)

export WINEPREFIX=$(dirname "$build")/wine-prefix
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe=" # no offers to download, no menus in the home folder
export WINEARCH=win64
unset DISPLAY
PATH=$PATH:/usr/lib/wine # where Debian keeps wine64 and wineserver
wine=$(command -v wine64 || command -v wine) || { echo "wine is not installed"; exit 1; }

xvfb=
finish() {
    local status=$?
    # Wine's own services end soon after the last program, and what was written is kept only then. Both commands
    # reach the processes of this prefix only.
    timeout 20 wineserver -w >/dev/null 2>&1 || timeout 20 wineserver -k >/dev/null 2>&1
    [ -z "$xvfb" ] || { kill "$xvfb" && wait "$xvfb"; } 2>/dev/null
    exit $status
}
trap finish EXIT
trap 'exit 1' INT TERM

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
mkdir -p "$SCRATCH" "$WINEPREFIX"

# A display on a number that the server itself finds free.
exec 7<>"$(t=$SCRATCH/display; mkfifo "$t"; echo "$t")"
Xvfb -displayfd 7 -screen 0 640x480x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
read -r -t 30 -u 7 number || fail "Xvfb does not start"
export DISPLAY=:$number

if [ ! -e "$WINEPREFIX/made" ]; then
    timeout -k 5 240 "$wine" wineboot -i </dev/null >/dev/null 2>&1 || fail "the Wine prefix cannot be made"
    # Some services do not start before the session that made it has ended.
    timeout 60 wineserver -w || wineserver -k
    touch "$WINEPREFIX/made"
fi

source "$script"
exit 0

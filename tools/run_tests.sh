#!/bin/bash
# run_tests.sh [PRESET...] [CTEST-OPTION...] - runs the tests of the built presets as one suite and ends on ctest's
# closing lines. The figures that the sweeps measured are printed as one table just before.
set -eu
cd "$(dirname "$0")/.."

suite=build/tests
mkdir -p $suite
: >$suite/CTestTestfile.cmake
while [ $# -gt 0 ] && [[ $1 != -* ]]; do
    echo "subdirs(\"$PWD/build/$1\")" >>$suite/CTestTestfile.cmake
    shift
done

figures=build/figures.txt
rm -f $figures
show_figures() {
    [ -s $figures ] || return 0
    echo
    echo "Figures"
    sort $figures | sed 's/^/    /'
}

# One more at a time than there are processors: the Wine tests mostly wait.
set +e
ctest --test-dir $suite --output-on-failure --no-label-summary -j$(($(nproc) + 1)) "$@" 2>&1 |
    while IFS= read -r line; do
        [[ $line =~ ^[0-9]+%\ tests\ passed ]] && show_figures && echo
        printf '%s\n' "$line"
    done
exit "${PIPESTATUS[0]}"

#!/bin/bash
# run.sh [NAME...] - plants the known defects, one at a time, in a copy of the tree; the tests must notice each of them.
# run.sh --check [NAME...] - only checks that every defect still matches the sources; a moment.
#
# The defects are the rows of tests/defects/FOLDER.txt (plant.pl says how one is written). NAME is FOLDER/ROW, or FOLDER
# for all of its rows. A row that "needs" sweeps runs these too, if nothing else has failed.
# It counts as caught when a unit test, a scenario or a sweep fails or hangs; a row that does not match or does not
# compile proves nothing and fails the run, and so do tests that fail without any defect.
#
# The rows of bench.txt break the simulated machine, for the comparison with Wine: tests/wine/bench_defects.sh runs them.
#
# The copies are built without sanitizers, one for each processor, and rebuilt by what each defect touches.
set -u
cd "$(dirname "$0")/../.."
root=$PWD
work=$root/build/defects
plant=$root/tests/defects/plant.pl
limit_s=60 # of processor, for one run of the tests; a defect may hang them, and a busy machine is no hang

if [ "${1:-}" = --check ]; then
    shift
    "$plant" check "$@"
    exit
fi
"$plant" check "$@" || exit 1
case "${1:-}" in bench | bench/*) exec tests/wine/bench_defects.sh "$@" ;; esac
mapfile -t defects < <("$plant" list "$@")

export GIT_CEILING_DIRECTORIES=$work # the copies are no part of this repository
export CCACHE_NOHASHDIR=1

build() { # TREE
    CCACHE_BASEDIR=$1 cmake --build "$1/build" --target zorpm_tests zorpm_sweeps zorpmsim >"$1/build.log" 2>&1
}

make_tree() { # TREE
    mkdir -p "$1"
    git ls-files -co --exclude-standard | while IFS= read -r file; do [ -e "$file" ] && echo "$file"; done |
        tar cf - -T - | tar xf - -C "$1"
    cmake -S "$1" -B "$1/build" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS=-O1 \
        -DCMAKE_COMPILE_WARNING_AS_ERROR=OFF -DZORPM_TOGETHER=OFF >"$1/build.log" 2>&1 && build "$1" || { tail -n 20 "$1/build.log"; return 1; }
}

limited() { # SECONDS COMMAND...
    (ulimit -t "$1" && exec timeout -k 5 $((20 * $1)) "${@:2}") >test.log 2>&1
}

# Runs the tests in a tree; prints the first failure and returns 1 when there is one.
run_tests() { # TREE SWEEPS (a filter, or none)
    local status found
    cd "$1" || exit 1
    limited $limit_s build/zorpm_tests --gtest_fail_fast --gtest_brief=1
    status=$?
    if [ $status -eq 0 ]; then
        limited $limit_s build/zorpmsim scenarios/*.txt
        status=$?
    fi
    if [ $status -eq 0 ] && [ "$2" != none ]; then
        limited $((5 * limit_s)) build/zorpm_sweeps --gtest_filter="$2" --gtest_fail_fast --gtest_brief=1
        status=$?
    fi
    [ $status -ne 0 ] || return 0
    found=$(grep -m1 -oE '^\[  FAILED  \] [A-Za-z0-9_./]+|^scenarios/[^:]*:[0-9]+: .*' test.log | cut -c1-70)
    case $status in 124 | 137 | 152) found="hangs" ;; esac
    echo "${found:-exit status $status}" | sed 's/^\[  FAILED  \] //'
    return 1
}

try() { # TREE NAME NEEDS WHAT... - one line of the table; returns 1 unless caught
    local tree=$1 name=$2 needs=$3 verdict by
    if ! "$plant" plant "$tree" "$name" 2>"$tree/build.log"; then
        verdict="BROKEN  $(head -n1 "$tree/build.log")"
    elif ! build "$tree"; then
        verdict="BROKEN  $name: does not compile: $(grep -m1 error: "$tree/build.log")"
    elif by=$(run_tests "$tree" "$needs"); then
        verdict="MISSED  $name: ${*:4}"
    else
        verdict=$(printf 'caught  %-44s by %s' "$name" "$by")
    fi
    "$plant" lift "$tree" "$name" || verdict="BROKEN  $name: does not come out again"
    echo "$verdict"
    [[ $verdict == caught* ]]
}

worker() { # NUMBER COUNT
    local i defect status=0
    for ((i = $1; i < ${#defects[@]}; i += $2)); do
        read -ra defect <<<"${defects[i]}"
        try "$work/tree$1" "${defect[@]}" || status=1
    done
    return $status
}

# The copies start afresh: what an interrupted run left in them may be changed.
rm -rf "$work"
count=$(nproc)
[ "$count" -le ${#defects[@]} ] || count=${#defects[@]}
for ((n = 0; n < count; n++)); do
    make_tree "$work/tree$n" || { echo "the tree does not build"; exit 1; }
done
needs=$(printf '%s\n' "${defects[@]}" | awk '$2 != "none" { print $2 }' | sort -u | paste -sd:)
first=$(run_tests "$work/tree0" "${needs:-none}") || { echo "the tests fail without any defect: $first"; exit 1; }

pids=()
for ((n = 0; n < count; n++)); do
    worker $n "$count" &
    pids+=($!)
done
status=0
for pid in "${pids[@]}"; do wait "$pid" || status=1; done
[ $status -eq 0 ] && echo "all ${#defects[@]} defects caught" || echo "not every defect was caught"
exit $status

#!/bin/bash
# run.sh RACES [NAME...] - four races that the product once had, planted anew one at a time. Each is hunted as
# docs/scenarios.md tells: found by --seeds in NAME.txt, as it would be told; made short; repeated by the command that
# comes with it; and every schedule of its two threads, in NAME_explored.txt, is tried, of the planted one no more
# than three hundred. The product as it is holds in all of them.
#
# The head of NAME.txt names the planted row of tests/defects/ and the options of zorpmsim. RACES is the folder that
# cmake/races.cmake fills.
set -u
races=$(realpath "$1")
cd "$(dirname "$0")" || exit 1
scripts=$PWD
shift
[ $# -gt 0 ] || set -- $(ls | sed -n 's/_explored.txt$//; s/[.]txt$//p' | sort)
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
cd "$place" || exit 1
failed=0

# zorpmsim with an image: a row's, or none.
with() { # ROW ARGUMENT...
    local folder=$place/$1
    if [ ! -d "$folder" ]; then
        mkdir -p "$folder"
        ln "$races/zorpmsim" "$races/libzorpmsim.so" "$races/$1/libzorpm_image.so" "$folder" 2>/dev/null ||
            cp "$races/zorpmsim" "$races/libzorpmsim.so" "$races/$1/libzorpm_image.so" "$folder"
        ln "$folder/libzorpm_image.so" "$folder/libzorpm_atomics_image.so"
    fi
    "$folder/zorpmsim" "${@:2}"
}

# Runs a command; its output, with the part of it that matters in $found; says so when that part is missing.
must() { # WHAT PATTERN (of sed, with one group) COMMAND...
    "${@:3}" >out 2>err
    found=$(sed -nE "s/$2/\\1/p" out | head -1)
    [ -z "$found" ] || return 0
    echo "$race: $1:"
    tail -n 3 out err
    failed=1
    return 1
}

hunt() { # ROW OPTION...
    local row=$1 seed again
    shift
    must "the product does not hold" '^.*: (200) seeds hold$' with none "$@" --seeds 200 "$race.txt" || return
    must "not found" "^$race.txt: seed ([0-9]+): .*" with "$row" "$@" --seeds 1000 "$race.txt" || return
    seed=$found
    must "not made short" '^# .* in ([0-9]|1[0-2]) commands and .*' with "$row" "$@" --shrink --seed "$seed" "$race.txt" ||
        return
    local commands=$found
    mv out short.txt
    read -ra again <<<"$(sed -n 's/^# Repeat with: zorpmsim \(.*\)THIS$/\1/p' short.txt)"
    must "not repeated" '^(short.txt:[0-9]+): expected .*' with "$row" "${again[@]}" short.txt || return
    must "not explored" '^.*: ([0-9]+ of [0-9]+) schedules fail, .*' \
        with "$row" "$@" --limit 300 --explore "${race}_explored.txt" || return
    local failing=$found
    must "not every schedule holds" '^.*: ([0-9]+) schedules hold, complete.*' \
        with none "$@" --explore "${race}_explored.txt" || return
    printf '%-13s seed %3s, %2s commands, %s schedules fail, without the race %s hold\n' \
        "$race" "$seed" "$commands" "$failing" "$found"
}

cp "$scripts"/*.txt .
for race in "$@"; do
    read -ra planted <<<"$(sed -n '1s/^# Planted: //p' "$race.txt")"
    hunt "${planted[@]}"
done
exit $failed

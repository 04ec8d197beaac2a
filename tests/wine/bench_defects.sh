#!/bin/bash
# bench_defects.sh [bench/ROW...] - plants the defects of the simulated machine (tests/defects/bench.txt), one at a time, in
# a copy of the tree, and compares the row's script on that bench and on Wine: each must be found different, and equal
# before. It takes the Windows build's runner as it is built (make test does so).
set -u
cd "$(dirname "$0")/../.."
root=$PWD
tree=$root/build/bench-defects
built=$root/build/windows/tests
runner=$tree/runner/zorpmrunner.exe
plant=$root/tests/defects/plant.pl
[ -x "$built/zorpmrunner.exe" ] || { echo "$built/zorpmrunner.exe is not built: make windows" >&2; exit 2; }
[ $# -gt 0 ] || set -- bench
"$plant" check "$@" || exit 1
mapfile -t defects < <("$plant" list "$@")

export GIT_CEILING_DIRECTORIES=$tree # the copy is no part of this repository
export CCACHE_NOHASHDIR=1 CCACHE_BASEDIR=$tree
WINEPREFIX=$root/build/wine-prefix-defects
source tools/wine_session.sh
"$wine" regedit /S "Z:$root/tests/wine/devices.reg" </dev/null >/dev/null 2>&1

build() {
    cmake --build "$tree/build" --target zorpmwine >"$tree/build.log" 2>&1
}

compare() { # SCRIPT...: the table
    (cd "$tree" && timeout 200 taskset -c 0 build/zorpmwine --compare "$wine" "$runner" "$@" 2>&1)
}

# What an interrupted run left in the copy may be changed.
rm -rf "$tree"
mkdir -p "$tree/runner"
cp "$built"/{zorpmrunner.exe,zorpm_image.dll,zorpmctl_image.dll,notebook.sys} "$tree/runner/" # one for the whole run
git ls-files -co --exclude-standard | while IFS= read -r file; do [ -e "$file" ] && echo "$file"; done |
    tar cf - -T - | tar xf - -C "$tree"
cmake -S "$tree" -B "$tree/build" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS=-O1 \
    -DCMAKE_COMPILE_WARNING_AS_ERROR=OFF >"$tree/build.log" 2>&1 && build ||
    { tail -n 20 "$tree/build.log"; echo "the tree does not build"; exit 1; }
mapfile -t scripts < <(printf '%s\n' "${defects[@]}" | awk '{ print $2 }' | sort -u)
before=$(compare "${scripts[@]}")
[ "$(grep -c ^equal <<<"$before")" -eq ${#scripts[@]} ] || { echo "$before"; echo "not equal without any defect"; exit 1; }

status=0
for row in "${defects[@]}"; do
    read -r name script breaks <<<"$row"
    if ! "$plant" plant "$tree" "$name" || ! build; then
        verdict="BROKEN  $name: $(grep -m1 error: "$tree/build.log")"
    elif found=$(compare "$script" | grep ^different); then
        verdict=$(printf 'caught  %-38s by %s' "$name" "${found#different  }")
    else
        verdict="MISSED  $name: $breaks"
    fi
    "$plant" lift "$tree" "$name"
    echo "${verdict:0:200}"
    [[ $verdict == caught* ]] || status=1
done
[ $status -eq 0 ] && echo "all ${#defects[@]} defects of the bench caught" || echo "not every defect of the bench was caught"
exit $status

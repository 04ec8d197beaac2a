#!/bin/bash
# page.sh [--check] - builds sim/page/d3.js, what the page of a run uses of d3, from the modules that
# sim/page/package-lock.json pins, with their licences at its head. With --check only compares.
# The modules are installed in build/page/node_modules; the browser's test uses them too.
set -eu
cd "$(dirname "$0")/.."

place=build/page
mkdir -p $place
if ! cmp -s sim/page/package-lock.json $place/installed; then
    cp sim/page/package.json sim/page/package-lock.json sim/page/.npmrc $place
    log=$(mktemp)
    if ! npm ci --ignore-scripts --prefix $place >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        echo "npm could not install the modules of sim/page/package-lock.json" >&2
        exit 1
    fi
    rm -f "$log"
    cp sim/page/package-lock.json $place/installed
fi

cp sim/page/d3_entry.js $place
cd $place
node_modules/.bin/esbuild d3_entry.js --bundle --minify --format=iife --global-name=d3 --log-level=warning \
    --metafile=modules.json --outfile=bundle.js
{
    echo "/* Modules of d3:"
    grep -oE '"node_modules/[^/"]+' modules.json | sort -u | sed 's|"node_modules/|   |'
    for licence in $(grep -oE 'node_modules/[^/"]+' modules.json | sort -u); do
        [ ! -e "$licence/LICENSE" ] || md5sum "$licence/LICENSE"
    done | sort -u -k1,1 | while read -r _ file; do
        echo
        cat "$file"
    done
    echo "*/"
    cat bundle.js
} >d3.js
cd - >/dev/null

if [ "${1:-}" = --check ]; then
    cmp $place/d3.js sim/page/d3.js && exit
    echo "sim/page/d3.js is not what the pinned modules make: make page"
    exit 1
fi
cp $place/d3.js sim/page/d3.js

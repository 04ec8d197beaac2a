#!/bin/bash
# run.sh ZORPMSIM [PICTURE.png] - the page of the demo in a real browser; with a picture's name it is taken too.
set -eu
sim=$1
cd "$(dirname "$0")/../.."
tools/page.sh --check

page=build/page/demo.html
"$sim" --page $page scenarios/demo.txt >/dev/null
effects=$("$sim" --plain scenarios/demo.txt | grep -cE '^[0-9]+\.[0-9]{3} ')
cp tests/browser/page.mjs build/page/
node build/page/page.mjs $page "$effects" "${2:-}"

# The same run for other viewers: as many effects again.
"$sim" --perfetto build/page/demo.json scenarios/demo.txt >/dev/null
node -e '
const events = JSON.parse(require("fs").readFileSync("build/page/demo.json", "utf8")).traceEvents;
const tent = events.find((e) => e.args?.meaning === "hinge: tent, accepted");
if (!tent || tent.ts !== 1805e6 || !tent.args.cause.startsWith("event 0x60C0"))
    throw new Error("no tent: " + JSON.stringify(tent));
if (!events.some((e) => e.ph === "X" && e.pid === 2 && e.name === "tent" && e.dur === 0))
    throw new Error("no posture: tent");
'

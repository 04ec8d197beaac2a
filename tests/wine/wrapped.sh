#!/bin/bash
# wrapped.sh BUILD - every call that src/ makes is wrapped in the recorder, or on the list of those that need not be, with
# a reason; the same for the runner. None that is wrapped is left in the recorder's imports, nor on the list, and no list
# has a name twice. Functions that are looked up by name are in the recorder's table. BUILD is the windows preset's folder.
set -eu
build=$1
cd "$(dirname "$0")/../.."

status=0
wrong() {
    echo "$*"
    status=1
}
imports() { # EXE: but for the C library's
    x86_64-w64-mingw32-objdump -p "$1" |
        awk '/DLL Name/ { dll = tolower($3) } /^\t[0-9a-f]+\t +[0-9]+  / && dll != "msvcrt.dll" { print $NF }' | sort
}
listed() { # FILE...: the names below the reasons
    sed -n 's/^    //p' "$@" | tr -s ' ' '\n' | sort
}
recorded() { grep -oP '^ +ROW\(\K\w+' recorder/record/os.h | sort; }
run() { grep -oP '^ *WRAP\(\K\w+' recorder/runner/wrapped.cpp | sort; }
of() { sed 's/^/    /' <<<"$1"; }

product=$(imports "$build/zorpmsvc.exe")
[ "$(wc -w <<<"$product")" -gt 100 ] || wrong "few imports of zorpmsvc.exe: $product"
lists="recorder/record/without_effect.txt recorder/runner/real_calls.txt"

open=$(comm -23 <(echo "$product") <(sort <(recorded) <(listed recorder/record/without_effect.txt)))
[ -z "$open" ] || wrong "neither in RECORDED_CALLS nor in recorder/record/without_effect.txt:
$(of "$open")"
open=$(comm -23 <(echo "$product") <(sort <(run) <(listed $lists)))
[ -z "$open" ] || wrong "neither wrapped in recorder/runner/wrapped.cpp nor on a list:
$(of "$open")"
left=$(comm -12 <(imports "$build/recorder/zorpmsvc.exe") <(recorded))
[ -z "$left" ] || wrong "wrapped, and imported by the recorder all the same:
$(of "$left")"
both=$(comm -12 <(recorded) <(listed recorder/record/without_effect.txt))
[ -z "$both" ] || wrong "wrapped, and on the list of those that are not:
$(of "$both")"
twice=$(listed $lists | uniq -d)
[ -z "$twice" ] || wrong "listed twice:
$(of "$twice")"
gone=$(comm -13 <(echo "$product") <(sort <(recorded) <(listed recorder/record/without_effect.txt)))
[ -z "$gone" ] || wrong "no longer called by src/:
$(of "$gone")"

by_name=$(perl -0777 -ne 'print "$1\n" while /(?:CallPowrProf|\bFind<[^;"]*>)\(\s*"(\w+)"/g' src/*/*.cpp | sort -u)
[ "$(wc -w <<<"$by_name")" -gt 5 ] || wrong "few functions looked up by name: $by_name"
open=$(comm -23 <(echo "$by_name") <(grep -oP 'FUNCTION\("\K\w+' recorder/record/power.cpp | sort))
[ -z "$open" ] || wrong "looked up by name, and not in the table of recorder/record/power.cpp:
$(of "$open")"

echo "$(wc -w <<<"$product") calls of src/: $(recorded | wc -l) recorded, $(listed recorder/record/without_effect.txt | wc -l) without effect; $(run | wc -l) of the runner's own"
exit $status

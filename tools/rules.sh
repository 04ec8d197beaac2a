#!/bin/bash
# rules.sh - the rules that no compiler checks: includes run downwards in src/ and sim/; nothing in src/ that differs
# between the two builds or that an image cannot carry; types of one file are its own; headings are one short line;
# script commands come last; functions of tests are short. Prints each offending line; fails when there is one.
set -u
cd "$(dirname "$0")/.."
status=0

# Each folder may include itself, those before it on its own line's left, and what "also" names.
declare -A rank=([common]=0 [driver]=1 [power]=2 [cooling]=3 [formfactor]=3 [hotkeys]=3 [helper]=3 [cpu]=3
                 [display]=3 [setup]=3 [events]=4 [service]=5 [ctl]=4)
declare -A also=([formfactor]=" cooling hotkeys ")
# The rooms of sim/ likewise; their includes name them as sim/ROOM/.
rank+=([sim/machine]=0 [sim/script]=1 [sim/notebook]=2 [sim/windows]=3 [sim/invariants]=4 [sim/tool]=6 [sim/hunt]=7)

while IFS=: read -r file line text; do
    from=${file%/*} from=${from#src/}
    to=${text#*\"} to=${to%/*}
    [ "$from" = "$to" ] && continue
    if [ -z "${rank[$from]:-}" ] || [ -z "${rank[$to]:-}" ]; then
        echo "$file:$line: folder without a rank in tools/rules.sh: $text"
        status=1
    elif [ "${rank[$to]}" -ge "${rank[$from]}" ] && [[ ${also[$from]:-} != *" $to "* ]]; then
        echo "$file:$line: $from must not include $to"
        status=1
    fi
done < <(grep -nE '^#include "' src/*/*.h src/*/*.cpp sim/{machine,script,notebook,windows,invariants,tool,hunt}/*.{h,cpp} 2>/dev/null)

# State is found by its type: two of one name would be one. What a header declares without a body may have it here.
outside=$(awk '
    FNR == 1 { anonymous = 0 }
    /^namespace \{/ { anonymous = 1 }
    /^\} \/\/ namespace$/ { anonymous = 0 }
    FILENAME ~ /\.h$/ && /^struct [A-Za-z]+;/ { declared[$2] = 1; next }
    FILENAME ~ /\.cpp$/ && !anonymous && /^(template <[^>]*> )?(struct|class|union|enum( class)?)( [A-Za-z]+)?[^;(]*\{/ {
        if (!(($2 ";") in declared))
            print FILENAME ":" FNR ": a type outside the anonymous namespace: " $0
    }' {sim,src,tests}/*/*.h {sim,src,tests}/*/*.cpp tests/*.cpp)
[ -z "$outside" ] || { echo "$outside"; status=1; }

if grep -rnE --include='*.h' --include='*.cpp' '//.*-{9,}' src sim tests; then
    echo "a heading is one short line: // ---- name ----"
    status=1
fi

# Script commands come last in a file of sim/, under one heading; a file of nothing else needs none.
misplaced=$(awk '
    function check() {
        if (commands && !heading && file !~ /_commands\.cpp$/)
            print file ": commands without the heading // ---- commands ----"
    }
    FNR == 1 { check(); file = FILENAME; commands = heading = 0 }
    /^\/\/ ---- commands ----$/ { heading = 1; next }
    heading && /^(\/\/ ----|extern "C")/ { print FILENAME ":" FNR ": behind the script commands: " $0 }
    commands && /^[A-Za-z].*[({]$/ { print FILENAME ":" FNR ": behind the script commands: " $0 }
    /^static const Commands / { commands = 1 }
    END { check() }' sim/*/*.cpp)
[ -z "$misplaced" ] || { echo "$misplaced"; status=1; }

# Tests are read like a table: what is longer than 60 lines stands outside the function, as a table.
long=$(awk '
    /^[A-Za-z][^=]*\(/ { start = FNR; name = $0 }
    /^\}./ { start = 0 }
    /^\}$/ && start {
        if (FNR - start - 1 > 60)
            print FILENAME ":" start ": " FNR - start - 1 " lines, 60 at most: " name
        start = 0
    }' $(git ls-files 'tests/*.cpp' 'tests/*.h'))
[ -z "$long" ] || { echo "$long"; status=1; }

# pattern|why  (comments are left out of the search)
rules='
#\s*(el)?if(?!n?def NDEBUG)|one source for both builds: the release trace is all that may differ
\bstd::(w?string|mutex|thread|function)\b|not in src: the image cannot carry it
\bthread_local\b|an image has no thread-local storage
\b(wcs[a-z]+|wmem[a-z]+|f?w?printf|swprintf|_wcs[a-z]+)\s*\(|the wide functions of libc do not work on the host
\b(unsigned )?long\b|8 bytes on the host: use DWORD, LONG or int
\bdynamic_cast\b|no RTTI
\b(throw|try|catch)\b|no exceptions
'
while IFS= read -r rule; do
    pattern=${rule%|*} why=${rule##*|}
    if found=$(grep -nP "$pattern" src/*/*.h src/*/*.cpp | grep -vP '^[^:]+:\d+:\s*//' |
               sed -E 's|//.*||; s|"([^"\\]\|\\.)*"|""|g' | grep -P ":[0-9]+:.*($pattern)"); then
        sed "s#\$#   <- $why#" <<<"$found"
        status=1
    fi
done < <(grep . <<<"$rules")
exit $status

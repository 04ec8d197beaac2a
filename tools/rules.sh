#!/bin/bash
# rules.sh - the rules of src/ that no compiler checks: includes run downwards, and nothing that differs between the
# two builds or that an image cannot carry. Prints each offending line; fails when there is one.
set -u
cd "$(dirname "$0")/.."
status=0

# Each folder may include itself, those before it on its own line's left, and what "also" names.
declare -A rank=([common]=0 [driver]=1 [power]=2 [cooling]=3 [formfactor]=3 [hotkeys]=3 [helper]=3 [cpu]=3
                 [display]=3 [setup]=3 [events]=4 [service]=5 [ctl]=4)
declare -A also=([formfactor]=" cooling hotkeys ")

while IFS=: read -r file line text; do
    from=${file#src/} from=${from%%/*}
    to=${text#*\"} to=${to%%/*}
    [ "$from" = "$to" ] && continue
    if [ -z "${rank[$from]:-}" ] || [ -z "${rank[$to]:-}" ]; then
        echo "$file:$line: folder without a rank in tools/rules.sh: $text"
        status=1
    elif [ "${rank[$to]}" -ge "${rank[$from]}" ] && [[ ${also[$from]:-} != *" $to "* ]]; then
        echo "$file:$line: $from must not include $to"
        status=1
    fi
done < <(grep -nE '^#include "' src/*/*.h src/*/*.cpp)

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

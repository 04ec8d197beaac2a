#!/bin/bash
# tool_test.sh ZORPMSIM ENDING - the command line of zorpmsim: what it prints where, and its exit status. ENDING is an image
# that crashes or runs on when told to. The hunt for races is tests/races/run.sh.
set -u
sim=$1
ending=$2
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
cd "$place" || exit 1
failed=0

# check NAME STATUS STDOUT STDERR COMMAND...: the patterns (of grep -E; "-": nothing at all) are looked for.
check() {
    local name=$1 status=$2 out=$3 err=$4 got
    shift 4
    "$@" >out 2>err
    got=$?
    look "$name" out "$out"
    look "$name" err "$err"
    [ $got -eq "$status" ] || { echo "$name: exit status $got, not $status"; failed=1; }
}

look() { # NAME FILE PATTERN
    if [ "$3" = - ]; then
        [ ! -s "$2" ] || { echo "$1: std$2 is not empty: $(head -3 "$2")"; failed=1; }
    elif ! grep -qE -- "$3" "$2"; then
        echo "$1: std$2 lacks $3:"
        tail -3 "$2"
        failed=1
    fi
}

printf 'start\nadvance 1s\nexpect no call *\n' >holds.txt
printf 'start\nadvance 1s\nstop\nexpect request DYTC(0x5) = 0x1\n' >fails.txt
printf 'evnet 1\nstart\nevent x\n' >wrong.txt
printf 'include holds.txt\ninclude wrong.txt\n' >includes.txt
printf 'include holds.txt\nexpect status RUNNING 0/0\n' >included.txt
printf 'start\nrepeat 3000\nevent 0x7000\nend\nexpect no call *\n' >many.txt # more lines than a pipe holds
mkdir -p folder

#     name                    status  standard output                        standard error
check "holds"                  0 '^holds.txt: 1 expectations hold$'          -  "$sim" holds.txt
check "fails"                  1 '^fails.txt:4: expected request DYTC'       -  "$sim" fails.txt holds.txt
check "the others run too"     1 '^holds.txt: 1 expectations hold$'          -  "$sim" fails.txt holds.txt
check "unusable"               2 - '^wrong.txt:1: no such command: evnet 1; did you mean event\?'  "$sim" wrong.txt holds.txt
check "all faults"             2 - '^wrong.txt:3: number expected: x$'       "$sim" wrong.txt
check "included faults"        2 - '^wrong.txt:3: number expected: x$'       "$sim" includes.txt
check "missing"                2 - '^none.txt:0: No such file or directory$' "$sim" none.txt
check "a directory"            2 - '^folder:0: Is a directory$'              "$sim" folder
check "unreadable"             2 - '^/proc/self/mem:0: Input/output error$'  "$sim" /proc/self/mem
check "included"               0 '^included.txt: 2 expectations hold$'       -  "$sim" included.txt
check "standard input"         0 '^-: 1 expectations hold$'                  -  "$sim" - <holds.txt
check "no files"               2 - '^zorpmsim \[OPTION\]'                    "$sim"
check "no such option"         2 - 'no such option: --sed; did you mean --seed\?' "$sim" --sed 5 holds.txt
check "no number"              2 - '--seed takes N, not "5x"'                "$sim" --seed 5x holds.txt
check "no number of 64 bits"   2 - '--seed takes N, not "18446744073709551616"' "$sim" --seed 18446744073709551616 holds.txt
check "no range"               2 - '--seeds takes N|A..B, not "5..4"'        "$sim" --seeds 5..4 holds.txt
check "a page of two scripts"  2 - '--page and --perfetto take one script'   "$sim" --page x.html holds.txt fails.txt
check "a page nowhere"         3 . 'none/x.html: cannot be written'          "$sim" --page none/x.html holds.txt
check "nothing behind"         2 - '--seed takes N$'                         "$sim" holds.txt --seed
check "no value wanted"        2 - '--trace-all takes no value'              "$sim" --trace-all=1 holds.txt
check "seeds hold"             0 '^holds.txt: 12 seeds hold$'                -  "$sim" --seeds 12 --jobs 3 holds.txt
check "seeds fail"             1 '^fails.txt: seed 4: fails.txt:4: expected request DYTC' -  "$sim" --seeds 4..9 fails.txt
check "repeated"               1 'repeat with: zorpmsim --seed 4 fails.txt'  -  "$sim" --seeds=4..9 fails.txt
check "counted"                1 '^fails.txt: 6 of 6 seeds fail$'            -  "$sim" --seeds 4..9 --all fails.txt

# The timeline: for people only when asked, where the output is no terminal; the raw trace stays as it is.
printf 'start\nadvance 30m # pause\nevent 0x60C0\nregistry set SVC\\Parameters\\CurrentSetting @ dword 0x4\nstop\nexpect status STOPPED 0/0\n' >read.txt
check "time passes"            0 '^09:30:00 +1800.000 +>> 30 min later$'     -  "$sim" --read read.txt
check "an event"               0 '^ +>> +event 0x60C0 +transformation changed$' -  "$sim" --read read.txt
check "a client"               0 '>> +client writes CurrentSetting = 0x4 +handed to clients: hot key 3$' -  "$sim" --read read.txt
check "what it means"          0 '^ +hot keys +MHKM\(3, 1\) +hot key 3 is handed to clients$' -  "$sim" --read read.txt
check "the start folded"       0 '^ +[0-9] threads +[0-9]+ effects +running, posture notebook, lid open'          -  "$sim" --read read.txt
check "the start unfolded"     0 '^ +main +MHKV\(0x0\) = 0x200 +three pages' -  "$sim" --read --trace-all read.txt
check "idle waits folded"      0 'WaitForMultipleObjects.* x [0-9]{3}$'      -  "$sim" --trace-all read.txt
check "no such kind"           2 - '--trace takes KIND,..., not "opens,reads"' "$sim" --trace=opens,reads read.txt
check "no such time"           2 - '--from takes TIME, not "9:75"'           "$sim" --from 9:75 read.txt
"$sim" --plain --thread "lid watch" --thread events --trace=requests --from 09:30 --to 1801 read.txt |
    cut -d' ' -f1-3 | sort | uniq -c >some
diff - some <<'EOF' || { echo "a part of the trace"; failed=1; }
      5 1800.000 TerminalThread request
      1 read.txt: 1 expectations
EOF
cmp <("$sim" read.txt) <("$sim" --plain --read --plain read.txt) || { echo "raw trace: differs"; failed=1; }
COLUMNS=80 "$sim" --read read.txt | awk 'length > 80 { print "too wide: " $0; bad = 1 } END { exit bad }' || failed=1
# Help is made from the commands.
check "help"                   0 '^  firmware METHOD'                        -  "$sim" --help
check "help of a command"      0 '^  windows hibernate allowed\|forbidden'  -  "$sim" --help windows hibernate
check "no such command"        2 - 'did you mean firmware\?'                "$sim" --help firmwares
check "version"                0 '^zorpmsim [0-9]+\.[0-9]+\.[0-9]+$'       -  "$sim" --version
! "$sim" --help | grep -E '^  [a-z -]+ $' || { echo "a command without help"; failed=1; }

# A file that expects nothing.
printf 'start\nshow threads\n' >asks_nothing.txt
check "expects nothing"        0 '^asks_nothing.txt: 0 expectations hold$'   '^asks_nothing.txt: it expects nothing$' "$sim" asks_nothing.txt
check "shown"                  0 'TerminalThread \(service\): waits for'   'nothing' "$sim" asks_nothing.txt
printf 'start\nshow registry SVC\\Transform\\CurrentStatus\nshow handles\nshow firmware\nshow devices\nshow status\n' >shows.txt
check "shown"                  0 '^    MM = 0x1$'                            nothing "$sim" shows.txt
for line in '^  thread TerminalThread \(service\)$' '^  request MHKV\(0x0\) = 0x200 at 0.000$' '^  slate present, state 1,' '^  RUNNING 0/0, '; do
    look "shown" out "$line"
done
check "strict"                 1 '^asks_nothing.txt:0: it expects nothing'   nothing "$sim" --strict asks_nothing.txt
check "repeated with atomics"  1 'repeat with: zorpmsim --atomics --seed 1 fails.txt' -  "$sim" --atomics --seeds 2 fails.txt
check "strict seeds"           1 '^asks_nothing.txt: seed 1: .* expects nothing' nothing "$sim" --strict --seeds 2 asks_nothing.txt

# The verdict comes last, behind the lines around it and the state.
"$sim" fails.txt >out
[[ $(tail -1 out) == "fails.txt:4: expected request DYTC(0x5) = 0x1" ]] || { echo "the verdict is not last"; failed=1; }
grep -q '^-- registry' out || { echo "a failing run shows no state"; failed=1; }

# Output that cannot be written; a reader that has gone; an interruption.
check "full disk"              3 - 'No space left on device'                 bash -c "'$sim' holds.txt >/dev/full"
check "closed output"          3 - 'Bad file descriptor'                     bash -c "'$sim' holds.txt >&-"
"$sim" many.txt 2>err | head -1 >out
[ "${PIPESTATUS[0]}" -eq 3 ] || { echo "closed pipe: another exit status"; failed=1; }
look "closed pipe" err -
printf 'start\nadvance 300000d\nexpect no call *\n' >long.txt
coproc LONG { exec "$sim" long.txt 2>err; }
exec {trace}<&"${LONG[0]}"
read -r line <&$trace # there as soon as it has happened
kill -INT "$LONG_PID"
cat <&$trace >out
look "interrupted" out '^long.txt:[12]: interrupted, 0 expectations held$'

# A product that runs on ends too, in whichever process it runs.
# interrupted NAME PATTERN PID: SIGINT for that process; the pattern of what it tells until its end.
interrupted() {
    kill -INT "$3"
    cat <&$trace >out
    look "$1, interrupted" out "$2"
}

mkdir ending
cp "$sim" "$(dirname "$sim")"/lib*.so ending/ && cp "$ending" ending/
printf '%s\n' 'run "-other"' 'run "-run-on"' 'expect no call *' >hangs.txt
coproc LONG { exec ending/zorpmsim hangs.txt 2>&1; }
exec {trace}<&"${LONG[0]}"
long=$LONG_PID
read -r line <&$trace # the other one has ended
interrupted "a product that runs on" '^hangs.txt:[12]: interrupted, (the product runs on|0 expectations held)$' "$long"
for search in "--seeds 4 --jobs 2" --explore; do
    coproc LONG { exec ending/zorpmsim $search hangs.txt 2>&1; }
    exec {trace}<&"${LONG[0]}"
    long=$LONG_PID
    jobs=()
    while [ ${#jobs[@]} -eq 0 ]; do read -r -a jobs <"/proc/$long/task/$long/children"; done
    interrupted "$search" 'interrupted, 0 of 4 seeds were run|nothing to explore' "$long"
    for job in "${jobs[@]}"; do [ ! -d "/proc/$job" ] || { echo "$search leaves a process"; failed=1; }; done
done

# Two seeds, all schedules, the shortest script.
printf 'start\nadvance 5s\ntogether\nsignal Sleep\ncontrol 133\nend\nadvance 1s\nexpect request LCDCSGETSTATE*\n' >two.txt
check "explored"               0 '^two.txt: [0-9]+ schedules hold, complete' -  "$sim" --explore two.txt
check "cut short"              1 '^two.txt: [0-9]+ schedules hold, not complete' -  "$sim" --explore --limit 5 --jobs 1 two.txt
check "nothing to explore"     2 - 'nothing to explore'                      "$sim" --explore holds.txt
printf 'expect next request LCDCSGETSTATE*\n' >>two.txt
check "explored, fails"        1 'repeat with: zorpmsim --schedule (none|[0-9.:,]+) two.txt' -  "$sim" --explore two.txt
check "parts"                  1 'the runs part in line'                     -  "$sim" --diff 1 2 two.txt
check "the same"               0 'both runs are the same'                    nothing "$sim" --diff 3 3 asks_nothing.txt
check "shrunk"                 1 '^expect request DYTC'    '^fails.txt: 4 commands: expected' "$sim" --shrink fails.txt
check "does not fail"          2 - 'it does not fail'                        "$sim" --shrink holds.txt

# What ends its process is made short too; an interruption leaves the shortest so far.
printf '%s\n' 'firmware GMMS = 3' 'advance 1s' 'run "-crash"' 'advance 1s' 'expect no call *' >crashes.txt
sed 's/crash/run-on/' crashes.txt >runs_on.txt
check "a crash is made short"  1 '^# crashes.txt, seed 0, in 1 commands .*: the product crashed \(signal 11\)$' . ending/zorpmsim --shrink crashes.txt
check "what runs on as well"   1 '^# runs_on.txt, seed 0, in 1 commands .*: the product runs on'    . ending/zorpmsim --shrink runs_on.txt
[[ $(head -1 out) == 'run "-run-on"' ]] || { echo "not the shortest: $(head -1 out)"; failed=1; }
coproc LONG { exec ending/zorpmsim --shrink runs_on.txt 2>&1; }
exec {trace}<&"${LONG[0]}"
long=$LONG_PID
read -r line <&$trace # it begins
kill -INT "$long"
cat <&$trace >out
look "made short, interrupted" out '^# Interrupted: it may not be the shortest.$'
look "made short, interrupted" out '^run "-run-on"$'

# From the keyboard, or a pipe: what is wrong is told and ends nothing, the end of input ends the service.
printf '%s\n' start bogus together 'event 0x60C0' 'control 133' end 'expect request GMMS*' 'expect request DYTC(0x5) = 0x1' >typed
check "typed"                  2 '^no such command: bogus$'                  -  "$sim" -i <typed
for line in '^expected request DYTC' '^0.000 ServiceMain status STOPPED 0/0$'; do look "typed" out "$line"; done
check "behind a file"          0 '^1.000 ServiceMain status STOPPED'         -  "$sim" -i holds.txt </dev/null

# On a terminal: completion, history, end of input.
coproc TERMINAL { TERM=vt100 exec script -qfec "'$sim' --plain -i" /dev/null 2>&1; }
exec {keys}>&"${TERMINAL[1]}" {trace}<&"${TERMINAL[0]}"
terminal=$TERMINAL_PID
await() { # TEXT, which must show
    local seen= letter
    while IFS= read -r -d '' -N 1 letter <&$trace; do
        seen+=$letter
        [[ $seen != *"$1"* ]] || return 0
    done
    echo "on a terminal: no $1 in $seen"
    failed=1
}
await '0.000> ' && printf 'sta\t\r' >&$keys
await 'status RUNNING' && await '0.000> ' && printf 'advance 2s\r' >&$keys
await '2.000> ' && printf '\020\r' >&$keys # the line before once more
await '4.000> ' && printf '\004' >&$keys
await 'status STOPPED'
cat <&$trace >out
wait "$terminal" || { echo "on a terminal: exit status $?"; failed=1; }

exit $failed

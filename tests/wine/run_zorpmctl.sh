# The control program and the example client where the service is not installed.
ctl=$build/zorpmctl.exe
said() { # STATUS TEXT ARGUMENT...: exit status and a piece of what is said
    local status=$1 text=$2 out got=0
    shift 2
    out=$(timeout -k 5 60 "$wine" "$ctl" "$@" 2>&1 </dev/null) || got=$?
    [ $got -eq "$status" ] || fail "exit status $got, expected $status: zorpmctl $*"
    [[ $out == *"$text"* ]] || fail "zorpmctl $* said: $out"
    echo "ok: zorpmctl $*"
}
said 0 "zorpmctl 1." --version
said 0 "zorpmctl cooling status" help cooling
said 2 "unknown option" --frobnicate
said 2 "use: zorpmctl hotkey" hotkey notify 33
said 3 "the service is not installed" inhibit-lid
said 3 '"kind":"service"' status --json
said 1 "HRSPMode is not 1" FlipButtonForHarrow
run 60 3 "$build/client.exe"

# The control program and the example client where the service is not installed.
ctl=$build/zorpmctl.exe
# The output goes to a file: Wine's own services, started on the way, would keep a pipe open.
said() { # STATUS TEXT ARGUMENT...: exit status and a piece of what is said
    local status=$1 text=$2 got=0
    shift 2
    timeout -k 5 60 "$wine" "$ctl" "$@" >"$SCRATCH/said" 2>&1 </dev/null || got=$?
    [ $got -eq "$status" ] || fail "exit status $got, expected $status: zorpmctl $*"
    grep -aqF "$text" "$SCRATCH/said" || fail "zorpmctl $* said: $(tr -d '\0' <"$SCRATCH/said")"
    echo "ok: zorpmctl $*"
}
said 0 "zorpmctl $(grep -aoP '^DriverVer.*,\K[0-9]+\.[0-9]+\.[0-9]+' "$(dirname "$script")/../../src/setup/zorpmdrv.inf")" --version
said 0 "zorpmctl cooling status" help cooling
said 2 "unknown option" --frobnicate
said 2 "use: zorpmctl hotkey" hotkey notify 33
said 3 "the service is not installed" inhibit-lid
said 3 '"kind":"service"' status --json
said 1 "HRSPMode is not 1" FlipButtonForHarrow
run 60 3 "$build/client.exe"

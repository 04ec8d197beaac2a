# stand_in_session.sh - sourced by a Wine test that runs the installed service on the stand-in driver (stand_in.c,
# devices.reg). The driver runs when this returns, as on a new machine.
#     tell WORD...                   to the stand-in driver
#     install_service EXE            the service is installed, and starts with: run 60 0 sc start ZORPMSVC
#     wait_for_state SERVICE STATE   within ten seconds
#     seen FILE TEXT                 a line of a file, within ten seconds
#     end_session                    all is as before
sys='C:\windows\system32\drivers\stand_in.sys'
devices=$(dirname "$script")/devices.reg

keep_wine "$SCRATCH/keep"

tell() { run 60 0 "$PROBES/tell_stand_in.exe" "$@"; }
install_service() { # EXE
    run 60 0 sc create ZORPMSVC type= own start= demand binPath= "Z:${1//\//\\}"
}
in_state() { # SERVICE STATE
    timeout -k 5 60 "$wine" sc query "$1" >"$SCRATCH/state" 2>/dev/null </dev/null
    grep -qa "STATE.*$2" "$SCRATCH/state"
}
wait_for_state() { # SERVICE STATE
    for ((i = 0; i < 40; ++i)); do
        in_state "$@" && return 0
        sleep 0.25
    done
    fail "$1 is not $2: $(tr -d '\r' <"$SCRATCH/state")"
}
seen() { # FILE TEXT
    for ((i = 0; i < 40; ++i)); do
        grep -saqF -- "$2" "$1" && return
        sleep 0.25
    done
    fail "not seen: $2; $(tail -n 40 "$1" | tr -d '\r\0')"
}
end_session() {
    "$wine" sc stop stand_in >/dev/null 2>&1 </dev/null
    run 60 0 sc delete stand_in
    sed -n 's/^\[\(HK.*\)\]$/\1/p' "$devices" | tac | while IFS= read -r key; do
        "$wine" reg delete "$key" /f >/dev/null 2>&1 </dev/null
    done
    stop_keeping
}

cp "$PROBES/stand_in.sys" "$WINEPREFIX/drive_c/windows/system32/drivers/"
for service in ZORPMSVC stand_in; do # left by a run that was ended
    "$wine" sc delete $service >/dev/null 2>&1 </dev/null
    "$wine" reg delete "HKLM\\SYSTEM\\CurrentControlSet\\Services\\$service" /f >/dev/null 2>&1 </dev/null
done
run 60 0 regedit /S "Z:$devices"
run 60 0 sc create stand_in type= kernel start= demand binPath= "$sys"
run 60 0 sc start stand_in

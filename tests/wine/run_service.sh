# The real service on a stand-in driver and its devices (stand_in.c, devices.reg), with hardware events from
# tell_stand_in.cpp; the control program and the example client beside it.
ctl=$build/zorpmctl.exe
source "$(dirname "$script")/stand_in_session.sh"

# Wine ends a program before it has begun at times, with status 1: zorpmctl says why it refuses.
said() { # STATUS TEXT ARGUMENT...: exit status and a piece of what is said
    local status=$1 text=$2 got try
    shift 2
    for try in 1 2; do
        got=0
        timeout -k 5 60 "$wine" "$ctl" "$@" >"$SCRATCH/said" 2>&1 </dev/null || got=$?
        [ $got -eq 1 ] && [ ! -s "$SCRATCH/said" ] || break
        echo "nothing said, status 1, try $try: zorpmctl $*"
    done
    [ $got -eq "$status" ] || fail "exit status $got, expected $status: zorpmctl $*: $(tr -d '\r' <"$SCRATCH/said")"
    [ -z "$text" ] || grep -aqF -- "$text" "$SCRATCH/said" || fail "zorpmctl $* said: $(tr -d '\r' <"$SCRATCH/said")"
    echo "ok: zorpmctl $*"
}

press() { # TEXT EVENT ARGUMENT...: zorpmctl ARGUMENT... says TEXT when EVENT comes
    local text=$1 event=$2
    shift 2
    start "$ctl" "$@" --timeout 15 >"$SCRATCH/$event" 2>&1
    seen "$SCRATCH/$event" running
    tell event "$event"
    seen "$SCRATCH/$event" "$text"
}

rotation='HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation'
"$wine" reg delete "$rotation" /f >/dev/null 2>&1 </dev/null
run 60 0 reg add 'HKLM\HARDWARE\DESCRIPTION\System\BIOS' /v BIOSVersion /d GDET40W /f # of the platform with HRSPMode 1
# A notebook with hot keys 3, 8 and 12, lid inhibit on and cooling interface 3 with all functions; no keyboard attached.
while read -r answer; do
    tell answer $answer
done <<<"MHKA 884
LCDCSGETSTATE 3
DYTC 1
DYTC(0) 30000001
DYTC(3) 03ff0001
GOPT(0) 100
GOPT(100) 1"
install_service "$EXE"
run 60 0 sc start ZORPMSVC
wait_for_state ZORPMSVC RUNNING

said 0 "service       running" status
said 0 "interface     cooling 3               0x3000" status
said 0 "lid           open" status
said 0 "lid inhibit   on" status --inhibit
said 0 '"kind":"hotkeys","page":1,"capability":2180' status --json
said 0 "" hotkey notify 12
said 0 "" hotkey override 12
said 0 "NOTIFY  can notify  hibernate; taken over" hotkey list
said 0 "" hotkey release 12
said 0 "" hotkey bios 12
said 1 "the firmware cannot hand this hot key over" hotkey notify 1
# Cooling's functions are published by its own thread, some time behind the start.
for ((i = 0; i < 40; ++i)); do
    "$wine" "$ctl" cooling status </dev/null >/dev/null 2>&1 && break
    sleep 0.25
done
said 0 "" cooling disable
said 0 "Two In One              announced      off" cooling status
said 0 "" cooling enable
said 0 "" cooling hand on
said 0 "" cooling graphics off
said 0 "" cooling restart
said 0 "running" watch all --timeout 3
said 7 "lid inhibit on" inhibit-lid cmd /c exit 7
run 60 0 "$PROBES/interrupt_probe.exe" "$ctl" inhibit-lid
tell last LCDCSCONTROL 2 # off
run 60 0 "$build/client.exe"

# A hardware event becomes what the firmware, Windows and clients are told.
tell answer GMMS 5
press "posture  tent" 60c0 watch events
tell last DYTC 113001 # hinge: tent
tell state slate 0       # a slate
said 0 "tent; before: LAPTOP" status
press "lid  closed" 5001 watch all
said 0 "" hotkey notify 8
press "hot key 8  pressed" 1008 watch hotkeys

# The words of the launch entries press the rotation lock, down and up, where Windows' setting is not theirs.
said 1 "no auto-rotation setting" FlipButtonForHarrow
run 60 0 reg add "$rotation" /v Enable /t REG_DWORD /d 1 /f
said 0 "" ClamshellToTabletForHarrow
tell writes button 0
said 0 "" FlipButtonForHarrow
tell writes button 2
said 0 "" TabletToClamshellForHarrow
tell writes button 6 # and once more, since nothing has changed the setting

run 60 0 sc stop ZORPMSVC
wait_for_state ZORPMSVC STOPPED
said 3 "the service is not running" cooling enable
run 60 0 sc delete ZORPMSVC
end_session

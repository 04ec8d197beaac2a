# The recorder: its file, and a day of the service on the stand-in driver, recorded: start, fifty events, controls, what a
# client writes, sleep, stop. Then zorpmsim replays the day: every effect comes as recorded, and where one byte of an answer
# is another, it says so there.
sim=$(dirname "$build")/host/zorpmsim
[ -x "$sim" ] || fail "the host build has made no zorpmsim: $sim"

mkdir "$SCRATCH/files"
run 120 0 "$PROBES/recording_probe.exe" "Z:${SCRATCH//\//\\}\\files" | tee "$SCRATCH/probe"
[ "${PIPESTATUS[0]}" -eq 0 ] || exit 1
cost=$(sed -n 's/^cost \([0-9.]*\) us.*/\1/p' "$SCRATCH/probe")
[ -z "${ZORPM_FIGURES:-}" ] || printf '%-80s %s\n' "recorder: a line, under Wine" "$cost us" >>"$ZORPM_FIGURES"

source "$(dirname "$script")/stand_in_session.sh"
folder=$WINEPREFIX/drive_c/ProgramData/ZORPMSVC
recording=$folder/recording.txt
rm -rf "$folder"
service='HKLM\SYSTEM\CurrentControlSet\Services\ZORPMSVC'
run 60 0 reg add 'HKLM\HARDWARE\DESCRIPTION\System\BIOS' /v BIOSVersion /d GDET40W /f
run 60 0 reg add 'HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion' /v ReleaseId /d 1803 /f # a task is made
while read -r answer; do
    tell answer $answer
done <<<"MHKA 884
LCDCSGETSTATE 3
DYTC 1
DYTC(0) 30000001
DYTC(3) 03ff0001
GOPT(0) 100
GOPT(100) 1
DGPUTEMP fails"
install_service "$build/recorder/zorpmsvc.exe"
run 60 0 sc start ZORPMSVC
wait_for_state ZORPMSVC RUNNING
seen "$recording" "registry SVC\\TMC\\FHP CurrentStatus" # the initialisation of the cooling ends with it

# Fifty events, most of them a posture; the last ones by themselves, so that their effects are known.
tell answer GMMS 5
events=()
for ((i = 0; i < 16; ++i)); do events+=(60c0 5001 1008); done
tell events "${events[@]}"
seen "$recording" 'MultiMode CurrentMode = 0x5'
tell event 5001
tell event 100c
for ((i = 0; i < 80; ++i)); do
    [ "$(grep -c '^event ' "$recording")" -lt 50 ] || break
    sleep 0.25
done

# A client: it wants hot key 3, and puts the cooling off and on.
run 60 0 reg add "$service\\Parameters\\CurrentSetting" /ve /t REG_DWORD /d 4 /f
seen "$recording" 'request MHKM(3, 1)'
ctl=$build/zorpmctl.exe
run 60 0 "$ctl" cooling disable
run 60 0 "$ctl" cooling enable
tell signal 2 # Sleep
seen "$recording" 'signal Sleep'
tell signal 3
seen "$recording" 'signal Resume'
seen "$recording" 'call DeleteTask('
run 60 0 sc stop ZORPMSVC
wait_for_state ZORPMSVC STOPPED
seen "$recording" 'process "" ended 0'

# A second process goes on behind the first one's lines, and finds what it and a client have left.
run 60 0 reg add "$service\\Parameters\\OverrideSetting" /ve /t REG_DWORD /d 8 /f
run 60 0 sc start ZORPMSVC
wait_for_state ZORPMSVC RUNNING
run 60 0 sc stop ZORPMSVC
wait_for_state ZORPMSVC STOPPED
for ((i = 0; i < 40; ++i)); do
    [ "$(grep -c 'process "" ended 0' "$recording")" -lt 2 ] || break
    sleep 0.25
done
run 60 0 sc delete ZORPMSVC
end_session
cp "$recording" "$SCRATCH/recording.txt"

while IFS= read -r line; do
    grep -aqxF -- "$line" "$recording" || fail "not recorded: $line"
done <<'LINES'
# zorpmsim recording 1
registry set HKLM\HARDWARE\DESCRIPTION\System\BIOS BIOSVersion sz "GDET40W"
start
effect ServiceMain status START_PENDING 0/0 checkpoint 1
firmware MHKA(0x1) = 0x884
effect ServiceMain request MHKA(0x1) = 0x884
effect ServiceMain registry create SVC\Parameters\Capability
effect ServiceMain registry SVC\Parameters\Capability @ = 0x884
effect AdaptiveCoolingInitilizeWorkerThread request DGPUTEMP(0x0) failed
firmware DGPUTEMP(0x0) fails
effect ServiceMain status RUNNING 0/0
effect TerminalThread request REGISTEREVENTS(48 bytes)
effect CreatePnPTaskThreadProc call DeleteTask("\", "Mestra Power Management Driver PnP Task") = 0x80070002
effect AdaptiveCoolingInitilizeWorkerThread request DYTC(0x3) = 0x3ff0001
event 0x60c0
effect TerminalThread request GETEVENT() = 0x60c0 0x0
effect ServiceMain write slate 0
registry set SVC\Parameters\CurrentSetting @ dword 0x4
effect PHThreadProc request MHKM(3, 1)
signal Sleep
signal Resume
registry set SVC\Parameters\OverrideSetting @ dword 0x8
stop
effect dispatcher status STOP_PENDING 0/0 checkpoint 1
effect ServiceMain status STOPPED 0/0
effect dispatcher process "" ended 0
LINES
[ "$(grep -c '^event ' "$recording")" -eq 50 ] || fail "not fifty events: $(grep -c '^event ' "$recording")"
[ "$(grep -cx start "$recording")" -eq 2 ] || fail "not two starts"
[ "$(head -n 1 "$recording")" = '# zorpmsim recording 1' ] || fail "the first line: $(head -n 1 "$recording")"
! grep -an 'unknown call' "$recording" || fail "a call that is not wrapped"
! grep -anwiF -- "$(hostname)" "$recording" || fail "the name of the machine"
effects=$(grep -c '^effect ' "$recording")
echo "recorded: $effects effects, $(wc -c <"$recording") bytes; a line costs $cost us"

# Replayed: as it was, and with one byte of an answer changed. Copies, so that the verdict bears a short name.
cd "$SCRATCH"
"$sim" --plain recording.txt >replayed 2>&1 || fail "the replay: $(tail -n 5 replayed)"
grep -qx "recording.txt: $effects of $effects effects as recorded" replayed || fail "the replay says: $(tail -n 1 replayed)"
sed 's/^firmware DYTC(0x3) = 0x3ff0001$/firmware DYTC(0x3) = 0x3fe0001/' recording.txt >changed.txt
status=0
"$sim" --plain changed.txt >replayed 2>&1 || status=$?
[ $status -eq 1 ] || fail "exit status $status of the replay with another answer"
for text in "recorded: .* AdaptiveCoolingInitilizeWorkerThread request DYTC(0x3) = 0x3ff0001" \
            "replayed: .* AdaptiveCoolingInitilizeWorkerThread request DYTC(0x3) = 0x3fe0001"; do
    grep -q "$text" replayed || fail "the replay with another answer does not say: $text; $(tail -n 5 replayed)"
done
echo "replayed: $effects of $effects; with another answer it parts there"
[ -z "${ZORPM_FIGURES:-}" ] || printf '%-80s %s\n' "a day recorded under Wine and replayed: effects" "$effects of $effects" >>"$ZORPM_FIGURES"

# What stands behind the service in these tests: each thing that can be asked of the stand-in driver, asked.
cp "$PROBES/stand_in.sys" "$WINEPREFIX/drive_c/windows/system32/drivers/"

keep_wine "$SCRATCH/keep"

"$wine" sc delete stand_in >/dev/null 2>&1 </dev/null # left by a run that was ended
run 60 0 regedit /S "Z:$(dirname "$script")/devices.reg"
run 60 0 sc create stand_in type= kernel start= demand binPath= 'C:\windows\system32\drivers\stand_in.sys'
run 60 0 sc start stand_in
run 60 0 "$PROBES/doubles_probe.exe"
"$wine" sc stop stand_in >/dev/null 2>&1 </dev/null
run 60 0 sc delete stand_in
stop_keeping

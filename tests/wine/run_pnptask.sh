# The clean-up run: with an owner INF in the store it leaves everything alone; without one it writes the copy of its INF
# and starts rundll32, here a double of ours, and then the real one, which has to understand the INF.
windows=$WINEPREFIX/drive_c/windows
copy=$windows/system32/ZORPMDRV.INF
record=$WINEPREFIX/drive_c/rundll32.txt
inf=$(dirname "$script")/../../src/setup/zorpmdrv.inf
service='HKLM\SYSTEM\CurrentControlSet\Services\ZORPMSVC'
files="drivers/zorpmdrv.sys drivers/pmdrvs.sys zorpmsvc.exe hkinspm.dll zorpmctl.exe MPlatSvc.exe"

wait_for() { # SECONDS COMMAND...
    local seconds=$1
    shift
    for ((i = 0; i < 10 * seconds; ++i)); do
        "$@" && return 0
        sleep 0.1
    done
    return 1
}
all_gone() {
    for file in $files; do [ ! -e "$windows/system32/$file" ] || return 1; done
}

rm -f "$copy" "$record" "$windows/inf/oem7.inf" "$windows/inf/oem8.inf"
run 60 0 reg add "$service" /v Owners /t REG_MULTI_SZ /d 'oem7.inf\0oem8.inf' /f
[ -e "$WINEPREFIX/rundll32.exe" ] || cp "$windows/system32/rundll32.exe" "$WINEPREFIX/rundll32.exe"
cp "$PROBES/rundll32_double.exe" "$windows/system32/rundll32.exe"
export WINEDLLOVERRIDES="$WINEDLLOVERRIDES;rundll32.exe=n"

touch "$windows/inf/oem8.inf"
run 60 0 "$EXE" -PnPTask
[ ! -e "$copy" ] && [ ! -e "$record" ] || fail "uninstalled with an owner INF present"

rm "$windows/inf/oem8.inf"
echo "left by an earlier run" >"$copy"
run 60 0 "$EXE" -pnptask
cmp "$copy" "$inf" || fail "the copy is not the embedded INF"
run 60 0 "$PROBES/dacl_probe.exe" 'C:\windows\system32\ZORPMDRV.INF'
wait_for 20 test -s "$record" || fail "rundll32 was not started"
line='"C:\windows\system32\rundll32.exe" setupapi,InstallHinfSection DefaultUninstall 128 C:\windows\system32\ZORPMDRV.INF'
[ "$(cat "$record")" = "$line" ] || fail "started as: $(cat "$record")"

cp "$WINEPREFIX/rundll32.exe" "$windows/system32/rundll32.exe"
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES%;*}"
for file in $files; do echo >"$windows/system32/$file"; done
rm -f "$copy" # nobody here is the local system account, so Wine lets nobody delete it
run 60 0 "$EXE" -PnPTask
wait_for 30 all_gone || fail "left by the uninstall: $(cd "$windows/system32" && ls $files 2>/dev/null)"
rm -f "$copy"
run 60 0 reg delete "$service" /f
run 60 0 "$EXE" -PnPTask
[ ! -e "$copy" ] || fail "uninstalled without a service key"

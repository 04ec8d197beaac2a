# What docs/installation.md says to run by hand: rundll32 and the INF's section remove services, published keys and the
# helper's start at logon.
inf=$(realpath "$(dirname "$script")/../../src/setup/zorpmdrv.inf")
services='HKLM\SYSTEM\CurrentControlSet\Services'
at_logon='HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Run'
name='Mestra Power Management Service'

run 60 0 reg add "$at_logon" /v "$name" /d 'C:\windows\system32\zorpmsvc.exe -helper' /f
run 60 0 reg add "$at_logon" /v Another /d another.exe /f
run 60 0 reg add 'HKLM\SOFTWARE\Mestra\MultiMode' /v CurrentMode /t REG_DWORD /d 1 /f
run 60 0 reg add "$services\\EventLog\\System\\pmdrvs" /v TypesSupported /t REG_DWORD /d 7 /f
run 60 0 rundll32 setupapi,InstallHinfSection zorpmdrv.Uninstall 128 "Z:${inf//\//\\}"
run 60 1 reg query "$at_logon" /v "$name"
run 60 0 reg query "$at_logon" /v Another
run 60 1 reg query 'HKLM\SOFTWARE\Mestra\MultiMode'
run 60 1 reg query "$services\\EventLog\\System\\pmdrvs"
run 60 0 reg delete "$at_logon" /v Another /f

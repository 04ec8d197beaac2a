#!/bin/bash
# imports.sh EXE - prints the size and the imported DLLs of the Windows executable; fails when it is too large, imports
# anything but the system's own DLLs, or links powrprof.dll, which must be loaded only when it is needed.
set -eu
limit_kib=300
allowed=' kernel32.dll advapi32.dll user32.dll setupapi.dll ole32.dll oleaut32.dll shell32.dll msvcrt.dll '

size_kib=$(($(stat -c %s "$1") / 1024))
dlls=$(x86_64-w64-mingw32-objdump -p "$1" | awk '/DLL Name:/ { print tolower($3) }' | sort)
echo "$(basename "$1"): $size_kib KiB, imports" $dlls

status=0
[ $size_kib -lt $limit_kib ] || { echo "larger than $limit_kib KiB"; status=1; }
[ -n "$dlls" ] || { echo "no imports found"; status=1; }
for dll in $dlls; do
    [[ $allowed == *" $dll "* ]] || { echo "unexpected import: $dll"; status=1; }
done
if [ -n "${ZORPM_FIGURES:-}" ]; then
    printf '%-80s %s\n' "executable: size, stripped" "$size_kib KiB" "executable: imported DLLs" "$(echo $dlls)" >>"$ZORPM_FIGURES"
fi
exit $status

#!/bin/bash
# imports.sh EXE [KIB] - prints the size and the imported DLLs of the Windows executable; fails when it is too large, imports
# anything but the system's own DLLs, links powrprof.dll, which must be loaded only when it is needed, or lacks one of
# the loader's protections.
set -eu
limit_kib=${2:-300}
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

# Flags of the optional header; without relocations the second one would promise what cannot be done.
protections='0x0020 high-entropy addresses
0x0040 dynamic base
0x0100 no execution of data
0x8000 terminal-server aware'
flags=$(x86_64-w64-mingw32-objdump -p "$1" | awk '/^DllCharacteristics/ { print $2 }')
while read -r bit what; do
    [ $((0x$flags & bit)) -ne 0 ] || { echo "not asked of the loader: $what"; status=1; }
done <<<"$protections"
x86_64-w64-mingw32-objdump -h "$1" | grep -q ' \.reloc ' || { echo "no relocations"; status=1; }

if [ -n "${ZORPM_FIGURES:-}" ]; then
    printf '%-80s %s\n' "executable: size, stripped" "$size_kib KiB" "executable: imported DLLs" "$(echo $dlls)" >>"$ZORPM_FIGURES"
fi
exit $status

#!/bin/bash
# imports.sh EXE [KIB [VERSION]] - prints the size and the imported DLLs of a Windows executable; fails when it is too
# large, imports anything but the system's own DLLs, links powrprof.dll, which must be loaded only when it is needed,
# lacks a protection that the loader or the compiler gives, bears another version, or holds a text of the trace. NAME.debug, its symbols, lies
# beside NAME.exe.
set -eu
exe=$1
limit_kib=${2:-104}
allowed=' kernel32.dll advapi32.dll user32.dll setupapi.dll ole32.dll oleaut32.dll shell32.dll msvcrt.dll '
tool=x86_64-w64-mingw32-

status=0
wrong() {
    echo "$*"
    status=1
}

size_kib=$((($(stat -c %s "$exe") + 1023) / 1024))
headers=$(${tool}objdump -p "$exe")
sections=$(${tool}objdump -h "$exe")
dlls=$(awk '/DLL Name:/ { print tolower($3) }' <<<"$headers" | sort)
echo "$(basename "$exe"): $size_kib KiB, imports" $dlls

"$(dirname "$0")/trace_texts.pl" "$exe" || status=1
[ $size_kib -lt $limit_kib ] || wrong "not below $limit_kib KiB"
[ -n "$dlls" ] || wrong "no imports found"
for dll in $dlls; do
    [[ $allowed == *" $dll "* ]] || wrong "unexpected import: $dll"
done

# Flags of the optional header; without relocations the second one would promise what cannot be done.
protections='0x0020 high-entropy addresses
0x0040 dynamic base
0x0100 no execution of data
0x8000 terminal-server aware'
flags=$(awk '/^DllCharacteristics/ { print $2 }' <<<"$headers")
while read -r bit what; do
    [ $((0x$flags & bit)) -ne 0 ] || wrong "not asked of the loader: $what"
done <<<"$protections"
grep -q ' \.reloc ' <<<"$sections" || wrong "no relocations"

# The oldest Windows that takes it: see docs/installation.md.
minimum=$(awk '/^M[a-z]*SubsystemVersion/ { print $2 }' <<<"$headers" | paste -sd.)
[ "$minimum" = 6.0 ] || wrong "subsystem version $minimum"

# A section's flags stand in the line after its name.
both=$(awk '/^ +[0-9]+ / { name = $2; getline; if (/CODE/ && !/READONLY/) print name }' <<<"$sections")
[ -z "$both" ] || wrong "writable and executable: $both"
grep -q CODE <<<"$sections" || wrong "no code found"

# The stack protector, where it counts: functions with arrays end in a call of __stack_chk_fail, and the word that they
# compare is drawn at random at the start.
guard=$(${tool}nm "${exe%.exe}.debug" | awk '$3 == "__stack_chk_fail" { sub(/^0+/, "", $1); print $1 }')
guarded=$(${tool}objdump -d "$exe" | grep -cE "call +(0x)?${guard:-none}\b" || true)
[ "$guarded" -ge 20 ] || wrong "$guarded functions with a stack protector"
grep -q CryptGenRandom <<<"$headers" || wrong "the stack protector's word is not drawn at random"

# Resources by type: a version (16) and no manifest (24), which would change what GetVersionExW answers.
types=$(sed -nE 's/^[0-9a-f]+ {3}Entry: ID: 0x0*([0-9a-f]+),.*/\1/p' <<<"$headers")
if [ $# -ge 3 ]; then
    grep -qx 10 <<<"$types" || wrong "no version resource"
    ! grep -qx 18 <<<"$types" || wrong "a manifest"
    grep -qaF "FileVersion$3.0" <(tr -d '\0' <"$exe") || wrong "not version $3.0"
fi

if [ -n "${ZORPM_FIGURES:-}" ]; then
    printf '%-80s %s\n' "$(basename "$exe"): size, stripped" "$size_kib KiB" \
        "$(basename "$exe"): functions with a stack protector" "$guarded" \
        "$(basename "$exe"): imported DLLs" "$(echo $dlls)" >>"$ZORPM_FIGURES"
fi
exit $status

# The same scripts on the bench and on real Win32 (the runner, recorder/): equal effects, thread by thread; what Wine
# cannot do is skipped, with its reason. The table is kept as build/on-wine.txt.
tool=$(dirname "$build")/host/zorpmwine
[ -x "$tool" ] || fail "the host build has made no zorpmwine: $tool"
run 60 0 regedit /S "Z:$(dirname "$script")/devices.reg"
cd "$(dirname "$script")/../.."
table=build/on-wine.txt
timeout 280 "$tool" --compare "$wine" "$PROBES/zorpmrunner.exe" scenarios/*.txt >"$table" 2>&1 || failed=1
cat "$table"
equal=$(grep -c ^equal "$table") different=$(grep -c ^different "$table") skipped=$(grep -c ^skipped "$table")
[ -z "${ZORPM_FIGURES:-}" ] ||
    echo "scripts on the bench and on Wine: $equal equal, $different different, $skipped skipped" >>"$ZORPM_FIGURES"
[ "$equal" -gt 0 ] && [ -z "${failed:-}" ] || fail "bench and Wine differ"

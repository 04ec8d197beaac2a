# The facts of the platform: those of the simulated machine against Windows'. What differs stands in a table.
platform=$(dirname "$script")/../platform
bench=$(dirname "$build")/host/zorpmprobe
[ -x "$bench" ] || fail "the host build has made no zorpmprobe: $bench"

"$bench" >"$SCRATCH/bench.txt" 2>"$SCRATCH/refused.txt" || fail "the bench's zorpmprobe: $(tail -3 "$SCRATCH/refused.txt")"
run 240 0 "$PROBES/zorpmprobe.exe" "Z:${SCRATCH//\//\\}\\windows.txt"
"$platform/compare.pl" "$SCRATCH/bench.txt" "$SCRATCH/windows.txt" "$platform/differences.txt" || fail "facts differ"

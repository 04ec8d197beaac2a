# The same scripts on the bench and on real Win32 (the runner, recorder/): equal effects, thread by thread; what Wine
# cannot do is skipped, with its reason. The table is kept as build/on-wine.txt.
tool=$(dirname "$build")/host/zorpmwine
[ -x "$tool" ] || fail "the host build has made no zorpmwine: $tool"
run 60 0 regedit /S "Z:$(dirname "$script")/devices.reg"
cd "$(dirname "$script")/../.."
table=build/on-wine.txt
tests=$(dirname "$build")/host/zorpm_tests
[ -x "$tests" ] || fail "the host build has made no zorpm_tests: $tests"

# Of the tests' own scripts every twelfth.
mkdir "$SCRATCH/all"
suites='CoolingV*:CoolingF*:CpuM*:DisplayP*:FormFactorP*:FormFactorO*:Events.*:Control.*:HotkeyI*:HotKeys*:Power.*:Service.*'
ZORPM_SCRIPTS=$SCRATCH/all "$tests" --gtest_filter="$suites" --gtest_brief=1 >/dev/null 2>&1 || fail "the tests themselves"
own=()
i=0
for file in "$SCRATCH"/all/*.txt; do ((++i % 12)) || own+=("$file"); done
[ ${#own[@]} -gt 30 ] || fail "the tests have kept ${#own[@]} scripts"

timeout 280 "$tool" --compare "$wine" "$PROBES/zorpmrunner.exe" scenarios/*.txt tests/wine/scripts/*.txt "${own[@]}" 2>&1 |
    grep -v 'it expects nothing' >"$table"
[ "${PIPESTATUS[0]}" -eq 0 ] || failed=1
cat "$table"
equal=$(grep -c ^equal "$table") different=$(grep -c ^different "$table") skipped=$(grep -c ^skipped "$table")
[ -z "${ZORPM_FIGURES:-}" ] ||
    echo "scripts on the bench and on Wine: $equal equal, $different different, $skipped skipped" >>"$ZORPM_FIGURES"
[ "$equal" -gt 70 ] && [ -z "${failed:-}" ] || fail "bench and Wine differ"

# The modes of the executable as a person may start it, with no service control manager behind it. All at once: Wine's
# service dispatcher takes ten seconds to find that out.
modes=()
run 60 0 "$EXE" & modes+=($!)               # from a console
run 60 0 "$EXE" unknown -text & modes+=($!) # not a switch
run 60 0 "$EXE" "-helper " & modes+=($!)    # nor is this: the blank counts
for mode in "${modes[@]}"; do wait "$mode" || fail "not every mode"; done

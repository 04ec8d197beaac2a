# The modes of the executable as a person may start it; no driver, no service control manager behind it.
run 30 0 "$EXE"                 # from a console: the dispatcher is refused
run 30 0 "$EXE" -unknown
run 30 0 "$EXE" unknown text
run 30 0 "$EXE" "-helper "      # with the blank it is no switch

# The real helper process and the dialog in the executable's resources.
run 120 0 "$PROBES/helper_probe.exe"

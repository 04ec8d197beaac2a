# As a service on a machine without the driver.
run 60 0 "$PROBES/no_driver.exe"

# The commands of this project. Each installs what it misses (as root, on Debian) or says what to install.
.PHONY: help demo test test-host windows windows-trace recorder package release bench lint format defects bench-defects mutants coverage hunt soak fuzz page picture clean
.DEFAULT_GOAL := help

help:
	@echo "make demo       a day with the notebook, on the simulated machine"
	@echo "make test       everything: host tests, scenarios, sweeps, the page in a browser, the executable under Wine"
	@echo "make test-host  host tests and scenarios only: seconds"
	@echo "make windows    build/windows/zorpmsvc.exe"
	@echo "make windows-trace  build/windows-trace/zorpmsvc.exe: the same with tracing on, for a debugger's output window"
	@echo "make recorder   build/windows/recorder/zorpmsvc.exe: the same, which records what it does (docs/recording.md)"
	@echo "make package    build/package/zorpm-VERSION.zip, what is shipped, and its debug information"
	@echo "make release    the optimised host build, build/release"
	@echo "make bench      measured figures"
	@echo "make lint       clang-tidy, cppcheck, clang-format, the project's own rules"
	@echo "make format     lay out all sources"
	@echo "make defects    plant every known defect in turn; each must be caught"
	@echo "make bench-defects  plant faults in the simulated machine; the comparison with Wine must notice each"
	@echo "make mutants    change src/ in one place at a time (COUNT=N SEED=S for a sample, FAIL=1 to fail when one lives); goes on where it stopped"
	@echo "make coverage   lines and branches of src/ that the tests reach, and what they do not and why"
	@echo "make hunt       random machines, scripts and schedules for an hour (or COUNT=N seeds, SECONDS=N); goes on where it stopped"
	@echo "make soak       a year of random use in one run, one on each processor (COUNT=N years)"
	@echo "make fuzz       hostile input for five minutes (or COUNT=N, SECONDS=N)"
	@echo "make page       what zorpmsim's page uses of d3, anew from the pinned modules: sim/page/d3.js"
	@echo "make picture    docs/timeline.png, taken anew"
	@echo "make clean      remove build/"

# Builds the targets $(2) (default: all) of the preset $(1).
build = cmake --preset $(1) $(if $(wildcard build/$(1)/build.ninja),>/dev/null) && \
	cmake --build --preset $(1) $(if $(2),--target $(2))

demo:
	@tools/ensure.sh host
	@$(call build,release,zorpmsim zorpm_image)
	@build/release/zorpmsim --read scenarios/demo.txt
	@echo
	@echo "As a page to look at:   build/release/zorpmsim --page build/demo.html scenarios/demo.txt"

test:
	@tools/ensure.sh host windows package browser
	@$(call build,host,all races_all zorpm_sweeps zorpmwine zorpmprobe)
	@$(call build,release,zorpm_sweeps)
	@$(call build,windows)
	@tools/run_tests.sh host release windows

test-host:
	@tools/ensure.sh host
	@$(call build,host)
	@tools/run_tests.sh host -LE 'sweep|browser' -E zorpm_sweeps_NOT_BUILT

windows:
	@tools/ensure.sh windows
	@$(call build,windows)

windows-trace:
	@tools/ensure.sh windows
	@$(call build,windows-trace)

recorder:
	@tools/ensure.sh windows
	@cmake --preset windows-recording >/dev/null && cmake --build --preset windows-recording
	@ls -l build/windows/recorder/zorpmsvc.exe

package:
	@tools/ensure.sh windows package
	@$(call build,windows,zorpmsvc zorpmctl)
	@tools/package.sh

release:
	@tools/ensure.sh host
	@$(call build,release)

bench:
	@tools/ensure.sh host windows
	@$(call build,release,zorpm_bench zorpm_sweeps zorpmsim)
	@$(call build,windows,zorpmsvc)
	@build/release/zorpm_bench
	@tests/wine/imports.sh build/windows/zorpmsvc.exe 104

lint:
	@tools/ensure.sh host lint
	@tools/lint.sh

format:
	@tools/ensure.sh lint
	@git ls-files -co --exclude-standard '*.h' '*.cpp' | xargs clang-format -i

defects:
	@tools/ensure.sh host
	@tests/defects/run.sh

bench-defects:
	@tools/ensure.sh host windows
	@$(call build,windows,zorpmrunner)
	@tests/defects/run.sh bench

mutants:
	@tools/ensure.sh host mutants
	@tools/mutate/mutate.py --count $(or $(COUNT),0) --seed $(or $(SEED),1) $(if $(FAIL),--fail)

coverage:
	@tools/ensure.sh host mutants
	@$(call build,coverage,zorpm_tests zorpm_sweeps zorpmsim)
	@tools/coverage/coverage.py $(if $(FAIL),--fail)

# What all three take; a failure leaves its script in build/hunt/.
hunt_limits = $(if $(COUNT),--count $(COUNT)) $(if $(SECONDS),--seconds $(SECONDS)) $(if $(SEED),--seed $(SEED))

hunt soak:
	@tools/ensure.sh host
	@$(call build,release,zorpmhunt zorpmsim)
	@build/release/zorpmhunt $@ $(hunt_limits)

fuzz:
	@tools/ensure.sh host
	@$(call build,host,zorpmhunt zorpmsim)
	@build/host/zorpmhunt fuzz $(hunt_limits)

page:
	@tools/ensure.sh page
	@tools/page.sh

picture:
	@tools/ensure.sh host browser
	@$(call build,release,zorpmsim zorpm_image)
	@tests/browser/run.sh build/release/zorpmsim docs/timeline.png

clean:
	rm -rf build

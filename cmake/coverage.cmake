# The coverage build: src/ with the compiler's counters, and a machine that keeps them when it resets an image.
# Half of the sweeps' schedules run in the atomics' image; its thread instrumentation must not make counting an access to
# an atomic, which would be a place to hand over at.
set(covered zorpm_objects zorpm_atomics_objects zorpmctl_image)
set(counting zorpm_image zorpm_atomics_image zorpmctl_image zorpm_tests zorpm_sweeps zorpm_bench)
foreach(name IN LISTS covered)
    target_compile_options(${name} PRIVATE --coverage -fprofile-update=single -O0)
endforeach()
foreach(name IN LISTS counting)
    target_link_options(${name} PRIVATE --coverage)
endforeach()
target_sources(zorpmsim_lib PRIVATE tools/coverage/keep_counters.cpp)
# The linker wraps no call inside one object: the function stands in an object of its own.
set_source_files_properties(sim/machine/image.cpp PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
target_link_options(zorpmsim_lib PRIVATE -Wl,--wrap=_ZN3sim13image_releaseEPNS_5ImageE)

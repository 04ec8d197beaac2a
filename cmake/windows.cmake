# zorpmsvc.exe: one self-contained file that imports system DLLs only.
enable_language(RC)

add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions;-fno-rtti;-ffunction-sections;-fdata-sections>")
add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:-municode>")
# The stack protector works where the code is compiled; asked for at the link alone it changes nothing.
add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:-fstack-protector-strong>")
# Debug information, split off below. No path of this machine in it, nor in the executable.
add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:-g;-ffile-prefix-map=${CMAKE_BINARY_DIR}=/build;-ffile-prefix-map=${CMAKE_SOURCE_DIR}=/zorpm>")
include_directories(src)

# What a resource script embeds is searched beside the script, and a change of it rebuilds the resources.
file(GLOB resource_scripts CONFIGURE_DEPENDS src/*/*.rc)
file(GLOB resource_data CONFIGURE_DEPENDS src/*/*.inf)
foreach(script IN LISTS resource_scripts)
    get_filename_component(folder ${script} DIRECTORY)
    set_source_files_properties(${script} PROPERTIES OBJECT_DEPENDS "${resource_data}" INCLUDE_DIRECTORIES ${folder})
endforeach()

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
# What the loader may do against attacks is asked for here and looked at by tests/wine/imports.sh.
# No time of the link: the same sources make the same bytes.
add_link_options(-municode -static -fstack-protector-strong -Wl,--gc-sections -Wl,--no-insert-timestamp
                 -Wl,--nxcompat,--dynamicbase,--high-entropy-va,--tsaware
                 -Wl,--major-subsystem-version,6,--minor-subsystem-version,0,--major-os-version,6,--minor-os-version,0)

# A shipped executable, with its version resource. Its debug information is split off into NAME.debug; -p keeps the time
# of doing so out. Seen whole, the program shows that the released trace does nothing: its calls and texts disappear.
function(add_shipped_executable name description)
    configure_file(cmake/version.rc.in ${CMAKE_BINARY_DIR}/${name}_version.rc @ONLY)
    add_executable(${name} WIN32 ${ARGN} ${CMAKE_BINARY_DIR}/${name}_version.rc)
    set_target_properties(${name} PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON)
    add_custom_command(TARGET ${name} POST_BUILD BYPRODUCTS ${CMAKE_BINARY_DIR}/${name}.debug
                       COMMAND ${CMAKE_OBJCOPY} --only-keep-debug -p $<TARGET_FILE:${name}> ${name}.debug
                       COMMAND ${CMAKE_STRIP} -p $<TARGET_FILE:${name}>)
endfunction()

add_shipped_executable(zorpmsvc "Mestra Power Management Service" ${product_sources} ${resource_scripts})
# The SDK's headers are most of what is compiled: they are read once for each kind of compiler options.
target_precompile_headers(zorpmsvc PRIVATE <windows.h> <atomic>)
target_link_libraries(zorpmsvc PRIVATE advapi32 user32 setupapi ole32 oleaut32 shell32 taskschd uuid)
# Size and imports: powrprof.dll is loaded when needed and must never be linked.
add_test(NAME executable COMMAND ${CMAKE_SOURCE_DIR}/tests/wine/imports.sh $<TARGET_FILE:zorpmsvc> 104 ${PROJECT_VERSION})
set_tests_properties(executable PROPERTIES LABELS windows
                     ENVIRONMENT "ZORPM_FIGURES=${CMAKE_SOURCE_DIR}/build/figures.txt")

# zorpmctl.exe: of the Windows subsystem, so that no console window opens when a key starts it.
if(ctl_sources)
    add_shipped_executable(zorpmctl "Mestra Power Management Control" ${ctl_sources} ${ctl_shared})
    target_precompile_headers(zorpmctl REUSE_FROM zorpmsvc)
    target_link_libraries(zorpmctl PRIVATE advapi32 user32 setupapi)
    add_test(NAME control_program COMMAND ${CMAKE_SOURCE_DIR}/tests/wine/imports.sh $<TARGET_FILE:zorpmctl> 200 ${PROJECT_VERSION})
    set_tests_properties(control_program PROPERTIES LABELS windows
                         ENVIRONMENT "ZORPM_FIGURES=${CMAKE_SOURCE_DIR}/build/figures.txt")
endif()

# What is shipped, made twice in other folders: the same bytes.
add_test(NAME package COMMAND ${CMAKE_SOURCE_DIR}/tests/package_test.sh)
set_tests_properties(package PROPERTIES LABELS windows TIMEOUT 900 PROCESSORS 2)

# The example for client programs, in C.
enable_language(C)
add_executable(client docs/examples/client.c)
target_compile_options(client PRIVATE -municode -Wall -Wextra -Wconversion)
target_link_libraries(client PRIVATE advapi32)

# zorpmprobe.exe: tells the facts of the platform that it runs on; the host build makes its counterpart.
file(GLOB probe_sources CONFIGURE_DEPENDS tests/platform/*.cpp)
list(FILTER probe_sources EXCLUDE REGEX main_host)
add_executable(zorpmprobe ${probe_sources} ${resource_scripts})
target_include_directories(zorpmprobe PRIVATE ${CMAKE_SOURCE_DIR})
target_precompile_headers(zorpmprobe PRIVATE <windows.h> <atomic>)
target_link_libraries(zorpmprobe PRIVATE advapi32 user32 setupapi ole32 oleaut32 shell32 taskschd uuid)
set_target_properties(zorpmprobe PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)

# The probes: each tests/wine/NAME.cpp is one console program tests/NAME.exe (entry wmain) that a Wine test starts.
file(GLOB probes CONFIGURE_DEPENDS tests/wine/*.cpp)
foreach(probe IN LISTS probes)
    get_filename_component(name ${probe} NAME_WE)
    add_executable(${name} ${probe})
    target_precompile_headers(${name} REUSE_FROM zorpmprobe)
    target_link_libraries(${name} PRIVATE advapi32 user32 setupapi ole32 oleaut32 shell32 taskschd uuid)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
endforeach()
# One looks at the recorder's file.
target_sources(recording_probe PRIVATE recorder/real.cpp recorder/lines.cpp recorder/record/journal.cpp
               recorder/record/os.cpp recorder/record/replaced.cpp)
target_include_directories(recording_probe PRIVATE ${CMAKE_SOURCE_DIR})
target_link_libraries(recording_probe PRIVATE ntdll)

# A stand-in for the notebook's drivers, which Wine loads as it would real ones.
add_executable(stand_in tests/wine/stand_in.c)
target_include_directories(stand_in PRIVATE ${CMAKE_FIND_ROOT_PATH}/include/ddk)
target_compile_options(stand_in PRIVATE -Wall -Wextra)
target_link_options(stand_in PRIVATE -shared -nostdlib -Wl,--subsystem,native -Wl,--entry,DriverEntry)
target_link_libraries(stand_in PRIVATE ntoskrnl)
set_target_properties(stand_in PROPERTIES SUFFIX .sys RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)

# The notebook of the runner below.
add_executable(notebook recorder/runner/notebook.c)
target_include_directories(notebook PRIVATE ${CMAKE_SOURCE_DIR} ${CMAKE_FIND_ROOT_PATH}/include/ddk)
target_compile_options(notebook PRIVATE -Wall -Wextra)
target_link_options(notebook PRIVATE -shared -nostdlib -Wl,--subsystem,native -Wl,--entry,DriverEntry)
target_link_libraries(notebook PRIVATE ntoskrnl)
set_target_properties(notebook PROPERTIES SUFFIX .sys RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)

# The Wine tests: each tests/wine/run_*.sh, run by the harness tests/wine/run.sh.
file(GLOB wine_tests CONFIGURE_DEPENDS tests/wine/run_*.sh)
foreach(script IN LISTS wine_tests)
    get_filename_component(name ${script} NAME_WE)
    string(REPLACE "run_" "wine_" name ${name})
    add_test(NAME ${name} COMMAND ${CMAKE_SOURCE_DIR}/tests/wine/run.sh ${CMAKE_BINARY_DIR} ${script})
    set_tests_properties(${name} PROPERTIES LABELS wine TIMEOUT 300 COST 2000
                         ENVIRONMENT "ZORPM_FIGURES=${CMAKE_SOURCE_DIR}/build/figures.txt")
endforeach()

# The runner: virtual time and a service control manager of its own; for scripts on real Win32 (tools/scenario-on-wine).
# The product's sources are images that it loads, afresh for every process. These keep their symbols, which name the
# threads.
file(GLOB runner_sources CONFIGURE_DEPENDS recorder/*.cpp recorder/clock/*.cpp recorder/runner/*.cpp)
add_executable(zorpmrunner ${runner_sources} ${resource_scripts})
target_include_directories(zorpmrunner PRIVATE ${CMAKE_SOURCE_DIR})
target_precompile_headers(zorpmrunner REUSE_FROM zorpmprobe)
set_source_files_properties(recorder/runner/com.cpp PROPERTIES SKIP_PRECOMPILE_HEADERS ON) # interfaces as in C
target_link_libraries(zorpmrunner PRIVATE ntdll advapi32 user32 setupapi ole32 oleaut32 shell32 taskschd uuid)
set_target_properties(zorpmrunner PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
add_dependencies(zorpmrunner notebook)

function(add_image name)
    add_library(${name} MODULE recorder/image/image.cpp ${ARGN})
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
    target_precompile_headers(${name} REUSE_FROM zorpmprobe)
    target_link_options(${name} PRIVATE -Wl,--strip-debug)
    target_link_libraries(${name} PRIVATE advapi32 user32 setupapi ole32 oleaut32 shell32 taskschd uuid)
    set_target_properties(${name} PROPERTIES PREFIX "" LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    add_dependencies(zorpmrunner ${name})
endfunction()
add_image(zorpm_image ${product_sources} ${resource_scripts})
add_image(zorpmctl_image ${ctl_sources} ${ctl_shared})

# The recorder: zorpmsvc.exe's own objects, linked as they are, behind wrappers that write what the service does on the
# machine (docs/recording.md). It keeps its table of symbols, which names the threads.
file(GLOB recorder_sources CONFIGURE_DEPENDS recorder/*.cpp recorder/record/*.cpp)
add_executable(zorpmrecorder WIN32 ${recorder_sources} $<TARGET_OBJECTS:zorpmsvc>)
target_compile_definitions(zorpmrecorder PRIVATE RECORDED_VERSION="${PROJECT_VERSION}")
target_include_directories(zorpmrecorder PRIVATE ${CMAKE_SOURCE_DIR})
target_link_options(zorpmrecorder PRIVATE -flto=auto)
target_link_libraries(zorpmrecorder PRIVATE ntdll advapi32 user32 setupapi ole32 oleaut32 shell32 taskschd uuid)
set_target_properties(zorpmrecorder PROPERTIES OUTPUT_NAME zorpmsvc RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/recorder)
add_custom_command(TARGET zorpmrecorder POST_BUILD COMMAND ${CMAKE_STRIP} -p --strip-debug $<TARGET_FILE:zorpmrecorder>)
# No call of src/ that it, or the runner, misses.
add_test(NAME wrapped_calls COMMAND ${CMAKE_SOURCE_DIR}/tests/wine/wrapped.sh ${CMAKE_BINARY_DIR})
set_tests_properties(wrapped_calls PROPERTIES LABELS windows)

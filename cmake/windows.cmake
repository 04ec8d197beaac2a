# zorpmsvc.exe: one self-contained file that imports system DLLs only.
enable_language(RC)

add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions;-fno-rtti;-ffunction-sections;-fdata-sections>")
add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:-municode>")
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
add_link_options(-municode -static -Wl,--gc-sections -s
                 -Wl,--nxcompat,--dynamicbase,--high-entropy-va,--tsaware)

add_executable(zorpmsvc WIN32 ${product_sources} ${resource_scripts})
# Seen whole, the program shows that the released trace does nothing: its calls and their texts disappear.
set_target_properties(zorpmsvc PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON)
target_link_libraries(zorpmsvc PRIVATE advapi32 user32 setupapi ole32 oleaut32 shell32 taskschd uuid)
# Size and imports: powrprof.dll is loaded when needed and must never be linked.
add_test(NAME executable COMMAND ${CMAKE_SOURCE_DIR}/tests/wine/imports.sh $<TARGET_FILE:zorpmsvc>)
set_tests_properties(executable PROPERTIES LABELS windows
                     ENVIRONMENT "ZORPM_FIGURES=${CMAKE_SOURCE_DIR}/build/figures.txt")

# zorpmctl.exe: of the Windows subsystem, so that no console window opens when a key starts it.
if(ctl_sources)
    add_executable(zorpmctl WIN32 ${ctl_sources} ${ctl_shared})
    set_target_properties(zorpmctl PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON)
    target_link_libraries(zorpmctl PRIVATE advapi32 user32 setupapi)
    add_test(NAME control_program COMMAND ${CMAKE_SOURCE_DIR}/tests/wine/imports.sh $<TARGET_FILE:zorpmctl> 200)
    set_tests_properties(control_program PROPERTIES LABELS windows
                         ENVIRONMENT "ZORPM_FIGURES=${CMAKE_SOURCE_DIR}/build/figures.txt")
endif()

# The example for client programs, in C.
enable_language(C)
add_executable(client docs/examples/client.c)
target_compile_options(client PRIVATE -municode -Wall -Wextra -Wconversion)
target_link_libraries(client PRIVATE advapi32)

# The probes: each tests/wine/NAME.cpp is one console program tests/NAME.exe (entry wmain) that a Wine test starts.
file(GLOB probes CONFIGURE_DEPENDS tests/wine/*.cpp)
foreach(probe IN LISTS probes)
    get_filename_component(name ${probe} NAME_WE)
    add_executable(${name} ${probe})
    target_link_libraries(${name} PRIVATE advapi32 user32 ole32 oleaut32 shell32 taskschd uuid)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
endforeach()

# The Wine tests: each tests/wine/run_*.sh, run by the harness tests/wine/run.sh.
file(GLOB wine_tests CONFIGURE_DEPENDS tests/wine/run_*.sh)
foreach(script IN LISTS wine_tests)
    get_filename_component(name ${script} NAME_WE)
    string(REPLACE "run_" "wine_" name ${name})
    add_test(NAME ${name} COMMAND ${CMAKE_SOURCE_DIR}/tests/wine/run.sh ${CMAKE_BINARY_DIR} ${script})
    set_tests_properties(${name} PROPERTIES LABELS wine RESOURCE_LOCK wine TIMEOUT 300 COST 2000)
endforeach()

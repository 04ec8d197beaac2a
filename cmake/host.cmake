# The host build: WCHAR has 16 bits, and the headers in sim/include stand in for the SDK's.
# -fno-gnu-unique: a unique symbol would be shared between the images of two processes.
add_compile_options(-fshort-wchar -fno-gnu-unique -fPIC)
include_directories(sim/include)

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
set(CMAKE_BUILD_RPATH "$ORIGIN")
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

if(ZORPM_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
endif()

file(GLOB sim_sources CONFIGURE_DEPENDS sim/machine/*.cpp sim/script/*.cpp sim/notebook/*.cpp sim/windows/*.cpp
     sim/invariants/*.cpp)
file(GLOB tool_sources CONFIGURE_DEPENDS sim/tool/*.cpp)
list(FILTER tool_sources EXCLUDE REGEX "sanitizer_options|zorpmsim[.]cpp|keyboard[.]cpp")
file(GLOB test_sources CONFIGURE_DEPENDS tests/*.cpp tests/sim/*.cpp)
file(GLOB sweep_sources CONFIGURE_DEPENDS tests/sweeps/*.cpp)
file(GLOB bench_sources CONFIGURE_DEPENDS tests/bench/*.cpp)
file(GLOB scenarios CONFIGURE_DEPENDS scenarios/*.txt)

# Files of a target are compiled several at once: headers are read and a template is instantiated once, not once a file.
# So a name of a file's own is unique in its target, but for its commands'. Who compiles a file at a time (tools/mutate,
# tests/defects) turns it off; the Windows build, which ships, has no part in it.
option(ZORPM_TOGETHER "Compile several files of a target at once" ON)
function(build_together)
    if(NOT ZORPM_TOGETHER)
        return()
    endif()
    foreach(name IN LISTS ARGN)
        set_target_properties(${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 26
                              UNITY_BUILD_UNIQUE_ID g_commands)
        target_compile_options(${name} PRIVATE -Wno-subobject-linkage)
    endforeach()
endfunction()

# Objects of their own: a planted race is in each (cmake/races.cmake), and a name of their own in two is the same.
set_source_files_properties(src/cooling/adaptive_cooling.cpp src/cooling/cooling_v2.cpp src/cooling/cooling_v3.cpp
                            src/formfactor/lid_inhibit.cpp src/formfactor/multimode.cpp
                            PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)

# The product, compiled once: for the image, and as an archive for tests of pure functions.
add_library(zorpm_objects OBJECT ${product_sources})
target_include_directories(zorpm_objects PRIVATE src)
target_compile_options(zorpm_objects PRIVATE -fno-exceptions -fno-rtti)
set(product_headers <windows.h> <atomic> <strsafe.h>)
target_precompile_headers(zorpm_objects PRIVATE ${product_headers})
add_library(zorpm_src STATIC $<TARGET_OBJECTS:zorpm_objects>)

# The executable's data resource is assembled into the machine.
set_source_files_properties(sim/windows/resources.cpp PROPERTIES OBJECT_DEPENDS ${CMAKE_SOURCE_DIR}/src/setup/zorpmdrv.inf
                            SKIP_UNITY_BUILD_INCLUSION ON)

# The machine is built to be run: it goes without what costs it most of its building and running time.
# All of it reads its headers once, those of the library.
function(lighten name)
    if(name STREQUAL zorpmsim_lib)
        target_precompile_headers(${name} PRIVATE <algorithm> <cstdio> <deque> <functional> <map> <memory> <set> <string>
                                  <unordered_map> <vector> <windows.h>)
    else()
        target_precompile_headers(${name} REUSE_FROM zorpmsim_lib)
    endif()
    if(ZORPM_SANITIZE)
        target_compile_options(${name} PRIVATE -fno-sanitize=all -g1)
    endif()
endfunction()

# These read and write the caller's memory in ways of their own, or tell the sanitizers of stacks; the others call memcpy
# and its like, which are watched wherever they are called.
set(watched sim/machine/fiber.cpp sim/machine/text.cpp sim/windows/strings.cpp sim/windows/memory.cpp
            sim/windows/registry_calls.cpp sim/windows/system.cpp sim/windows/device_enumeration.cpp)
list(TRANSFORM watched PREPEND ${CMAKE_SOURCE_DIR}/)
list(REMOVE_ITEM sim_sources ${watched})
add_library(zorpmsim_watched OBJECT ${watched})
target_include_directories(zorpmsim_watched PRIVATE ${CMAKE_SOURCE_DIR})
if(ZORPM_SANITIZE)
    target_compile_options(zorpmsim_watched PRIVATE -fno-sanitize=undefined -g1)
endif()

# The simulated machine, and the image of the product that it loads once for every simulated process. It finds the
# image by its name, beside itself. The image keeps its symbol table: it names the threads in a trace.
add_library(zorpmsim_lib SHARED ${sim_sources} $<TARGET_OBJECTS:zorpmsim_watched>)
target_include_directories(zorpmsim_lib PUBLIC ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/src)
target_compile_definitions(zorpmsim_lib PUBLIC ZORPM_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
target_link_libraries(zorpmsim_lib PRIVATE ${CMAKE_DL_LIBS})
set_target_properties(zorpmsim_lib PROPERTIES OUTPUT_NAME zorpmsim DEFINE_SYMBOL "")
lighten(zorpmsim_lib)
# The machine calls its own functions: otherwise the templates of an executable that is not optimised take their place.
target_link_options(zorpmsim_lib PRIVATE -Wl,-Bsymbolic-functions)

function(as_image name machine)
    target_include_directories(${name} PRIVATE src)
    target_compile_options(${name} PRIVATE -fno-exceptions -fno-rtti)
    set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX LINK_DEPENDS ${CMAKE_SOURCE_DIR}/cmake/image.map)
    target_link_options(${name} PRIVATE -Wl,--version-script=${CMAKE_SOURCE_DIR}/cmake/image.map -Wl,-z,now
                        -Wl,--no-undefined)
    target_link_libraries(${name} PRIVATE ${machine})
endfunction()

add_library(zorpm_image MODULE $<TARGET_OBJECTS:zorpm_objects>)
as_image(zorpm_image zorpmsim_lib)

# The product once more, for schedules that hand over between two atomics too: the thread instrumentation makes each
# access to one a call, which the machine answers. The instrumentation's own library stays out.
add_library(zorpm_atomics_objects OBJECT ${product_sources})
target_include_directories(zorpm_atomics_objects PRIVATE src)
target_compile_options(zorpm_atomics_objects PRIVATE -fno-exceptions -fno-rtti -fno-sanitize=all -fsanitize=thread -g1)
target_precompile_headers(zorpm_atomics_objects PRIVATE ${product_headers})
add_library(zorpm_atomics_image MODULE $<TARGET_OBJECTS:zorpm_atomics_objects>)
as_image(zorpm_atomics_image zorpmsim_lib)

# An image that crashes or runs on when told to, for the test of how such scripts are made short.
add_library(zorpm_ending_image MODULE tests/support/ending_image.cpp)
as_image(zorpm_ending_image zorpmsim_lib)
target_compile_options(zorpm_ending_image PRIVATE -fno-sanitize=all)
set_target_properties(zorpm_ending_image PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/ending
                      OUTPUT_NAME zorpm_image)

# The control program, another image.
add_library(zorpmctl_image MODULE ${ctl_sources} ${ctl_shared})
as_image(zorpmctl_image zorpmsim_lib)
set_target_properties(zorpmctl_image PROPERTIES DEFINE_SYMBOL "") # as the headers' compilation has it
target_precompile_headers(zorpmctl_image REUSE_FROM zorpm_objects)

# An executable on the simulated machine. It exports no symbols: its variables would take over the images'. The
# sanitizers read their options from the executable itself.
function(add_host_executable name)
    add_executable(${name} ${ARGN} sim/tool/sanitizer_options.cpp)
    target_link_libraries(${name} PRIVATE zorpmsim_lib)
    add_dependencies(${name} zorpm_image zorpm_atomics_image zorpmctl_image)
endfunction()

# What zorpmsim shows, for its tests too. The page of a run is assembled into it.
set_source_files_properties(sim/tool/page.cpp PROPERTIES OBJECT_DEPENDS
    "${CMAKE_SOURCE_DIR}/sim/page/page.html;${CMAKE_SOURCE_DIR}/sim/page/page.js;${CMAKE_SOURCE_DIR}/sim/page/d3.js")
# The compiler takes a short string's buffer for what it holds, at -O1 alone.
set_property(SOURCE sim/tool/page.cpp APPEND PROPERTY COMPILE_OPTIONS -Wno-array-bounds -Wno-stringop-overflow)
add_library(zorpmsim_views STATIC ${tool_sources})
target_link_libraries(zorpmsim_views PUBLIC zorpmsim_lib)
lighten(zorpmsim_views)
target_compile_definitions(zorpmsim_views PRIVATE ZORPMSIM_VERSION="${PROJECT_VERSION}")

add_host_executable(zorpmsim sim/tool/zorpmsim.cpp sim/tool/keyboard.cpp)
lighten(zorpmsim)
target_link_libraries(zorpmsim PRIVATE zorpmsim_views edit)
if(ZORPM_SANITIZE)
    include(cmake/races.cmake)
endif()
file(GLOB hunt_sources CONFIGURE_DEPENDS sim/hunt/*.cpp)
add_host_executable(zorpmhunt ${hunt_sources})
set_target_properties(zorpmhunt PROPERTIES EXCLUDE_FROM_ALL ON)
lighten(zorpmhunt)
target_link_libraries(zorpmhunt PRIVATE zorpmsim_views)
# Scripts on real Win32: tools/scenario-on-wine, and the tests that compare. Their other side is the Windows build.
file(GLOB wine_sources CONFIGURE_DEPENDS sim/wine/*.cpp)
add_host_executable(zorpmwine ${wine_sources})
lighten(zorpmwine)
target_link_libraries(zorpmwine PRIVATE zorpmsim_views)
set_target_properties(zorpmwine PROPERTIES EXCLUDE_FROM_ALL ON)
# The optimised build runs the sweeps alone, with every seed; all other tests, and a share of the seeds, are the
# sanitizers'.
if(NOT ZORPM_SANITIZE)
    set(scenarios)
endif()
foreach(scenario IN LISTS scenarios)
    get_filename_component(name ${scenario} NAME_WE)
    file(RELATIVE_PATH path ${CMAKE_SOURCE_DIR} ${scenario})
    add_test(NAME scenario_${name} COMMAND zorpmsim ${path} WORKING_DIRECTORY ${CMAKE_SOURCE_DIR})
    set_tests_properties(scenario_${name} PROPERTIES LABELS scenario TIMEOUT 120)
endforeach()

if(ZORPM_SANITIZE)
    add_test(NAME tool COMMAND ${CMAKE_SOURCE_DIR}/tests/tool_test.sh $<TARGET_FILE:zorpmsim>
             $<TARGET_FILE:zorpm_ending_image>)
    set_tests_properties(tool PROPERTIES LABELS scenario TIMEOUT 300)

    add_test(NAME races COMMAND ${CMAKE_SOURCE_DIR}/tests/races/run.sh ${CMAKE_BINARY_DIR}/races)
    set_tests_properties(races PROPERTIES LABELS sweep TIMEOUT 300)

    add_test(NAME page_in_browser COMMAND tests/browser/run.sh $<TARGET_FILE:zorpmsim>
             WORKING_DIRECTORY ${CMAKE_SOURCE_DIR})
    set_tests_properties(page_in_browser PROPERTIES LABELS browser TIMEOUT 300)
endif()

add_host_executable(zorpm_bench ${bench_sources})
set_target_properties(zorpm_bench PROPERTIES EXCLUDE_FROM_ALL ON)
lighten(zorpm_bench)

# The facts of the platform, as this machine tells them; the Windows build makes zorpmprobe.exe of the same sources.
file(GLOB probe_sources CONFIGURE_DEPENDS tests/platform/*.cpp)
list(FILTER probe_sources EXCLUDE REGEX main_windows)
add_host_executable(zorpmprobe ${probe_sources})
target_compile_options(zorpmprobe PRIVATE -O0 -g1 -fno-sanitize=all)
set_target_properties(zorpmprobe PROPERTIES EXCLUDE_FROM_ALL ON)

find_package(GTest REQUIRED)
include(GoogleTest)

# The tests themselves are neither optimised nor instrumented: that would test GoogleTest, and it takes most of the
# build's time.
function(as_tests name)
    target_link_libraries(${name} PRIVATE zorpm_src GTest::gtest GTest::gtest_main)
    target_compile_options(${name} PRIVATE -O0 -g1 -fno-sanitize=all)
    if(name STREQUAL zorpm_tests)
        target_precompile_headers(${name} PRIVATE tests/support/sweep.h)
    else()
        target_precompile_headers(${name} REUSE_FROM zorpm_tests)
    endif()
endfunction()

add_host_executable(zorpm_tests ${test_sources})
as_tests(zorpm_tests)
target_link_libraries(zorpm_tests PRIVATE zorpmsim_views)
if(ZORPM_SANITIZE)
    gtest_discover_tests(zorpm_tests DISCOVERY_MODE PRE_TEST PROPERTIES LABELS unit TIMEOUT 120)
endif()

add_host_executable(zorpm_sweeps ${sweep_sources})
as_tests(zorpm_sweeps)
set_target_properties(zorpm_sweeps PROPERTIES EXCLUDE_FROM_ALL ON)
# One of seven has no divisor in common with what tests choose by the seed.
if(ZORPM_SANITIZE)
    gtest_discover_tests(zorpm_sweeps DISCOVERY_MODE PRE_TEST TEST_PREFIX sanitized/ PROPERTIES LABELS sweep TIMEOUT 900
                         COST 1000 ENVIRONMENT ZORPM_SHARE=7)
else()
    gtest_discover_tests(zorpm_sweeps DISCOVERY_MODE PRE_TEST PROPERTIES LABELS sweep TIMEOUT 900 COST 1500
                         ENVIRONMENT "ZORPM_FIGURES=${CMAKE_SOURCE_DIR}/build/figures.txt")
endif()

build_together(zorpm_objects zorpm_atomics_objects zorpmctl_image zorpmsim_watched zorpmsim_lib zorpmsim_views zorpmsim
               zorpmhunt zorpmwine zorpmprobe zorpm_tests zorpm_sweeps)

if(ZORPM_COVERAGE)
    include(cmake/coverage.cmake)
endif()

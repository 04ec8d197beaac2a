# For the test of how races are hunted (tests/races): the product with one planted race each, and as it is. A search runs
# thousands of schedules, and each explored one is a process: so all of this goes without sanitizers, which make a process
# four times as expensive. The objects are those that go without anyway; only what has them is compiled anew.
set(races ${CMAKE_BINARY_DIR}/races)

# All of it, for who runs the test.
add_custom_target(races_all)
function(of_races)
    set_target_properties(${ARGN} PROPERTIES EXCLUDE_FROM_ALL ON)
    add_dependencies(races_all ${ARGN})
endfunction()

add_library(races_lib SHARED ${watched} $<TARGET_OBJECTS:zorpmsim_lib>)
target_include_directories(races_lib PRIVATE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/src)
target_compile_options(races_lib PRIVATE -fno-sanitize=all -g1)
target_link_options(races_lib PRIVATE -fno-sanitize=all -Wl,-Bsymbolic-functions)
target_link_libraries(races_lib PRIVATE ${CMAKE_DL_LIBS})
set_target_properties(races_lib PROPERTIES OUTPUT_NAME zorpmsim LIBRARY_OUTPUT_DIRECTORY ${races})

add_executable(races_sim $<TARGET_OBJECTS:zorpmsim> $<TARGET_OBJECTS:zorpmsim_views>)
target_link_options(races_sim PRIVATE -fno-sanitize=all)
target_link_libraries(races_sim PRIVATE races_lib edit)
set_target_properties(races_sim PROPERTIES OUTPUT_NAME zorpmsim RUNTIME_OUTPUT_DIRECTORY ${races})
of_races(races_lib races_sim)

# It stands for both images of the product: without --atomics the machine hands over at no atomic.
function(as_races_image name tree)
    as_image(${name} races_lib)
    target_link_options(${name} PRIVATE -fno-sanitize=all)
    set_target_properties(${name} PROPERTIES OUTPUT_NAME zorpm_image LIBRARY_OUTPUT_DIRECTORY ${tree})
    of_races(${name})
endfunction()

add_library(races_image MODULE $<TARGET_OBJECTS:zorpm_atomics_objects>)
as_races_image(races_image ${races}/none)

# The image with a defect of tests/defects/ in it, in races/FOLDER/ROW: the row's one file is compiled anew.
function(add_raced_image row source)
    set(tree ${races}/${row})
    get_filename_component(folder ${row} DIRECTORY)
    get_filename_component(file ${source} NAME_WE)
    string(REPLACE / _ name raced_${row})
    add_custom_command(OUTPUT ${tree}/${source}
        COMMAND ${CMAKE_COMMAND} -E copy ${CMAKE_SOURCE_DIR}/${source} ${tree}/${source}
        COMMAND ${CMAKE_SOURCE_DIR}/tests/defects/plant.pl plant ${tree} ${row}
        DEPENDS ${source} tests/defects/plant.pl tests/defects/${folder}.txt)
    add_library(${name} MODULE ${tree}/${source}
                $<FILTER:$<TARGET_OBJECTS:zorpm_atomics_objects>,EXCLUDE,/${file}[.]cpp>)
    as_races_image(${name} ${tree})
    target_compile_options(${name} PRIVATE -fno-sanitize=all -fsanitize=thread -g1)
endfunction()

add_raced_image(cooling/event_out_of_turn src/cooling/adaptive_cooling.cpp)
add_raced_image(cooling/option_out_of_turn src/cooling/adaptive_cooling.cpp)
add_raced_image(cooling/worker_out_of_turn src/cooling/cooling_v2.cpp)
add_raced_image(cooling/switch_lost src/cooling/cooling_v3.cpp)
add_raced_image(formfactor/refresh_out_of_turn src/formfactor/multimode.cpp)
add_raced_image(formfactor/split_stop src/formfactor/lid_inhibit.cpp)

build_together(races_lib)

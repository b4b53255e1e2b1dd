# Helpers shared by the folder CMakeLists: a library from the sources of a folder, and
# test executables registered with ctest.

# halden_library(NAME DIR [GLOB patterns...] LIBS ...): all .cpp/.hpp below DIR (or the
# given patterns) become one static library, with the project root as include path.
function(halden_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_LIBS})
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
endfunction()

# halden_gtest(NAME [ROOMS] SOURCES ... LIBS ... [LABELS ...]): one GoogleTest executable; each
# test case becomes a ctest test.
function(halden_gtest name)
  cmake_parse_arguments(ARG "ROOMS" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  math(EXPR ARG_TIMEOUT "${ARG_TIMEOUT} * ${HALDEN_TEST_TIMEOUT_SCALE}")
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gmock GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_compile_definitions(${name} PRIVATE HALDEN_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
                                             HALDEN_BINARY_DIR="${PROJECT_BINARY_DIR}")
  include(GoogleTest)
  # Programs that start simulated rooms take the room lock: the virtual-clock runs use every
  # core flat out, and a window test beside them misses its cameras' 2 s handshakes.
  set(lock "")
  if(ARG_ROOMS)
    set(lock "simulated-rooms")
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
                       PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}" RESOURCE_LOCK "${lock}")
endfunction()

# halden_qtest(NAME SOURCES ... LIBS ...): one Qt Test executable, labelled gui (run under Xvfb).
function(halden_qtest name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  math(EXPR ARG_TIMEOUT "${ARG_TIMEOUT} * ${HALDEN_TEST_TIMEOUT_SCALE}")
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} Qt5::Test)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_compile_definitions(${name} PRIVATE HALDEN_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
                                             HALDEN_BINARY_DIR="${PROJECT_BINARY_DIR}")
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS gui RESOURCE_LOCK simulated-rooms)
endfunction()

# halden_gui_tests(LIBS ...): one Qt Test program per *_guitest.cpp of the calling folder,
# when the first library exists (GUI libraries are left out of sanitizer builds).
function(halden_gui_tests)
  cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
  list(GET ARG_LIBS 0 first)
  file(GLOB files CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*_guitest.cpp)
  if(NOT TARGET ${first})
    return()
  endif()
  foreach(file ${files})
    get_filename_component(name ${file} NAME_WE)
    halden_qtest(${name} SOURCES ${file} LIBS ${ARG_LIBS})
  endforeach()
endfunction()

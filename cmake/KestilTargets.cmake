# Helpers that give every Kestil target the same warnings and layout.
function(kestil_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
    -Wnon-virtual-dtor -Woverloaded-virtual -Wno-missing-field-initializers)
  if(KESTIL_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# A module library: every .cpp and .h in the folder. A module with no sources
# yet is an interface library, so that its dependants still link.
function(kestil_module name)
  cmake_parse_arguments(ARG "" "" "LINK" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  file(GLOB headers CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.h")
  if(sources)
    add_library(${name} STATIC ${sources} ${headers})
    target_include_directories(${name} PUBLIC "${CMAKE_CURRENT_SOURCE_DIR}/..")
    target_link_libraries(${name} PUBLIC ${ARG_LINK})
    kestil_warnings(${name})
    set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  else()
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE "${CMAKE_CURRENT_SOURCE_DIR}/..")
    target_link_libraries(${name} INTERFACE ${ARG_LINK})
  endif()
endfunction()

# A GoogleTest executable registered with CTest. LABELS tags it (unit,
# integration, gui, e2e) so that a run can pick a kind.
function(kestil_test name)
  cmake_parse_arguments(ARG "UNPACED" "TIMEOUT" "SOURCES;LINK;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} GTest::gtest GTest::gtest_main GTest::gmock)
  # The header-only fixtures of tests/support/ are there for every test.
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
  target_compile_definitions(${name} PRIVATE
    KESTIL_TEST_DATA_DIR="${PROJECT_SOURCE_DIR}/tests/data"
    KESTIL_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  kestil_warnings(${name})
  if(NOT ARG_LABELS)
    set(ARG_LABELS unit)
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  # Tests that run in real time against an audio server or a display run
  # alone: on two cores a neighbour would starve them. UNPACED marks those
  # that only read files, packages or models at their own speed: a neighbour
  # slows them down without changing what they find, so they share the machine.
  set(serial FALSE)
  if(("integration" IN_LIST ARG_LABELS AND NOT ARG_UNPACED) OR "e2e" IN_LIST ARG_LABELS)
    set(serial TRUE)
  endif()
  gtest_discover_tests(${name}
    DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT ${ARG_TIMEOUT} RUN_SERIAL ${serial}
               # A test that cannot run here (GTEST_SKIP) shows as skipped, not passed.
               SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]"
               ENVIRONMENT "KESTIL_TEST_MODELS_DIR=${KESTIL_TEST_MODELS_DIR};QT_QPA_PLATFORM=offscreen")
endfunction()

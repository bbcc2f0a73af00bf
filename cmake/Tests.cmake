# sorvanic_test(NAME SOURCES file... [LIBRARIES target...] [LABELS label...])
#
# One GoogleTest program, each of its tests a ctest of its own. Labels: "concurrency" runs under
# the thread sanitizer, "e2e" needs a machine that permits tracing.
include(GoogleTest)

function(sorvanic_test name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gtest GTest::gtest_main)
  gtest_discover_tests(${name} PROPERTIES LABELS "${arg_LABELS}" TIMEOUT 300 DISCOVERY_TIMEOUT 60)
endfunction()

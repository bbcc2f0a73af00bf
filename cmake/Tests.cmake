# sorvanic_test(NAME SOURCES file... [LIBRARIES target...] [LABELS label] [APART])
#
# APART: a build that joins sources (CMAKE_UNITY_BUILD) compiles these one by one, because names meet.
# One GoogleTest program, each of its tests a ctest of its own. Labels: "concurrency" runs under
# the thread sanitizer, "e2e" needs a machine that permits tracing, and so does "e2e-attacks", which takes from
# the supervisor what a sanitizer needs more of. One label a program: gtest_discover_tests loses a second.
include(GoogleTest)

# All that the thread sanitizer has to run, without what it has not.
add_custom_target(concurrency_tests)

function(sorvanic_test name)
  cmake_parse_arguments(arg "APART" "LABELS" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gtest GTest::gtest_main)
  # What is tested is optimised; optimising the tests would only take most of a build's time.
  target_compile_options(${name} PRIVATE -O0)
  if(arg_APART)
    set_target_properties(${name} PROPERTIES UNITY_BUILD OFF)
  endif()
  # An empty value would be lost, and LABELS take the next name for one.
  set(properties TIMEOUT 300)
  if(arg_LABELS)
    list(APPEND properties LABELS ${arg_LABELS})
  endif()
  if("concurrency" IN_LIST arg_LABELS)
    add_dependencies(concurrency_tests ${name})
  endif()
  gtest_discover_tests(${name} PROPERTIES ${properties} DISCOVERY_TIMEOUT 60)
endfunction()

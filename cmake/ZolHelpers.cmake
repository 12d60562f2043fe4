# zol_test(name [SOURCES ...] [LIBS ...]): a GoogleTest program tests/<name>.cpp linked with the library
# and the stand-in platform; every test case becomes a ctest entry with a generous time limit.
# zol_benchmark(name [SOURCES ...] [LIBS ...]): a Google Benchmark program benchmarks/<name>.cpp.
include(GoogleTest)

function(zol_test name)
  cmake_parse_arguments(ZT "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${name}.cpp ${ZT_SOURCES})
  # Tests of the stand-in platform alone (platform_*) do not need the library. White-box tests
  # (*_internal_test) link the static twin instead, whose hidden internals they can reach.
  if(TARGET zol_comm_static AND name MATCHES "_internal_test$")
    target_link_libraries(${name} PRIVATE zol_comm_static)
  elseif(TARGET zol_comm AND NOT name MATCHES "^platform_")
    target_link_libraries(${name} PRIVATE zol_comm)
  endif()
  target_link_libraries(${name} PRIVATE zol_platform zol_test_support GTest::gtest GTest::gtest_main
                                        Threads::Threads ${CMAKE_DL_LIBS} ${ZT_LIBS})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 DISCOVERY_MODE PRE_TEST
                       PROPERTIES TIMEOUT 300 ENVIRONMENT "ZOL_TEST_BINARY_DIR=${CMAKE_BINARY_DIR}")
endfunction()

function(zol_benchmark name)
  cmake_parse_arguments(ZB "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${name}.cpp ${ZB_SOURCES})
  if(TARGET zol_comm)
    target_link_libraries(${name} PRIVATE zol_comm)
  endif()
  target_link_libraries(${name} PRIVATE zol_platform benchmark::benchmark Threads::Threads ${ZB_LIBS})
endfunction()

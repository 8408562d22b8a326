# zelto_add_library(name SOURCES ...): an object library whose objects go into ZeltoCore.
function(zelto_add_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_library(${name} OBJECT ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
  target_compile_definitions(${name} PRIVATE ZELTO_BUILDING)
  target_link_libraries(${name} PUBLIC Imath::Imath PRIVATE zelto_compile_options ${ARG_DEPS})
endfunction()

# zelto_add_test(name SOURCES ...): one GoogleTest binary registered with CTest.
function(zelto_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ZeltoCore zelto_test_support GTest::gtest_main
                                        zelto_compile_options ${ARG_DEPS})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
                       PROPERTIES ENVIRONMENT "ZELTO_TEST_DATA=${PROJECT_SOURCE_DIR}/tests/data")
endfunction()

# zelto_add_bench(name SOURCES ...): one Google Benchmark program (never run under sanitizers).
function(zelto_add_bench name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ZeltoCore benchmark::benchmark_main zelto_compile_options
                                        ${ARG_DEPS})
endfunction()

# Test helpers: sayvo_test(name SOURCES ... LIBS ... [LABELS ...] [TIMEOUT s] [SERIAL] [GUI]
# [FIXTURE f] [ENVIRONMENT VAR=value]) builds a GoogleTest executable with Sayvo's test main
# (which owns the Qt application object) and registers each of its test cases with CTest
# under "<name>.<Suite>.<Case>"; FIXTURE names a CTest fixture every case requires.
function(sayvo_test name)
  cmake_parse_arguments(ARG "SERIAL;GUI" "TIMEOUT;FIXTURE" "SOURCES;LIBS;LABELS;ENVIRONMENT" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  if(ARG_GUI)
    target_link_libraries(${name} PRIVATE sayvo_test_main_gui)
  else()
    target_link_libraries(${name} PRIVATE sayvo_test_main)
  endif()
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gmock GTest::gtest)
  sayvo_warnings(${name})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  set(props TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
  if(ARG_SERIAL)
    list(APPEND props RUN_SERIAL TRUE)
  endif()
  if(ARG_ENVIRONMENT)
    list(APPEND props ENVIRONMENT "${ARG_ENVIRONMENT}")
  endif()
  if(ARG_FIXTURE)
    list(APPEND props FIXTURES_REQUIRED ${ARG_FIXTURE})
  endif()
  gtest_discover_tests(${name}
    TEST_PREFIX "${name}."
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES ${props})
endfunction()

# A libFuzzer target built from the given sources with the sanitizers, plus a CTest case
# that runs it for a bounded time on its seed corpus, failing above RSS_MB megabytes of
# memory (2048 unless told). Needs clang; skipped otherwise.
function(sayvo_fuzz_target name)
  cmake_parse_arguments(ARG "" "SECONDS;CORPUS;RSS_MB" "SOURCES;LIBS" ${ARGN})
  if(NOT SAYVO_CAN_FUZZ)
    message(STATUS "${name}: not built (libFuzzer needs clang)")
    return()
  endif()
  if(NOT ARG_SECONDS)
    set(ARG_SECONDS 30)
  endif()
  if(NOT ARG_RSS_MB)
    set(ARG_RSS_MB 2048)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_compile_options(${name} PRIVATE -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=all -g -O1)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer,address,undefined)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/core ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS})
  sayvo_warnings(${name})
  set(workdir "${CMAKE_CURRENT_BINARY_DIR}/${name}-corpus")
  add_test(NAME fuzz.${name}
    COMMAND ${CMAKE_COMMAND} -E env ASAN_OPTIONS=detect_leaks=1
            $<TARGET_FILE:${name}> -max_total_time=${ARG_SECONDS} -rss_limit_mb=${ARG_RSS_MB}
            -print_final_stats=1 ${workdir} ${ARG_CORPUS})
  set_tests_properties(fuzz.${name} PROPERTIES TIMEOUT 300 LABELS fuzz)
  file(MAKE_DIRECTORY ${workdir})
endfunction()

# A Google Benchmark executable; `./dev bench` runs every target with the label "bench".
function(sayvo_benchmark name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} benchmark::benchmark)
  sayvo_warnings(${name})
  set_property(GLOBAL APPEND PROPERTY SAYVO_BENCHMARKS ${name})
endfunction()

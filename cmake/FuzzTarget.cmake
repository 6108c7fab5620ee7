# spreadsheet_fuzz_target(<name> SOURCES <files> LIBS <libs>)
#
# One fuzz target, two programs: <name>_fuzzer, the libFuzzer binary (SPREADSHEET_FUZZ,
# clang), and <name>_replay (test builds), the same target under the shared replay main
# tests/support/fuzz_replay_main.cpp. The tests tree runs each replay over its committed
# corpus as the test <name>_corpus: add_test only takes effect once enable_testing() has
# run, which the top-level file does just before it adds tests/.
function(spreadsheet_fuzz_target name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  if(SPREADSHEET_FUZZ)
    add_executable(${name}_fuzzer ${ARG_SOURCES})
    target_compile_options(${name}_fuzzer PRIVATE -fsanitize=fuzzer)
    target_link_options(${name}_fuzzer PRIVATE -fsanitize=fuzzer)
    target_link_libraries(${name}_fuzzer PRIVATE ${ARG_LIBS})
    target_include_directories(${name}_fuzzer PRIVATE ${PROJECT_SOURCE_DIR})
  endif()
  if(SPREADSHEET_BUILD_TESTS)
    add_executable(${name}_replay ${ARG_SOURCES}
                   ${PROJECT_SOURCE_DIR}/tests/support/fuzz_replay_main.cpp)
    target_link_libraries(${name}_replay PRIVATE ${ARG_LIBS})
    target_include_directories(${name}_replay PRIVATE ${PROJECT_SOURCE_DIR})
  endif()
endfunction()

# Tests of the command shell against a daemon of their own.
find_package(GTest REQUIRED)
add_executable(shell_test
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_commands_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_configmodel.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_escapes_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_exact_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_exactlines_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_fake.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_files_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_guard_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_hostile_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_idtemplate_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_information_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_manual_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_parser_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_program_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_replay_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_report_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_running_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_terminal_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_values_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/unit/shell_watch_test.cpp
)
target_compile_definitions(shell_test PRIVATE
  SNOOPCTL_PROGRAM="$<TARGET_FILE:snoopctl>" SNOOPD6_VERSION="${PROJECT_VERSION}")
target_link_libraries(shell_test PRIVATE snoopctlcore GTest::gtest_main util)
add_dependencies(shell_test snoopctl)
add_test(NAME shell_test COMMAND shell_test)

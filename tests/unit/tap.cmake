# The tap, over a contract of the tests' own.
add_library(tap_test_platform MODULE ${CMAKE_CURRENT_LIST_DIR}/tap_platform.cpp)
target_include_directories(tap_test_platform PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(tap_test_platform PRIVATE dtv_options)

find_package(GTest REQUIRED)
# The events come first: a test of theirs needs places for callbacks, which other tests use up.
add_executable(tap_test
  ${CMAKE_CURRENT_LIST_DIR}/tap_functions.cpp ${CMAKE_CURRENT_LIST_DIR}/tap_event_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/tap_script_test.cpp ${CMAKE_CURRENT_LIST_DIR}/tap_call_test.cpp)
target_include_directories(tap_test PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_compile_definitions(tap_test PRIVATE TAP_PLATFORM="$<TARGET_FILE:tap_test_platform>")
target_link_libraries(tap_test PRIVATE dtv_tap_engine dtv_tap_values GTest::gtest_main)
add_dependencies(tap_test tap_test_platform)
add_test(NAME tap_test COMMAND tap_test)

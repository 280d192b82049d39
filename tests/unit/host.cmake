# The host without its sockets, the language libraries and the private view that it gives the plugin; and the plugin that
# its system tests load to see what it does with broken texts.
find_package(GTest REQUIRED)

add_executable(host_test
  host_http_wire_test.cpp host_log_life_test.cpp host_log_test.cpp host_page_test.cpp host_policy_test.cpp
  host_rpc_test.cpp host_runner_test.cpp host_text_test.cpp host_token_test.cpp host_ws_wire_test.cpp i18n_test.cpp
  sandbox_test.cpp)
target_compile_definitions(host_test PRIVATE LANGUAGES="${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/i18n")
target_link_libraries(host_test PRIVATE dtv_host_wire dtv_sandbox GTest::gtest_main)
add_dependencies(host_test dtv_languages)
add_test(NAME host_test COMMAND host_test)

add_library(odd_plugin MODULE ${CMAKE_SOURCE_DIR}/tests/system/odd_plugin.cpp)
target_link_libraries(odd_plugin PRIVATE dtv_options)

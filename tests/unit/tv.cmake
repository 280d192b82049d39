# The virtual television, as its library offers it; and what its defaults make of a contract that only the tests know.
find_package(GTest REQUIRED)
pkg_check_modules(SQLITE3 REQUIRED IMPORTED_TARGET sqlite3)

add_executable(tv_test
  tv_apps_test.cpp tv_broadcast_test.cpp tv_cec_test.cpp tv_cec_views_test.cpp tv_ci_test.cpp tv_clock_test.cpp tv_config_life_test.cpp
  tv_config_test.cpp tv_defaults_test.cpp tv_defaults_weak.cpp tv_disk.cpp tv_network_test.cpp tv_remote_test.cpp
  tv_store_damage_test.cpp tv_store_disk_test.cpp tv_store_place_test.cpp tv_store_test.cpp
  tv_usb_root_test.cpp tv_usb_test.cpp tv_volume_test.cpp)
target_link_libraries(tv_test PRIVATE dtv_options dtv_tv PkgConfig::SQLITE3 GTest::gtest_main ${CMAKE_DL_LIBS})
add_test(NAME tv_test COMMAND tv_test)

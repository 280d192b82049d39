# What `cmake --install` puts where: libraries, headers, programs, the page, and how others find them.
include(CMakePackageConfigHelpers)

set(headers ${CMAKE_INSTALL_INCLUDEDIR}/dtv_js_plugin)
set(libraries dtv_js_plugin dtv_tap)
if(DTV_DESK)
  list(APPEND libraries dtv_tv)
endif()
install(TARGETS ${libraries} EXPORT dtv_js_plugin
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} INCLUDES DESTINATION ${headers})
install(DIRECTORY inc/ DESTINATION ${headers})

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/dtv_js_plugin)
install(EXPORT dtv_js_plugin NAMESPACE dtv_js_plugin:: DESTINATION ${package})
file(WRITE ${CMAKE_BINARY_DIR}/dtv_js_plugin-config.cmake
  "include(\${CMAKE_CURRENT_LIST_DIR}/dtv_js_plugin.cmake)\n")
write_basic_package_version_file(${CMAKE_BINARY_DIR}/dtv_js_plugin-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/dtv_js_plugin-config.cmake ${CMAKE_BINARY_DIR}/dtv_js_plugin-config-version.cmake
  DESTINATION ${package})

# A file for pkg-config per library. None requires another package: the libraries bring their own dependencies along, and
# only the program that links them knows which platform the plugin gets. The prefix is known at install time only.
set(dtv_js_plugin_description "TV control by URI and JSON; link it with a platform: the set's, or dtv_tap and dtv_tv")
set(dtv_tap_description "Records, replays and scripts the calls between dtv_js_plugin and its platform")
set(dtv_tv_description "A virtual television, as the platform of dtv_js_plugin")
set(pc_in ${CMAKE_SOURCE_DIR}/cmake/library.pc.in)
foreach(name ${libraries})
  install(CODE "
    set(name ${name})
    set(description \"${${name}_description}\")
    set(PROJECT_VERSION ${PROJECT_VERSION})
    set(CMAKE_INSTALL_LIBDIR ${CMAKE_INSTALL_LIBDIR})
    set(CMAKE_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
    configure_file(${pc_in} \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig/${name}.pc\" @ONLY)")
endforeach()

if(DTV_DESK)
  install(TARGETS dtv_upnp LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(TARGETS ${DTV_LANGUAGES} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/dtv_js_plugin/i18n)
  install(TARGETS dtv_host dtvctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES cli/dtvctl.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME dtvctl)
  install(DIRECTORY web/dist/ DESTINATION ${CMAKE_INSTALL_DATADIR}/dtv_js_plugin/web OPTIONAL)
  install(FILES examples/CMakeLists.txt examples/own_host.c DESTINATION ${CMAKE_INSTALL_DATADIR}/dtv_js_plugin/examples)
endif()

# What `cmake --install` puts where: libraries, headers, programs, the page, and how others find them.
include(CMakePackageConfigHelpers)

set(headers ${CMAKE_INSTALL_INCLUDEDIR}/dtv_js_plugin)
install(TARGETS dtv_js_plugin EXPORT dtv_js_plugin
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} INCLUDES DESTINATION ${headers})
install(TARGETS dtv_tap EXPORT dtv_js_plugin
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

# The prefix is known at install time only.
set(pc_in ${CMAKE_SOURCE_DIR}/cmake/dtv_js_plugin.pc.in)
install(CODE "
  set(PROJECT_VERSION ${PROJECT_VERSION})
  set(CMAKE_INSTALL_LIBDIR ${CMAKE_INSTALL_LIBDIR})
  set(CMAKE_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
  configure_file(${pc_in} \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig/dtv_js_plugin.pc\" @ONLY)")

if(DTV_DESK)
  install(TARGETS dtv_tv LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(TARGETS ${DTV_LANGUAGES} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/dtv_js_plugin/i18n)
  install(TARGETS dtv_host dtvctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES cli/dtvctl.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME dtvctl)
  install(DIRECTORY web/dist/ DESTINATION ${CMAKE_INSTALL_DATADIR}/dtv_js_plugin/web OPTIONAL)
endif()

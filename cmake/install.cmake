# Headers, libraries, client, CMake package and pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/confkit)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/confkit)

set(libraries confkit)
target_include_directories(confkit PUBLIC $<INSTALL_INTERFACE:${header_dir}>)
if(TARGET confkit_testing)
  list(APPEND libraries confkit_testing)
  set_target_properties(confkit_testing PROPERTIES EXPORT_NAME testing)
endif()
install(TARGETS ${libraries} EXPORT confkit)
install(EXPORT confkit NAMESPACE confkit:: FILE confkit-targets.cmake DESTINATION ${package_dir})

file(GLOB platform_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/platform/*.h)
file(GLOB message_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/message/*.h)
file(GLOB testing_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/testing/*.h)
install(FILES ${platform_headers} DESTINATION ${header_dir}/platform)
install(FILES ${message_headers} DESTINATION ${header_dir}/message)
install(FILES containers/aholder.h containers/amap.h containers/object.h containers/omap.h
  containers/oobject.h
  DESTINATION ${header_dir}/containers)
install(FILES cfgman/cfg_handler.h cfgman/cfgman.h cfgman/item.h cfgman/item_order.h
  cfgman/iterator.h cfgman/link.h cfgman/notify_guard.h cfgman/run_task.h cfgman/subscription.h
  cfgman/token.h cfgman/vset.h
  DESTINATION ${header_dir}/cfgman)
install(FILES getall/getall_state.h getall/stateful_getall.h DESTINATION ${header_dir}/getall)
install(FILES script/invoke_script.h DESTINATION ${header_dir}/script)
install(FILES ${testing_headers} DESTINATION ${header_dir}/testing)
if(TARGET confctl)
  install(TARGETS confctl)
endif()

configure_package_config_file(cmake/confkit-config.cmake.in confkit-config.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(confkit-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/confkit-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/confkit-config-version.cmake
        DESTINATION ${package_dir})
file(RELATIVE_PATH prefix_from_pc ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig
     ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/confkit.pc.in confkit.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/confkit.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

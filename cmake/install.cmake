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

# Headers that stand beside sources are public; private ones stand in a folder src/.
foreach(folder platform containers testing)
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.h)
  install(FILES ${headers} DESTINATION ${header_dir}/${folder})
endforeach()
if(TARGET confctl)
  install(TARGETS confctl)
endif()

configure_package_config_file(cmake/confkit-config.cmake.in confkit-config.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(confkit-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/confkit-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/confkit-config-version.cmake
        DESTINATION ${package_dir})
configure_file(cmake/confkit.pc.in confkit.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/confkit.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# cmake --install: libraries, every public header, a CMake package, a pkg-config file, the manual, the
# licence and the examples.
include(CMakePackageConfigHelpers)

install(TARGETS kelv mirt_host mirt_linux_plugin
        EXPORT mirt_linux_plugin
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

file(GLOB public_headers
  ${PROJECT_SOURCE_DIR}/include/*.h
  ${PROJECT_SOURCE_DIR}/platform/kelv_*.h
  ${PROJECT_SOURCE_DIR}/host/mirt_host.h
  ${PROJECT_SOURCE_DIR}/mirtmonitor/plugin/linux/common_plugin.h
  ${PROJECT_SOURCE_DIR}/plugins/libmirt_agent/heart/mirt_agent_heart.h)
install(FILES ${public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mirt)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/mirt_linux_plugin)
install(EXPORT mirt_linux_plugin
        NAMESPACE mirt_linux_plugin::
        FILE mirt_linux_plugin-targets.cmake
        DESTINATION ${package_directory})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/mirt_linux_plugin-config.cmake.in
                              ${PROJECT_BINARY_DIR}/mirt_linux_plugin-config.cmake
                              INSTALL_DESTINATION ${package_directory})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/mirt_linux_plugin-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/mirt_linux_plugin-config.cmake
              ${PROJECT_BINARY_DIR}/mirt_linux_plugin-config-version.cmake
        DESTINATION ${package_directory})

set(pc_folder ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix_from_pc ${pc_folder} ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH includes_from_pc ${pc_folder} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(${PROJECT_SOURCE_DIR}/cmake/mirt_linux_plugin.pc.in
               ${PROJECT_BINARY_DIR}/mirt_linux_plugin.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/mirt_linux_plugin.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# In one folder, as in the tree, so that the manual's references to examples hold.
set(share ${CMAKE_INSTALL_DATADIR}/mirt)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${share})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs ${PROJECT_SOURCE_DIR}/examples
                  ${PROJECT_SOURCE_DIR}/fleet DESTINATION ${share}
        FILES_MATCHING PATTERN *.md PATTERN *.png PATTERN *.toml PATTERN *.c PATTERN *.cpp PATTERN *.h
                       PATTERN *.yml PATTERN *.json)

# Manual pages, made from the manual, and completions for shells.
find_program(MIRT_PANDOC pandoc)
if(MIRT_PANDOC AND MIRT_BUILD_MONITOR)
  file(GLOB manual CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
  set(pages_made ${PROJECT_BINARY_DIR}/man/made)
  add_custom_command(OUTPUT ${pages_made}
    COMMAND ${PROJECT_SOURCE_DIR}/packaging/man/make.sh ${PROJECT_BINARY_DIR}/man ${PROJECT_VERSION}
    COMMAND ${CMAKE_COMMAND} -E touch ${pages_made}
    DEPENDS ${manual} ${PROJECT_SOURCE_DIR}/packaging/man/make.sh
            ${PROJECT_SOURCE_DIR}/packaging/man/man.lua
    COMMENT "Making the manual pages")
  add_custom_target(manual_pages ALL DEPENDS ${pages_made})
  install(DIRECTORY ${PROJECT_BINARY_DIR}/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}
          FILES_MATCHING REGEX "\\.[135]$")
endif()
if(MIRT_BUILD_MONITOR)
  set(completions ${PROJECT_SOURCE_DIR}/packaging/completions)
  install(FILES ${completions}/mirt-monitor.bash RENAME mirt-monitor
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${completions}/_mirt-monitor
          DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
  install(FILES ${completions}/mirt-monitor.fish
          DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endif()

# The Debian package: the programs, a desktop entry and icon, the man page and the
# documentation, with the dependencies dpkg-shlibdeps reads from the programs themselves.
include(GNUInstallDirs)

foreach(program halden halden-cli body_relay halden-hub-emulator)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/tools/hub_emulator/demo_hub.json DESTINATION ${CMAKE_INSTALL_DATADIR}/halden)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/halden.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${PROJECT_SOURCE_DIR}/resources/images/halden_icon.png
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/256x256/apps RENAME halden.png)

configure_file(${PROJECT_SOURCE_DIR}/packaging/halden-cli.1 ${PROJECT_BINARY_DIR}/packaging/halden-cli.1 @ONLY)
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/packaging/halden-cli.1.gz
                   COMMAND gzip -9nf -k ${PROJECT_BINARY_DIR}/packaging/halden-cli.1
                   DEPENDS ${PROJECT_BINARY_DIR}/packaging/halden-cli.1)
add_custom_target(halden_man_page ALL DEPENDS ${PROJECT_BINARY_DIR}/packaging/halden-cli.1.gz)
install(FILES ${PROJECT_BINARY_DIR}/packaging/halden-cli.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
# The package is "halden"; GNUInstallDirs would name the folder after the project, "Halden".
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/halden)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/halden/docs)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME halden)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Halden developers <halden@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "finds where several stereo cameras stand in one room, from people walking past them")
set(CPACK_PACKAGE_DESCRIPTION "Halden calibrates the poses of several stereo cameras from the skeletons of people
walking through the room, says how far to trust each camera, and exports the result
for OpenCV, ROS 2 and multi-camera pose tools. With halden-cli, body_relay and a hub emulator.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/package)
include(CPack)

# Desktop integration and the Debian package (cpack -G DEB).
install(FILES ${CMAKE_CURRENT_LIST_DIR}/com.norvale.Tidewave.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/com.norvale.Tidewave.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/com.norvale.Tidewave.metainfo.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)

set(CPACK_PACKAGE_NAME tidewave)
set(CPACK_PACKAGE_VENDOR "Norvale")
set(CPACK_PACKAGE_CONTACT "Tidewave developers <tidewave@norvale.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Judge Wi-Fi links by real throughput (iperf3 client and server)")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Installed programs carry no debug information, as Debian packages do.
set(CPACK_STRIP_FILES TRUE)
# Libraries come from the shared-library scan; these are the tools run as
# child processes, which no scan can see.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "iperf3, avahi-daemon, psmisc, espeak-ng, qt6-wayland")
include(CPack)

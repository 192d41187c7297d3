# The Debian package: what is installed, under /usr, with the papers that Debian asks for.
if(NOT UNIX OR APPLE)
    return()
endif()

set(papers ${PROJECT_BINARY_DIR}/packaging)
set(debian ${PROJECT_SOURCE_DIR}/packaging/debian)
configure_file(${debian}/changelog.in ${papers}/changelog @ONLY)
add_custom_command(OUTPUT ${papers}/changelog.gz
    COMMAND ${GZIP} -9 -n -k -f ${papers}/changelog
    DEPENDS ${papers}/changelog
    VERBATIM)
add_custom_target(zarvo_changelog ALL DEPENDS ${papers}/changelog.gz)
install(FILES ${papers}/changelog.gz ${debian}/copyright ${debian}/README.Debian
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/zarvo)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zarvo)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
# Whatever the umask of whoever builds it.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Zarvo maintainers <maintainers@zarvo.example>")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "list, download, check and install the apps of an iPhone")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Zarvo lists the apps of an iPhone connected by cable, downloads their IPA
files from the store under the owner's account, checks them, puts them where
the owner wants them, and installs them again. Its interface is Russian.

The store is reached through the program ipatool, which is not part of this
package: /usr/share/doc/zarvo/README.Debian says where to put it.")
# The linker knows the libraries; these are programs that are run, and Qt's own Russian texts.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "usbmuxd, unzip, qt6-translations-l10n")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "qt6-wayland, shared-mime-info, hicolor-icon-theme")
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/drop-maintainer-scripts.cmake)
include(CPack)

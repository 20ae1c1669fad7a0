# The Debian package: `cpack` in a configured build folder writes quillet_<version>_<arch>.deb
# from the install rules (scripts/package builds, packs and checks it).

include(GNUInstallDirs)
# Packing installs what was built: scripts/package builds only the program (and what it depends
# on), not the tests and benchmarks a full build would make first.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

set(quillet_contact "Quillet maintainers <maintainers@users.noreply.c-seed-44772617.example>")

# Debian keeps the package's changelog, in its own format, with its licence. The changelog's
# newest entry must be this version: a package whose changelog tells of another misleads.
set(quillet_changelog "${PROJECT_SOURCE_DIR}/packaging/debian/changelog")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${quillet_changelog}")
file(STRINGS "${quillet_changelog}" quillet_newest LIMIT_COUNT 1)
if(NOT quillet_newest MATCHES "^quillet \\(${PROJECT_VERSION}\\) ")
  message(FATAL_ERROR "packaging/debian/changelog begins with \"${quillet_newest}\"; "
    "add an entry for version ${PROJECT_VERSION}")
endif()
include(Gzip)
quillet_gzip(quillet_changelog "${quillet_changelog}")
add_dependencies(quillet quillet_changelog)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/gz/changelog.gz" packaging/debian/copyright
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/quillet)
install(FILES packaging/debian/lintian-overrides RENAME quillet
  DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quillet)
set(CPACK_PACKAGE_VENDOR "Quillet maintainers")
set(CPACK_PACKAGE_CONTACT "${quillet_contact}")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://quillet.example/")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
# Folders as Debian has them, whatever the umask of whoever packs.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "text expander: your abbreviations become snippets as you type
Quillet runs in the background on the X11 desktop and watches what you type in
every application. When the text ends in one of your abbreviations, it erases
the abbreviation and inserts the snippet in its place, keeping the clipboard as
it was. Snippets can hold fields filled in a small form, dates, the clipboard,
other snippets and script output; locked snippets ask for the password first.
A tray icon shows whether expansion runs.

The snippets command lists, expands and adds snippets from a terminal.")
# The libraries it links, found by dpkg-shlibdeps; then what Qt loads at run time: the X11
# platform plugin and, for the icons, the SVG plugins (on Debian 12 in the SVG library's
# package, which the linker leaves out of the program as no symbol of it is used). Password fields are noticed through the accessibility bus, more picture
# formats come from Qt's plugins, and locked snippets keep their text in a Secret Service.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, libqt6svg6")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "at-spi2-core, qt6-image-formats-plugins")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "gnome-keyring")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

include(CPack)

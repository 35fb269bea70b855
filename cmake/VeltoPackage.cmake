# `./dev package`: a Debian package of the two programs with their manual and shell completions, and the dependencies
# that their libraries name.

include(GNUInstallDirs)

set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON) # the tests are not part of a package

# Side by side: veltoctl starts the velto-backend that lies next to it.
install(TARGETS veltoctl velto-backend RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
install(FILES LICENSE DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/velto" RENAME copyright)
install(FILES README.md docs/backend.md docs/store.md DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/velto")

# The program itself makes them, from the table that its parser works with.
set(made "${CMAKE_BINARY_DIR}/share")
file(MAKE_DIRECTORY "${made}")
add_custom_command(
  OUTPUT "${made}/veltoctl.bash" "${made}/_veltoctl" "${made}/veltoctl.fish" "${made}/veltoctl.1.gz"
  COMMAND veltoctl completion bash > "${made}/veltoctl.bash"
  COMMAND veltoctl completion zsh > "${made}/_veltoctl"
  COMMAND veltoctl completion fish > "${made}/veltoctl.fish"
  COMMAND veltoctl manual | gzip -9n > "${made}/veltoctl.1.gz"
  DEPENDS veltoctl)
add_custom_target(veltoctl-manual DEPENDS "${made}/veltoctl.bash" "${made}/_veltoctl" "${made}/veltoctl.fish"
                                           "${made}/veltoctl.1.gz")
add_dependencies(velto-programs veltoctl-manual)
install(FILES "${made}/veltoctl.bash" DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
        RENAME veltoctl)
install(FILES "${made}/_veltoctl" DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions")
install(FILES "${made}/veltoctl.fish" DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")
install(FILES "${made}/veltoctl.1.gz" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velto)
set(CPACK_PACKAGE_CONTACT "The Velto developers <velto@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "music library manager for DJs")
set(CPACK_PACKAGE_DESCRIPTION
    "Velto scans folders of audio files, knows each song apart from where its
file lies, asks a backend for genre, region and era tags, and writes the
genres into the files without changing a byte of audio. This package holds
the terminal program and a backend for this machine alone.")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The keyring keeps the token; xdg-open shows the sign-in page.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "gnome-keyring | keepassxc, xdg-utils")
include(CPack)

# The Debian package: `cpack -G DEB` in the build folder makes kestro_<version>_<arch>.deb
# with both programs, the help document, the desktop entry and icons, the
# AppStream metadata and the manual pages. dpkg-shlibdeps finds the run-time
# libraries (Qt, and any other linked later) from the binaries themselves.

set(KESTRO_PACKAGING ${CMAKE_SOURCE_DIR}/packaging)
set(KESTRO_DOC_DIR ${CMAKE_INSTALL_DATADIR}/doc/kestro)

# Manual pages and the changelog are installed compressed, as Debian expects;
# -n keeps the archive free of time stamps so rebuilds are identical.
set(KESTRO_COMPRESSED)
foreach(source kestro.1 kestro-convert.1 changelog)
  set(output ${CMAKE_BINARY_DIR}/packaging/${source}.gz)
  add_custom_command(OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/packaging
    COMMAND sh -c "gzip -9n -c '${KESTRO_PACKAGING}/${source}' > '${output}'"
    DEPENDS ${KESTRO_PACKAGING}/${source}
    VERBATIM)
  list(APPEND KESTRO_COMPRESSED ${output})
endforeach()
add_custom_target(packaging_files ALL DEPENDS ${KESTRO_COMPRESSED})

install(FILES ${CMAKE_BINARY_DIR}/packaging/kestro.1.gz ${CMAKE_BINARY_DIR}/packaging/kestro-convert.1.gz
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${KESTRO_PACKAGING}/copyright ${CMAKE_BINARY_DIR}/packaging/changelog.gz
        DESTINATION ${KESTRO_DOC_DIR})
install(FILES ${KESTRO_PACKAGING}/io.github.kestro.Kestro.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES ${KESTRO_PACKAGING}/icons/kestro.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
foreach(size 32 48 64 128 256)
  install(FILES ${KESTRO_PACKAGING}/icons/kestro-${size}.png
          DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps RENAME kestro.png)
endforeach()

set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kestro)
set(CPACK_PACKAGE_VENDOR "Kestro developers")
# A placeholder (a domain reserved for examples) until the project has an
# address of its own; lintian refuses one on localhost.
set(CPACK_PACKAGE_CONTACT "Kestro developers <kestro@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# The window needs a platform plugin, which Qt ships apart from its libraries.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "qt6-qpa-plugins")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "converter of instrument spectra and scans into plain text
Kestro converts spectra and scans written by laboratory instruments
(multichannel analysers, ion-beam acquisition, diffractometers, molecular
spectroscopy) into the plain text formats that plotting and fitting
programs read: SPE and SPO spectrum files, data blocks and two-column
(X, Y) files, with a header listing of the metadata the input carries.
.
The package holds the window kestro, which can also plot each result,
and kestro-convert, which runs the same conversions from a terminal or
a script.")
include(CPack)

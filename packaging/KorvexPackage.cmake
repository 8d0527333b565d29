# The Debian package: cmake --build build --target package writes
# build/korvex-shell_<version>_<arch>.deb from the install rules.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME korvex-shell)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR Talvane)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "command-line shell that drives Android virtual devices")
set(CPACK_PACKAGE_DESCRIPTION
  "Korvex Shell controls Android virtual devices, local VirtualBox machines or a\n"
  "remote device, through the agent each device runs: battery, GPS, rotation,\n"
  "phone calls and text messages, network profile, identities and factory reset.\n"
  "It runs interactively, one command at a time (-c) or from a command file (-f),\n"
  "and reports the outcome in its exit status, for use in CI jobs. The package\n"
  "includes korvex-devsim, a simulator of one device for tests, and korvex-route,\n"
  "which turns a recorded GPS track (GPX, KML, NMEA) into a command file.")
string(REPLACE ";" "" CPACK_PACKAGE_DESCRIPTION "${CPACK_PACKAGE_DESCRIPTION}")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Korvex Shell developers <korvex-shell@talvane.example>")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Depends from the libraries the binaries link, plus Qt's SQLite driver, which
# the usage statistics load at run time.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS libqt5sql5-sqlite)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS bash-completion)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
include(CPack)

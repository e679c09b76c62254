# The Debian package halvo-softphone-tray, made by `cpack -G DEB` (scripts/package.sh): what
# `cmake --install` puts in place, plus the copyright and changelog that every Debian package
# carries. Those two belong to the component "debian", which a plain install leaves out.

set(HV_PACKAGE_NAME halvo-softphone-tray)
set(HV_PACKAGE_MAINTAINER "Halvo Softphone team <softphone-linux@halvo.example>"
  CACHE STRING "Maintainer field of the Debian package")

set(HV_PACKAGE_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/${HV_PACKAGE_NAME})
configure_file(${CMAKE_SOURCE_DIR}/packaging/debian/changelog.in ${CMAKE_BINARY_DIR}/packaging/changelog @ONLY)
# Debian wants it compressed to the maximum, without a time stamp in the gzip header.
execute_process(COMMAND gzip -9 -n -c ${CMAKE_BINARY_DIR}/packaging/changelog
  OUTPUT_FILE ${CMAKE_BINARY_DIR}/packaging/changelog.gz RESULT_VARIABLE gzip_result)
if(NOT gzip_result EQUAL 0)
  message(FATAL_ERROR "gzip of the package's changelog failed: ${gzip_result}")
endif()
install(FILES ${CMAKE_SOURCE_DIR}/packaging/debian/copyright ${CMAKE_BINARY_DIR}/packaging/changelog.gz
  DESTINATION ${HV_PACKAGE_DOC_DIR} COMPONENT debian EXCLUDE_FROM_ALL)

set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_NAME ${HV_PACKAGE_NAME})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR Halvo)
set(CPACK_PACKAGE_CONTACT ${HV_PACKAGE_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "status-bar companion of the Halvo softphone")
# One paragraph; CPack indents the lines but does not wrap them, and Debian wants at most 80
# columns.
set(CPACK_PACKAGE_DESCRIPTION [[
The Halvo softphone's service starts this tray application and keeps its
standard input open. It shows one status item whose icon and tool tip follow
the service's connection state (waiting, connected, or an error such as
"Port busy"), and whose menu command "Collect logs into a ZIP file" gathers
the softphone's logs, the TCP connection table and the process list into an
archive in the download folder. The package also holds hv-collect-report,
which builds the same report from a terminal, and hv-service-peer, a stand-in
for the service that sends statuses to the tray.]])
# Everything (ALL skips EXCLUDE_FROM_ALL), then the Debian documents.
set(CPACK_INSTALL_CMAKE_PROJECTS
  "${CMAKE_BINARY_DIR};${PROJECT_NAME};ALL;/"
  "${CMAKE_BINARY_DIR};${PROJECT_NAME};debian;/")
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_PACKAGE_NAME ${HV_PACKAGE_NAME})
set(CPACK_DEBIAN_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Left unset, CPack takes the build machine's architecture from dpkg --print-architecture.
set(CPACK_DEBIAN_PACKAGE_SECTION comm)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Libraries from dpkg-shlibdeps; the report runs zip and unzip as commands.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "zip, unzip")
# No maintainer scripts for the icon cache: hicolor-icon-theme's dpkg trigger on
# /usr/share/icons/hicolor rebuilds it whenever a package adds or removes icons there (which is
# why debhelper's dh_icons leaves hicolor alone).

include(CPack)

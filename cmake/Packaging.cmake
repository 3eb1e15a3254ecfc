# What the packages hold beyond the library's own install rules, and the
# packages themselves (CPack), one per install component:
#   runtime      the shared library            Debian: libkavomobilegps0
#   development  header, link and static       Debian: libkavomobilegps-dev
#                libraries, pkg-config file,
#                CMake package, examples,
#                KavoMobileGPS(3)
#   tool         kavogps, its recordings,      Debian: kavogps
#                kavogps(1), bash completion,
#                service units and settings
# On Windows one zip holds them all. scripts/package.sh builds every package.
#
# KAVOGPS_DEBIAN_PACKAGES lays the documentation out as Debian wants it:
# each package's copyright and changelog in its own doc folder.
option(KAVOGPS_DEBIAN_PACKAGES "Install the documentation as the Debian packages hold it" OFF)
set(KAVOGPS_PACKAGING_DIR ${PROJECT_SOURCE_DIR}/packaging)

if(KAVOGPS_DEBIAN_PACKAGES)
  set(KAVOGPS_RUNTIME_DOC_DIR ${CMAKE_INSTALL_DATADIR}/doc/libkavomobilegps0)
  set(KAVOGPS_DEVELOPMENT_DOC_DIR ${CMAKE_INSTALL_DATADIR}/doc/libkavomobilegps-dev)
  set(KAVOGPS_TOOL_DOC_DIR ${CMAKE_INSTALL_DATADIR}/doc/kavogps)
else()
  set(KAVOGPS_RUNTIME_DOC_DIR ${CMAKE_INSTALL_DOCDIR})
  set(KAVOGPS_DEVELOPMENT_DOC_DIR ${CMAKE_INSTALL_DOCDIR})
  set(KAVOGPS_TOOL_DOC_DIR ${CMAKE_INSTALL_DOCDIR})
endif()

# The C++ layer beside the C header, once it is there.
if(EXISTS ${PROJECT_SOURCE_DIR}/include/KavoMobileGPS.hpp)
  install(FILES ${PROJECT_SOURCE_DIR}/include/KavoMobileGPS.hpp DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT development)
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${KAVOGPS_DEVELOPMENT_DOC_DIR}/examples
  COMPONENT development PATTERN ".*" EXCLUDE)

if(WIN32)
  # The DLL's exports as a .def file, and from it an import library that
  # MSVC's linker takes (the MinGW one, libKavoMobileGPS.dll.a, it does not).
  set(KAVOGPS_DEF ${PROJECT_BINARY_DIR}/KavoMobileGPS.def)
  target_link_options(KavoMobileGPS PRIVATE -Wl,--output-def,${KAVOGPS_DEF})
  install(FILES ${KAVOGPS_DEF} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  find_program(KAVOGPS_DLLTOOL NAMES llvm-dlltool llvm-dlltool-19 llvm-dlltool-16 llvm-dlltool-14)
  if(KAVOGPS_DLLTOOL)
    set(KAVOGPS_MSVC_IMPLIB ${PROJECT_BINARY_DIR}/KavoMobileGPS.lib)
    # The .def is written when the DLL is linked: depending on the DLL is
    # depending on it.
    add_custom_command(OUTPUT ${KAVOGPS_MSVC_IMPLIB}
      COMMAND ${KAVOGPS_DLLTOOL} -m i386:x86-64 -d ${KAVOGPS_DEF} -D KavoMobileGPS.dll -l ${KAVOGPS_MSVC_IMPLIB}
      DEPENDS KavoMobileGPS VERBATIM)
    add_custom_target(kavogps_msvc_import_library ALL DEPENDS ${KAVOGPS_MSVC_IMPLIB})
    install(FILES ${KAVOGPS_MSVC_IMPLIB} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  else()
    message(STATUS "llvm-dlltool not found (Debian package llvm): no import library for MSVC")
  endif()
  # The zip's own README, licence and the .ini example beside the DLL.
  install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION . COMPONENT runtime)
  install(FILES ${KAVOGPS_PACKAGING_DIR}/libKavoMobileGPS.ini DESTINATION ${CMAKE_INSTALL_BINDIR}
    RENAME KavoMobileGPS.ini.example COMPONENT runtime)
else()
  install(FILES ${KAVOGPS_PACKAGING_DIR}/libKavoMobileGPS.ini DESTINATION ${KAVOGPS_RUNTIME_DOC_DIR}/examples
    COMPONENT runtime)
  if(NOT KAVOGPS_DEBIAN_PACKAGES)
    install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR}
      COMPONENT runtime)
  endif()
endif()

# The tool's place in a Linux system: the service that shares a receiver
# (socket-activated, started by nobody but the administrator), its
# settings, and the bash completion. Relative folders are under the prefix.
if(TARGET kavogps AND NOT WIN32)
  set(KAVOGPS_SYSTEMD_UNIT_DIR lib/systemd/system CACHE STRING "Folder of the systemd units")
  set(KAVOGPS_BASH_COMPLETION_DIR ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    CACHE STRING "Folder of the bash completions")
  configure_file(${KAVOGPS_PACKAGING_DIR}/kavogps-serve.service.in kavogps-serve.service @ONLY)
  install(FILES ${KAVOGPS_PACKAGING_DIR}/kavogps-serve.socket ${PROJECT_BINARY_DIR}/kavogps-serve.service
    DESTINATION ${KAVOGPS_SYSTEMD_UNIT_DIR} COMPONENT tool)
  install(FILES ${KAVOGPS_PACKAGING_DIR}/kavogps.default DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/default
    RENAME kavogps COMPONENT tool)
  install(FILES ${KAVOGPS_PACKAGING_DIR}/kavogps.bash-completion DESTINATION ${KAVOGPS_BASH_COMPLETION_DIR}
    RENAME kavogps COMPONENT tool)
endif()

if(KAVOGPS_DEBIAN_PACKAGES)
  # The changelog names the version it packages; they must agree.
  file(STRINGS ${KAVOGPS_PACKAGING_DIR}/changelog changelog_head LIMIT_COUNT 1)
  if(NOT changelog_head MATCHES "^kavomobilegps \\(${PROJECT_VERSION}\\) ")
    message(FATAL_ERROR "packaging/changelog starts with '${changelog_head}', not version ${PROJECT_VERSION}")
  endif()
  find_program(KAVOGPS_GZIP gzip REQUIRED)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/changelog.gz
    COMMAND sh -c "\"$1\" -9n <\"$2\" >\"$3\"" sh ${KAVOGPS_GZIP} ${KAVOGPS_PACKAGING_DIR}/changelog
            ${PROJECT_BINARY_DIR}/changelog.gz
    DEPENDS ${KAVOGPS_PACKAGING_DIR}/changelog VERBATIM)
  add_custom_target(kavogps_debian_changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/changelog.gz)
  foreach(component IN ITEMS runtime development tool)
    string(TOUPPER ${component} upper)
    install(FILES ${KAVOGPS_PACKAGING_DIR}/copyright ${PROJECT_BINARY_DIR}/changelog.gz
      DESTINATION ${KAVOGPS_${upper}_DOC_DIR} COMPONENT ${component})
  endforeach()
endif()

# --- CPack -------------------------------------------------------------
set(CPACK_PACKAGE_NAME KavoMobileGPS)
set(CPACK_PACKAGE_VENDOR "The KavoMobileGPS developers")
set(CPACK_PACKAGE_CONTACT "The KavoMobileGPS developers <kavomobilegps@developers.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development tool)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_TOOL_DEPENDS runtime)

# Windows: one zip with every component, in a folder of its name.
set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)
if(WIN32)
  set(CPACK_PACKAGE_FILE_NAME KavoMobileGPS-${PROJECT_VERSION}-win64)
else()
  # The zip's folders are relative; the Debian packages install where the
  # build was configured to (/usr).
  set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
endif()

# Debian: a package per component, named as Debian names a C library's.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Depends from the binaries (dpkg-shlibdeps) and from the components: the
# -dev package and the tool need this very version of the library.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# dpkg-shlibdeps runs in a component's staging folder; the library the
# tool links is in the runtime component's, beside it.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ../runtime${CMAKE_INSTALL_FULL_LIBDIR})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkavomobilegps0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# ldconfig through dpkg's trigger, as Debian wants; CPack's postinst and
# postrm call it as well.
file(WRITE ${PROJECT_BINARY_DIR}/debian-runtime/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian-runtime/triggers)
# Each description's first line is the package's summary; CPack indents the
# rest and turns blank lines into Debian's " .".
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "GPS receivers on serial ports and NMEA recordings - library
KavoMobileGPS finds a GPS receiver on a serial port, or plays back a
recorded NMEA 0183 file as if a receiver were attached, reads its GGA,
RMC, GSA, GSV and VTG sentences and gives the current fix and the
satellites in view, by polling or through callbacks, behind a plain C
interface.

This package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkavomobilegps-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "GPS receivers on serial ports and NMEA recordings - development files
KavoMobileGPS finds a GPS receiver on a serial port, or plays back a
recorded NMEA 0183 file as if a receiver were attached, and gives the
current fix and the satellites in view behind a plain C interface.

This package holds the header, the static library, the pkg-config file,
the CMake package, an example program and the KavoMobileGPS(3) manual.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME kavogps)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_DESCRIPTION "play, find, monitor, simulate and share GPS receivers
kavogps plays NMEA 0183 recordings, lists the serial ports, searches them
for a GPS receiver, shows what a receiver sends, simulates one, and
shares one receiver with every program that reads a GPS daemon, over its
JSON protocol on TCP port 2947.

It comes with recordings to play, a manual page, bash completion and a
socket-activated systemd service, kavogps-serve, which is not enabled
on installation.")
if(IS_ABSOLUTE "${CMAKE_INSTALL_SYSCONFDIR}")
  # The settings are the administrator's: dpkg keeps their changes.
  file(WRITE ${PROJECT_BINARY_DIR}/debian-tool/conffiles "${CMAKE_INSTALL_SYSCONFDIR}/default/kavogps\n")
  set(CPACK_DEBIAN_TOOL_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian-tool/conffiles)
endif()

include(CPack)

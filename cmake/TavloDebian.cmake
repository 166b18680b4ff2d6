# The Debian packages libtavloca0, libtavloca-dev and tavlo, one for each component; cpack makes them.
find_program(GZIP gzip REQUIRED)
set(maintainer "TavloCA developers <developers@tavloca.invalid>")
set(library libtavloca${PROJECT_VERSION_MAJOR})
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)  # SOURCE_DATE_EPOCH, when it is set

# tavlo_gzip(INPUT OUTPUT)
function(tavlo_gzip input output)
  execute_process(COMMAND ${GZIP} -9nc ${input} OUTPUT_FILE ${output} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

configure_file(cmake/debian/changelog.in ${PROJECT_BINARY_DIR}/debian/changelog @ONLY)
tavlo_gzip(${PROJECT_BINARY_DIR}/debian/changelog ${PROJECT_BINARY_DIR}/debian/changelog.gz)

# tavlo_package(COMPONENT NAME SECTION SUMMARY TEXT DEPENDS)
macro(tavlo_package component name section summary text depends)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${summary}\n${text}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
  install(FILES ${PROJECT_BINARY_DIR}/debian/changelog.gz cmake/debian/copyright
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component})
endmacro()

set(what "TavloCA hands an ePassport that was read from its chip (ICAO Doc 9303) and a
selfie to a verification service over HTTPS, signed for with a key pair of its
own, and keeps the records of documents that an app shows.")
tavlo_package(runtime ${library} libs "client library for the verification of identity documents"
  "${what}\n\nThis package holds the shared library, and the one for programs in C." "")
tavlo_package(dev libtavloca-dev libdevel "headers of the client library for the verification of identity documents"
  "${what}\n\nThis package holds the headers for C++ and C, and what CMake and\npkg-config need to find them."
  "${library} (= ${PROJECT_VERSION})")
tavlo_package(programs tavlo utils "programs to inspect identity documents and have them verified"
  "The program tavlo shows what a document holds that was read from its chip
(ICAO Doc 9303), checks its signatures, and has it verified by a service.
The program tavlo-sandbox is such a service for development.
Neither needs a reader; fictitious passports can be made."
  "${library} (= ${PROJECT_VERSION})")

foreach(page tavlo.1 tavlo-sandbox.1)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS docs/man/${page})
  tavlo_gzip(${PROJECT_SOURCE_DIR}/docs/man/${page} ${PROJECT_BINARY_DIR}/debian/${page}.gz)
  install(FILES ${PROJECT_BINARY_DIR}/debian/${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT programs)
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_VENDOR "TavloCA developers")
set(CPACK_PACKAGE_CONTACT "${maintainer}")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${maintainer}")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev programs)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY =)
# Beside the scripts that cpack makes, which call ldconfig as well.
file(WRITE ${PROJECT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian/triggers)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
include(CPack)

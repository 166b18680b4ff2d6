# What is installed, in three components: the library (runtime), what a developer adds to it (dev), the programs.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/TavloCA)

# tavlo_install_library(TARGET COMPONENT-of-its-shared-file)
function(tavlo_install_library target component)
  get_target_property(header_sets ${target} INTERFACE_HEADER_SETS)
  set(header_rules "")
  foreach(set ${header_sets})
    list(APPEND header_rules FILE_SET ${set} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tavlo COMPONENT dev)
  endforeach()
  install(TARGETS ${target} EXPORT TavloCATargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component} NAMELINK_COMPONENT dev
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
    ${header_rules})
endfunction()

tavlo_install_library(tavloca runtime)
tavlo_install_library(tavlo_c runtime)
install(EXPORT TavloCATargets NAMESPACE Tavlo:: DESTINATION ${package_dir} COMPONENT dev)

get_property(TAVLO_PARTS GLOBAL PROPERTY TAVLO_PARTS)
configure_package_config_file(cmake/TavloCAConfig.cmake.in ${PROJECT_BINARY_DIR}/TavloCAConfig.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TavloCAConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TavloCAConfig.cmake ${PROJECT_BINARY_DIR}/TavloCAConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT dev)

# A shared library brings what it needs by itself; who links a static one links that, too. It is not Requires.private, as
# then only --static would name it, along with all that those libraries were built from, which need not be there.
if(BUILD_SHARED_LIBS)
  set(PC_REQUIRES "")
else()
  set(PC_REQUIRES "libcrypto, libpng >= 1.6, libjpeg, libopenjp2 >= 2.5, libdeflate")
  if(TAVLOCA_WITH_CURL)
    string(PREPEND PC_REQUIRES "libcurl, libssl, ")
  endif()
endif()
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} OUTPUT_VARIABLE PC_LIBDIR)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_INCLUDEDIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}
  OUTPUT_VARIABLE PC_INCLUDEDIR)
cmake_path(APPEND CMAKE_INSTALL_FULL_LIBDIR pkgconfig OUTPUT_VARIABLE pc_dir)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${pc_dir} OUTPUT_VARIABLE PC_PREFIX)
foreach(module tavloca tavlo_c)
  configure_file(cmake/${module}.pc.in ${PROJECT_BINARY_DIR}/${module}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${module}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endforeach()

if(TAVLOCA_BUILD_APPS)
  install(TARGETS tavlo tavlo-sandbox RUNTIME COMPONENT programs)
  if(BUILD_SHARED_LIBS)
    # The programs find the library wherever both have been put together; skipped for a package of the system's.
    cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_FULL_BINDIR} OUTPUT_VARIABLE up)
    set_target_properties(tavlo tavlo-sandbox PROPERTIES INSTALL_RPATH $ORIGIN/${up})
  endif()
  # bash looks for a file with the program's name.
  foreach(program tavlo tavlo-sandbox)
    install(FILES scripts/completion/tavlo RENAME ${program}
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT programs)
  endforeach()
endif()

if(TAVLOCA_DEBIAN)
  include(TavloDebian)
else()
  if(TAVLOCA_BUILD_APPS)
    install(FILES docs/man/tavlo.1 docs/man/tavlo-sandbox.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT programs)
  endif()
  install(FILES LICENSE README.md TYPE DOC COMPONENT dev)
  install(DIRECTORY docs TYPE DOC COMPONENT dev
    FILES_MATCHING PATTERN *.md PATTERN *.json PATTERN *.png PATTERN *.svg)
endif()

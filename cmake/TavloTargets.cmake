# One way to declare a library, a program and a test, so that each folder's CMakeLists.txt is a plain list.

include(CheckCXXCompilerFlag)
include(CheckPIESupported)

find_package(Threads REQUIRED)
check_pie_supported()
check_cxx_compiler_flag(-fcf-protection TAVLOCA_HAS_CF_PROTECTION)
check_cxx_compiler_flag(-fstack-clash-protection TAVLOCA_HAS_STACK_CLASH_PROTECTION)

add_library(tavlo_build_flags INTERFACE)
target_compile_features(tavlo_build_flags INTERFACE cxx_std_20)
target_compile_options(tavlo_build_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor
  $<$<CXX_COMPILER_ID:Clang>:-Wreserved-identifier;-Wzero-as-null-pointer-constant>
  # At -O3 g++ 12 takes parts of its own std::string and std::variant for overlapping or uninitialised.
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:Release>>:-Wno-restrict;-Wno-maybe-uninitialized>
  $<$<BOOL:${TAVLOCA_WARNINGS_AS_ERRORS}>:-Werror>)
if(TAVLOCA_SANITIZE)
  target_compile_options(tavlo_build_flags INTERFACE -fsanitize=${TAVLOCA_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  target_link_options(tavlo_build_flags INTERFACE -fsanitize=${TAVLOCA_SANITIZE})
  target_compile_definitions(tavlo_build_flags INTERFACE TAVLO_SANITIZED)
  # With sanitizers g++ takes parts of its own std::regex for uninitialised.
  target_compile_options(tavlo_build_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
else()
  # What makes a fault in memory end the program instead of being of use to somebody. ./run-checks release looks for it.
  target_compile_options(tavlo_build_flags INTERFACE -fstack-protector-strong
    $<$<BOOL:${TAVLOCA_HAS_STACK_CLASH_PROTECTION}>:-fstack-clash-protection>
    $<$<BOOL:${TAVLOCA_HAS_CF_PROTECTION}>:-fcf-protection>
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>)
  target_compile_definitions(tavlo_build_flags INTERFACE _GLIBCXX_ASSERTIONS)
  if(UNIX AND NOT APPLE)
    target_link_options(tavlo_build_flags INTERFACE LINKER:-z,relro,-z,now,-z,noexecstack)
  endif()
endif()

# The library as it is installed: one file with all its parts. A shared build makes its own programs link that file; in a
# static one they link the parts that they need, and the file is made for the installation alone.
if(BUILD_SHARED_LIBS OR TAVLOCA_INSTALL)
  add_library(tavloca)
  set_target_properties(tavloca PROPERTIES EXPORT_NAME TavloCA LINKER_LANGUAGE CXX
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  target_compile_features(tavloca PUBLIC cxx_std_20)
  target_link_libraries(tavloca PRIVATE $<BUILD_INTERFACE:tavlo_build_flags>)
  if(BUILD_SHARED_LIBS AND UNIX AND NOT APPLE)
    set(TAVLO_EXPORTS ${PROJECT_BINARY_DIR}/tavloca.map)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/tavloca.map.in ${TAVLO_EXPORTS} @ONLY)
    target_link_options(tavloca PRIVATE LINKER:--version-script=${TAVLO_EXPORTS})
    set_target_properties(tavloca PROPERTIES LINK_DEPENDS ${TAVLO_EXPORTS})
  endif()
endif()

# tavlo_library(NAME [APART] BASE folder-above SOURCES ... PUBLIC_HEADERS ... GENERATED_HEADERS ... PRIVATE_HEADERS ...
#   LINK ... LINK_PRIVATE ...)
# Library = folder = target = include prefix: <NAME/Header.hpp> is found in BASE/NAME, a generated one in the build
# folder's generated/NAME. It is a part of the library unless it is said to be APART.
function(tavlo_library name)
  cmake_parse_arguments(arg "APART" "BASE"
    "SOURCES;PUBLIC_HEADERS;GENERATED_HEADERS;PRIVATE_HEADERS;LINK;LINK_PRIVATE" ${ARGN})
  if(NOT arg_APART)
    set(others ${arg_LINK})
    set(other_privates ${arg_LINK_PRIVATE})
    list(FILTER others EXCLUDE REGEX "^Tavlo::")
    list(FILTER other_privates EXCLUDE REGEX "^Tavlo::")
    # The parts link each other. To all others Tavlo::NAME may be the shared library, which holds them.
    list(TRANSFORM arg_LINK REPLACE "^Tavlo::" "")
    list(TRANSFORM arg_LINK_PRIVATE REPLACE "^Tavlo::" "")
  endif()

  add_library(${name} STATIC ${arg_SOURCES})
  set_target_properties(${name} PROPERTIES VERIFY_INTERFACE_HEADER_SETS ON POSITION_INDEPENDENT_CODE ON
    VISIBILITY_INLINES_HIDDEN ON)
  target_compile_features(${name} PUBLIC cxx_std_20)
  tavlo_headers(${name} "${arg_BASE}" "${arg_PUBLIC_HEADERS}" "${arg_GENERATED_HEADERS}")
  target_sources(${name} PRIVATE FILE_SET internals TYPE HEADERS BASE_DIRS ${arg_BASE} FILES ${arg_PRIVATE_HEADERS})
  target_link_libraries(${name} PUBLIC ${arg_LINK} PRIVATE ${arg_LINK_PRIVATE} $<BUILD_INTERFACE:tavlo_build_flags>)

  if(TARGET tavloca AND NOT arg_APART)
    set_property(GLOBAL APPEND PROPERTY TAVLO_PARTS ${name})
    tavlo_headers(tavloca "${arg_BASE}" "${arg_PUBLIC_HEADERS}" "${arg_GENERATED_HEADERS}")
    target_sources(tavloca PRIVATE $<TARGET_OBJECTS:${name}>)
    target_link_libraries(tavloca PUBLIC ${others} PRIVATE ${other_privates})
  endif()
  if(BUILD_SHARED_LIBS AND NOT arg_APART)
    add_library(Tavlo::${name} ALIAS tavloca)
  else()
    add_library(Tavlo::${name} ALIAS ${name})
  endif()
endfunction()

# Each part's headers are a set of their own, since the folders above them lie within each other.
function(tavlo_headers target base headers generated)
  foreach(kind headers generated)
    if(${kind})
      if("${kind}" STREQUAL "generated")
        set(base ${PROJECT_BINARY_DIR}/generated)
      endif()
      cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE set)
      string(MAKE_C_IDENTIFIER "${kind}_${set}" set)
      string(TOLOWER ${set} set)
      target_sources(${target} PUBLIC FILE_SET ${set} TYPE HEADERS BASE_DIRS ${base} FILES ${${kind}})
    endif()
  endforeach()
endfunction()

# tavlo_program(NAME SOURCES ... LINK ...)
function(tavlo_program name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${arg_LINK} tavlo_build_flags)
endfunction()

# tavlo_test(NAME LABEL label SOURCES ... LINK ...): a GoogleTest program; each of its tests is one test of ctest. The
# label is optional; all of one label are built by the target tests_LABEL.
function(tavlo_test name)
  cmake_parse_arguments(arg "" "LABEL" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${arg_LINK} GTest::gtest_main tavlo_build_flags)
  target_compile_definitions(${name} PRIVATE TAVLO_SAMPLES_DIR="${PROJECT_SOURCE_DIR}/samples")
  if(NOT CMAKE_CXX_COMPILER_LAUNCHER)
    target_precompile_headers(${name} REUSE_FROM test_documents)
  endif()
  if(arg_LABEL)
    if(NOT TARGET tests_${arg_LABEL})
      add_custom_target(tests_${arg_LABEL})
    endif()
    add_dependencies(tests_${arg_LABEL} ${name})
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300 LABELS "${arg_LABEL}")
endfunction()

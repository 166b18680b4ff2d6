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
  target_link_options(tavlo_build_flags INTERFACE LINKER:-z,relro,-z,now,-z,noexecstack)
endif()

# tavlo_library(NAME BASE folder-above SOURCES ... PUBLIC_HEADERS ... PRIVATE_HEADERS ... LINK ... LINK_PRIVATE ...)
# Library = folder = target = include prefix: <NAME/Header.hpp> is found in BASE/NAME.
function(tavlo_library name)
  cmake_parse_arguments(arg "" "BASE" "SOURCES;PUBLIC_HEADERS;PRIVATE_HEADERS;LINK;LINK_PRIVATE" ${ARGN})
  add_library(${name} ${arg_SOURCES})
  add_library(Tavlo::${name} ALIAS ${name})
  set_target_properties(${name} PROPERTIES VERIFY_INTERFACE_HEADER_SETS ON POSITION_INDEPENDENT_CODE ON)
  target_compile_features(${name} PUBLIC cxx_std_20)
  target_sources(${name}
    PUBLIC FILE_SET HEADERS BASE_DIRS ${arg_BASE} FILES ${arg_PUBLIC_HEADERS}
    PRIVATE FILE_SET internals TYPE HEADERS BASE_DIRS ${arg_BASE} FILES ${arg_PRIVATE_HEADERS})
  target_link_libraries(${name} PUBLIC ${arg_LINK} PRIVATE ${arg_LINK_PRIVATE} $<BUILD_INTERFACE:tavlo_build_flags>)
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
  if(arg_LABEL)
    if(NOT TARGET tests_${arg_LABEL})
      add_custom_target(tests_${arg_LABEL})
    endif()
    add_dependencies(tests_${arg_LABEL} ${name})
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120 LABELS "${arg_LABEL}")
endfunction()

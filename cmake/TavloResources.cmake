# tavlo_compile_resources(OUTPUT HEADER FUNCTION file...): writes a source file with the function, declared in the header
# as `std::shared_ptr<tavlo::foundation::Bundle> FUNCTION()`, that gives a bundle of the files' bytes.
function(tavlo_compile_resources output header function)
  set(arrays "")
  set(rows "")
  foreach(file ${ARGN})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
    get_filename_component(name ${file} NAME)
    string(MAKE_C_IDENTIFIER ${name} identifier)
    file(READ ${file} hex HEX)
    string(REGEX REPLACE "(..)" "0x\\1," bytes "${hex}")
    string(APPEND arrays "constexpr std::uint8_t ${identifier}[] = {${bytes}};\n")
    string(APPEND rows "    {\"${name}\", ${identifier}},\n")
  endforeach()
  file(CONFIGURE OUTPUT ${output} CONTENT [[
#include <@header@>

#include <cstdint>

namespace {

@arrays@
constexpr tavlo::foundation::CompiledBundle::Resource resources[] = {
@rows@};

}  // namespace

std::shared_ptr<tavlo::foundation::Bundle> @function@() {
  return std::make_shared<tavlo::foundation::CompiledBundle>(resources);
}
]] @ONLY)
endfunction()

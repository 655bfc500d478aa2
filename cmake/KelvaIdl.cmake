# kelva_idl_library(<target> IDL <files...> [INCLUDE_DIRS <dirs...>] [LINK <targets...>])
#
# Compiles IDL files with Cyclone's idlc (C language, with XTypes type information) into a static,
# position-independent library of wire types whose ops accept every enumeration value (see
# generator/vantrel_gen/open_enums.py). The generated .c/.h land in the build tree under
# <binary dir>/<target>/; the headers are reachable as "<Name>.h".
function(kelva_idl_library target)
  cmake_parse_arguments(ARG "" "" "IDL;INCLUDE_DIRS;LINK" ${ARGN})
  set(out_dir "${CMAKE_CURRENT_BINARY_DIR}/${target}")
  file(MAKE_DIRECTORY "${out_dir}")
  set(inc_flags "")
  foreach(dir IN LISTS ARG_INCLUDE_DIRS)
    list(APPEND inc_flags "-I${dir}")
  endforeach()
  set(sources "")
  foreach(idl IN LISTS ARG_IDL)
    get_filename_component(abs "${idl}" ABSOLUTE)
    get_filename_component(stem "${idl}" NAME_WE)
    get_filename_component(idl_dir "${abs}" DIRECTORY)
    set(c_file "${out_dir}/${stem}.c")
    set(h_file "${out_dir}/${stem}.h")
    # The dependency on every IDL of the include folders is coarse but safe: an included file's change
    # recompiles its includers.
    file(GLOB dep_idls "${idl_dir}/*.idl")
    add_custom_command(
      OUTPUT "${c_file}" "${h_file}"
      COMMAND ${VANTREL_IDLC} -l c -Wno-implicit-extensibility -Wno-unsupported-annotations
              -I "${idl_dir}" ${inc_flags} -o "${out_dir}" "${abs}"
      # Enumeration values outside the literals are read (as literal 0 by the conversion), not rejected.
      COMMAND ${CMAKE_COMMAND} -E env "PYTHONPATH=${PROJECT_SOURCE_DIR}/generator"
              ${VANTREL_PYTHON} -m vantrel_gen.open_enums "${c_file}"
      DEPENDS "${abs}" ${dep_idls} "${PROJECT_SOURCE_DIR}/generator/vantrel_gen/open_enums.py"
      COMMENT "idlc ${stem}.idl"
      VERBATIM)
    list(APPEND sources "${c_file}" "${h_file}")
  endforeach()
  add_library(${target} STATIC ${sources})
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON LINKER_LANGUAGE C)
  target_include_directories(${target} PUBLIC "$<BUILD_INTERFACE:${out_dir}>")
  target_link_libraries(${target} PUBLIC CycloneDDS::ddsc ${ARG_LINK})
endfunction()

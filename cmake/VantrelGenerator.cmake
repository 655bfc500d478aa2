# vantrel_generate(<out_var> LIST <flag> GENERATE <flag> [DIRECTORY <dir>] COMMENT <text>)
#
# Runs the project's generator over idl/ into <build>/generated (or <dir>). Which files it writes depends only on
# which modules exist (known at configure time through <LIST flag>); they are rebuilt whenever an IDL file
# or the generator changes. Sets <out_var> to the absolute paths of the generated files.
function(vantrel_generate out_var)
  cmake_parse_arguments(ARG "" "LIST;GENERATE;DIRECTORY;COMMENT" "" ${ARGN})
  set(gen_dir "${CMAKE_BINARY_DIR}/generated")
  if(ARG_DIRECTORY)
    set(gen_dir "${ARG_DIRECTORY}")
  endif()
  file(GLOB generator_sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/generator/vantrel_gen/*.py")
  set(generator_cmd ${CMAKE_COMMAND} -E env "PYTHONPATH=${PROJECT_SOURCE_DIR}/generator"
      ${VANTREL_PYTHON} -m vantrel_gen --idl-dir "${PROJECT_SOURCE_DIR}/idl" "--modules=${VANTREL_MODULES}")

  execute_process(COMMAND ${generator_cmd} ${ARG_LIST}
                  OUTPUT_VARIABLE relative RESULT_VARIABLE rc ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "generator: ${err}")
  endif()
  string(STRIP "${relative}" relative)
  string(REPLACE "\n" ";" relative "${relative}")
  set(files "")
  foreach(rel IN LISTS relative)
    list(APPEND files "${gen_dir}/${rel}")
  endforeach()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${VANTREL_IDL_FILES})

  add_custom_command(
    OUTPUT ${files}
    COMMAND ${generator_cmd} ${ARG_GENERATE} "${gen_dir}"
    DEPENDS ${VANTREL_IDL_FILES} ${generator_sources}
    COMMENT "${ARG_COMMENT}"
    VERBATIM)
  set(${out_var} ${files} PARENT_SCOPE)
endfunction()

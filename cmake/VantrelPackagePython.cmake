# Run by cpack before the packages are made: the Python package to /usr/lib/python3/dist-packages.
file(GLOB versioned LIST_DIRECTORIES true "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr/lib/python3.*/dist-packages")
foreach(dir IN LISTS versioned)
  get_filename_component(lib_dir "${dir}/../.." ABSOLUTE)
  file(MAKE_DIRECTORY "${lib_dir}/python3")
  file(RENAME "${dir}" "${lib_dir}/python3/dist-packages")
  get_filename_component(empty "${dir}/.." ABSOLUTE)
  file(REMOVE_RECURSE "${empty}")
endforeach()

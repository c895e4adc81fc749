# The rooms of the library and what each may use. Every source folder is a library target of its
# own that links only the folders it may depend on; kelo_check_layout() also reads each folder's
# #include lines at configure time, so a header of a folder the room may not use fails the
# configure step instead of compiling quietly (all folders share src/ as their include root).

# kelo_check_layout(<folder> <source dir> [ALLOWED <folder>...])
# Fails when a file under <source dir> includes "<other>/..." for a folder of src/ that is
# neither <folder> nor listed after ALLOWED.
function(kelo_check_layout folder dir)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "ALLOWED")
  file(GLOB rooms LIST_DIRECTORIES true RELATIVE ${PROJECT_SOURCE_DIR}/src
       ${PROJECT_SOURCE_DIR}/src/*)
  set(allowed "no other folder of src/")
  if(arg_ALLOWED)
    string(REPLACE ";" ", " allowed "only ${arg_ALLOWED}")
  endif()
  file(GLOB_RECURSE files CONFIGURE_DEPENDS ${dir}/*.h ${dir}/*.cpp ${dir}/*.c)
  foreach(file IN LISTS files)
    file(STRINGS ${file} lines REGEX "^[ \t]*#[ \t]*include[ \t]+\"[A-Za-z_]+/")
    foreach(line IN LISTS lines)
      string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]+\"([A-Za-z_]+)/.*" "\\1" used "${line}")
      if(used STREQUAL folder OR NOT used IN_LIST rooms OR used IN_LIST arg_ALLOWED)
        continue()
      endif()
      file(RELATIVE_PATH shown ${PROJECT_SOURCE_DIR} ${file})
      message(FATAL_ERROR "${shown} includes \"${used}/...\", but ${folder} may use ${allowed} "
                          "(see the layout table in README.md)")
    endforeach()
  endforeach()
endfunction()

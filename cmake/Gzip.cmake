# quillet_gzip(<target> <file>...): a target that writes <file>.gz for each file into the current
# build folder's gz/, compressed as Debian wants man pages and changelogs: best compression, and
# no name or time stamp in the header, so that two builds of the same source give the same bytes.
# Each file is a path in the source folder or, when absolute, anywhere (a configured file).
find_program(GZIP gzip REQUIRED)

function(quillet_gzip target)
  set(outputs)
  foreach(file IN LISTS ARGN)
    cmake_path(ABSOLUTE_PATH file BASE_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}")
    cmake_path(GET file FILENAME name)
    set(copy "${CMAKE_CURRENT_BINARY_DIR}/gz/${name}")
    add_custom_command(OUTPUT "${copy}.gz"
      COMMAND ${CMAKE_COMMAND} -E copy "${file}" "${copy}"
      COMMAND ${GZIP} -9nf "${copy}"
      DEPENDS "${file}"
      COMMENT "Compressing ${name}"
      VERBATIM)
    list(APPEND outputs "${copy}.gz")
  endforeach()
  add_custom_target(${target} DEPENDS ${outputs})
endfunction()

# Run as a script at build time: refuses every quoted include of the files that
# the compiler could find beside the including file (a sibling header, or a
# path climbing out with "../"). Such an include would bypass the layers,
# which only the include path enforces; every header is spelled from the
# repository root instead ("effect/render.h"), found through the target's
# own include folder. FILE_LIST names the files, as a list; STAMP is written
# when every one passes.
file(READ "${FILE_LIST}" files)
foreach(file IN LISTS files)
  file(STRINGS "${file}" includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
  get_filename_component(folder "${file}" DIRECTORY)
  foreach(line IN LISTS includes)
    string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*\"([^\"]*)\".*" "\\1" header "${line}")
    if(header MATCHES "(^|/)\\.\\.?/" OR EXISTS "${folder}/${header}")
      message(FATAL_ERROR "\"${header}\" is refused in ${file}: spell it from the repository root, "
                          "so that only the target's include folder can supply it")
    endif()
  endforeach()
endforeach()
file(TOUCH "${STAMP}")

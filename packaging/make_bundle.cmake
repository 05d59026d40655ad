# Writes the release bundle, a zip with one folder, byte for byte the same on
# every build of one commit: the files are listed in a fixed order, carry
# mode 0644 and the build date (seconds, UTC, in EPOCH_FILE), and zip stores
# no extra fields (no owner, no Unix times) and no folder entries.
#
# cmake -DSTAGE_DIR=<scratch folder> -DFOLDER=<folder name in the zip>
#       -DZIP_FILE=<zip to write> -DEPOCH_FILE=<file> -DZIP=<zip program>
#       "-DFILES=<module>;<installer>;..." -DGUIDE=<file> -DLICENSE=<file>
#       -P make_bundle.cmake
foreach(var STAGE_DIR FOLDER ZIP_FILE EPOCH_FILE ZIP FILES GUIDE LICENSE)
  if(NOT DEFINED ${var} OR "${${var}}" STREQUAL "")
    message(FATAL_ERROR "make_bundle.cmake: ${var} is not set")
  endif()
endforeach()
file(READ "${EPOCH_FILE}" EPOCH)
if(NOT EPOCH MATCHES "^[0-9]+$")
  message(FATAL_ERROR "make_bundle.cmake: the build date in ${EPOCH_FILE} must be whole seconds, got '${EPOCH}'")
endif()
# Zip times start in 1980.
if(EPOCH LESS 315532800)
  set(EPOCH 315532800)
endif()

# Source -> name in the bundle, in the order the zip lists them.
set(entries "")
foreach(file IN LISTS FILES)
  get_filename_component(name "${file}" NAME)
  list(APPEND entries "${file}|${name}")
endforeach()
list(APPEND entries "${GUIDE}|INSTALL.txt" "${LICENSE}|LICENSE.txt")

file(REMOVE_RECURSE "${STAGE_DIR}")
file(MAKE_DIRECTORY "${STAGE_DIR}/${FOLDER}")
set(members "")
foreach(entry IN LISTS entries)
  string(REPLACE "|" ";" pair "${entry}")
  list(GET pair 0 source)
  list(GET pair 1 name)
  if(NOT EXISTS "${source}")
    message(FATAL_ERROR "make_bundle.cmake: ${source} does not exist")
  endif()
  set(staged "${STAGE_DIR}/${FOLDER}/${name}")
  file(COPY_FILE "${source}" "${staged}")
  file(CHMOD "${staged}" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  execute_process(COMMAND touch -d "@${EPOCH}" "${staged}" RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "make_bundle.cmake: cannot set the time of ${staged}")
  endif()
  list(APPEND members "${FOLDER}/${name}")
endforeach()

# zip writes local times: UTC makes them the same on every machine.
file(REMOVE "${ZIP_FILE}.part")
execute_process(COMMAND "${CMAKE_COMMAND}" -E env TZ=UTC "${ZIP}" -X -D -q -9 "${ZIP_FILE}.part" ${members}
                WORKING_DIRECTORY "${STAGE_DIR}" RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "make_bundle.cmake: zip failed (${rc})")
endif()
file(RENAME "${ZIP_FILE}.part" "${ZIP_FILE}")

# Writes SHA-256 sums of FILES (a list) into OUTPUT in the format of
# sha256sum, so `sha256sum -c SHA256SUMS` checks them in the folder of OUTPUT.
#
# cmake -DOUTPUT=<file> "-DFILES=<file>;<file>..." -P write_sums.cmake
if(NOT OUTPUT OR NOT FILES)
  message(FATAL_ERROR "write_sums.cmake: OUTPUT and FILES are required")
endif()
set(text "")
foreach(file IN LISTS FILES)
  if(NOT EXISTS "${file}")
    message(FATAL_ERROR "write_sums.cmake: ${file} does not exist")
  endif()
  file(SHA256 "${file}" hash)
  get_filename_component(name "${file}" NAME)
  string(APPEND text "${hash}  ${name}\n")
endforeach()
file(WRITE "${OUTPUT}" "${text}")

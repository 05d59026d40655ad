# Checks the built Windows module with objdump -p (run as cmake -P):
#   -DOBJDUMP=<x86_64-w64-mingw32-objdump> -DMODULE=<KSCinebar.aex>
#   -DSOURCE_DIR=<source tree> -DBINARY_DIR=<build tree>: paths that must not appear in the file
# The module may import only Windows system DLLs, must export EntryPointFunc
# undecorated and nothing else, carry no PE time stamp, and embed no path of
# the machine that built it.
cmake_minimum_required(VERSION 3.25)

foreach(var OBJDUMP MODULE)
  if(NOT ${var})
    message(FATAL_ERROR "${var} is not set")
  endif()
endforeach()
if(NOT EXISTS "${MODULE}")
  message(FATAL_ERROR "No module at ${MODULE}: build the KSCinebar target first")
endif()

execute_process(COMMAND "${OBJDUMP}" -p "${MODULE}" OUTPUT_VARIABLE dump ERROR_VARIABLE err RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${OBJDUMP} -p failed (${rc}): ${err}")
endif()

set(failures "")

if(NOT dump MATCHES "file format pei-x86-64")
  list(APPEND failures "not a 64-bit Windows PE file")
endif()

# Imports: allow-list of system DLLs.
string(REGEX MATCHALL "DLL Name: [^\n]+" import_lines "${dump}")
set(imports "")
foreach(line IN LISTS import_lines)
  string(REGEX REPLACE "^DLL Name: " "" dll "${line}")
  string(STRIP "${dll}" dll)
  list(APPEND imports "${dll}")
  string(TOLOWER "${dll}" lower)
  if(NOT lower MATCHES "^(kernel32|shell32|user32|msvcrt)\\.dll$" AND NOT lower MATCHES "^api-ms-win-crt-[a-z0-9-]+\\.dll$")
    list(APPEND failures "imports ${dll}, which is not on the allow-list of system DLLs")
  endif()
endforeach()
if(NOT imports)
  list(APPEND failures "no import table found in the objdump output")
endif()

# Exports: exactly EntryPointFunc, undecorated.
string(REGEX MATCH "\\[Ordinal/Name Pointer\\] Table[^\n]*\n(([ \t]+\\[[ 0-9]+\\][^\n]*\n)*)" table "${dump}")
string(REGEX MATCHALL "\\[[ 0-9]+\\] [^\n]+" export_lines "${CMAKE_MATCH_1}")
set(exports "")
foreach(line IN LISTS export_lines)
  string(REGEX REPLACE "^\\[[ 0-9]+\\] " "" name "${line}")
  string(STRIP "${name}" name)
  list(APPEND exports "${name}")
endforeach()
if(NOT exports STREQUAL "EntryPointFunc")
  list(APPEND failures "exports [${exports}], expected exactly [EntryPointFunc]")
endif()

# Reproducible link: no time stamp in the COFF file header (read from the
# file itself; objdump prints it in the local time zone).
function(read_u32 out offset)
  file(READ "${MODULE}" hex OFFSET ${offset} LIMIT 4 HEX)
  string(REGEX REPLACE "^(..)(..)(..)(..)$" "0x\\4\\3\\2\\1" value "${hex}")
  math(EXPR value "${value}")
  set(${out} ${value} PARENT_SCOPE)
endfunction()
read_u32(pe_offset 60)
read_u32(pe_signature ${pe_offset})
math(EXPR stamp_offset "${pe_offset} + 8")
read_u32(stamp ${stamp_offset})
if(NOT pe_signature EQUAL 17744)  # "PE\0\0"
  list(APPEND failures "no PE signature at offset ${pe_offset}")
elseif(NOT stamp EQUAL 0)
  list(APPEND failures "the PE header carries a link time stamp (${stamp})")
endif()

# No path of the build machine.
foreach(path IN ITEMS "${SOURCE_DIR}" "${BINARY_DIR}")
  if(path)
    string(REGEX REPLACE "([][.*+?^$()|\\])" "\\\\\\1" pattern "${path}")
    file(STRINGS "${MODULE}" hits REGEX "${pattern}")
    if(hits)
      list(GET hits 0 first)
      list(APPEND failures "embeds the build path ${path} (\"${first}\")")
    endif()
  endif()
endforeach()

message(STATUS "Imports: ${imports}")
message(STATUS "Exports: ${exports}")
if(failures)
  list(JOIN failures "\n  " text)
  message(FATAL_ERROR "${MODULE}:\n  ${text}")
endif()

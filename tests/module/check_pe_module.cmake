# Checks the built Windows module with objdump -p (run as cmake -P with
# -DOBJDUMP, -DMODULE and, as paths that must not appear in the file,
# -DSOURCE_DIR and -DBINARY_DIR): it imports only Windows system DLLs, exports
# EntryPointFunc undecorated and nothing else, and carries no link time stamp
# and no path of the machine that built it.
cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND "${OBJDUMP}" -p "${MODULE}" OUTPUT_VARIABLE dump ERROR_VARIABLE err RESULT_VARIABLE rc)
if(NOT rc EQUAL 0 OR NOT dump MATCHES "file format pei-x86-64")
  message(FATAL_ERROR "${MODULE} is not a 64-bit Windows module (build KSCinebar first?): ${err}")
endif()
set(failures "")

string(REGEX MATCHALL "DLL Name: [^\n]+" imports "${dump}")
list(TRANSFORM imports REPLACE "^DLL Name: *" "")
if(NOT imports)
  list(APPEND failures "no import table found")
endif()
foreach(dll IN LISTS imports)
  string(TOLOWER "${dll}" lower)
  if(NOT lower MATCHES "^((kernel32|shell32|user32|msvcrt)|api-ms-win-crt-[a-z0-9-]+)\\.dll$")
    list(APPEND failures "imports ${dll}, which is not a Windows system DLL")
  endif()
endforeach()

string(REGEX MATCH "\\[Ordinal/Name Pointer\\] Table[^\n]*\n(([ \t]+\\[[ 0-9]+\\][^\n]*\n)*)" table "${dump}")
string(REGEX MATCHALL "\\[[ 0-9]+\\] [^\n]+" exports "${CMAKE_MATCH_1}")
list(TRANSFORM exports REPLACE "^\\[[ 0-9]+\\] " "")
if(NOT exports STREQUAL "EntryPointFunc")
  list(APPEND failures "exports [${exports}], not exactly [EntryPointFunc]")
endif()

# The COFF header's time stamp, read from the file (objdump prints local time).
file(READ "${MODULE}" header LIMIT 1024 HEX)
string(SUBSTRING "${header}" 120 8 pe)  # the PE header's offset at byte 60, little-endian
string(REGEX REPLACE "^(..)(..)(..)(..)$" "0x\\4\\3\\2\\1" pe "${pe}")
math(EXPR stamp_at "(${pe} + 8) * 2")
string(SUBSTRING "${header}" ${stamp_at} 8 stamp)
if(NOT stamp STREQUAL "00000000")
  list(APPEND failures "the PE header carries a link time stamp (${stamp})")
endif()

foreach(path IN ITEMS "${SOURCE_DIR}" "${BINARY_DIR}")
  string(REGEX REPLACE "([][.*+?^$()|\\])" "\\\\\\1" pattern "${path}")
  file(STRINGS "${MODULE}" hits REGEX "${pattern}")
  if(path AND hits)
    list(APPEND failures "embeds the build path ${path}")
  endif()
endforeach()

if(failures)
  list(JOIN failures "\n  " text)
  message(FATAL_ERROR "${MODULE}:\n  ${text}")
endif()

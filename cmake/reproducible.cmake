# Reproducible builds: two builds of one commit, in any folder, by hand or by
# scripts/build.sh, give the same bytes.
#
# Run as a script (cmake -P, by the cinebar_build_date target of identity/ on
# every build), it decides the one build date: SOURCE_DATE_EPOCH when set,
# else the time of the commit checked out. It writes the date and time the
# module carries (HEADER) and the seconds that the signatures and the release
# archive carry (EPOCH_FILE), each only when it changed, so that a new commit
# rebuilds what carries the date and nothing else does.
#
#   cmake -DSOURCE_DIR=<repository> -DHEADER=<file> -DEPOCH_FILE=<file> -P reproducible.cmake
if(CMAKE_SCRIPT_MODE_FILE)
  if(DEFINED ENV{SOURCE_DATE_EPOCH})
    set(epoch "$ENV{SOURCE_DATE_EPOCH}")
    set(origin "SOURCE_DATE_EPOCH")
  else()
    execute_process(COMMAND git log -1 --format=%ct WORKING_DIRECTORY "${SOURCE_DIR}"
                    OUTPUT_VARIABLE epoch OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc ERROR_QUIET)
    if(NOT rc EQUAL 0)
      message(FATAL_ERROR "No build date: SOURCE_DATE_EPOCH is not set and ${SOURCE_DIR} is no git checkout. "
                          "Set SOURCE_DATE_EPOCH to the release time in seconds.")
    endif()
    set(origin "the commit")
  endif()
  if(NOT epoch MATCHES "^[0-9]+$")
    message(FATAL_ERROR "Build date from ${origin} is '${epoch}', not whole seconds since 1970")
  endif()
  # string(TIMESTAMP) reads the time from SOURCE_DATE_EPOCH.
  set(ENV{SOURCE_DATE_EPOCH} "${epoch}")
  string(TIMESTAMP date "%b %d %Y" UTC)
  string(TIMESTAMP time "%H:%M:%S" UTC)
  # The compiler's __DATE__ form pads a one-digit day with a blank: "Nov  1 2026".
  string(REGEX REPLACE "^([A-Z][a-z][a-z]) 0" "\\1  " date "${date}")
  set(header "// Generated at build time by cmake/reproducible.cmake: the build date.
#pragma once

namespace cinebar_identity {

constexpr char kBuildDate[] = \"${date}\";  // \"Mmm dd yyyy\"
constexpr char kBuildTime[] = \"${time}\";  // \"hh:mm:ss\", UTC

}  // namespace cinebar_identity
")
  foreach(pair IN ITEMS "HEADER|header" "EPOCH_FILE|epoch")
    string(REPLACE "|" ";" pair "${pair}")
    list(GET pair 0 file_var)
    list(GET pair 1 text_var)
    set(old "")
    if(EXISTS "${${file_var}}")
      file(READ "${${file_var}}" old)
    endif()
    if(NOT old STREQUAL "${${text_var}}")
      file(WRITE "${${file_var}}" "${${text_var}}")
    endif()
  endforeach()
  return()
endif()

# Included at the end of the top-level CMakeLists.txt, when every target exists:
#
# - No source or build path is embedded (__FILE__ in asserts and messages,
#   debug information): -ffile-prefix-map maps both trees to relative names.
# - The Windows linker writes no time stamp into the PE header.
# The shipped module in dist/ (stripped, signed) is made in packaging/.

function(_cinebar_collect_targets dir out)
  get_property(targets DIRECTORY "${dir}" PROPERTY BUILDSYSTEM_TARGETS)
  get_property(subdirs DIRECTORY "${dir}" PROPERTY SUBDIRECTORIES)
  foreach(sub IN LISTS subdirs)
    _cinebar_collect_targets("${sub}" more)
    list(APPEND targets ${more})
  endforeach()
  set(${out} ${targets} PARENT_SCOPE)
endfunction()

if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  # The later map wins where both match: the build tree lies inside the source tree.
  _cinebar_collect_targets("${PROJECT_SOURCE_DIR}" _cinebar_all_targets)
  foreach(_t IN LISTS _cinebar_all_targets)
    get_target_property(_type ${_t} TYPE)
    if(_type MATCHES "^(STATIC_LIBRARY|SHARED_LIBRARY|MODULE_LIBRARY|OBJECT_LIBRARY|EXECUTABLE)$")
      # The compiler's working folder (the target's build folder) becomes ".",
      # so that debuggers read source names relative to the source tree.
      get_target_property(_dir ${_t} BINARY_DIR)
      target_compile_options(${_t} PRIVATE "$<$<COMPILE_LANGUAGE:C,CXX>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=>"
                                           "$<$<COMPILE_LANGUAGE:C,CXX>:-ffile-prefix-map=${PROJECT_BINARY_DIR}/=>"
                                           "$<$<COMPILE_LANGUAGE:C,CXX>:-fdebug-prefix-map=${_dir}=.>")
    endif()
  endforeach()
endif()

if(WIN32 AND TARGET KSCinebar)
  target_link_options(KSCinebar PRIVATE "LINKER:--no-insert-timestamp")
endif()

# Include layout that enforces the layers: no target has the repository root
# on its include path. Each target exposes only what it owns, through a folder
# of its own in the build tree holding symbolic links to its source folders
# (or single headers) under their repository paths, so that
# `#include "framework/x.h"` resolves only for targets that link the target
# owning framework/. An upward include then fails to compile.

# cinebar_expose(target PUBLIC|PRIVATE|INTERFACE path...)
# `path` is a folder or a header, relative to the repository root.
function(cinebar_expose target scope)
  get_filename_component(source_root "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/.." ABSOLUTE)
  set(root "${CMAKE_BINARY_DIR}/include/${target}")
  foreach(path IN LISTS ARGN)
    if(NOT EXISTS "${source_root}/${path}")
      message(FATAL_ERROR "cinebar_expose(${target}): no ${path}")
    endif()
    get_filename_component(parent "${root}/${path}" DIRECTORY)
    file(MAKE_DIRECTORY "${parent}")
    file(CREATE_LINK "${source_root}/${path}" "${root}/${path}" SYMBOLIC)
  endforeach()
  target_include_directories(${target} ${scope} "${root}")
endfunction()

# cinebar_check_include_spelling(target)
# Before the target compiles, its sources and the headers of its source folder
# are read for quoted includes that resolve beside the including file
# (cmake/include_spelling.cmake): those would reach a header whatever the
# target links, so the build refuses them.
function(cinebar_check_include_spelling target)
  get_target_property(folder ${target} SOURCE_DIR)
  get_target_property(sources ${target} SOURCES)
  file(GLOB headers "${folder}/*.h")
  set(files "")
  foreach(source IN LISTS sources headers)
    get_filename_component(source "${source}" ABSOLUTE BASE_DIR "${folder}")
    # Generated sources are the build's own, not read here.
    get_source_file_property(generated "${source}" TARGET_DIRECTORY ${target} GENERATED)
    if(NOT generated AND source MATCHES "\\.(c|cpp|h)$")
      list(APPEND files "${source}")
    endif()
  endforeach()
  list(REMOVE_DUPLICATES files)
  set(stamp "${CMAKE_CURRENT_BINARY_DIR}/${target}.include-spelling")
  file(CONFIGURE OUTPUT "${stamp}.files" CONTENT "${files}")  # rewritten only when the list changes
  add_custom_command(OUTPUT "${stamp}"
    COMMAND "${CMAKE_COMMAND}" "-DFILE_LIST=${stamp}.files" "-DSTAMP=${stamp}"
            -P "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/include_spelling.cmake"
    DEPENDS ${files} "${stamp}.files" "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/include_spelling.cmake"
    COMMENT "Include spelling of ${target}"
    VERBATIM)
  add_custom_target(${target}_include_spelling DEPENDS "${stamp}")
  add_dependencies(${target} ${target}_include_spelling)
endfunction()

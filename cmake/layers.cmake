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

# Reproducible module builds: two builds of one commit, in any folder, give the
# same bytes. Included at the end of the top-level CMakeLists.txt, when every
# target exists.
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

add_library(cinebar_warnings INTERFACE)
target_compile_options(cinebar_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Werror
                                                  -ffp-contract=off)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 reports overlapping copies inside std::string's own inlined code
  # when optimising C++20 (its bug 105329): a false alarm in the library.
  target_compile_options(cinebar_warnings INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
if(NOT WIN32 AND CINEBAR_SANITIZE)
  set(san -fsanitize=address,undefined,float-cast-overflow -fno-sanitize-recover=all
          -fno-omit-frame-pointer)
  target_compile_options(cinebar_warnings INTERFACE ${san})
  target_link_options(cinebar_warnings INTERFACE ${san})
endif()

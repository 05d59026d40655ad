add_library(cinebar_warnings INTERFACE)
target_compile_options(cinebar_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Werror
                                                  -ffp-contract=off)
if(NOT WIN32 AND CINEBAR_SANITIZE)
  set(san -fsanitize=address,undefined,float-cast-overflow -fno-sanitize-recover=all
          -fno-omit-frame-pointer)
  target_compile_options(cinebar_warnings INTERFACE ${san})
  target_link_options(cinebar_warnings INTERFACE ${san})
endif()

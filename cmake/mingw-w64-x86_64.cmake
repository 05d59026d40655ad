# Cross-compiles for 64-bit Windows with MinGW-w64 (POSIX threads variant).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# Tests are Windows programs: ctest runs them through Wine with the build's own prefix.
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/wine-run.sh")
# Debug information everywhere, for the module's symbols file
# (dist/KSCinebar.aex.debug): -g changes no generated code, and the shipped
# module is stripped of it.
set(CMAKE_C_FLAGS_INIT "-g")
set(CMAKE_CXX_FLAGS_INIT "-g")

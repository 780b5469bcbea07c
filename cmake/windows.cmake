# Cross-building for Windows (x86-64) by mingw-w64. The POSIX thread model is the one with the standard library's threads.
set(CMAKE_SYSTEM_NAME Windows)
if(NOT prefix)
  set(prefix x86_64-w64-mingw32)
  set(CMAKE_SYSTEM_PROCESSOR x86_64)
endif()
set(CMAKE_C_COMPILER ${prefix}-gcc-posix)
set(CMAKE_CXX_COMPILER ${prefix}-g++-posix)
set(CMAKE_RC_COMPILER ${prefix}-windres)

# Windows 10 and later. No run-time library has to lie beside what is built.
add_compile_definitions(_WIN32_WINNT=0x0A00)
add_link_options(-static)

set(CMAKE_FIND_ROOT_PATH /usr/${prefix})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Programs that were built run under Wine.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../tests/system/windows/wine.sh;${CMAKE_BINARY_DIR}/wine)

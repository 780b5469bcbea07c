# Cross-building for 32-bit Windows by mingw-w64.
set(prefix i686-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR x86)
include(${CMAKE_CURRENT_LIST_DIR}/windows.cmake)

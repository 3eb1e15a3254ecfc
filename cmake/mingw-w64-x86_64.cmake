# Cross-compiles the Windows build with mingw-w64 (posix threads) and runs
# its programs under Wine, so ctest runs the Windows tests like native ones.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Every program runs through wine-run.sh in a Wine prefix of the build's own
# (KAVOGPS_WINEPREFIX), so tests never touch the user's ~/.wine, and finds
# KavoMobileGPS.dll in the build folder.
find_program(KAVOGPS_WINE NAMES wine REQUIRED)
if(NOT KAVOGPS_WINEPREFIX)
  set(KAVOGPS_WINEPREFIX "${CMAKE_BINARY_DIR}/wineprefix" CACHE PATH "Wine prefix the Windows tests run in")
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/wine-run.sh;${KAVOGPS_WINEPREFIX};${CMAKE_BINARY_DIR}")

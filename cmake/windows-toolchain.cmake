# 64-bit Windows with MinGW-w64 and POSIX threads; what is built runs under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(RV_MINGW x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${RV_MINGW}-gcc-posix)
set(CMAKE_CXX_COMPILER ${RV_MINGW}-g++-posix)
set(CMAKE_RC_COMPILER ${RV_MINGW}-windres)

# Headers and libraries come from the target alone, programs from the machine that builds.
set(CMAKE_FIND_ROOT_PATH /usr/${RV_MINGW})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# The run-time libraries are linked in: nothing but the system's own DLLs is needed.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")

find_program(RV_WINE wine)
if(RV_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${RV_WINE})
endif()

# Warnings and instrumentation, for everything that is built here.
add_library(rv_options INTERFACE)
target_compile_options(rv_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Wextra-semi>)
if(RV_WERROR)
  target_compile_options(rv_options INTERFACE -Werror)
endif()
if(RV_SANITIZE)
  # The kernel has no type information, which the check of virtual calls would ask for.
  target_compile_options(rv_options INTERFACE
    -fsanitize=${RV_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(rv_options INTERFACE -fsanitize=${RV_SANITIZE})
  # What they put between the lines makes GCC see uninitialized variables in the standard library.
  target_compile_options(rv_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()

# ccache makes a second build of the same text free.
find_program(RV_CCACHE ccache)
if(RV_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER ${RV_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${RV_CCACHE})
endif()

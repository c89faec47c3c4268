# Cross-compiles for 64-bit Windows with Debian's mingw-w64, runtime linked
# statically so the DLLs import nothing but Windows system DLLs. The posix
# thread model gives the C++ thread library (GoogleTest needs std::mutex);
# its winpthread runtime is linked in statically like the rest.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(KW_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER   ${KW_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KW_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER  ${KW_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${KW_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT    "-static -static-libgcc -static-libstdc++")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

# Windows programs built here run under Wine (see WineTest.cmake).
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/wine-run.sh")

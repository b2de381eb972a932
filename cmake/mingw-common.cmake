# What both MinGW-w64 toolchain files share; each sets KAIRON_MINGW_TRIPLET
# and the emulator that runs its programs first.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_VERSION 6.1)

# The -posix compilers: the win32-threads ones have no std::thread or
# std::mutex, which GoogleTest needs.
set(CMAKE_C_COMPILER ${KAIRON_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KAIRON_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${KAIRON_MINGW_TRIPLET}-windres)

# Libraries and headers come from the MinGW sysroot only, never from the
# build machine's /usr (programs such as widl do).
set(CMAKE_FIND_ROOT_PATH /usr/${KAIRON_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Everything linked statically (the C++ runtime, winpthreads, zlib), so that
# a program or library needs none but Windows' own DLLs. FindZLIB would take
# the import library otherwise, and Wine's own zlib1.dll would hide that.
set(ZLIB_USE_STATIC_LIBS ON)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static ${KAIRON_MINGW_SHARED_LINKER_FLAGS}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static ${KAIRON_MINGW_SHARED_LINKER_FLAGS}")

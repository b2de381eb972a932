# Cross-builds for 32-bit Windows with Debian's MinGW-w64 (scripts/build-windows.sh);
# CTest runs the programs under 32-bit Wine inside an i386 Debian root, which
# scripts/wine-env.sh makes once and keeps outside the checkout.
set(KAIRON_MINGW_TRIPLET i686-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR X86)
# The entry points of a 32-bit DLL are __stdcall; with the names listed in a
# .def file they are exported undecorated.
set(KAIRON_MINGW_SHARED_LINKER_FLAGS "-Wl,--enable-stdcall-fixup")
cmake_path(ABSOLUTE_PATH CMAKE_CURRENT_LIST_DIR NORMALIZE OUTPUT_VARIABLE _kairon_cmake_dir)
cmake_path(GET _kairon_cmake_dir PARENT_PATH _kairon_source_dir)
set(CMAKE_CROSSCOMPILING_EMULATOR "${_kairon_source_dir}/scripts/wine-env.sh;run32")
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)

# Cross-builds for 64-bit Windows with Debian's MinGW-w64 (scripts/build-windows.sh);
# CTest runs the programs under 64-bit Wine.
set(KAIRON_MINGW_TRIPLET x86_64-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
cmake_path(ABSOLUTE_PATH CMAKE_CURRENT_LIST_DIR NORMALIZE OUTPUT_VARIABLE _kairon_cmake_dir)
cmake_path(GET _kairon_cmake_dir PARENT_PATH _kairon_source_dir)
set(CMAKE_CROSSCOMPILING_EMULATOR "${_kairon_source_dir}/scripts/wine-env.sh;run64")
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)

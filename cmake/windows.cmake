# The Windows build, cross-compiled with MinGW-w64 (scripts/build-windows.sh,
# one build folder per architecture): cnvKairon.dll from the same sources as
# the Linux library, with the Windows side of what differs by platform, and
# its tests under Wine (tests/windows).

# Firebird's C++ interface, taken from the build machine's firebird-dev into
# the build's own include folder: /usr/include never goes on a MinGW include
# path, where its glibc headers would shadow the sysroot's.
set(KAIRON_FIREBIRD_INCLUDE_DIR ${CMAKE_BINARY_DIR}/include)
set(firebird_headers /usr/include/firebird/Interface.h /usr/include/firebird/IdlFbInterfaces.h
  /usr/include/ibase.h /usr/include/iberror.h)
foreach(header ${firebird_headers})
  if(NOT EXISTS ${header})
    message(FATAL_ERROR "${header} is missing: install firebird-dev (scripts/build-windows.sh does)")
  endif()
endforeach()
file(COPY ${firebird_headers} DESTINATION ${KAIRON_FIREBIRD_INCLUDE_DIR}/firebird)
add_library(kairon_firebird_headers INTERFACE)
target_include_directories(kairon_firebird_headers SYSTEM INTERFACE ${KAIRON_FIREBIRD_INCLUDE_DIR})

find_package(ZLIB REQUIRED)

# The plug-in's sources that compile for Windows as they are: the value model,
# the driver, the reading rules and the converters, and what of the text
# functions, the shared routines and filing is plain C++ (their platform's
# side is in cnvkairon_windows).
file(GLOB windows_converter_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/converters/*/*.cpp)
list(REMOVE_ITEM windows_converter_sources ${CMAKE_SOURCE_DIR}/converters/documents/temp_files_posix.cpp)
add_library(cnvkairon_portable OBJECT
  host/value.cpp
  host/object.cpp
  host/failure.cpp
  host/text.cpp
  plugin/Conversione.cpp
  plugin/modConversione.cpp
  source/clsAmbulor.cpp
  source/connection.cpp
  source/keyed_list.cpp
  source/opening.cpp
  source/recordset.cpp
  driver/Converti.cpp
  driver/keywords.cpp
  ${windows_converter_sources})
target_include_directories(cnvkairon_portable PUBLIC ${CMAKE_SOURCE_DIR})
target_link_libraries(cnvkairon_portable PUBLIC kairon_firebird_headers ZLIB::ZLIB)

# The Windows-only layers: values and host objects through Automation
# (host/windows), the in-process server's counts and registry keys
# (plugin/windows), and the system's side of the text functions, the shared
# routines and the temporary folder's files.
add_library(cnvkairon_windows OBJECT
  host/windows/variant.cpp
  host/windows/dispatch_object.cpp
  host/windows/text_case.cpp
  plugin/windows/server.cpp
  plugin/windows/registration.cpp
  plugin/windows/local_system.cpp
  converters/documents/windows/temp_files.cpp)
target_include_directories(cnvkairon_windows PUBLIC ${CMAKE_SOURCE_DIR})
target_link_libraries(cnvkairon_windows PUBLIC oleaut32 ole32 advapi32 uuid)

# The source's Windows side: fbclient.dll loaded at run time, the files
# looked at through wide paths, and the columns' character sets through the
# system's code pages.
add_library(cnvkairon_source_windows OBJECT
  source/firebird_loader_windows.cpp
  source/opening_windows.cpp
  source/charset_windows.cpp)
target_include_directories(cnvkairon_source_windows PUBLIC ${CMAKE_SOURCE_DIR})
target_link_libraries(cnvkairon_source_windows PUBLIC kairon_firebird_headers advapi32)

# Conversione's type library and the C++ declaration of its interface, made
# by widl from plugin/windows/cnvKairon.idl. IUnknown and IDispatch come from
# stdole2.tlb, which Wine's own libraries carry.
find_program(KAIRON_WIDL NAMES ${KAIRON_MINGW_TRIPLET}-widl REQUIRED)
find_path(KAIRON_STDOLE2_DIR stdole2.tlb NO_CMAKE_FIND_ROOT_PATH REQUIRED
  PATHS /usr/lib/x86_64-linux-gnu/wine/x86_64-windows /usr/lib/i386-linux-gnu/wine/i386-windows)
set(KAIRON_GENERATED_DIR ${CMAKE_BINARY_DIR}/generated)
file(MAKE_DIRECTORY ${KAIRON_GENERATED_DIR})
add_custom_command(
  OUTPUT ${KAIRON_GENERATED_DIR}/cnvKairon.tlb ${KAIRON_GENERATED_DIR}/cnvKairon.h
  COMMAND ${KAIRON_WIDL} -I ${CMAKE_SOURCE_DIR}/plugin/windows -L ${KAIRON_STDOLE2_DIR}
          -t -o ${KAIRON_GENERATED_DIR}/cnvKairon.tlb -h -H ${KAIRON_GENERATED_DIR}/cnvKairon.h
          ${CMAKE_SOURCE_DIR}/plugin/windows/cnvKairon.idl
  DEPENDS ${CMAKE_SOURCE_DIR}/plugin/windows/cnvKairon.idl ${CMAKE_SOURCE_DIR}/plugin/windows/oaidl.idl
  VERBATIM)
add_custom_target(cnvkairon_typelib DEPENDS ${KAIRON_GENERATED_DIR}/cnvKairon.tlb ${KAIRON_GENERATED_DIR}/cnvKairon.h)

# The component's boundary: the four entry points (cnvKairon.def), the
# IDispatch of Conversione, the type library and version resources.
add_library(cnvkairon_component OBJECT
  plugin/windows/entry_points.cpp
  plugin/windows/conversione_dispatch.cpp
  plugin/windows/typelib.rc
  plugin/windows/version.rc)
add_dependencies(cnvkairon_component cnvkairon_typelib)
target_include_directories(cnvkairon_component PRIVATE ${KAIRON_GENERATED_DIR})
target_link_libraries(cnvkairon_component PUBLIC cnvkairon_windows kairon_firebird_headers)

# cnvKairon.dll, the in-process server that the host registers and loads:
# the four entry points of cnvKairon.def and nothing else exported, the C++
# runtime, winpthreads and zlib linked in, so that it needs none but
# Windows' own DLLs.
add_library(cnvKairon SHARED plugin/windows/cnvKairon.def)
target_link_libraries(cnvKairon PRIVATE
  cnvkairon_component cnvkairon_portable cnvkairon_windows cnvkairon_source_windows)
set_target_properties(cnvKairon PROPERTIES PREFIX "" LINKER_LANGUAGE CXX)
target_link_options(cnvKairon PRIVATE -Wl,--no-undefined)

include(CTest)
if(BUILD_TESTING)
  add_subdirectory(tests/windows)
endif()

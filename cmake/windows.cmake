# The Windows build, cross-compiled with MinGW-w64 (scripts/build-windows.sh,
# one build folder per architecture). So far it builds the plug-in's sources
# that need nothing of their own on Windows, and tests what of them runs
# there under Wine (tests/windows).

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

# The plug-in's sources that compile for Windows as they are: the value model
# but its text functions (ICU), the driver, the reading rules and the
# converters but the documents' filing and temporary folder (POSIX files).
# Compiled only, not linked: what they call on the other side isn't there yet.
file(GLOB windows_converter_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/converters/*/*.cpp)
list(REMOVE_ITEM windows_converter_sources
  ${CMAKE_SOURCE_DIR}/converters/documents/filing.cpp
  ${CMAKE_SOURCE_DIR}/converters/documents/ImpostaCartellaTemporanea.cpp)
add_library(cnvkairon_portable OBJECT
  host/value.cpp
  host/object.cpp
  host/failure.cpp
  plugin/Conversione.cpp
  source/clsAmbulor.cpp
  source/connection.cpp
  source/keyed_list.cpp
  driver/Converti.cpp
  driver/keywords.cpp
  ${windows_converter_sources})
target_include_directories(cnvkairon_portable PUBLIC ${CMAKE_SOURCE_DIR})
target_link_libraries(cnvkairon_portable PUBLIC kairon_firebird_headers ZLIB::ZLIB)

include(CTest)
if(BUILD_TESTING)
  add_subdirectory(tests/windows)
endif()

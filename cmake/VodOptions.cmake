# Compiler settings that every target of the project shares: link `vod_settings`.
option(VOD_TESTS "Build the tests" ON)
option(VOD_BENCH "Build the benches" ON)
option(VOD_FUZZERS "Build the fuzz targets with libFuzzer (needs clang)" OFF)
option(VOD_WERROR "Treat warnings as errors" ON)
option(VOD_LOCK_RANKS "Check the lock order at run time" OFF)
set(VOD_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize takes them: address,undefined or thread")

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

add_library(vod_settings INTERFACE)
target_include_directories(vod_settings INTERFACE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include)
target_compile_options(vod_settings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  $<$<BOOL:${VOD_WERROR}>:-Werror>)
# GCC 12 takes "text" + std::string for an overlapping copy when it optimises.
target_compile_options(vod_settings INTERFACE
  "$<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>")
target_link_libraries(vod_settings INTERFACE Threads::Threads)
if(WIN32)
  # The functions that hide behind older versions of Windows are wanted, its macros min and max are not. Formats are those
  # of C99, so that texts are the same on every host. libxml2 is an archive here.
  target_compile_definitions(vod_settings INTERFACE _WIN32_WINNT=0x0A00 WIN32_LEAN_AND_MEAN NOMINMAX
    __USE_MINGW_ANSI_STDIO=1 LIBXML_STATIC)
  # The runtime goes into each file, so that nothing but Windows' own libraries and ours is wanted.
  add_link_options(-static)
  set(CMAKE_SHARED_LIBRARY_PREFIX "")
  # Tests run under Wine, which keeps its files in the build tree.
  if(CMAKE_CROSSCOMPILING)
    set(CMAKE_CROSSCOMPILING_EMULATOR env WINEPREFIX=${CMAKE_BINARY_DIR}/wine ${CMAKE_SOURCE_DIR}/scripts/wine.sh)
  endif()
endif()
if(VOD_LOCK_RANKS)
  target_compile_definitions(vod_settings INTERFACE OS_LOCK_RANKS=1)
endif()
if(VOD_SANITIZE)
  add_compile_options(-fsanitize=${VOD_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VOD_SANITIZE})
endif()

find_program(VOD_CCACHE ccache)
if(VOD_CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${VOD_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${VOD_CCACHE})
endif()
find_program(VOD_MOLD mold)
if(VOD_MOLD AND NOT MINGW AND NOT VOD_FUZZERS)
  add_link_options(-fuse-ld=mold)
endif()

# A shared library whose exported names are the functions marked with its export macro.
function(vod_platform_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;PRIVATE_LIBS" ${ARGN})
  add_library(${name} SHARED ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC vod_settings ${ARG_LIBS} PRIVATE ${ARG_PRIVATE_LIBS})
  target_compile_definitions(${name} PRIVATE ORB_BUILDING_LIBRARY=1)
endfunction()

# Windows x64 with Debian's mingw-w64, POSIX threads. The libraries are those that scripts/mingw_deps.sh builds.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

if(DEFINED ENV{VOD_MINGW_CACHE})
  set(vod_mingw_prefix $ENV{VOD_MINGW_CACHE}/prefix)
else()
  set(vod_mingw_prefix $ENV{HOME}/.cache/win32-vod/mingw/prefix)
endif()
set(CMAKE_FIND_ROOT_PATH ${vod_mingw_prefix} /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The host's own libraries must not be found; all of ours are archives, which want what they rest on named too.
set(ENV{PKG_CONFIG_LIBDIR} ${vod_mingw_prefix}/lib/pkgconfig)
set(PKG_CONFIG_ARGN --static)

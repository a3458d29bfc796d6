# Cross-build for x86-64 Windows with Debian's MinGW-w64 toolchain:
#   cmake -S . -B build-windows -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
# The posix thread model compilers give the tests std::thread and std::mutex;
# the DLLs still depend on no MinGW runtime DLL, because everything links
# the compiler runtime statically (see the top CMakeLists.txt).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(NKPAC_MINGW_TRIPLET x86_64-w64-mingw32 CACHE STRING "MinGW-w64 target triplet")
set(CMAKE_C_COMPILER ${NKPAC_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${NKPAC_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${NKPAC_MINGW_TRIPLET}-windres)
set(CMAKE_AR ${NKPAC_MINGW_TRIPLET}-ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${NKPAC_MINGW_TRIPLET}-ranlib CACHE FILEPATH "")

set(CMAKE_FIND_ROOT_PATH /usr/${NKPAC_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Host pkg-config must not hand Linux libraries to a Windows link.
set(ENV{PKG_CONFIG_LIBDIR} /usr/${NKPAC_MINGW_TRIPLET}/lib/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")

# Test programs run under Wine (CTest prepends this to every test command).
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/wine-run.sh)

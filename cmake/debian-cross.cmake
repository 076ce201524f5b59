# What the toolchain files of Debian's cross compilers share. They set: the processor, the compiler's `triple`, the
# `emulator`, the build `folder` into whose sysroot cmake/fetch-sysroot.sh has put packages, and compiler `flags`.
set(CMAKE_SYSTEM_NAME Linux)
get_filename_component(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../${folder}/sysroot ABSOLUTE)
set(CMAKE_C_COMPILER ${triple}-gcc)
set(CMAKE_CXX_COMPILER ${triple}-g++)
set(CMAKE_C_FLAGS_INIT "${flags}")
# GCC's notes on a calling convention that changed in version 7 concern nobody here.
set(CMAKE_CXX_FLAGS_INIT "${flags} -Wno-psabi")

# A linker with a root of its own does not follow the run paths of libraries in the build folder.
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-rpath-link,${CMAKE_BINARY_DIR})

# Programs (Python, the emulator) are the workstation's; everything else is the root's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${triple}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

# Runs the tests. The emulator shows a program the root's files where it opens them, but not where it only asks for them
# or starts programs: PoCL's library is named by its real path, and PoCL finds the cross linker and the compiler's library.
file(GLOB compiler_libraries /usr/lib/gcc-cross/${triple}/*)
set(CMAKE_CROSSCOMPILING_EMULATOR
    ${emulator} -L ${CMAKE_SYSROOT} -E OCL_ICD_VENDORS=${CMAKE_SYSROOT}/usr/lib/${triple}/libpocl.so.2
    -E PATH=/usr/${triple}/bin:/usr/bin:/bin -E LIBRARY_PATH=${compiler_libraries})

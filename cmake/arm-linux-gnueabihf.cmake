# 32-bit Arm with Debian's cross compiler. cmake/fetch-armhf.sh has put armhf packages into the folder used as root.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
get_filename_component(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build-arm/sysroot ABSOLUTE)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

# The floating-point unit of the devices: it has a fused multiply-add, which Debian's default target has not. Folders
# with 64-bit inode numbers can be read, as bionic does without being asked. GCC's notes on a calling convention that
# changed in version 7 concern nobody here.
set(flags "-mfpu=neon-vfpv4 -D_FILE_OFFSET_BITS=64")
set(CMAKE_C_FLAGS_INIT ${flags})
set(CMAKE_CXX_FLAGS_INIT "${flags} -Wno-psabi")

# A linker with a root of its own does not follow the run paths of libraries in the build folder.
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-rpath-link,${CMAKE_BINARY_DIR})

# Programs (Python, the emulator) are the workstation's; everything else is the root's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Runs the tests. The OpenCL loader is told its driver: it lists a folder that the emulator does not redirect.
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm -L ${CMAKE_SYSROOT} -E OCL_ICD_VENDORS=/etc/OpenCL/vendors/pocl.icd)

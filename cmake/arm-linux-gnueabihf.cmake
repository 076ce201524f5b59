# 32-bit Arm with Debian's cross compiler. cmake/fetch-armhf.sh has put armhf packages into the folder used as root.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
get_filename_component(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build-arm/sysroot ABSOLUTE)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

# The floating-point unit of the devices. It has a fused multiply-add, which Debian's default target has not.
set(CMAKE_C_FLAGS_INIT -mfpu=neon-vfpv4)
set(CMAKE_CXX_FLAGS_INIT -mfpu=neon-vfpv4)

# Programs (Python, the emulator) are the workstation's; everything else is the root's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Runs the tests. The OpenCL loader is told its driver: it lists a folder that the emulator does not redirect.
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm -L ${CMAKE_SYSROOT} -E OCL_ICD_VENDORS=/etc/OpenCL/vendors/pocl.icd)

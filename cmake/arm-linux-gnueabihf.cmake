# 32-bit Arm, as on the device. It has a fused multiply-add, which Debian's default target has not. Folders with 64-bit
# inode numbers can be read, as bionic does without being asked.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(triple arm-linux-gnueabihf)
set(emulator qemu-arm)
set(folder build-arm)
set(flags "-mfpu=neon-vfpv4 -D_FILE_OFFSET_BITS=64")
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)

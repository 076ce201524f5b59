# 64-bit Arm, as on single-board computers.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(triple aarch64-linux-gnu)
set(emulator qemu-aarch64)
set(folder build-arm64)
set(flags "")
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)

#!/bin/sh
# run.sh BUILD_FOLDER [NAME=VALUE...] PROGRAM [ARGUMENT...]: runs a test in an environment of the build tree's own, so
# that nothing the caller has set or installed changes a result: home and cache folders in BUILD_FOLDER, one OpenCL
# implementation, the sanitizers' options. NAME=VALUE adds to it. Of the caller's variables these pass:
#
#   PATH
#   LUMIVERT_SOAK_FRAMES
#   LUMIVERT_TEST_OPENCL   the implementation: pocl (the default), rusticl (Mesa's, on llvmpipe), or another name NAME for
#                          which there is /etc/OpenCL/vendors/NAME.icd. Status 77 where it is not installed.
set -eu
tests=$(dirname "$(realpath "$0")")
build=$(realpath "$1")
shift

opencl=${LUMIVERT_TEST_OPENCL:-pocl}
vendor=/etc/OpenCL/vendors/$opencl.icd
[ -e "$vendor" ] || { echo "run.sh: the OpenCL implementation '$opencl' is not installed: no $vendor" >&2; exit 77; }

home=$build/test-home
mkdir -p "$home/runtime" "$home/data" "$home/sdcard"
chmod 700 "$home/runtime"

# PoCL learns the machine's memory from /sys and aborts where that is not mounted, as in a bare chroot: tell it.
[ -d /sys/devices/system/cpu ] || set -- HWLOC_SYNTHETIC="numanode:1(memory=4GB) pu:$(nproc)" "$@"

# Looking through the memory of threads that are about to end now and then crashes LeakSanitizer: use_tls=0.
exec env -i PATH="$PATH" LC_ALL=C.UTF-8 \
    HOME="$home" XDG_CACHE_HOME="$home/cache" XDG_CONFIG_HOME="$home/config" XDG_DATA_HOME="$home/share" \
    XDG_RUNTIME_DIR="$home/runtime" ANDROID_DATA="$home/data" EXTERNAL_STORAGE="$home/sdcard" \
    POCL_CACHE_DIR="$build/pocl-cache" OCL_ICD_VENDORS="$vendor" RUSTICL_ENABLE=llvmpipe \
    LSAN_OPTIONS="suppressions=$tests/sanitizers/leaks.supp:print_suppressions=0:use_tls=0" \
    TSAN_OPTIONS="suppressions=$tests/sanitizers/threads.supp:print_suppressions=0" \
    ${LUMIVERT_SOAK_FRAMES:+LUMIVERT_SOAK_FRAMES="$LUMIVERT_SOAK_FRAMES"} \
    "$@"

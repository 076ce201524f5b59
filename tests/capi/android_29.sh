#!/bin/sh
# android_29.sh NM PROGRAM...: what also runs on Android uses nothing that came after API level 29, the lowest that is
# supported: functions of the C library, and std::filesystem, which the platform's C++ library had no place for then.
set -eu
nm=$1
shift
later='memfd_create|mlock2|renameat2|statx|close_range|copy_file_range|p(read|write)v2|pidfd_open|sem_clockwait|backtrace'
for program in "$@"; do
    symbols=$("$nm" -C "$program")
    if echo "$symbols" | grep -E " U ($later)(@|$)| std::filesystem::"; then
        echo "$program needs a newer Android" >&2
        exit 1
    fi
done

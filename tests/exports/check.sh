#!/bin/sh
# check.sh NM LIBRARY: fails unless the library exports exactly the symbols of exports.txt.
set -eu
list=$(dirname "$0")/exports.txt
actual=$(mktemp)
trap 'rm -f "$actual"' EXIT
"$1" -D -C --defined-only "$2" | cut -d' ' -f3- |
    sed -e 's/std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> \{0,1\}>/STRING/g' \
        -e 's/\[abi:cxx11\]//' -e 's/_HDR10PLUS_TM_CURVE/HDR10PLUS_TM_CURVE/g' |
    LC_ALL=C sort >"$actual"
LC_ALL=C sort "$list" | diff -u - "$actual"

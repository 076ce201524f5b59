#!/bin/sh
# check.sh FOLDER: compiles the example policy in FOLDER against the little of a platform's that is in platform.m4, and
# looks for every label of its context files in the result. Status 77 where the compilers are not installed.
set -eu
here=$(dirname "$(realpath "$0")")
for program in m4 checkpolicy secilc; do
    command -v $program >/dev/null || { echo "$program is not installed"; exit 77; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
m4 -D POLICY="$1/lumivert.te" "$here/platform.m4" >"$work/policy.conf"
checkpolicy -C -o "$work/policy.cil" "$work/policy.conf"
secilc -o "$work/policy" -f "$work/file_contexts" "$work/policy.cil"
sed 's/#.*//' "$1/file_contexts" "$1/property_contexts" | grep -o 'u:object_r:[a-z_]*:s0' | cut -d: -f3 >"$work/types"
[ -s "$work/types" ]
while read -r type; do
    grep -q "^(type $type)" "$work/policy.cil" || { echo "no type $type in the policy"; exit 1; }
done <"$work/types"

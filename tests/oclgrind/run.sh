#!/bin/sh
# run.sh PROGRAM: smallest_frames on the usual OpenCL implementation, then on oclgrind, which interprets the device
# program and reports accesses out of bounds, races, and wrong use of the interface. Fails if it reports anything, or if
# the frames differ. Status 77 where oclgrind is not installed.
set -eu
program=$1
oclgrind=/usr/lib/oclgrind/liboclgrind-rt-icd.so
[ -e "$oclgrind" ] || { echo "oclgrind is not installed"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$program" "$work/expected"

mkdir "$work/vendors"
echo "$oclgrind" >"$work/vendors/oclgrind.icd"
export OCL_ICD_VENDORS="$work/vendors" OCLGRIND_LOG="$work/report" OCLGRIND_CHECK_API=1 OCLGRIND_DATA_RACES=1
result=0
"$program" "$work/seen" "$work/expected" || result=1
if [ -s "$work/report" ]; then
    head -n 100 "$work/report"
    result=1
fi
exit $result

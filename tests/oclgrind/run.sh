#!/bin/sh
# run.sh PROGRAM [ARGUMENT...]: a test program on oclgrind, which interprets the device program and reports accesses out
# of bounds, races, and wrong use of the interface. Fails if the program does or if anything is reported. Status 77 where
# oclgrind is not installed.
set -eu
oclgrind=/usr/lib/oclgrind/liboclgrind-rt-icd.so
[ -e "$oclgrind" ] || { echo "oclgrind is not installed"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
echo "$oclgrind" >"$work/oclgrind.icd"
export OCL_ICD_VENDORS="$work" OCLGRIND_LOG="$work/report" OCLGRIND_CHECK_API=1 OCLGRIND_DATA_RACES=1
"$@" >"$work/output" || { cat "$work/output"; exit 1; }
cat "$work/output"
grep -Eq 'PASSED  \] [1-9]|^[1-9][0-9]* cases, 0 failed' "$work/output" # not none for want of a match
[ ! -s "$work/report" ] || { head -n 100 "$work/report"; exit 1; }

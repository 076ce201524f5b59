#!/bin/sh
# check.sh LIBRARY DESCRIPTION: whether the library's binary interface, functions and types, is still the described one.
# Any difference fails; after one that is wanted, "check.sh --write LIBRARY DESCRIPTION" describes it anew. Status 77
# where abidiff (package abigail-tools) is not installed.
set -eu
tests=$(dirname "$(realpath "$0")")
command -v abidiff >/dev/null || { echo "abidiff is not installed (package abigail-tools)"; exit 77; }

# describe LIBRARY DESCRIPTION
describe() {
    abidw --headers-dir "$tests/../../include" --drop-private-types --exported-interfaces-only \
        --suppressions "$tests/standard_library.suppr" --no-corpus-path --no-comp-dir-path --no-show-locs \
        --no-elf-needed --out-file "$2" "$1"
}

if [ "$1" = --write ]; then
    describe "$2" "$3"
    exit
fi
actual=$(mktemp)
trap 'rm -f "$actual"' EXIT
describe "$1" "$actual"
abidiff --harmless "$2" "$actual"

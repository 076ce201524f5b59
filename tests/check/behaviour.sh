#!/bin/sh
# behaviour.sh CHECK: the program's options, its JSON document, and its exit statuses.
set -eu
check=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# expect STATUS TEXT ARGUMENT...: runs the check; its status must be this, and its output must contain the text.
expect() {
    status=$1 text=$2
    shift 2
    got=0
    "$check" "$@" >"$work/output" 2>&1 || got=$?
    if [ $got -ne "$status" ] || ! grep -q -e "$text" "$work/output"; then
        echo "lumivert_check $*: status $got, not $status, or no '$text' in:"
        cat "$work/output"
        exit 1
    fi
}

expect 0 'Exit status' --help
expect 0 '^speed.hdr10plus.pool.nv12@3840x2160$' --list
expect 2 "unknown option '--fast'" --fast
expect 2 '--case needs a value' --case
expect 2 'no case has such a name' --case nothing
expect 2 "no planes come from 'tape'" --planes tape
expect 2 "'soon' is no number of seconds" --limit soon
expect 0 '^1 cases, 0 failed' --quick --case refused@34x18
if [ ! -e /dev/ion ]; then
    expect 1 'FAILED: no memory for the planes' --quick --planes ion --case refused@34x18
fi

"$check" --quick --json --case 'static.pool.4000@*' >"$work/report.json"
python3 - "$work/report.json" <<'END'
import json, sys
report = json.load(open(sys.argv[1]))
assert report["ok"] is True and report["planes"] == "shared memory", report
assert report["device"]["name"] and report["device"]["opencl"].startswith("OpenCL "), report
sizes = {case["name"].split("@")[1]: case["facts"] for case in report["cases"]}
assert list(sizes) == ["4x2", "6x2", "7x5", "64x32"], sizes
# Two frames each, and of each frame the input and the output.
assert all(facts["ok"] == 1 and facts["wrong"] == 0 for facts in sizes.values()), sizes
assert sizes["64x32"]["samples"] == 2 * 2 * (64 * 32 * 3 // 2), sizes
END

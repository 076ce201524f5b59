#!/bin/sh
# man_pages.sh HELP2MAN TOOL FOLDER: a man page of the tool's help, and one of each command's. They carry no date, so that
# the same sources always give the same pages.
set -eu
help2man=$1 tool=$2 folder=$3
rm -rf "$folder"
mkdir -p "$folder"

# page NAME "COMMAND LINE" "ABOUT": the page NAME.1
page() {
    "$help2man" --no-info --no-discard-stderr --version-string="$("$tool" --version)" --name="$3" "$2" |
        sed "1,/^\.TH/s/^\.TH .*/.TH $(echo "$1" | tr '[:lower:]' '[:upper:]') 1 \"\" \"lumivert $("$tool" --version)\" \"User Commands\"/; s|$tool|lumivert|g" \
            >"$folder/$1.1"
}

page lumivert "$tool" "HDR10 and HDR10+ video to SDR"
"$tool" --help | sed -n '/^Subcommands:/,$s/^  \([a-z][a-z]*\)  */\1 /p' | while read -r command about; do
    page "lumivert-$command" "$tool $command" "$about"
done

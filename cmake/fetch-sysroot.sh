#!/bin/sh
# fetch-sysroot.sh ARCHITECTURE FOLDER PACKAGE...: unpacks Debian's packages of another architecture (armhf, arm64), and
# all they depend on, into FOLDER/sysroot, the root of a cross compiler and of qemu. The system's own packages are not
# touched: a private APT with the system's sources and keyrings downloads into FOLDER/apt, and dpkg -x only unpacks.
set -eu

architecture=$1
mkdir -p "$2/apt/state" "$2/apt/cache"
cd "$2"
shift 2
sysroot=$PWD/sysroot
[ "$(cat "$sysroot.packages" 2>/dev/null)" = "$*" ] && exit 0

cat >apt/apt.conf <<END
APT::Architecture "$architecture";
APT::Architectures { "$architecture"; };
Dir::State "$PWD/apt/state";
Dir::State::status "$PWD/apt/state/status";
Dir::Cache "$PWD/apt/cache";
END
: >apt/state/status # no package counts as installed: all dependencies come along
export APT_CONFIG="$PWD/apt/apt.conf"

# One list that cannot be had need not matter: the download below decides.
apt-get update -q || echo "fetch-sysroot: some package lists are missing or old" >&2
apt-get install -q -y --no-install-recommends --download-only "$@"
apt-get autoclean -q

rm -rf "$sysroot" "$sysroot.packages"
mkdir "$sysroot"
for archive in apt/cache/archives/*.deb; do dpkg -x "$archive" "$sysroot"; done
# Since Debian 13 the packages hold nothing in /lib, where programs name their loader.
[ -e "$sysroot/lib" ] || ln -s usr/lib "$sysroot/lib"
# Libraries that an installed system finds through its alternatives (FFmpeg's filters need BLAS and LAPACK).
for library in "$sysroot"/usr/lib/*/blas/*.so.* "$sysroot"/usr/lib/*/lapack/*.so.*; do
    [ ! -e "$library" ] || ln -sf "$(basename "$(dirname "$library")")/$(basename "$library")" "$(dirname "$library")/.."
done
echo "$*" >"$sysroot.packages"

#!/bin/sh
# fetch-armhf.sh FOLDER: unpacks Debian's armhf packages of what the library is built on into FOLDER/sysroot, the root
# of the cross compiler and of qemu-arm. The system's own packages are not touched: a private APT with the system's
# sources and keyrings downloads for the other architecture into FOLDER/apt, and dpkg -x only unpacks.
set -eu

packages="libc6-dev android-liblog-dev android-libbase-dev ocl-icd-opencl-dev pocl-opencl-icd libgmock-dev"

mkdir -p "$1/apt/state" "$1/apt/cache"
cd "$1"
sysroot=$PWD/sysroot
[ "$(cat "$sysroot.packages" 2>/dev/null)" = "$packages" ] && exit 0

cat >apt/apt.conf <<EOF
APT::Architecture "armhf";
APT::Architectures { "armhf"; };
Dir::State "$PWD/apt/state";
Dir::State::status "$PWD/apt/state/status";
Dir::Cache "$PWD/apt/cache";
EOF
: >apt/state/status # no package counts as installed: all dependencies come along
export APT_CONFIG="$PWD/apt/apt.conf"

# One list that cannot be had need not matter: the download below decides.
apt-get update -q || echo "fetch-armhf: some package lists are missing or old" >&2
# shellcheck disable=SC2086 # a list of words
apt-get install -q -y --no-install-recommends --download-only $packages
apt-get autoclean -q

rm -rf "$sysroot" "$sysroot.packages"
mkdir "$sysroot"
for archive in apt/cache/archives/*.deb; do dpkg -x "$archive" "$sysroot"; done
echo "$packages" >"$sysroot.packages"

#!/bin/sh
# try_packages.sh SOURCES: run as root in a minimal system, in a folder with the two packages. Installs them as users do,
# converts, and builds the example of a caller against them, once by pkg-config and once by CMake.
set -eu
caller=$1/docs/examples/caller.c
export DEBIAN_FRONTEND=noninteractive
apt-get update -q
apt-get install -q -y ./lumivert_*.deb
lumivert --version
lumivert convert "$1/tools/lumivert/demo/demo.mp4" --frames 0 -o frame.png
test -s frame.png

apt-get install -q -y --no-install-recommends ./lumivert-dev_*.deb gcc libc6-dev make cmake pkg-config
mkdir -p project data/vendor/media
# shellcheck disable=SC2046 # a list of words
cc "$caller" $(pkg-config --cflags --libs lumivert) -o by-pkg-config
cat >project/CMakeLists.txt <<END
cmake_minimum_required(VERSION 3.25)
project(consumer C)
find_package(lumivert REQUIRED)
add_executable(caller $caller)
target_link_libraries(caller PRIVATE lumivert::lumivert)
END
cmake -S project -B project/build
cmake --build project/build
for program in ./by-pkg-config project/build/caller; do
    ANDROID_DATA=$PWD/data $program 2>/dev/null | grep 'codec2: luma 8[456], chroma 128 128'
done
echo "try_packages: installed, converted, and two programs built against it run"

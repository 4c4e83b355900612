#!/usr/bin/env bash
# Installs a build, moves the tree elsewhere, and builds and runs hosts on it that see nothing of
# the sources: in C through pkg-config, in C++ through find_package().
#
#     install_test.sh BUILD_DIR VERSION
# shellcheck source=../lib.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/../lib.sh"
build=$1 version=$2

DESTDIR=$work/stage cmake --install "$build" >/dev/null
mv -- "$work/stage$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")" "$work/moved"
cp -r -- "$source/tests/packages/consumer" "$work"
cd "$work/consumer"
library=$(dirname -- "$(find "$work/moved" -name libcorvanta.so)")

export PKG_CONFIG_PATH=$library/pkgconfig
pkg-config --exact-version="$version" corvanta
# shellcheck disable=SC2046 # flags are words
cc -std=c11 -Wall -Wextra -Werror consumer.c $(pkg-config --cflags --libs corvanta) -o c_consumer
LD_LIBRARY_PATH=$library ./c_consumer

cmake -S . -B build -DCMAKE_PREFIX_PATH="$work/moved" -Dwanted="$version" >/dev/null
cmake --build build >/dev/null
build/consumer
# A later one of another major number would not fit.
! cmake -S . -B other -DCMAKE_PREFIX_PATH="$work/moved" -Dwanted=$((${version%%.*} + 1)) >/dev/null 2>&1

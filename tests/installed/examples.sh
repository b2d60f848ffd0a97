#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# usage: examples.sh SOURCE_DIR BUILD_DIR CC CXX [run]
# Installs into an empty prefix and builds the examples against that alone, with pkg-config and with the CMake
# package; "run" also runs them on a simulated host, from the installed launcher.
set -eu
source=$1 build=$2 cc=$3 cxx=$4 run=${5:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "$*:"
    cat "$work/out"
    exit 1
}

# expect TEXT COMMAND...: the command, on the simulated host, prints a line that matches.
expect() {
    text=$1
    shift
    "$prefix/bin/veksim" --tree "$work/host" -- "$@" >"$work/out" 2>&1 || true
    grep -Eq -- "$text" "$work/out" || fail "$* does not print \"$text\""
}

prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >"$work/out" || fail "cmake --install"
module=$(find "$prefix" -name vekgpu-ml.pc)
library=$(dirname "$(dirname "$module")")

export PKG_CONFIG_LIBDIR="${module%/*}" PKG_CONFIG_PATH=
flags=$(pkg-config --cflags --libs vekgpu-ml)
strict="-O2 -Wall -Wextra -pedantic-errors -Werror -D_FORTIFY_SOURCE=2"
# shellcheck disable=SC2086
"$cc" -std=c99 $strict "$source/refresh.c" -o "$work/refresh" $flags
# shellcheck disable=SC2086
"$cxx" -std=c++17 $strict "$source/fan.cpp" -o "$work/fan" $flags
{
    cmake -G Ninja -S "$source" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" \
        -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" && cmake --build "$work/cmake"
} >"$work/out" 2>&1 || fail "the examples as a CMake project"

[ "$run" = run ] || exit 0
export LD_LIBRARY_PATH="$library"

"$prefix/bin/veksim" -- "$work/refresh" 2 >"$work/out"
[ "$(grep -Ec '^  [01]  TALON-' "$work/out")" = 4 ] || fail "refresh 2 does not print two GPUs twice"

"$prefix/bin/veksim" --tree "$work/host" -- true
fan=$(dirname "$work"/host/sys/class/drm/card0/device/hwmon/*/fan1_target)
echo 0 >"$work/host/host/euid"
echo 0 >"$fan/fan1_ctrl_mode"
expect "is set to 61 percent" "$work/fan" 0 61
[ "$(cat "$fan/fan1_target" "$fan/fan1_ctrl_mode" | tr '\n' ' ')" = "61 1 " ] || fail "fan 0 61 changes nothing"
expect "no such GPU" "$work/fan" 2 61
echo 1000 >"$work/host/host/euid"
expect "only root" "$work/fan" 0 62
echo 0 >"$work/host/host/euid"
echo 2000 >"$fan/pwm1"
echo 0 >"$fan/fan1_ctrl_mode"
expect "set by PWM value" "$work/fan" 0 62
[ "$(cat "$fan/fan1_ctrl_mode")" = 0 ] || fail "fan keeps a fan that it could not set"

#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The client in the README compiles and links as printed.
# usage: readme_example.sh README INCLUDE_DIR LIBRARY COMPILER
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
awk '/^```c$/ { inside = 1; next } /^```/ { inside = 0 } inside' "$1" >"$work/client.c"
test -s "$work/client.c"
"$4" -std=c99 -Wall -Wextra -pedantic-errors -Werror -I"$2" "$work/client.c" "$3" -o "$work/client"

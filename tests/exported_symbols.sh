#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# usage: exported_symbols.sh VERSION_SCRIPT LIBRARY NM
# The names that the version script lists and those that the library exports are the same, each under its version. That
# the header declares just these is tried with the Python module, which is made of it.
set -eu
listed=$(awk '
    /\{$/ { node = $1 }
    /local:|^\}/ { listed = 0 }
    listed { sub(";", ""); print $1 "@@" node }
    /global:/ { listed = 1 }' "$1")
# The absolute symbols are the version nodes themselves.
exported=$("$3" -D --defined-only "$2" | awk '$2 != "A" { print $3 }')
alone=$(printf '%s\n' "$listed" "$exported" | sort | uniq -u)
[ -n "$listed" ] && [ -z "$alone" ] && exit
echo "in the script or in the library alone:" "$alone"
exit 1

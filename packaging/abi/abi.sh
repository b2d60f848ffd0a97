#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# usage: abi.sh check|update LIBRARY
# Compares what clients see of LIBRARY, built with debug information, with libvekgpu-ml.abi, or writes that file.
# Exit status 77: nothing was compared.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
baseline=$here/libvekgpu-ml.abi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

skip() {
    echo "not compared: $*"
    exit 77
}

architecture() {
    sed -n "s/.*<abi-corpus .*architecture='\([^']*\)'.*/\1/p" "$1"
}

command -v abidw >/dev/null || skip "abidw is not installed (Debian package abigail-tools)"

# Only what callers see, and nothing that differs between two builds of the same source.
abidw --headers-dir "$here/../../include" --suppressions "$here/others-types.ini" \
    --drop-private-types --exported-interfaces-only --no-corpus-path --no-comp-dir-path --no-show-locs \
    --no-elf-needed --no-parameter-names --no-write-default-sizes --short-locs \
    --out-file "$work/now.abi" "$2"
if ! grep -q "<class-decl name='vekml_device_record'" "$work/now.abi"; then
    echo "$2 carries no debug information to compare"
    exit 1
fi

case $1 in
update)
    cp "$work/now.abi" "$baseline"
    exit 0
    ;;
check) ;;
*)
    echo "usage: abi.sh check|update LIBRARY"
    exit 1
    ;;
esac

[ "$(architecture "$baseline")" = "$(architecture "$work/now.abi")" ] ||
    skip "the baseline was made for $(architecture "$baseline")"

status=0
abidiff "$baseline" "$work/now.abi" >"$work/report" 2>&1 || status=$?
[ "$status" != 0 ] || exit 0

cat "$work/report"
echo
if [ $((status & 3)) != 0 ]; then
    echo "abidiff itself failed (status $status)."
elif grep -Eq '^ *[1-9][0-9]* Removed|, [1-9][0-9]* Changed|: [1-9][0-9]* Removed' "$work/report"; then
    cat <<'END'
The interface that clients were built against has changed, as listed above: a function, object or field was removed,
moved or got another type. A client that is already installed would call the wrong thing or read the wrong bytes.
 - If that was not meant, undo it: records keep their size and order, names keep their parameters.
 - If it was, it takes a new major version: raise project(VERSION) in CMakeLists.txt, with it the soname, the package
   name libvekgpu-ml1 and the node in src/vekml.map, and say so in NEWS.md.
Then record the new interface with "./dev abi --update" and commit packaging/abi/libvekgpu-ml.abi with the change.
END
else
    cat <<'END'
The interface has grown, as listed above; clients that are already installed keep working.
If the addition is meant to stay for good, raise the minor version in CMakeLists.txt, name it in NEWS.md, record it
with "./dev abi --update" and commit packaging/abi/libvekgpu-ml.abi with the change.
END
fi
exit 1

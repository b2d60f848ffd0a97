#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# usage: changelog.sh SOURCE_DIR
# Prints Debian's changelog: the version from CMakeLists.txt, with what NEWS.md says about it.
set -eu
cd "$1"
version=$(sed -n 's/^project(.* VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
news=$(awk -v heading="## $version" '
    /^## / { inside = $0 == heading; next }
    inside && NF { separator = /^ / ? " " : "\n"; sub(/^(- | +)/, ""); printf "%s%s", separator, $0 }
    END { print "" }' NEWS.md |
    sed "/^$/d" | while read -r item; do
    printf '%s\n' "$item" | fmt -w 74 | sed '1s/^/  * /; 1!s/^/    /'
done)
if [ -z "$news" ]; then
    echo "NEWS.md has no section \"## $version\"" >&2
    exit 1
fi
printf 'vekgpu-ml (%s) unstable; urgency=medium\n\n%s\n\n' "$version" "$news"
printf ' -- %s  %s\n' "$(sed -n 's/^Maintainer: //p' debian/control)" "$(date -R -r NEWS.md)"

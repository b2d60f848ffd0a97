#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# usage: exported_symbols.sh HEADER VERSION_SCRIPT LIBRARY NM
# The names the header marks VEKML_API, those the version script lists and those the library exports are the same.
set -eu
export LC_ALL=C
header=$1 script=$2 library=$3 nm=$4
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

# Takes the header without directives and comments, one declaration (up to its semicolon) at a time. The name is the
# word before the first parenthesis or, for data, the last word before any array bounds.
awk '
    /^[ \t]*#/ { directive = 1 }
    directive { directive = /\\$/; next }
    { sub("//.*", ""); text = text $0 " " }
    END {
        while (start = index(text, "/*")) {
            rest = substr(text, start + 2)
            text = substr(text, 1, start - 1) substr(rest, index(rest, "*/") + 2)
        }
        count = split(text, declaration, ";")
        for (i = 1; i <= count; i++) {
            $0 = declaration[i]
            if (!sub(/.*VEKML_API[ \t]/, ""))
                continue
            if (match($0, /[A-Za-z_0-9]+[ \t]*\(/))
                $0 = substr($0, 1, RSTART + RLENGTH - 2)
            gsub(/\[[^]]*\]/, "")
            gsub(/\*/, " ")
            print $NF
        }
    }' "$header" | sort >"$dir/header"

sed -n '/global:/,/local:/{/global:/d;/local:/d;s/[ \t;]//g;/^$/d;p;}' "$script" >"$dir/script"

# The one absolute symbol is the version node itself.
"$nm" -D --defined-only "$library" | awk '$2 != "A" { sub(/@@VEKML_1$/, "", $3); print $3 }' | sort >"$dir/library"

status=0
if ! [ -s "$dir/header" ]; then
    echo "no VEKML_API declaration in $header"
    status=1
fi
sort -c -u "$dir/script" || status=1
for other in script library; do
    diff -u --label "declared in the header" --label "in the $other" "$dir/header" "$dir/$other" || status=1
done
exit "$status"

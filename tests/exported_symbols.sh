#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# usage: exported_symbols.sh HEADER VERSION_SCRIPT LIBRARY NM
# The names the header marks VEKML_API, those the version script lists and those the library exports are the same, and
# the library exports each under the version that the script lists it in.
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

awk '
    /\{$/ { node = $1 }
    /local:|^\}/ { listed = 0 }
    listed { sub(";", ""); print $1 "@@" node }
    /global:/ { listed = 1 }' "$script" >"$dir/listed"

# The absolute symbols are the version nodes themselves.
"$nm" -D --defined-only "$library" | awk '$2 != "A" { print $3 }' | sort >"$dir/library"
sed 's/@@.*//' "$dir/listed" | sort >"$dir/names"
sort "$dir/listed" >"$dir/script"

status=0
if ! [ -s "$dir/header" ]; then
    echo "no VEKML_API declaration in $header"
    status=1
fi
for node in $(sed 's/.*@@//' "$dir/listed" | uniq); do
    sed -n "s/@@$node\$//p" "$dir/listed" | sort -c -u || status=1
done
diff -u --label "declared in the header" --label "in the script" "$dir/header" "$dir/names" || status=1
diff -u --label "in the script" --label "in the library" "$dir/script" "$dir/library" || status=1
exit "$status"

#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# usage: completion.sh BUILD_DIR
# Completes lines on a simulated host, with the installed files, in those shells that there are.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
cmake --install "$1" --prefix "$prefix" >/dev/null
files=$prefix/share
export PATH="$prefix/bin:$PATH" HOME="$work" XDG_DATA_HOME="$work" XDG_CONFIG_HOME="$work"
export XDG_DATA_DIRS="$files:/usr/local/share:/usr/share"

# As the shells call it: the line so far in $line; in bash what readline would replace, from the last break on, in $cut.
# shellcheck disable=SC2016
in_bash='. "$file"; COMP_LINE="$line xyz" COMP_POINT=${#line}
    "$(complete -p veksmi | sed "s/.*-F \([^ ]*\).*/\1/")" veksmi "$cut" ""; printf "%s\n" "${COMPREPLY[@]}"'
# shellcheck disable=SC2016
in_zsh='fpath+=(${file:h}); autoload -Uz compinit && compinit -D -u
    _describe() { for c in "${(@P)argv[-1]}"; do print -r -- "${c%%:*}"; done }
    words=("${(@s: :)line}") CURRENT=$#words PREFIX=$words[-1]; $_comps[veksmi]'
# shellcheck disable=SC2016
in_fish='complete -C $line | string replace -r "\t.*" ""'

# completes SHELL FILE CODE LINE CANDIDATES [BASH_CANDIDATES]
completes() {
    expected=$5
    [ "$1" != bash ] || expected=${6:-$5}
    found=$(line=$4 cut=${4##*[ :=]} file=$files/$2 veksim -- "$1" -c "$3" | tr '\n' ' ')
    [ "${found% }" = "$expected" ] && return
    echo "$1 completes \"$4\" with \"$found\", not with \"$expected\""
    exit 1
}

try() {
    if ! command -v "$1" >/dev/null; then
        echo "no $1 here: not tried"
        return
    fi
    completes "$@" "veksmi v" "vpu version"
    completes "$@" "veksmi -i " "0 1"
    completes "$@" "veksmi -i 0000:03:00.0 fan set " "fan pwm mode"
    completes "$@" "veksmi monitor --fo" "--format"
    completes "$@" "veksmi monitor --format=j" "--format=json" "json"
    completes "$@" "veksmi query --fields power,temperature_h" "power,temperature_highest"
    completes "$@" "veksmi nonsense " ""
}

try bash bash-completion/completions/veksmi "$in_bash"
try zsh zsh/site-functions/_veksmi "$in_zsh"
try fish fish/vendor_completions.d/veksmi.fish "$in_fish"

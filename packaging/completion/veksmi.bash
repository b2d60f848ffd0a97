# SPDX-License-Identifier: Apache-2.0
# bash completion for veksmi; the client itself tells what fits.

_veksmi() {
    # bash cuts words at ":" and "=" as well, so they are taken from the line, and given back from the cut on.
    local line=${COMP_LINE:0:COMP_POINT} words candidate
    read -ra words <<<"$line"
    [[ $line != *[[:blank:]] ]] || words+=("")
    local before=${words[-1]%"$2"}
    COMPREPLY=()
    while IFS=$'\t' read -r candidate _; do
        COMPREPLY+=("${candidate#"$before"}")
    done < <(command veksmi --complete "${words[@]:1}" 2>/dev/null)
}

complete -F _veksmi veksmi

# SPDX-License-Identifier: Apache-2.0
_vekgpu_exporter() {
    local options='--listen --deadline --processes --web-config --units --once --help --version'
    COMPREPLY=()
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    --web-config | --units) mapfile -t COMPREPLY < <(compgen -f -- "${COMP_WORDS[COMP_CWORD]}") ;;
    --listen | --deadline | --processes) ;;
    *) mapfile -t COMPREPLY < <(compgen -W "$options" -- "${COMP_WORDS[COMP_CWORD]}") ;;
    esac
}
complete -F _vekgpu_exporter vekgpu-exporter

# Completion of cutil's command lines in bash: the tool itself tells what may stand there.
_cutil() {
    mapfile -t COMPREPLY < <("$1" complete -- "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
    if [[ ${COMPREPLY[0]-} == / ]]; then # the names of files
        COMPREPLY=()
        compopt -o default
    fi
}
complete -F _cutil cutil

# bash completion for vellumline-service and vellumline-correct
_vellumline_options() {
    # The program's own help names its options, so that none is forgotten here.
    local words
    words=$("$1" --help 2>/dev/null | grep -oE -- '--[a-z][a-z-]*' | sort -u)
    [ "${1##*/}" != vellumline-service ] || [ "$COMP_CWORD" != 1 ] || words+=$'\naccount'
    COMPREPLY=($(compgen -W "$words" -- "${COMP_WORDS[COMP_CWORD]}"))
    [ ${#COMPREPLY[@]} -gt 0 ] || compopt -o default
}
complete -F _vellumline_options vellumline-service vellumline-correct

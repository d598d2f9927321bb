# bash completion for vellumline
_vellumline() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    case "$previous" in
    status | doctor) COMPREPLY=($(compgen -W "--json" -- "$current")) ;;
    *)
        if [ "$COMP_CWORD" = 1 ]; then
            COMPREPLY=($(compgen -W "rewrite open-menu settings sign-in sign-out status quit doctor
                --help --version --json --no-local-service" -- "$current"))
        fi
        ;;
    esac
}
complete -F _vellumline vellumline

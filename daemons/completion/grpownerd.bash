# Completion of grpownerd for bash.
# Put it into /usr/share/bash-completion/completions/grpownerd, or source it.

_grpownerd() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} words
    # bash cuts words at '='.
    [ "$current" = = ] && current=
    [ "$previous" = = ] && previous=${COMP_WORDS[COMP_CWORD - 2]}
    case $previous in
        --entry-path) words=$(compgen -f -- "$current") ;;
        --name | --resource | --events | --ready-fd) words= ;;
        *) words=$(compgen -W '--entry-path --name --resource --events --ready-fd --help --version' -- "$current") ;;
    esac
    mapfile -t COMPREPLY < <(printf '%s' "${words:+$words$'\n'}")
}

complete -o filenames -F _grpownerd grpownerd

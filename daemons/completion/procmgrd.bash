# Completion of procmgrd for bash.
# Put it into /usr/share/bash-completion/completions/procmgrd, or source it.

_procmgrd() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} words
    # bash cuts words at '='.
    [ "$current" = = ] && current=
    [ "$previous" = = ] && previous=${COMP_WORDS[COMP_CWORD - 2]}
    case $previous in
        --run-dir | --log-dir | --root) words=$(compgen -d -- "$current") ;;
        --rules | --check) words=$(compgen -f -- "$current") ;;
        --on-owner-exit) words=$(compgen -W 'keep terminate' -- "$current") ;;
        --stop-timeout | --ready-fd) words= ;;
        *)
            words=$(compgen -W '--run-dir --log-dir --rules --on-owner-exit --stop-timeout --ready-fd --check --root --json
                --help --version' -- "$current")
            ;;
    esac
    mapfile -t COMPREPLY < <(printf '%s' "${words:+$words$'\n'}")
}

complete -o filenames -F _procmgrd procmgrd

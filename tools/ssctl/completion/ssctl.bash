# Completion of ssctl for bash. Names come from the running group.
# Put it into /usr/share/bash-completion/completions/ssctl, or source it.

# The names of the group that the words so far are about, each between a prefix and a suffix. A name that the shell would
# take for more than a word is left out.
_ssctl_names() { # _ssctl_names PREFIX SUFFIX PROGRAM WORD...
    local prefix=$1 suffix=$2 program=$3 where=() at name
    shift 3
    for ((at = 1; at <= $#; at++)); do
        case ${!at} in
            --resource=* | --run-dir=*) where+=("${!at}") ;;
            --resource | --run-dir)
                local value=$((at + 1))
                [ "$at" -lt $# ] && where+=("${!at}" "${!value}")
                ;;
        esac
    done
    "$program" "${where[@]}" --wait 1000 list --names 2>/dev/null | while IFS= read -r name; do
        [[ $name == *[!A-Za-z0-9_.@:+/-]* ]] || printf '%s\n' "$prefix$name$suffix"
    done
}

# The command among the words, if there is one.
_ssctl_command() { # _ssctl_command WORD...
    while [ $# -gt 0 ]; do
        case $1 in
            --resource | --run-dir | --wait | --since | --owner | --record | --svg | --trace) shift ;;
            -*) ;;
            *)
                echo "$1"
                return
                ;;
        esac
        [ $# -gt 0 ] && shift
    done
}

_ssctl_options() { # _ssctl_options COMMAND
    local global='--resource --run-dir --json --wait --help'
    case $1 in
        '') echo "$global --version" ;;
        list) echo "$global --names" ;;
        state | stop | set-state) echo "$global --timeout" ;;
        start | restart) echo "$global --args --para --timeout" ;;
        change) echo "$global --stop --start --restart --args --para --timeout" ;;
        events) echo "$global --queue --count --timeout" ;;
        timeline) echo "$global --since --owner --record --svg --trace" ;;
        check) echo "$global --root" ;;
        graph) echo "$global --output --svg --states" ;;
        *) echo "$global" ;;
    esac
}

# What the word may become: one candidate in a line.
_ssctl_candidates() { # _ssctl_candidates PROGRAM CURRENT WORD...
    local program=$1 current=$2 command previous
    shift 2
    command=$(_ssctl_command "${@:2}")
    previous=${*: -1}
    case $current in
        --stop=* | --start=* | --restart=* | --args=* | --para=* | --run-dir=* | --root=* | --since=* | --record=* | --output=* | \
            --svg=* | --trace=*)
            local option=${current%%=*} candidate
            _ssctl_candidates "$program" "${current#*=}" "$@" "$option" | while IFS= read -r candidate; do
                printf '%s\n' "$option=$candidate"
            done
            return
            ;;
    esac
    case $previous in
        --run-dir | --root)
            compgen -d -- "$current"
            return
            ;;
        --record | -o | --output | --svg | --trace)
            compgen -f -- "$current"
            return
            ;;
        --since)
            printf '%s\n' boot last
            return
            ;;
        --resource | --wait | --timeout | --count | --queue | --owner) return ;;
        --stop | --start | --restart)
            local before=
            [[ $current == *,* ]] && before=${current%,*},
            _ssctl_names "$before" '' "$program" "$@"
            return
            ;;
        --args)
            _ssctl_names '' = "$program" "$@"
            return
            ;;
        --para)
            _ssctl_names '' : "$program" "$@"
            return
            ;;
    esac
    case $current in
        -*)
            compgen -W "$(_ssctl_options "$command")" -- "$current"
            return
            ;;
    esac
    case $command in
        '')
            echo 'list state start stop restart change verify set-state reload dump stop-all events timeline check graph' |
                tr ' ' '\n'
            ;;
        state | start | stop | restart) _ssctl_names '' '' "$program" "$@" ;;
        verify)
            if [[ $current == *=* ]]; then
                printf '%s\n' "${current%%=*}=running" "${current%%=*}=terminated"
            else
                _ssctl_names '' = "$program" "$@"
            fi
            ;;
        check | graph) compgen -f -- "$current" ;;
        set-state) echo 'OFF WORKING SUSPEND UPGRADE CALIBRATION' | tr ' ' '\n' ;;
    esac
}

_ssctl() {
    # bash cuts words at '=', ':' and '@', which names and values may hold; so the words are cut anew, at blanks.
    local line=${COMP_LINE:0:COMP_POINT} words current= behind candidate
    read -ra words <<<"$line"
    if [[ $line != *[[:blank:]] ]]; then
        current=${words[-1]}
        unset 'words[-1]'
    fi
    # bash replaces only what stands behind its own last cut.
    behind=${current##*[=:@]}
    COMPREPLY=()
    while IFS= read -r candidate; do
        [[ $candidate == "$current"* ]] || continue
        COMPREPLY+=("${candidate:${#current} - ${#behind}}")
    done < <(_ssctl_candidates "$1" "$current" "${words[@]}")
    if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *[=:] ]] || [[ $current == *,* ]]; then
        compopt -o nospace 2>/dev/null
    fi
    return 0
}

complete -F _ssctl ssctl

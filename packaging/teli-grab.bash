# bash completion for teli-grab. Subcommands and options are read from the tool's own
# --help, so new ones complete without a change here.
_teli_grab() {
    local cur prev words cword
    _init_completion || return

    case "$prev" in
        --sdk) COMPREPLY=($(compgen -W 'sim aravis teli' -- "$cur")); return ;;
        --mode) COMPREPLY=($(compgen -W 'gray color raw' -- "$cur")); return ;;
        --log-level) COMPREPLY=($(compgen -W '0 1 2 3 4' -- "$cur")); return ;;
        --plugin) _filedir so; return ;;
        --rig) _filedir json; return ;;
        -o | --output) _filedir; return ;;
        --serial | --set | --seconds | --timeout) return ;;
    esac

    # Global options apply after a subcommand too; the first word that is a subcommand
    # adds its own options.
    local help subcommands subcommand="" word
    help=$("${words[0]}" --help 2> /dev/null) || return
    subcommands=$(sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p' <<< "$help")
    subcommands=${subcommands//$'\n'/ }
    for word in "${words[@]:1:cword-1}"; do
        if [[ " $subcommands " == *" $word "* ]]; then
            subcommand=$word
            help+=$'\n'$("${words[0]}" "$subcommand" --help 2> /dev/null)
            break
        fi
    done

    if [[ "$cur" == -* ]]; then
        COMPREPLY=($(compgen -W "$(grep -o -- '--[a-z][a-z-]*' <<< "$help" | sort -u)" -- "$cur"))
    elif [[ -z "$subcommand" ]]; then
        COMPREPLY=($(compgen -W "$subcommands" -- "$cur"))
    elif [[ "$subcommand" == apply ]]; then
        _filedir json
    fi
} && complete -F _teli_grab teli-grab

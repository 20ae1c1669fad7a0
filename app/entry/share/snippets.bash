# bash completion for snippets (Quillet's command-line tool)
_snippets() {
    local cur prev words cword
    _init_completion 2>/dev/null || {
        cur="${COMP_WORDS[COMP_CWORD]}"
        cword=$COMP_CWORD
    }
    if [ "$cword" -eq 1 ]; then
        COMPREPLY=($(compgen -W "list expand add import sources export bridge help" -- "$cur"))
        return
    fi
    case "${COMP_WORDS[1]}" in
    expand)
        if [ "$cword" -eq 2 ]; then
            local IFS=$'\n'
            COMPREPLY=($(compgen -W "$(snippets list 2>/dev/null | cut -f1)" -- "$cur"))
        fi
        ;;
    import)
        if [ "$prev" = "--source" ]; then
            local IFS=$'\n'
            COMPREPLY=($(compgen -W "$(snippets sources 2>/dev/null |
                grep -vx 'No other expanders found on this computer')" -- "$cur"))
        elif [[ "$cur" == -* ]]; then
            COMPREPLY=($(compgen -W "--trust --source" -- "$cur"))
        else
            compopt -o filenames 2>/dev/null
            COMPREPLY=($(compgen -f -- "$cur"))
        fi
        ;;
    export)
        if [ "$cword" -eq 2 ]; then
            compopt -o filenames 2>/dev/null
            COMPREPLY=($(compgen -f -- "$cur"))
        fi
        ;;
    bridge)
        [ "$cword" -eq 2 ] && COMPREPLY=($(compgen -W "install" -- "$cur"))
        ;;
    esac
}
complete -F _snippets snippets

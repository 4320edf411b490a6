# Bash completion for vukocronctl. The tool itself knows what may come next: its commands, options and their values, and
# the names of the jobs.

_vukocronctl() {
    local line=${COMP_LINE:0:COMP_POINT} answer
    COMPREPLY=()
    mapfile -t answer < <("$1" __complete bash "$line" "$2" 2>/dev/null)
    # The last line names what bash finds by itself.
    ((${#answer[@]})) || return 0
    case ${answer[-1]} in
    :files) compopt -o default ;;
    :folders) compopt -o dirnames ;;
    :commands) mapfile -t COMPREPLY < <(compgen -A command -- "$2") ;;
    esac
    unset 'answer[-1]'
    ((${#answer[@]})) && COMPREPLY=("${answer[@]}")
    # Behind "--option=" alone, a value follows at once.
    [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]] && compopt -o nospace
    return 0
}

complete -F _vukocronctl vukocronctl

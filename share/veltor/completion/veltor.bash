# Completion of veltor for bash. The tool itself knows what may stand at the cursor. It gets the line through a pipe,
# since the arguments of a process show in ps.
_veltor() {
    local line=${COMP_LINE:0:COMP_POINT} how=
    COMPREPLY=()
    {
        IFS= read -r how
        mapfile -t COMPREPLY
    } < <(printf '%s\0' "$COMP_WORDBREAKS" "$line" | command veltor __complete bash 2>/dev/null)
    case $how in
    unfinished) compopt -o nospace ;;
    files) compopt -o default ;;
    esac
}
complete -F _veltor veltor

# bash completion of controllerctl: the program itself knows what can follow, and answers in time.

_controllerctl() {
    local current=${COMP_WORDS[COMP_CWORD]} kind=words entry
    [[ $current == = ]] && current=
    # Not by compgen: it would run what stands in a name. Quotes do not count in what is compared, since those of
    # $current are still there.
    local quotes="[\\\\'\"]"
    COMPREPLY=()
    while IFS= read -r entry; do
        case $entry in
        :names | :files | :folders) kind=${entry#:} ;;
        *)
            entry=${entry%%$'\t'*}
            [[ ${entry//$quotes/} == "${current//$quotes/}"* ]] && COMPREPLY+=("$entry")
            ;;
        esac
    done < <("${COMP_WORDS[0]}" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)

    # As file names they are quoted when inserted.
    [[ $kind == words ]] || compopt -o filenames 2>/dev/null
    case $kind in
    files) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    folders) mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
    esac
}

complete -F _controllerctl controllerctl

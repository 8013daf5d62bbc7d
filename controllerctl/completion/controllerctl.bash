# bash completion of controllerctl

_controllerctl() {
    local -A members=(
        [.]="snapshot screenshot record play mic speaker volume sonde key-beep sound time dst timezone
            status monitor wait"
        [record]="start stop pause resume"
        [play]="start stop pause resume seek rate"
        [sound]="list play"
        [time]="get set set-gps"
        [dst]="get set"
        [timezone]="get set list set-gps from-utc"
    )
    local -A options=(
        [.]="--version"
        [snapshot]="--width --height --quality"
        ["record start"]="--kind --width --height --quality"
        ["record stop"]="--kind"
        ["record pause"]="--kind"
        ["record resume"]="--kind"
        ["play start"]="--rate"
        ["play stop"]="--no-live"
        ["time get"]="--utc --seconds"
        ["time set"]="--utc --dst"
        ["timezone set"]="--offset --dst"
        ["timezone from-utc"]="--dst"
        [monitor]="--count"
        [wait]="--timeout"
    )

    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} verb=. word values=""
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ $verb == . && " ${members[.]//$'\n'/ } " == *" $word "* ]]; then
            verb=$word
        elif [[ -n ${members[$verb]-} && $verb != . && " ${members[$verb]} " == *" $word "* ]]; then
            verb="$verb $word"
        fi
    done

    local IFS=$' \t\n'
    COMPREPLY=()
    case "$verb $previous" in
        *" --kind") values="video photo-talk auto-log" ;;
        "time set --dst") values="on off" ;;
        *" --width" | *" --height" | *" --quality" | *" --rate" | *" --offset" | *" --count" | *" --timeout") return ;;
        *)
            case "$current/$verb" in
                -*) values="${options[$verb]-} --json --help" ;;
                */mic | */speaker | */sonde | */key-beep | */"dst set") values="on off" ;;
                */wait)
                    values=$("${COMP_WORDS[0]}" wait --help 2>/dev/null | sed -n 's/.*One of //p')
                    values=${values//,/}
                    ;;
                */"timezone set" | */"sound play")
                    # Not by compgen: it would run what stands in a name. As file names they are quoted when inserted;
                    # quotes do not count in what is compared, since those of $current are still there.
                    local quotes="[\\\\'\"]"
                    compopt -o filenames 2>/dev/null
                    while IFS= read -r word; do
                        [[ ${word//$quotes/} == "${current//$quotes/}"* ]] && COMPREPLY+=("$word")
                    done < <("${COMP_WORDS[0]}" "${verb%% *}" list 2>/dev/null)
                    return
                    ;;
                */"play start" | */screenshot)
                    local kind=-f
                    [[ $verb == screenshot ]] && kind=-d
                    compopt -o filenames 2>/dev/null
                    mapfile -t COMPREPLY < <(compgen $kind -- "$current")
                    return
                    ;;
                *) values=${members[$verb]-} ;;
            esac
            ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$values" -- "$current")
}

complete -F _controllerctl controllerctl

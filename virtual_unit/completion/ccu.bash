# Completion of @PROGRAM@ in bash: eval "$(@PROGRAM@ completion bash)"
_@NAME@() {
    local words=() word line
    for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
        words+=("$word")
    done
    COMPREPLY=()
    while IFS= read -r line; do
        if [[ $line == "<files>" ]]; then
            compopt -o filenames
            while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen -f -- "${COMP_WORDS[COMP_CWORD]}")
        else
            COMPREPLY+=("$(printf '%q' "$line")")
        fi
    done < <("${COMP_WORDS[0]/#\~/$HOME}" complete -- "${words[@]}" 2>/dev/null)
}
complete -F _@NAME@ @NAME@ @PROGRAM@

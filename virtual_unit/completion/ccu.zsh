# Completion of @PROGRAM@ in zsh, after compinit: eval "$(@PROGRAM@ completion zsh)"
_@NAME@() {
    local -a found
    found=("${(@f)$("${words[1]/#\~/$HOME}" complete -- "${(@)words[2,CURRENT]}" 2>/dev/null)}")
    found=("${(@)found:#}")
    if (( ${found[(Ie)<files>]} )); then
        found=("${(@)found:#<files>}")
        _files
    fi
    (( $#found )) && compadd -- "${(@)found}"
}
compdef _@NAME@ @NAME@

#compdef ccu-unit
eval "$(ccu-unit completion zsh)"
_ccu-unit "$@"

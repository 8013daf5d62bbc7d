# Completion of ccu-unit in bash.
eval "$(ccu-unit completion bash)"

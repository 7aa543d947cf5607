# bash completion for shipwright(1), which knows itself what it takes.
_shipwright() {
    mapfile -t COMPREPLY < <("$1" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}
complete -o bashdefault -o default -F _shipwright shipwright

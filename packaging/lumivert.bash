# Bash completion for lumivert. The words come from the tool's own help: commands, a command's options, and the values of
# an option that has a fixed set. Everything else is a file name.
_lumivert() {
    local tool=$1 word=$2 before=$3 help options
    COMPREPLY=()
    if [[ $COMP_CWORD -eq 1 ]]; then
        help=$("$tool" --help 2>/dev/null) || return
        options=$(sed -n '/^Subcommands:/,$s/^  \([a-z]\+\) .*/\1/p; s/^  .*\(--[a-z-]\+\).*/\1/p' <<<"$help")
    else
        help=$("$tool" "${COMP_WORDS[1]}" --help 2>/dev/null) || return
        if [[ $before == -* ]]; then
            options=$(sed -n "s/^  [^ ]*$before[ ,].*:{\([^}]*\)}.*/\1/p" <<<"$help" | tr , '\n')
        fi
        if [[ -z $options && $word == -* ]]; then
            options=$(grep -oE '^  (-[a-zA-Z],)?--[a-z0-9-]+' <<<"$help" | grep -oE -- '--[a-z0-9-]+')
        fi
    fi
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
}
complete -o default -o bashdefault -F _lumivert lumivert

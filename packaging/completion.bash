# Completion for bash of korusim, qmxhost and qmxview. Options, their fixed values and the commands
# are read from the programs' help, so that they cannot differ from it.

# Prints the words that can follow, given the program, the command if any, and the previous word.
_qmxcam_korurtsp_words() {
    local help values
    help=$("$1" ${2:+"$2"} --help 2>/dev/null) || return
    if [[ $3 == --* ]]; then
        values=$(sed -n "s/^  $3 [^ ]*:{\([^}]*\)}.*/\1/p" <<<"$help")
        [[ -z $values ]] || { echo "${values//,/ }"; return; }
        # Values that the help does not list: the shell offers files.
        ! grep -E "^  $3 [^ ]" <<<"$help" | grep -qvE "^  $3 (Needs|Excludes):" || return 1
    fi
    sed -nE 's/^  (-[a-z],)?(--[a-z-]+).*/\2/p' <<<"$help"
    [[ -n $2 ]] || sed -nE '/^Subcommands:/,/^$/s/^  ([a-z]+) .*/\1/p' <<<"$help"
}

_qmxcam_korurtsp() {
    local current=$2 previous=$3 program=$1 command='' words
    if [[ ${program##*/} == qmxhost && $COMP_CWORD -gt 1 && ${COMP_WORDS[1]} != -* ]]; then
        command=${COMP_WORDS[1]}
    fi
    words=$(_qmxcam_korurtsp_words "$program" "$command" "$previous") || return
    COMPREPLY=($(compgen -W "$words" -- "$current"))
}

complete -o default -F _qmxcam_korurtsp korusim qmxhost qmxview

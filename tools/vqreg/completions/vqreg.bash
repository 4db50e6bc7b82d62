# bash completion for vqreg: commands, options, and the keys and value names of the chosen store.

# A word as the shell would read it: without its quotes and backslashes.
_vqreg_plain() {
    printf '%s' "$1" | sed -e 's/\\\(.\)/\1/g' -e 's/^["'\'']//' -e 's/["'\'']$//'
}

_vqreg_names() {
    local IFS=$'\n'
    "${words[0]}" "${store[@]}" complete "$@" 2>/dev/null
}

# Names may hold blanks and other characters that the shell would take apart, unless the present word
# begins with a quote.
_vqreg_offer() {
    local name
    while IFS= read -r name; do
        [[ $cur == [\'\"]* ]] || name=$(printf '%q' "$name")
        COMPREPLY+=("$name")
    done
}

# The shell quotes names of files itself.
_vqreg_files() {
    compopt -o filenames
    mapfile -t COMPREPLY < <(compgen -f -- "$plain")
}

_vqreg() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}
    local words=("${COMP_WORDS[@]}") store=() arguments=() command='' program=0 at
    local commands='get set incr rm mkkey ls tree cp mv batch export import apply diff watch run check
                    edit browse notify info restore clean help'
    COMPREPLY=()
    for ((at = 1; at < COMP_CWORD; ++at)); do
        case ${words[at]} in
            --file | --root)
                # "--file=X" arrives as three words.
                local option=${words[at]}
                [[ ${words[at + 1]} != = ]] || ((++at))
                store+=("$option" "$(_vqreg_plain "${words[at + 1]/#\~\//$HOME/}")")
                ((++at)) ;;
            --timeout | --color | --default | --key | --if | --verify | -t | --type | -L | \
                --signal | --grace | --prefix)
                # get has a --type without a word behind it.
                if [[ $command != get || ${words[at]} != --type ]]; then
                    [[ ${words[at + 1]} != = ]] || ((++at))
                    ((++at))
                fi ;;
            --) [[ $command != run ]] || { program=$((COMP_CWORD - at)); break; } ;;
            -*) ;;
            *)
                if [[ -z $command ]]; then
                    command=${words[at]}
                else
                    arguments+=("$(_vqreg_plain "${words[at]}")")
                fi ;;
        esac
    done
    [[ $prev != = ]] || prev=${COMP_WORDS[COMP_CWORD-2]}
    [[ $cur != = ]] || cur=
    case $program in
        0) ;;
        1) mapfile -t COMPREPLY < <(compgen -c -- "$cur"); return ;;
        *) compopt -o default; return ;;
    esac
    local plain=${cur//\\/}
    [[ $cur != [\'\"]* ]] || plain=${cur:1}
    case $prev in
        --file) _vqreg_files; return ;;
        --color) mapfile -t COMPREPLY < <(compgen -W 'auto always never' -- "$cur"); return ;;
        --key) _vqreg_offer < <(_vqreg_names keys "$plain"); return ;;
        --signal) mapfile -t COMPREPLY < <(compgen -W 'HUP USR1 USR2 TERM INT' -- "$cur"); return ;;
        --root | --timeout | --default | --if | --verify | -L | --grace | --prefix) return ;;
        -t | --type)
            if [[ $command == set ]]; then
                mapfile -t COMPREPLY < <(compgen -W 'string dword binary' -- "$cur")
                return
            fi ;;
    esac
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W \
            "$("${words[0]}" ${command:+"$command"} --help 2>/dev/null | sed -n 's/^  \(-[^ ]*\).*/\1/p' | tr , ' ') \
                --file --root --timeout --no-notify --sync --color" -- "$cur")
        return
    fi
    if [[ -z $command ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$cur")
        return
    fi
    case $command:${#arguments[@]} in
        help:0) mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$cur") ;;
        import:0 | apply:0 | check:0 | diff:[01]) _vqreg_files ;;
        get:0 | set:0 | incr:0 | rm:0 | mkkey:0 | ls:0 | tree:0 | export:0 | watch:0 | run:0 | edit:0 | \
            browse:0 | cp:0 | mv:0)
            _vqreg_offer < <(_vqreg_names keys "$plain") ;;
        get:1 | set:1 | incr:1 | rm:1)
            _vqreg_offer < <(_vqreg_names values "${arguments[0]}" "$plain") ;;
        cp:1 | mv:1)
            _vqreg_offer < <(_vqreg_names keys "$plain"
                             _vqreg_names values "${arguments[0]}" "$plain") ;;
        cp:2 | mv:2) _vqreg_offer < <(_vqreg_names keys "$plain") ;;
        cp:3 | mv:3) _vqreg_offer < <(_vqreg_names values "${arguments[2]}" "$plain") ;;
    esac
}

complete -F _vqreg vqreg

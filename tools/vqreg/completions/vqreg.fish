# fish completion for vqreg: commands, options, and the keys and value names of the chosen store.

# Prints names of the store that the words before the present one choose. What does not fit the
# present word is left out by fish.
function __vqreg_store
    set -l words (commandline -opc)
    set -l store
    for at in (seq (count $words))
        switch $words[$at]
            case --file --root
                set -l next (math $at + 1)
                set -q words[$next]; and set -a store $words[$at] $words[$next]
            case '--file=*' '--root=*'
                set -a store (string split -m 1 = -- $words[$at])
        end
    end
    vqreg (string replace -r '^~/' "$HOME/" -- $store) complete $argv 2>/dev/null
end

# The words that are neither options nor their arguments, the command first.
function __vqreg_words
    set -l skip 0
    set -l command
    for word in (commandline -opc)[2..-1]
        if test $skip = 1
            set skip 0
            continue
        end
        switch $word
            case --file --root --timeout --color --default --key --if --verify -t -L \
                --signal --grace --prefix
                set skip 1
            case --type
                # get has a --type without a word behind it.
                test "$command" = set; and set skip 1
            case '-*'
            case '*'
                set -q command[1]; or set command $word
                echo $word
        end
    end
end

# Whether the command is one of these.
function __vqreg_in
    set -l words (__vqreg_words)
    contains -- "$words[1]" $argv
end

# Whether there are so many words, and the command is one of these.
function __vqreg_wants
    set -l words (__vqreg_words)
    test (count $words) -eq $argv[1]; and contains -- "$words[1]" $argv[2..-1]
end

function __vqreg_values
    set -l words (__vqreg_words)
    __vqreg_store values $words[$argv[1]]
end

set -l commands get set incr rm mkkey ls tree cp mv batch export import apply diff watch run check \
    edit browse notify info restore clean help

complete -c vqreg -f
complete -c vqreg -n "test (count (__vqreg_words)) -eq 0" -a "$commands"
complete -c vqreg -s h -l help -d 'print the help'
complete -c vqreg -l file -r -F -d 'configuration file'
complete -c vqreg -l root -x -d 'root key'
complete -c vqreg -l timeout -x -d 'seconds to wait for the lock'
complete -c vqreg -l no-notify -d 'do not tell other processes'
complete -c vqreg -l sync -d 'wait until a change is on the disk'
complete -c vqreg -l color -x -a 'auto always never' -d colour
complete -c vqreg -n "test (count (__vqreg_words)) -eq 0" -l version -d 'print the version'

complete -c vqreg -n '__vqreg_in get set rm ls tree export import apply diff watch check info restore clean' \
    -l json -d 'as JSON'
complete -c vqreg -n '__vqreg_in get ls clean' -s 0 -d 'end each line with a NUL'
complete -c vqreg -n '__vqreg_in get' -l type -d 'print the type'
complete -c vqreg -n '__vqreg_in get' -l raw -d 'print the data as they are'
complete -c vqreg -n '__vqreg_in get' -l default -x -d 'what to print when it is missing'
complete -c vqreg -n '__vqreg_in set' -s t -l type -x -a 'string dword binary' -d type
complete -c vqreg -n '__vqreg_in set' -l existing -d 'only change a value that exists'
complete -c vqreg -n '__vqreg_in set' -l if -x -d 'only change a value with these data'
complete -c vqreg -n '__vqreg_in rm' -l if-exists -d 'be content when there is nothing'
complete -c vqreg -n '__vqreg_in rm' -l whole-store -d 'for all that is below the root key'
complete -c vqreg -n '__vqreg_in rm mv batch import edit restore' -l verify -x \
    -d 'seconds to look for what returns'
complete -c vqreg -n '__vqreg_in rm' -s r -d 'with everything below it'
complete -c vqreg -n '__vqreg_in rm restore' -s f -d 'do not ask'
complete -c vqreg -n '__vqreg_in cp mv' -s f -d 'replace what exists'
complete -c vqreg -n '__vqreg_in ls' -s R -d 'everything below the key'
complete -c vqreg -n '__vqreg_in ls' -s l -d 'with types and data'
complete -c vqreg -n '__vqreg_in tree' -s L -x -d 'only so many levels'
complete -c vqreg -n '__vqreg_in import apply' -l key -x -a '(__vqreg_store keys)' \
    -d 'the key that the text is about'
complete -c vqreg -n '__vqreg_in import' -l merge -d 'keep what only the store has'
complete -c vqreg -n '__vqreg_in import' -l replace -d 'delete what only the store has'
complete -c vqreg -n '__vqreg_in import' -l dry-run -d 'only print the changes'
complete -c vqreg -n '__vqreg_in apply' -l check -d 'change nothing, tell by the exit code'
complete -c vqreg -n '__vqreg_in apply' -l diff -d 'print the changes'
complete -c vqreg -n '__vqreg_in export' -l env -d 'as variables for units and shells'
complete -c vqreg -n '__vqreg_in export run' -l prefix -x -d 'what names of variables begin with'
complete -c vqreg -n '__vqreg_in run' -l restart -d 'start it again when values change'
complete -c vqreg -n '__vqreg_in run' -l signal -x -a 'HUP USR1 USR2 TERM INT' \
    -d 'send it a signal when values change'
complete -c vqreg -n '__vqreg_in run' -l grace -x -d 'seconds until it is killed'
complete -c vqreg -n '__vqreg_in watch' -l initial -d 'first print what is there'
complete -c vqreg -n '__vqreg_in edit' -s y -l yes -d 'do not ask'
complete -c vqreg -n '__vqreg_in restore' -s n -l dry-run -d 'only show the difference'
complete -c vqreg -n '__vqreg_in clean' -s n -l dry-run -d 'only list them'

complete -c vqreg -n '__vqreg_wants 1 help' -a "$commands"
complete -c vqreg -n '__vqreg_wants 1 get set incr rm mkkey ls tree cp mv export watch run edit browse' \
    -a '(__vqreg_store keys)'
complete -c vqreg -n '__vqreg_wants 2 run' -a '(__fish_complete_command)'
complete -c vqreg -n '__vqreg_wants 2 get set incr rm' -a '(__vqreg_values 2)'
complete -c vqreg -n '__vqreg_wants 2 cp mv' -a '(__vqreg_store keys) (__vqreg_values 2)'
complete -c vqreg -n '__vqreg_wants 3 cp mv' -a '(__vqreg_store keys)'
complete -c vqreg -n '__vqreg_wants 4 cp mv' -a '(__vqreg_values 4)'
complete -c vqreg -n '__vqreg_wants 1 import apply check diff; or __vqreg_wants 2 diff' -F

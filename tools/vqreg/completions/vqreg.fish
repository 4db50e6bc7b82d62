# fish completion for vqreg: commands, options, and the keys and value names of the chosen store.

function __vqreg_store
    set -l words (commandline -opc)
    set -l store
    for at in (seq (count $words))
        switch $words[$at]
            case --file --root
                set -l next (math $at + 1)
                set -q words[$next]; and set -a store $words[$at] $words[$next]
        end
    end
    vqreg $store complete $argv 2>/dev/null
end

# The words that are neither options nor their arguments, the command first.
function __vqreg_words
    set -l skip 0
    for word in (commandline -opc)[2..-1]
        if test $skip = 1
            set skip 0
            continue
        end
        switch $word
            case --file --root --timeout --color --default -t -L
                set skip 1
            case '-*'
            case '*'
                echo $word
        end
    end
end

function __vqreg_wants
    set -l words (__vqreg_words)
    test (count $words) -eq $argv[1]; and contains -- "$words[1]" $argv[2..-1]
end

function __vqreg_values
    set -l words (__vqreg_words)
    __vqreg_store values $words[$argv[1]] (commandline -ct)
end

set -l commands get set rm mkkey ls tree cp mv export import diff watch check edit notify info \
    restore clean

complete -c vqreg -f
complete -c vqreg -n "test (count (__vqreg_words)) -eq 0" -a "$commands"
complete -c vqreg -l file -r -F -d 'configuration file'
complete -c vqreg -l root -x -d 'root key'
complete -c vqreg -l timeout -x -d 'seconds to wait for the lock'
complete -c vqreg -l no-notify -d 'do not tell other processes'
complete -c vqreg -l color -x -a 'auto always never'
complete -c vqreg -n "contains set (__vqreg_words)" -s t -l type -x -a 'string dword binary'
complete -c vqreg -n '__vqreg_wants 1 get set rm mkkey ls tree cp mv export watch edit' \
    -a '(__vqreg_store keys (commandline -ct))'
complete -c vqreg -n '__vqreg_wants 2 get set rm' -a '(__vqreg_values 2)'
complete -c vqreg -n '__vqreg_wants 2 cp mv' \
    -a '(__vqreg_store keys (commandline -ct)) (__vqreg_values 2)'
complete -c vqreg -n '__vqreg_wants 3 cp mv' -a '(__vqreg_store keys (commandline -ct))'
complete -c vqreg -n '__vqreg_wants 4 cp mv' -a '(__vqreg_values 4)'
complete -c vqreg -n "contains import (__vqreg_words); or contains check (__vqreg_words); or \
contains diff (__vqreg_words)" -F

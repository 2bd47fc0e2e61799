# Completion of corvane(1) for fish.

function __corvane_runs --description 'The command is one of these'
    set -l words (commandline -opc)
    contains -- "$words[2]" $argv
end

function __corvane_takes_value
    contains -- "$argv" --sign --output-dir --min-os --remove-component-id --require-output-below
end

function __corvane_lacks --description 'None of these options is there, but for the one whose value is being completed'
    set -l words (commandline -opc)
    __corvane_takes_value $words[-1]; and set -e words[-1]
    for word in $words
        contains -- $word $argv; and return 1
    end
    return 0
end

function __corvane_lacks_input
    set -l isValue false
    for word in (commandline -opc)[3..]
        if $isValue
            set isValue false
        else if __corvane_takes_value $word
            set isValue true
        else if not string match -q -- '-*' $word
            return 1
        end
    end
    return 0
end

function __corvane_identities
    set -l words (commandline -opc)
    $words[1] identities 2>/dev/null
end

function __corvane_files --description 'Files with this extension, and the folders on the way to them' --argument extension
    complete -C "__corvane_none "(commandline -ct) | string match -ri "^[^\t]*(?:/|\.$extension)(?:\t.*)?\$"
end

complete -c corvane -f

set -l first 'test (count (commandline -opc)) -eq 1'
complete -c corvane -n $first -a dmg-to-pkg -d 'Make a package of the application on a disk image'
complete -c corvane -n $first -a recompress -d 'Rebuild a package with modern compression'
complete -c corvane -n $first -a sign -d 'Sign a package without changing its content'
complete -c corvane -n $first -a identities -d 'List the identities that can sign packages'
complete -c corvane -n $first -a components -d 'List the components of a package'
complete -c corvane -s h -l help -d 'Show the usage'
complete -c corvane -n 'not __corvane_runs identities components' -l version -d 'Show the version'

complete -c corvane -n '__corvane_runs dmg-to-pkg; and __corvane_lacks_input' -a '(__corvane_files dmg)'
complete -c corvane -n '__corvane_runs recompress sign components; and __corvane_lacks_input' -a '(__corvane_files pkg)'

set -l all '__corvane_runs dmg-to-pkg recompress sign identities components'
set -l job '__corvane_runs dmg-to-pkg recompress sign'
set -l build '__corvane_runs dmg-to-pkg recompress'
complete -c corvane -n "$all; and __corvane_lacks --json --interactive" -l json -d 'Emit newline-delimited JSON events'
complete -c corvane -n "$job; and __corvane_lacks --sign --unsigned" -l sign -x -a '(__corvane_identities)' \
    -d 'Sign with this identity'
complete -c corvane -n "$job; and __corvane_lacks --output-dir" -l output-dir -x \
    -a '(__fish_complete_directories (commandline -ct))' -d 'Folder of the result'
complete -c corvane -n "$job; and __corvane_lacks --allow-untrusted" -l allow-untrusted \
    -d 'Continue when Gatekeeper rejects the input'
complete -c corvane -n "$job; and __corvane_lacks --allow-untimestamped-signature --unsigned" \
    -l allow-untimestamped-signature -d 'Allow signing without a trusted timestamp'
complete -c corvane -n "$job; and __corvane_lacks --bundle-inventory" -l bundle-inventory \
    -d 'Write top-level application identifiers and versions'
complete -c corvane -n "$job; and __corvane_lacks --require-output-below" -l require-output-below -x \
    -d 'Fail unless the output is smaller'
complete -c corvane -n "$build; and __corvane_lacks --sign --unsigned" -l unsigned -d 'Leave the output unsigned'
complete -c corvane -n "$build; and __corvane_lacks --min-os --legacy-compression" -l min-os -x \
    -d 'Oldest macOS for modern compression'
complete -c corvane -n "$build; and __corvane_lacks --min-os --legacy-compression" -l legacy-compression \
    -d 'Compress for all versions of macOS'
complete -c corvane -n '__corvane_runs recompress' -l remove-component-id -x -d 'Remove a component'
complete -c corvane -n '__corvane_runs dmg-to-pkg; and __corvane_lacks --json --interactive' -l interactive \
    -d 'Ask for what a disk image wants on the terminal'

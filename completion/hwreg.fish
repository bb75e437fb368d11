# fish completion for hwreg(8) and its companions: `candidates` says what can stand where.

set -g __hwreg_folder (dirname (realpath (status filename)))

function __hwreg_candidates
    command -q awk; or return
    set -l current (commandline -ct)
    set -l lines (command awk -f $__hwreg_folder/candidates -- $__hwreg_folder/forms (commandline -opc) "$current" \
        2>/dev/null)
    set -l prefix $lines[2]
    printf '%s\n' "$prefix"$lines[4..]
    set -l file (string sub -s (math (string length -- "$prefix") + 1) -- "$current")
    switch "$lines[1]"
        case files
            printf '%s\n' "$prefix"(__fish_complete_path "$file")
        case boards
            printf '%s\n' "$prefix"(__fish_complete_path "$file" | string match -r '.*(?:\.board|/)(?:\t.*)?$')
    end
end

for command in hwreg hwreg-sim hwreg-check hwreg-board
    complete -c $command -f -a '(__hwreg_candidates)'
end

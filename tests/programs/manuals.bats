# The manuals and the completion of command lines against the programs.

load programs

readonly source=$BATS_TEST_DIRNAME/../..
pages=(kestan.8 kestan-control.1 kestan-insert.1 kestan-monitor.1)

# options: prints the options at the starts of the input's lines, sorted.
options() {
    sed 's/\\-/-/g' | sed -nE 's/^(\.[A-Z]+|  +)(([] [,"]*--?[A-Za-z][a-z-]*)+).*/\2/p' |
        grep -oE -- '--?[A-Za-z][a-z-]*' | sort -u
}

# help <program>: prints its --help, and that of each of its commands.
help() {
    "$1" --help
    commands "$1" | xargs -I '{}' "$1" '{}' --help
}

@test "each manual lists the options of its program's --help" {
    for page in "${pages[@]}"; do
        sed -n '/^\.SH OPTIONS/,/^\.SH [^O]/p' "$source/packaging/man/$page.in" |
            grep -A 1 '^\.TP' | options >manual
        help "${page%.*}" | options >program
        diff manual program
        grep -qx -- --help program
    done
}

# completes <word>...: prints what is offered for the last word.
completes() {
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
    _kestan "$1" "${*: -1}" "${COMP_WORDS[COMP_CWORD - 1]}"
    printf '%s\n' "${COMPREPLY[@]}" | sort
}

# commands <program>: the commands in its --help.
commands() { "$1" --help | sed -n '/^Subcommands:/,$s/^  \([a-z-]*\) .*/\1/p'; }

@test "bash offers the options and commands of each program's --help" {
    # shellcheck source=/dev/null
    . "$source/packaging/bash-completion/kestan"
    local program command
    for program in "${pages[@]%.*}"; do
        diff <(completes "$program" -) <("$program" --help | options)
        diff <(completes "$program" '' | grep .) <(commands "$program" | sort)
        for command in $(commands "$program"); do
            diff <(completes "$program" --set 0 "$command" -) \
                <("$program" "$command" --help | options)
        done
    done
    diff <(completes kestan -s '') <(printf '%s\n' 0 1)
    completes kestan-monitor -i '' | grep -x lo
    [ -z "$(completes kestan-control push /)" ]  # bash offers files
}

# has_lines <file> <least number>: it has each line of standard input, somewhere.
has_lines() {
    cat >lines
    [ "$(wc -l <lines)" -ge "$2" ]
    while read -r line; do
        grep -qF -- "$line" "$1" || { echo "not in $1: $line" && return 1; }
    done <lines
}

@test "the guide to faults has each error that Kestan logs, and quotes what the tools say" {
    cat "$source"/{app,control}/*.cpp | tr -d '\n' | grep -oE 'kLogError, 0, *"[^"%]*' |
        sed -E 's/.*"/`/; s/ *$//' | sort -u | has_lines "$source/docs/operating.md" 9
    find "$source/tools" -name '*.cpp' -exec cat {} + | tr -d '\n' | sed 's/" *"//g' >said
    sed -n '/^### What the tools say/,/^### It/p' "$source/docs/operating.md" | cut -d '|' -f 2 |
        grep -oE '`[^`]+`' | sed -E 's/`(cannot )?([^`…]*).*/\2/; s/ *$//' | has_lines said 14
}

@test "the schema and the manual of the file format describe the fields that the reader has" {
    cp "$source"/{tools/json/multiplex.schema.json,packaging/man/kestan-multiplex.5.in} .
    "$KESTAN_BIN"/../tools/json/write_format multiplex.schema.json kestan-multiplex.5.in
    # Where they differ: build/tools/json/write_format with the paths of both files.
    diff "$source"/tools/json/multiplex.schema.json multiplex.schema.json
    diff "$source"/packaging/man/kestan-multiplex.5.in kestan-multiplex.5.in
}

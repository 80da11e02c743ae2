# The manuals against the programs.

load programs

# options: prints the options at the starts of the input's lines, sorted.
options() {
    sed 's/\\-/-/g' | sed -nE 's/^(\.[A-Z]+|  +)(([] [,"]*--?[a-z][a-z-]*)+).*/\2/p' |
        grep -oE -- '--?[a-z][a-z-]*' | sort -u
}

# help <program>: prints its --help, and that of each of its commands.
help() {
    "$1" --help
    "$1" --help | sed -n '/^Subcommands:/,$s/^  \([a-z-]*\) .*/\1/p' |
        xargs -I '{}' "$1" '{}' --help
}

@test "each manual lists the options of its program's --help" {
    for page in kestan.8 kestan-control.1 kestan-monitor.1; do
        sed -n '/^\.SH OPTIONS/,/^\.SH [^O]/p' "$BATS_TEST_DIRNAME/../../packaging/man/$page.in" |
            grep -A 1 '^\.TP' | options >manual
        help "${page%.*}" | options >program
        diff manual program
        grep -qx -- --help program
    done
}

@test "the schema and the manual of the file format describe the fields that the reader has" {
    local -r source=$BATS_TEST_DIRNAME/../..
    cp "$source"/{tools/json/multiplex.schema.json,packaging/man/kestan-multiplex.5.in} .
    "$KESTAN_BIN"/../tools/json/write_format multiplex.schema.json kestan-multiplex.5.in
    # Where they differ: build/tools/json/write_format with the paths of both files.
    diff "$source"/tools/json/multiplex.schema.json multiplex.schema.json
    diff "$source"/packaging/man/kestan-multiplex.5.in kestan-multiplex.5.in
}

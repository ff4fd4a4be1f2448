#!/usr/bin/env bash
# Runs the SQL examples of README.md and checks what they print.
#
# What the README must follow (CONTRIBUTING.md says the same):
# - A ```sql block (its fence at the start of a line) is SQL that pastes into
#   psql as it stands; its last statement ends with ";".
# - A ```text block right after it (only blank lines between) is what psql
#   prints for it, as psql -q -P footer=off prints it: NOTICE and ERROR lines
#   included, neither command tags ("CREATE TABLE") nor row counts ("(2 rows)").
#   The two must be equal, trailing blanks and leading or trailing empty lines
#   aside. A ```text block anywhere else is an error: every output shown is
#   checked. Other blocks (```sh, plain ```) are not read.
# - A ```sql block without a ```text block must run without an ERROR or WARNING.
# - The line "<!-- readme-test: skip -->" before a ```sql block (blank lines
#   between allowed) leaves the block out (SQL that needs other servers, say);
#   "<!-- readme-test: from 14 -->" runs it on PostgreSQL 14 and later only.
#   Keep both rare.
# The blocks run in README order in one psql session (-X -q, aligned output
# without footers, no pager, stderr merged into stdout), in a new database
# where the extension has been created, on the cluster of ENV_FILE
# (scripts/pgcluster.sh). Each block's output is left in OUTPUT_DIR/N.out, N
# counting the README's ```sql blocks from 1.
#   check_readme.sh ENV_FILE PG_BINDIR README.md OUTPUT_DIR
set -euo pipefail
env_file=$1 pg_bindir=$2 readme=$3 out=$4
# shellcheck disable=SC1090
. "$env_file"
export PGHOST PGPORT PGUSER PGCLIENTENCODING=UTF8
unset PGOPTIONS PGTZ PGDATESTYLE PGSERVICE PGDATABASE
db=readme_examples
rm -rf "$out" && mkdir -p "$out"

# Split the README into $out/N.sql, $out/N.shown and the list $out/blocks
# (number, README line, mode, whether an output is shown).
awk -v out="$out" '
function fail(at, msg) { printf "%s:%d: %s\n", FILENAME, at, msg; bad = 1 }
{ line[NR] = $0 }
END {
    i = 1
    while (i <= NR) {
        l = line[i]
        if (l ~ /^[ \t]*<!-- readme-test:/) {
            if (l ~ /^[ \t]*<!-- readme-test: skip -->[ \t]*$/) pending = "skip"
            else if (l ~ /^[ \t]*<!-- readme-test: from 14 -->[ \t]*$/) pending = "from14"
            else fail(i, "unknown readme-test marker")
            pending_at = i++
            continue
        }
        if (l ~ /^[ \t]+```(sql|text)/) { fail(i, "indented ```sql or ```text block: put it at the start of the line"); i++; continue }
        if (l ~ /^```text/) { fail(i, "```text block without a ```sql block before it"); i++; continue }
        if (l ~ /^```sql[ \t]*$/) {
            n++
            start = i++
            last = ""
            while (i <= NR && line[i] !~ /^```[ \t]*$/) {
                print line[i] > (out "/" n ".sql")
                s = line[i]
                sub(/--.*$/, "", s)
                if (s ~ /[^ \t]/) last = s
                i++
            }
            if (i > NR) { fail(start, "```sql block not closed"); break }
            if (last !~ /;[ \t]*$/ && last !~ /^[ \t]*\\/) fail(start, "```sql block does not end with \";\"")
            i++
            j = i
            while (j <= NR && line[j] ~ /^[ \t]*$/) j++
            shown = 0
            if (j <= NR && line[j] ~ /^```text[ \t]*$/) {
                shown = 1
                printf "" > (out "/" n ".shown")
                for (i = j + 1; i <= NR && line[i] !~ /^```[ \t]*$/; i++) print line[i] > (out "/" n ".shown")
                if (i > NR) { fail(j, "```text block not closed"); break }
                i++
            }
            print n, start, (pending == "" ? "run" : pending), shown > (out "/blocks")
            pending = ""
            continue
        }
        if (pending != "" && l !~ /^[ \t]*$/) { fail(pending_at, "readme-test marker not followed by a ```sql block"); pending = "" }
        if (l ~ /^```/) {  # another kind of block: skip it whole
            for (i++; i <= NR && line[i] !~ /^```[ \t]*$/; i++) ;
        }
        i++
    }
    if (n == 0) fail(NR, "no ```sql block")
    exit bad
}' "$readme" || exit 1

psql=("$pg_bindir/psql" -X -q -P pager=off -P footer=off)
"${psql[@]}" -v ON_ERROR_STOP=1 -d postgres \
    -c "SET client_min_messages = warning" -c "DROP DATABASE IF EXISTS $db" -c "CREATE DATABASE $db TEMPLATE template0"
"${psql[@]}" -v ON_ERROR_STOP=1 -d "$db" -c "CREATE EXTENSION kelvarn_range_operators"
major=$("${psql[@]}" -At -d "$db" -c "SELECT current_setting('server_version_num')::int / 10000")

# One script: each block after a line that names it, so the output splits back.
mark='@@readme-block'
while read -r n at mode shown; do
    if [ "$mode" = skip ] || { [ "$mode" = from14 ] && [ "$major" -lt 14 ]; }; then continue; fi
    printf '\\echo %s %s\n' "$mark" "$n"
    cat "$out/$n.sql"
done < "$out/blocks" > "$out/all.sql"
printf '\\echo %s end\n' "$mark" >> "$out/all.sql"
"${psql[@]}" -d "$db" < "$out/all.sql" > "$out/all.out" 2>&1 || true
awk -v out="$out" -v mark="$mark" '$1 == mark { file = out "/" $2 ".out"; printf "" > file; next } file { print > file }' "$out/all.out"

# Trailing blanks off every line, empty lines off both ends.
tidy() { sed -e 's/[[:space:]]*$//' "$1" | awk 'NF { for (; blank > 0; blank--) print ""; print; seen = 1; next } seen { blank++ }'; }

failed=0 checked=0 ran=0
if [ ! -f "$out/end.out" ]; then
    echo "psql stopped before the last block; its output ends with:"
    tail -20 "$out/all.out"
    failed=1
fi
while read -r n at mode shown; do
    [ -f "$out/$n.out" ] || continue
    ran=$((ran + 1))
    if [ "$shown" = 1 ]; then
        checked=$((checked + 1))
        if ! diff -u --label "$readme:$at (shown)" --label "psql, PostgreSQL $major" \
                <(tidy "$out/$n.shown") <(tidy "$out/$n.out") > "$out/$n.diff"; then
            echo "$readme:$at: the output shown differs from what psql prints:"
            cat "$out/$n.diff"
            failed=$((failed + 1))
        fi
    elif grep -Eq '^(ERROR|WARNING|FATAL|PANIC):' "$out/$n.out"; then
        echo "$readme:$at: the block fails:"
        cat "$out/$n.out"
        failed=$((failed + 1))
    fi
done < "$out/blocks"
echo "$readme: $ran SQL blocks run on PostgreSQL $major, $checked of them with their output compared; $failed failed"
[ "$failed" -eq 0 ]

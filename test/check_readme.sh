#!/usr/bin/env bash
# Runs the SQL examples of README.md and checks what they print.
#
# The conventions it reads are those of CONTRIBUTING.md, "README examples": a
# ```sql block pastes into psql as it stands; the ```text block right after it
# is what psql -q -P footer=off prints for it (a ```text block anywhere else is
# an error); a block without one must run without ERROR or WARNING; the marker
# "<!-- readme-test: from 14 -->" runs the block after it on 14 and later. The
# blocks run in README order in one session, in a new database with the
# extension, on the cluster of ENV_FILE; block N's output is left in
# OUTPUT_DIR/N.out.
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
# (number, README line, the first major it runs on, whether an output is shown).
awk -v out="$out" '
function fail(msg) { printf "%s:%d: %s\n", FILENAME, NR, msg; bad = 1 }
function record(shown) { print n, start, from, shown > (out "/blocks"); pending = 0; from = 0 }
block == "sql" { if (/^```[ \t]*$/) { block = ""; pending = 1 } else print > (out "/" n ".sql"); next }
block == "text" { if (/^```[ \t]*$/) block = ""; else print > (out "/" n ".shown"); next }
block == "other" { if (/^```[ \t]*$/) block = ""; next }
/^[ \t]*$/ { next }
pending && /^```text[ \t]*$/ { record(1); printf "" > (out "/" n ".shown"); block = "text"; next }
pending { record(0) }
/^<!-- readme-test: from [0-9]+ -->[ \t]*$/ { from = $4; next }
/^[ \t]*<!-- readme-test:/ { fail("unknown readme-test marker"); next }
from && !/^```sql[ \t]*$/ { fail("readme-test marker not followed by a ```sql block"); from = 0 }
/^[ \t]+```(sql|text)/ { fail("indented ```sql or ```text block: put it at the start of the line"); next }
/^```text/ { fail("```text block without a ```sql block before it"); block = "other"; next }
/^```sql[ \t]*$/ { n++; start = NR; block = "sql"; printf "" > (out "/" n ".sql"); next }
/^```/ { block = "other" }
END {
    if (block != "") fail("block not closed")
    if (pending) record(0)
    if (n == 0) fail("no ```sql block")
    exit bad
}' "$readme" || exit 1

psql=("$pg_bindir/psql" -X -q -P pager=off -P footer=off)
"${psql[@]}" -v ON_ERROR_STOP=1 -d postgres \
    -c "SET client_min_messages = warning" -c "DROP DATABASE IF EXISTS $db" -c "CREATE DATABASE $db TEMPLATE template0"
"${psql[@]}" -v ON_ERROR_STOP=1 -d "$db" -c "CREATE EXTENSION kelvarn_range_operators"
major=$("${psql[@]}" -At -d "$db" -c "SELECT current_setting('server_version_num')::int / 10000")

# One script: each block after a line that names it, so the output splits back.
mark='@@readme-block'
while read -r n at from shown; do
    [ "$major" -ge "$from" ] || continue
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
while read -r n at from shown; do
    [ -f "$out/$n.out" ] || continue
    ran=$((ran + 1))
    if [ "$shown" = 1 ]; then
        checked=$((checked + 1))
        if ! diff -u --label "$readme:$at (shown)" --label "psql, PostgreSQL $major" \
                <(tidy "$out/$n.shown") <(tidy "$out/$n.out") > "$out/$n.diff"; then
            echo "$readme:$at: the output shown differs from what psql prints:" && cat "$out/$n.diff"
            failed=$((failed + 1))
        fi
    elif grep -Eq '^(ERROR|WARNING|FATAL|PANIC):' "$out/$n.out"; then
        echo "$readme:$at: the block fails:" && cat "$out/$n.out"
        failed=$((failed + 1))
    fi
done < "$out/blocks"
echo "$readme: $ran SQL blocks run on PostgreSQL $major, $checked of them with their output compared; $failed failed"
[ "$failed" -eq 0 ]

#!/usr/bin/env bash
# Runs the SQL regression tests (all of test/sql, or the ones named) against a
# throwaway server of PostgreSQL major N (default 18) running under Valgrind memcheck, every server
# process included, and reports each error whose stack involves the extension.
# PostgreSQL 18 is built with -DUSE_VALGRIND (scripts/pgsource.sh): its memory
# contexts tell Valgrind which chunks are freed or not yet written, so a read of
# a reset context's memory is an error, not a read of stale bytes. PostgreSQL's
# own suppressions file is used with the project's (scripts/valgrind.supp).
# Slow (the suite takes tens of minutes) and not part of the test command.
# Valgrind's logs are kept in the major's build directory, valgrind/;
# VALGRIND_OPTS adds options (e.g. --track-origins=yes).
#   valgrind.sh [--major N] [TEST...]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib.sh
. "$root/scripts/lib.sh"
command -v valgrind >/dev/null || { echo "valgrind.sh: valgrind is not installed (apt-get install valgrind)" >&2; exit 1; }

[ "${1:-}" = "--major" ] || set -- --major 18 "$@"
take_major_option "$@"
shift "$MAJOR_ARGS"
out=$(major_build_dir "$major")/valgrind
rm -rf "$out"
mkdir -p "$out"
logs=$(mktemp -d "${TMPDIR:-/tmp}/kelvarn-valgrind.XXXXXX")
chmod 1777 "$logs"  # written and read by the server's user, who may not see the checkout
cp "$root/scripts/valgrind.supp" "$logs/"
server_supp=$("$(major_bindir "$major")/pg_config" --sharedir)/valgrind.supp
if [ -f "$server_supp" ]; then cp "$server_supp" "$logs/server.supp"; else : > "$logs/server.supp"; fi
chmod a+r "$logs"/*.supp
export KELVARN_PG_WRAPPER="valgrind --quiet --tool=memcheck --trace-children=yes --leak-check=no --num-callers=40 \
--error-limit=no --suppressions=$logs/server.supp --suppressions=$logs/valgrind.supp --log-file=$logs/valgrind.%p.log"
start_throwaway_cluster "$major" valgrind

run_sql_tests "$out" "$@"
"$THROWAWAY_STOP" stop "$THROWAWAY_ENV" >/dev/null
trap - EXIT
cp "$logs"/valgrind.*.log "$out"/ 2>/dev/null || true
rm -rf "$logs"

# Each error is a block of lines between empty "==PID== " lines; those naming the
# module, its sources or its headers in their stack are the extension's.
module='KelvarnPgRangeOperators4_0|pluginimpl/|common/inc/|quenloPg|qnPg'
awk -v module="$module" -v report="$out/module-errors.txt" '
    function flush() { if (block != "") { errors++; if (block ~ module) { mine++; print block > report } } block = "" }
    /^==[0-9]+== *$/ { flush(); next }
    /^==[0-9]+== / { block = block $0 "\n"; next }
    END { flush(); printf "%d error(s) reported by Valgrind, %d involving the extension\n", errors, mine }
' /dev/null "$out"/valgrind.*.log | tee "$out/summary.txt"
processes=$(ls "$out"/valgrind.*.log 2>/dev/null | wc -l)
echo "$processes server processes checked; logs in $out"
if [ -s "$out/module-errors.txt" ]; then
    head -200 "$out/module-errors.txt"
    exit 1
fi
[ "$CHECKED_FAILED" -eq 0 ]

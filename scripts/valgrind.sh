#!/usr/bin/env bash
# Runs the SQL regression tests (all of test/sql, or the ones named) against a
# throwaway server of PostgreSQL major N (default 13) running under Valgrind memcheck, every server
# process included, and reports each error whose stack involves the extension.
# Slow (the suite takes tens of minutes) and not part of the test command.
# Valgrind's logs are kept in the major's build directory, valgrind/;
# VALGRIND_OPTS adds options (e.g. --track-origins=yes).
#   valgrind.sh [--major N] [TEST...]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib.sh
. "$root/scripts/lib.sh"
command -v valgrind >/dev/null || { echo "valgrind.sh: valgrind is not installed (apt-get install valgrind)" >&2; exit 1; }

take_major_option "$@"
shift "$MAJOR_ARGS"
out=$(major_build_dir "$major")/valgrind
rm -rf "$out"
mkdir -p "$out"
logs=$(mktemp -d "${TMPDIR:-/tmp}/kelvarn-valgrind.XXXXXX")
chmod 1777 "$logs"  # written and read by the server's user, who may not see the checkout
cp "$root/scripts/valgrind.supp" "$logs/"
chmod a+r "$logs/valgrind.supp"
export KELVARN_PG_WRAPPER="valgrind --quiet --tool=memcheck --trace-children=yes --leak-check=no --num-callers=40 \
--error-limit=no --suppressions=$logs/valgrind.supp --log-file=$logs/valgrind.%p.log"
start_throwaway_cluster "$major" valgrind

pg_regress=$(dirname "$("$PG_BINDIR/pg_config" --pgxs)")/../test/regress/pg_regress
if [ $# -eq 0 ]; then
    for file in "$root"/test/sql/*.sql; do set -- "$@" "$(basename "$file" .sql)"; done
fi
failed=0
for test in "$@"; do
    started=$(date +%s)
    if bash "$root/scripts/pgregress.sh" "$THROWAWAY_ENV" "$pg_regress" "$PG_BINDIR" "$root/test" "$out/regress" \
            "$test" > "$out/regress-$test.log" 2>&1; then
        printf '%-24s ok      %5d s\n' "$test" $(($(date +%s) - started))
    else
        printf '%-24s FAILED  %5d s (%s)\n' "$test" $(($(date +%s) - started)) "$out/regress-$test.log"
        failed=$((failed + 1))
    fi
done
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
[ "$failed" -eq 0 ]

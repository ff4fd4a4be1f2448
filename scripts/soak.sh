#!/usr/bin/env bash
# Soak: 8 pgbench clients for SECONDS (default 60) on a throwaway cluster of
# PostgreSQL major N (default 13), each running a mix of every function with the errors some inputs
# must give, the four aggregates in parallel, hashed and sorted plans, GiST
# inserts and index queries, and VACUUM, all on the same table (bench/soak/*).
# Reports the transactions, the errors (none may occur: an expected error is
# caught by its SQLSTATE, anything else aborts the client), and the memory of
# each client's backend near the start and at the end; then checks that every
# indexable operator finds through the index the rows a sequential scan finds.
# Fails on an error, a crashed backend, a backend whose private memory grew by
# more than SOAK_MAX_GROWTH_KB (default 16384), or an index check that differs.
# Its logs go to SOAK_OUT (default: the major's build directory, soak/).
#   soak.sh [--major N] [SECONDS]
#   soak.sh --cluster ENV_FILE PG_BINDIR SECONDS   on a cluster pgcluster.sh started (the tests)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib.sh
. "$root/scripts/lib.sh"
soak=$root/bench/soak
clients=8
max_growth_kb=${SOAK_MAX_GROWTH_KB:-16384}

if [ "${1:-}" = "--cluster" ]; then
    # shellcheck disable=SC1090
    . "$2"
    export PGHOST PGPORT PGUSER
    bindir=$3
    shift 3
else
    take_major_option "$@"
    shift "$MAJOR_ARGS"
    start_throwaway_cluster "$major" soak
    bindir=$PG_BINDIR
    SOAK_OUT=${SOAK_OUT:-$(major_build_dir "$major")/soak}
fi
seconds=${1:-60}
out=${SOAK_OUT:?}
mkdir -p "$out"
psql=("$bindir/psql" -X -q -v ON_ERROR_STOP=1)

"${psql[@]}" -d postgres -c "DROP DATABASE IF EXISTS soak" -c "CREATE DATABASE soak TEMPLATE template0"
export PGDATABASE=soak
"${psql[@]}" -c "CREATE EXTENSION kelvarn_range_operators" -f "$soak/setup.sql"

# "pid private_dirty_kb rss_kb" for each pgbench client backend (parallel workers
# share their leader's application name, and come and go).
sample() {
    local pid
    for pid in $("${psql[@]}" -At -c "SELECT pid FROM pg_stat_activity
                                       WHERE application_name = 'pgbench' AND backend_type = 'client backend'
                                       ORDER BY pid"); do
        awk -v pid="$pid" '/^Private_Dirty:/ { d = $2 } /^Rss:/ { r = $2 } END { if (r) print pid, d, r }' \
            "/proc/$pid/smaps_rollup" 2>/dev/null || true
    done
}

started=$(date +%s)
"$bindir/pgbench" -n -c "$clients" -j 2 -T "$seconds" \
    -f "$soak/write.pgbench@3" -f "$soak/functions.pgbench@3" -f "$soak/aggregates.pgbench@2" \
    -f "$soak/index.pgbench@2" -f "$soak/vacuum.pgbench@1" > "$out/pgbench.log" 2>&1 &
bench=$!
warmup=$((seconds / 6 > 2 ? seconds / 6 : 2))
sleep "$warmup"
sample > "$out/memory-start"
sleep $((started + seconds - 1 - $(date +%s) > 0 ? started + seconds - 1 - $(date +%s) : 0))
sample > "$out/memory-end"
status=0
wait "$bench" || status=$?

transactions=$(sed -n 's/^number of transactions actually processed: \([0-9]*\).*/\1/p' "$out/pgbench.log")
tps=$(sed -n 's/^tps = \([0-9.]*\) (excluding.*/\1/p' "$out/pgbench.log")
errors=$(grep -c -E 'ERROR|FATAL|aborted' "$out/pgbench.log" || true)
crashes=$(grep -c -E 'terminated by signal|was terminated|PANIC' "$PGHOST/server.log" 2>/dev/null || true)
echo "soak: $clients clients, ${seconds} s: ${transactions:-0} transactions (${tps:-0} tps), $errors error(s), $crashes crash(es), pgbench exit $status"
grep -E 'ERROR|FATAL|aborted' "$out/pgbench.log" | sort | uniq -c | head -20 || true

echo "backend memory, kB (private dirty after ${warmup} s -> at the end; resident set after ${warmup} s -> at the end):"
grew=0
while read -r pid dirty rss; do
    read -r _ dirty_end rss_end < <(grep "^$pid " "$out/memory-end" || echo "$pid - -")
    [ "$dirty_end" != "-" ] || continue
    growth=$((dirty_end - dirty))
    printf '  pid %-8s private %7d -> %7d (%+d)   rss %7d -> %7d\n' "$pid" "$dirty" "$dirty_end" "$growth" "$rss" "$rss_end"
    [ "$growth" -le "$max_growth_kb" ] || grew=$((grew + 1))
done < "$out/memory-start"

"${psql[@]}" -f "$soak/check.sql"
if [ "$status" -eq 0 ] && [ "${transactions:-0}" -gt 0 ] && [ "$errors" -eq 0 ] && [ "$crashes" -eq 0 ] &&
    [ "$grew" -eq 0 ]; then
    echo "soak: passed"
else
    echo "soak: FAILED"
    exit 1
fi

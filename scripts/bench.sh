#!/usr/bin/env bash
# Runs the benchmarks in bench/*.sql (or the ones named) on a throwaway
# PostgreSQL cluster, printing psql's timings. Measurements, not tests.
#   bench.sh [--major N] [bench/NAME.sql ...]     N defaults to 13
set -euo pipefail
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

take_major_option "$@"
shift "$MAJOR_ARGS"
start_throwaway_cluster "$major" bench
"$PG_BINDIR/psql" -X -q -c "CREATE EXTENSION kelvarn_range_operators"
[ $# -gt 0 ] || set -- "$KELVARN_ROOT"/bench/*.sql
for file in "$@"; do
    echo "== $(basename "$file")"
    "$PG_BINDIR/psql" -X -q -v ON_ERROR_STOP=1 --echo-queries -f "$file"
done

#!/usr/bin/env bash
# Runs the benchmarks in bench/*.sql (or the ones named) on a throwaway
# PostgreSQL 13 cluster, printing psql's timings. Measurements, not tests.
#   bench.sh [bench/NAME.sql ...]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD_DIR:-$root/build}
# shellcheck source=scripts/lib.sh
. "$root/scripts/lib.sh"

prepare_module "$build"
start_throwaway_cluster "$build" bench
"$PG13_BINDIR/psql" -X -q -c "CREATE EXTENSION kelvarn_range_operators"
[ $# -gt 0 ] || set -- "$root"/bench/*.sql
for file in "$@"; do
    echo "== $(basename "$file")"
    "$PG13_BINDIR/psql" -X -q -v ON_ERROR_STOP=1 --echo-queries -f "$file"
done

#!/usr/bin/env bash
# Runs the benchmarks in bench/*.sql (or the ones named) on a throwaway
# PostgreSQL 13 cluster, printing psql's timings. Measurements, not tests.
#   bench.sh [bench/NAME.sql ...]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD_DIR:-$root/build}
bash "$root/scripts/setup.sh" >/dev/null
BUILD_DIR="$build" bash "$root/scripts/build.sh" --target KelvarnPgRangeOperators4_0 >/dev/null
env_file="$build/bench-cluster.env"
"$root/scripts/pgcluster.sh" start "$build" "$env_file"
trap '"$root/scripts/pgcluster.sh" stop "$env_file"' EXIT
# shellcheck disable=SC1090
. "$env_file"
export PGHOST PGPORT PGUSER PGDATABASE=postgres
psql=/usr/lib/postgresql/13/bin/psql
"$psql" -X -q -c "CREATE EXTENSION kelvarn_range_operators"
[ $# -gt 0 ] || set -- "$root"/bench/*.sql
for file in "$@"; do
    echo "== $(basename "$file")"
    "$psql" -X -q -v ON_ERROR_STOP=1 --echo-queries -f "$file"
done

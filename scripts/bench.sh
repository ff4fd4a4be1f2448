#!/usr/bin/env bash
# Runs the benchmarks in bench/*.sql (or the ones named) on a throwaway
# PostgreSQL cluster, printing psql's timings. Measurements, not tests.
#   bench.sh [--major N] [bench/NAME.sql ...]     N defaults to 13
# ROARINGBITMAP_SRC: a pg_roaringbitmap source tree, for the files that measure
# against it (see scripts/roaringbitmap.sh).
set -euo pipefail
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

take_major_option "$@"
shift "$MAJOR_ARGS"
start_throwaway_cluster "$major" bench
"$PG_BINDIR/psql" -X -q -c "CREATE EXTENSION kelvarn_range_operators"
[ $# -gt 0 ] || set -- "$KELVARN_ROOT"/bench/*.sql
# A file whose first line is "-- needs: roaringbitmap" measures against
# pg_roaringbitmap, built and installed into this cluster when its source can be
# had (scripts/roaringbitmap.sh); without it the file leaves its cells empty.
if head -qn1 "$@" | grep -qx -- '-- needs: roaringbitmap'; then
    bash "$KELVARN_ROOT/scripts/roaringbitmap.sh" "$major" "$THROWAWAY_ENV" \
        || echo "bench: pg_roaringbitmap is not available; measuring without it"
fi
for file in "$@"; do
    echo "== $(basename "$file")"
    "$PG_BINDIR/psql" -X -q -v ON_ERROR_STOP=1 --echo-queries -f "$file"
done

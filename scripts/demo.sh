#!/usr/bin/env bash
# Sets everything up, builds and installs the extension, then shows it working on
# a throwaway PostgreSQL 13 cluster: CREATE EXTENSION and a short tour, with the
# server's real output. The cluster is stopped and removed at the end.
#   demo.sh            run the tour
#   demo.sh --psql     run the tour, then open psql inside the cluster
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD_DIR:-$root/build}
# shellcheck source=scripts/lib.sh
. "$root/scripts/lib.sh"

prepare_module "$build"
if [ -w "$("$PG13_BINDIR/pg_config" --pkglibdir)" ]; then
    cmake --install "$build" >/dev/null
    echo "installed into the system's PostgreSQL 13 ($("$PG13_BINDIR/pg_config" --pkglibdir))"
fi
start_throwaway_cluster "$build" demo
"$PG13_BINDIR/psql" -X -q -v ON_ERROR_STOP=0 --echo-all -f "$root/scripts/tour.sql"
if [ "${1:-}" = "--psql" ]; then
    echo "psql inside the throwaway cluster; \\q to leave (the cluster is then removed)"
    "$PG13_BINDIR/psql" -X
fi

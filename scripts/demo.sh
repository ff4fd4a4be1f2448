#!/usr/bin/env bash
# Sets everything up, builds and installs the extension, then shows it working on
# a throwaway PostgreSQL 13 cluster: CREATE EXTENSION and a short tour, with the
# server's real output. The cluster is stopped and removed at the end.
#   demo.sh            run the tour
#   demo.sh --psql     run the tour, then open psql inside the cluster
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD_DIR:-$root/build}
open_psql=false
[ "${1:-}" = "--psql" ] && open_psql=true

bash "$root/scripts/setup.sh"
BUILD_DIR="$build" bash "$root/scripts/build.sh" --target KelvarnPgRangeOperators4_0 >/dev/null
if [ -w "$(/usr/lib/postgresql/13/bin/pg_config --pkglibdir)" ]; then
    cmake --install "$build" >/dev/null
    echo "installed into the system's PostgreSQL 13 ($(/usr/lib/postgresql/13/bin/pg_config --pkglibdir))"
fi

env_file="$build/demo-cluster.env"
"$root/scripts/pgcluster.sh" start "$build" "$env_file"
trap '"$root/scripts/pgcluster.sh" stop "$env_file"' EXIT
# shellcheck disable=SC1090
. "$env_file"
export PGHOST PGPORT PGUSER PGDATABASE=postgres
psql=/usr/lib/postgresql/13/bin/psql
"$psql" -X -q -v ON_ERROR_STOP=0 --echo-all -f "$root/scripts/tour.sql"
if $open_psql; then
    echo "psql inside the throwaway cluster; \\q to leave (the cluster is then removed)"
    "$psql" -X
fi

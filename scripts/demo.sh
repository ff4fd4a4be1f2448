#!/usr/bin/env bash
# Sets everything up, builds the extension, then shows it working on a throwaway
# PostgreSQL cluster: CREATE EXTENSION and a short tour, with the server's real
# output. The cluster is stopped and removed at the end. The system's PostgreSQL
# is left alone unless --install asks for the extension to be installed into it.
#   demo.sh [--major N]          run the tour on PostgreSQL N (default 13)
#   demo.sh [--major N] --psql   run the tour, then open psql inside the cluster
#   demo.sh [--major N] --install   also install the extension into PostgreSQL N (root)
set -euo pipefail
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

major=$DEFAULT_MAJOR
psql_after=no
install=no
while [ $# -gt 0 ]; do
    case "$1" in
        --major) major=${2:?--major needs a version}; shift 2 ;;
        --psql) psql_after=yes; shift ;;
        --install) install=yes; shift ;;
        *) echo "usage: $0 [--major N] [--psql] [--install]" >&2; exit 2 ;;
    esac
done
check_major "$major"

prepare_module "$major"
if [ "$install" = yes ]; then
    pkglibdir=$("$(major_bindir "$major")/pg_config" --pkglibdir)
    [ -w "$pkglibdir" ] || { echo "demo.sh --install: $pkglibdir is not writable; run it as root" >&2; exit 1; }
    cmake --install "$(major_build_dir "$major")" >/dev/null
    echo "installed into the system's PostgreSQL $major ($pkglibdir)"
fi
start_throwaway_cluster "$major" demo
"$PG_BINDIR/psql" -X -q -v ON_ERROR_STOP=0 --echo-all -f "$KELVARN_ROOT/scripts/tour.sql"
if [ "$psql_after" = yes ]; then
    echo "psql inside the throwaway cluster; \\q to leave (the cluster is then removed)"
    "$PG_BINDIR/psql" -X
fi

# Shared by the demo and benchmark scripts; sourced, not run.

PG13_BINDIR=/usr/lib/postgresql/13/bin

# Installs what is missing and builds the module in $1.
prepare_module() {
    local build=$1 root
    root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
    bash "$root/scripts/setup.sh" >/dev/null
    BUILD_DIR="$build" bash "$root/scripts/build.sh" --target KelvarnPgRangeOperators4_0 >/dev/null
}

# Starts a throwaway cluster with the module built in $1, removed when the calling
# script exits, and exports the libpq variables that reach it (database postgres).
start_throwaway_cluster() {
    local build=$1 name=$2 root
    root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
    THROWAWAY_ENV="$build/$name-cluster.env"
    THROWAWAY_STOP="$root/scripts/pgcluster.sh"
    "$THROWAWAY_STOP" start "$build" "$THROWAWAY_ENV"
    trap '"$THROWAWAY_STOP" stop "$THROWAWAY_ENV"' EXIT
    # shellcheck disable=SC1090
    . "$THROWAWAY_ENV"
    export PGHOST PGPORT PGUSER PGDATABASE=postgres
}

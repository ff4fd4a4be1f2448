# Shared by the build, test, demo and benchmark scripts; sourced, not run.
#
# The module is built once per PostgreSQL major, each in a directory of its own:
# ${BUILD_DIR:-build}/MAJOR.

KELVARN_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
SUPPORTED_MAJORS=(13 14 15 16 17 18)  # what the build accepts
DEFAULT_MAJOR=13                      # demo, benchmarks and a plain build.sh

# The build directory of major $1.
major_build_dir() {
    echo "${BUILD_DIR:-$KELVARN_ROOT/build}/$1"
}

# The binaries of PostgreSQL major $1 as Debian installs them.
major_bindir() {
    echo "/usr/lib/postgresql/$1/bin"
}

# Fails with a message unless $1 is a supported major.
check_major() {
    local m
    for m in "${SUPPORTED_MAJORS[@]}"; do [ "$1" = "$m" ] && return 0; done
    echo "PostgreSQL major '$1' is not supported (supported: ${SUPPORTED_MAJORS[*]})" >&2
    return 1
}

# The supported majors whose server and development files are both installed.
installed_majors() {
    local m dir
    for m in "${SUPPORTED_MAJORS[@]}"; do
        dir=$(major_bindir "$m")
        [ -x "$dir/pg_config" ] && [ -x "$dir/postgres" ] \
            && [ -f "$("$dir/pg_config" --includedir-server)/postgres.h" ] && echo "$m"
    done
}

# For the scripts that take "[--major N] ...": sets `major` from a leading
# "--major N" (default DEFAULT_MAJOR), checks it and builds its module. The
# caller then drops the option with: shift "$MAJOR_ARGS".
take_major_option() {
    major=$DEFAULT_MAJOR
    MAJOR_ARGS=0
    if [ "${1:-}" = "--major" ]; then
        major=${2:?--major needs a version}
        MAJOR_ARGS=2
    fi
    check_major "$major"
    prepare_module "$major"
}

# Installs what is missing for major $1 and builds its module.
prepare_module() {
    local major=$1
    bash "$KELVARN_ROOT/scripts/setup.sh" "$major" >/dev/null
    bash "$KELVARN_ROOT/scripts/build.sh" --major "$major" --target KelvarnPgRangeOperators4_0 >/dev/null
}

# Starts a throwaway cluster of major $1 with the module built for it, removed
# when the calling script exits, and exports the libpq variables that reach it
# (database postgres). Sets PG_BINDIR to the major's client binaries.
start_throwaway_cluster() {
    local major=$1 name=$2 build
    build=$(major_build_dir "$major")
    PG_BINDIR=$(major_bindir "$major")
    THROWAWAY_ENV="$build/$name-cluster.env"
    THROWAWAY_STOP="$KELVARN_ROOT/scripts/pgcluster.sh"
    "$THROWAWAY_STOP" start "$build" "$THROWAWAY_ENV"
    trap '"$THROWAWAY_STOP" stop "$THROWAWAY_ENV"' EXIT
    # shellcheck disable=SC1090
    . "$THROWAWAY_ENV"
    export PGHOST PGPORT PGUSER PGDATABASE=postgres
}

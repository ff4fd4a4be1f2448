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

# The majors Debian 12 does not package: scripts/pgsource.sh builds them from
# Debian's source package, with assertions, into source_prefix.
SOURCE_BUILT_MAJORS=(18)

# The installation prefix of a major built from source.
source_prefix() {
    echo "${KELVARN_PG_PREFIX:-/opt/kelvarn-postgresql}/$1"
}

# True when major $1 is built from source here rather than taken from Debian.
is_source_built() {
    local m
    for m in "${SOURCE_BUILT_MAJORS[@]}"; do [ "$1" = "$m" ] && return 0; done
    return 1
}

# What a source build records as made by: the checksum of the script that made it,
# so a change to how it is built makes the next setup build it again.
source_build_recipe() {
    sha256sum < "$KELVARN_ROOT/scripts/pgsource.sh" | cut -d' ' -f1
}

# True when the source-built prefix of major $1 is complete, made by the current
# recipe, and its server runs.
source_build_works() {
    local prefix
    prefix=$(source_prefix "$1")
    [ "$(cat "$prefix/.kelvarn-build-complete" 2>/dev/null)" = "$(source_build_recipe)" ] \
        && "$prefix/bin/postgres" --version >/dev/null 2>&1 \
        && [ -f "$("$prefix/bin/pg_config" --includedir-server)/postgres.h" ]
}

# The binaries of PostgreSQL major $1: Debian's package, or the source build's prefix.
# Every script finds a major's server, client and pg_config through this.
major_bindir() {
    if is_source_built "$1"; then echo "$(source_prefix "$1")/bin"; else echo "/usr/lib/postgresql/$1/bin"; fi
}

# The URIs of the machine's own Debian source, so the project names no mirror of its own.
debian_uris() {
    if [ -f /etc/apt/sources.list.d/debian.sources ]; then
        awk '/^URIs:/ { for (i = 2; i <= NF; i++) if ($i !~ /security/) print $i }' \
            /etc/apt/sources.list.d/debian.sources | sort -u | tr '\n' ' '
    elif [ -f /etc/apt/sources.list ]; then
        awk '$1 == "deb" { for (i = 2; i <= NF; i++) if ($i ~ /^[a-z]+:\/\//) { if ($i !~ /security/) print $i; break } }' \
            /etc/apt/sources.list | sort -u | tr '\n' ' '
    fi
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

# Runs the SQL regression tests named (all of test/sql when none is) against the
# throwaway cluster start_throwaway_cluster started, one line per test, logs in
# $1/regress-TEST.log; sets CHECKED_FAILED to the number that failed.
run_sql_tests() {
    local out=$1 test started pg_regress
    shift
    pg_regress=$(dirname "$("$PG_BINDIR/pg_config" --pgxs)")/../test/regress/pg_regress
    if [ $# -eq 0 ]; then
        for test in "$KELVARN_ROOT"/test/sql/*.sql; do set -- "$@" "$(basename "$test" .sql)"; done
    fi
    CHECKED_FAILED=0
    for test in "$@"; do
        started=$(date +%s)
        if bash "$KELVARN_ROOT/scripts/pgregress.sh" "$THROWAWAY_ENV" "$pg_regress" "$PG_BINDIR" \
                "$KELVARN_ROOT/test" "$out/regress" "$test" > "$out/regress-$test.log" 2>&1; then
            printf '%-24s ok      %5d s\n' "$test" $(($(date +%s) - started))
        else
            printf '%-24s FAILED  %5d s (%s)\n' "$test" $(($(date +%s) - started)) "$out/regress-$test.log"
            CHECKED_FAILED=$((CHECKED_FAILED + 1))
        fi
    done
}

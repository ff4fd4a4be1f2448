#!/usr/bin/env bash
# pg_upgrade from an older major's cluster with the extension in use to this
# build's major: a cluster of the old major (its build tree beside this one,
# build/13 beside build/15 as scripts/build.sh lays them out) gets the fixture
# of test/pg_upgrade/setup.sql, this major's pg_upgrade moves it over (--copy
# or --link) to a new cluster with this build's module, and the answers of
# test/pg_upgrade/queries.sql must be the same after as before; the B-tree
# index is checked with amcheck. Exits 77 (skipped) when the old major has not
# been built.
#   check_pg_upgrade.sh BUILD_DIR OLD_MAJOR copy|link PORT
set -euo pipefail
build_dir=$1 old_major=$2 mode=$3 port=$4
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cluster=$here/../scripts/pgcluster.sh
old_build=$(dirname "$build_dir")/$old_major
[ -f "$old_build/CMakeCache.txt" ] && [ -f "$old_build/libKelvarnPgRangeOperators4_0.so" ] \
    || { echo "PostgreSQL $old_major is not built beside $build_dir: skipped"; exit 77; }

work=$(mktemp -d "${TMPDIR:-/tmp}/kelvarn-upgrade.XXXXXX")
chmod 1777 "$work"  # pg_upgrade writes its logs and sockets here as the server's user
trap '"$cluster" stop "$work/new.env" >/dev/null; "$cluster" stop "$work/old.env" >/dev/null; rm -rf "$work"' EXIT
KELVARN_PG_PORT=$port "$cluster" start "$old_build" "$work/old.env"
KELVARN_PG_PORT=$((port + 1)) "$cluster" start "$build_dir" "$work/new.env"
# shellcheck disable=SC1090
old() { . "$work/old.env"; echo "$PG_STAGE_BINDIR $PGHOST/data $SERVER_USER"; }
read -r old_bin old_data server_user < <(old)
read -r new_bin new_data _ < <(. "$work/new.env"; echo "$PG_STAGE_BINDIR $PGHOST/data")
as_server() { if [ "$(id -u)" -eq 0 ]; then runuser -u "$server_user" -- "$@"; else "$@"; fi; }
psql_in() {  # psql_in ENV_FILE ARGS...: psql on that cluster's database postgres
    local env_file=$1
    shift
    (. "$env_file"; export PGHOST PGPORT PGUSER; "$PG_STAGE_BINDIR/psql" -X -q -v ON_ERROR_STOP=1 -d postgres "$@")
}

psql_in "$work/old.env" -f "$here/pg_upgrade/setup.sql"
psql_in "$work/old.env" -f "$here/pg_upgrade/queries.sql" > "$work/before.out"
as_server "$old_bin/pg_ctl" -D "$old_data" -w stop >/dev/null
as_server "$new_bin/pg_ctl" -D "$new_data" -w stop >/dev/null
# initdb turns data checksums on by default from 18 on; pg_upgrade needs the old
# cluster to match, as a user would make it.
checksums() { "$1/pg_controldata" "$2" | sed -n 's/^Data page checksum version: *//p'; }
if [ "$(checksums "$new_bin" "$new_data")" != 0 ] && [ "$(checksums "$old_bin" "$old_data")" = 0 ]; then
    as_server "$old_bin/pg_checksums" --enable -D "$old_data" >/dev/null 2>&1
fi
mode_option=()  # copying is the default (15 has no --copy)
[ "$mode" = copy ] || mode_option=(--"$mode")
started=$(date +%s%N)
(cd "$work" && as_server "$new_bin/pg_upgrade" "${mode_option[@]}" -b "$old_bin" -B "$new_bin" -d "$old_data" -D "$new_data" \
    -U kelvarn -p "$port" -P $((port + 1)) -s "$work" > "$work/pg_upgrade.out" 2>&1) \
    || { cat "$work/pg_upgrade.out"; find "$new_data" -name '*.log' -path '*pg_upgrade_output.d*' -exec tail -20 {} +; exit 1; }
echo "pg_upgrade --$mode from $old_major: $(( ($(date +%s%N) - started) / 1000000 )) ms"
as_server "$new_bin/pg_ctl" -D "$new_data" -l "$work/new-server.log" -w start >/dev/null
psql_in "$work/new.env" -f "$here/pg_upgrade/queries.sql" > "$work/after.out"
psql_in "$work/new.env" -c "CREATE EXTENSION amcheck" -c "SELECT bt_index_check('sets_pkey', true)" >/dev/null
if ! diff -u "$work/before.out" "$work/after.out"; then
    echo "the answers differ after pg_upgrade --$mode from $old_major"
    exit 1
fi
echo "same answers after the upgrade ($(grep -c . "$work/after.out") lines compared)"

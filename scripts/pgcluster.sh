#!/usr/bin/env bash
# Throwaway PostgreSQL cluster with the extension as built in a build tree, of
# the major that tree was configured for (its pg_config).
#
#   pgcluster.sh start BUILD_DIR ENV_FILE   stage, initdb, start; writes PGHOST/PGPORT/PGUSER to ENV_FILE
#   pgcluster.sh stop ENV_FILE              stop the server and remove everything it used
#
# The extension is installed with DESTDIR into a staging tree that mirrors the
# system's PostgreSQL of that major (its server binaries copied, everything else linked):
# PostgreSQL finds its share and lib directories relative to its own binary, so
# the staged server sees the freshly built extension without touching the
# system, and an ordinary user can run it; the other client and server tools
# (pg_dump, pg_upgrade, ...) are linked beside them. As root, the server runs as the
# unprivileged 'postgres' user (PostgreSQL refuses root); it listens only on a
# Unix socket in its own directory.
set -euo pipefail

PORT=${KELVARN_PG_PORT:-54313}
DB_SUPERUSER=kelvarn

as_server_user() {
    if [ "$(id -u)" -eq 0 ]; then runuser -u "$SERVER_USER" -- "$@"; else "$@"; fi
}

server_user() {
    if [ "$(id -u)" -ne 0 ]; then id -un; return; fi
    getent passwd postgres >/dev/null || useradd --system --user-group --no-create-home postgres
    echo postgres
}

start() {
    local build_dir=$1 env_file=$2
    local bindir pkglibdir sharedir stage entry version
    PG_CONFIG=$(sed -n 's/^PG_CONFIG:[A-Z]*=//p' "$build_dir/CMakeCache.txt")
    [ -x "$PG_CONFIG" ] || { echo "no pg_config recorded in $build_dir/CMakeCache.txt" >&2; exit 1; }
    version=$("$PG_CONFIG" --version)
    bindir=$("$PG_CONFIG" --bindir)
    pkglibdir=$("$PG_CONFIG" --pkglibdir)
    sharedir=$("$PG_CONFIG" --sharedir)
    SERVER_USER=$(server_user)

    stage=$(mktemp -d "${TMPDIR:-/tmp}/kelvarn-pg.XXXXXX")
    chmod 755 "$stage"
    DESTDIR="$stage" cmake --install "$build_dir" >/dev/null
    mkdir -p "$stage$bindir" "$stage$pkglibdir" "$stage$sharedir/extension"
    for entry in postgres initdb pg_ctl; do cp "$bindir/$entry" "$stage$bindir/"; done
    for entry in "$bindir"/* "$pkglibdir"/* "$sharedir"/* "$sharedir"/extension/*; do
        [ -e "$stage$entry" ] || ln -s "$entry" "$stage$entry"
    done
    chmod -R a+rX "$stage"

    mkdir "$stage/run"
    [ "$(id -u)" -ne 0 ] || chown "$SERVER_USER" "$stage/run"
    cat > "$env_file" <<ENV
STAGE=$stage
SERVER_USER=$SERVER_USER
PG_STAGE_BINDIR=$stage$bindir
PGHOST=$stage/run
PGPORT=$PORT
PGUSER=$DB_SUPERUSER
ENV
    as_server_user "$stage$bindir/initdb" --no-sync -A trust -U "$DB_SUPERUSER" -E UTF8 --locale=C \
        -D "$stage/run/data" > "$stage/initdb.log" 2>&1 || { cat "$stage/initdb.log"; exit 1; }
    cat >> "$stage/run/data/postgresql.conf" <<CONF
listen_addresses = ''
unix_socket_directories = '$stage/run'
port = $PORT
fsync = off
synchronous_commit = off
full_page_writes = off
max_worker_processes = 8
max_parallel_workers = 8
CONF
    # KELVARN_PG_WRAPPER (e.g. "valgrind --tool=memcheck"): the server, not initdb, runs under it.
    local timeout=60
    if [ -n "${KELVARN_PG_WRAPPER:-}" ]; then
        mv "$stage$bindir/postgres" "$stage$bindir/postgres.bin"
        printf '#!/bin/sh\nexec %s "$(dirname "$0")/postgres.bin" "$@"\n' "$KELVARN_PG_WRAPPER" > "$stage$bindir/postgres"
        chmod 755 "$stage$bindir/postgres"
        timeout=1200
    fi
    as_server_user "$stage$bindir/pg_ctl" -D "$stage/run/data" -l "$stage/run/server.log" -w -t "$timeout" start >/dev/null \
        || { cat "$stage/run/server.log"; exit 1; }
    echo "$version running on socket $stage/run port $PORT (server user $SERVER_USER)"
}

stop() {
    local env_file=$1
    [ -f "$env_file" ] || { echo "no cluster recorded in $env_file"; return 0; }
    # shellcheck disable=SC1090
    . "$env_file"
    if [ -f "$PGHOST/data/postmaster.pid" ]; then
        as_server_user "$PG_STAGE_BINDIR/pg_ctl" -D "$PGHOST/data" -m fast -w stop >/dev/null
    fi
    case "$STAGE" in */kelvarn-pg.*) rm -rf "$STAGE" ;; esac
    rm -f "$env_file"
    echo "cluster stopped and removed"
}

case "${1:-}" in
    start) [ $# -eq 3 ] || { echo "usage: $0 start BUILD_DIR ENV_FILE" >&2; exit 2; }; start "$2" "$3" ;;
    stop) [ $# -eq 2 ] || { echo "usage: $0 stop ENV_FILE" >&2; exit 2; }; stop "$2" ;;
    *) echo "usage: $0 start BUILD_DIR ENV_FILE | stop ENV_FILE" >&2; exit 2 ;;
esac

#!/usr/bin/env bash
# Installs the system packages the project builds and tests with on Debian 12:
# cmake, g++, GoogleTest, clang 14 with its runtime libraries (libFuzzer and the
# sanitizers, for the fuzz targets), and for each PostgreSQL major asked for (default:
# 13 and 15) its server and its server development files, the latter at exactly
# the version of the installed server. PostgreSQL 15 is Debian 12's own;
# PostgreSQL 13 comes from Debian 11 "bullseye"; PostgreSQL 18, which Debian 12
# does not package, is built from Debian's source package with assertions by
# scripts/pgsource.sh.
# Does nothing when everything is already present; needs root only when something
# is missing.
#   setup.sh [MAJOR...]
set -euo pipefail
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

MAJORS=("$@")
[ "${#MAJORS[@]}" -gt 0 ] || MAJORS=(13 15)
BASE_PACKAGES=(cmake g++ make libgtest-dev clang-14 libclang-rt-14-dev)
SOURCE_FILE=/etc/apt/sources.list.d/kelvarn-bullseye.sources
PIN_FILE=/etc/apt/preferences.d/kelvarn-bullseye
NO_MAIN_CLUSTER=/etc/postgresql-common/createcluster.d/kelvarn-no-main-cluster.conf

installed_version() {
    [ "$(dpkg-query -W -f='${Status}' "$1" 2>/dev/null)" = "install ok installed" ] || return 0
    dpkg-query -W -f='${Version}' "$1"
}

# What is missing, one package a line; a development package installed at another
# version than its server counts as missing.
missing_packages() {
    local p m server
    for p in "${BASE_PACKAGES[@]}"; do
        [ -n "$(installed_version "$p")" ] || echo "$p"
    done
    for m in "${MAJORS[@]}"; do
        if is_source_built "$m"; then
            source_build_works "$m" || echo "postgresql-$m-from-source"
            continue
        fi
        server=$(installed_version "postgresql-$m")
        [ -n "$server" ] || echo "postgresql-$m"
        [ -n "$server" ] && [ "$(installed_version "postgresql-server-dev-$m")" = "$server" ] \
            || echo "postgresql-server-dev-$m"
    done
}

add_bullseye_source() {
    local uris
    uris=$(debian_uris)
    [ -n "$uris" ] || { echo "setup: no Debian source found in /etc/apt" >&2; exit 1; }
    cat > "$SOURCE_FILE" <<SRC
# Debian 11 for PostgreSQL 13; pinned low in $PIN_FILE.
Types: deb
URIs: ${uris% }
Suites: bullseye
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
SRC
    cat > "$PIN_FILE" <<PIN
# Only packages asked for by name (and dependencies found nowhere else) come from bullseye.
Package: *
Pin: release n=bullseye
Pin-Priority: 100
PIN
}

mapfile -t missing < <(missing_packages)
if [ "${#missing[@]}" -eq 0 ]; then
    echo "setup: all packages present"
    exit 0
fi
for p in "${missing[@]}"; do
    case "$p" in
        postgresql-13 | postgresql-15 | postgresql-server-dev-13 | postgresql-server-dev-15 | *-from-source) ;;
        postgresql-*) echo "setup: $p is missing and not packaged for Debian 12 here; install it yourself" \
                "(for instance from apt.postgresql.org)" >&2
           exit 1 ;;
    esac
done
if [ "$(id -u)" -ne 0 ]; then
    echo "setup: missing packages: ${missing[*]}; run scripts/setup.sh as root once" >&2
    exit 1
fi

echo "setup: installing ${missing[*]}"
if printf '%s\n' "${missing[@]}" | grep -q -- '-13$'; then
    [ -f "$SOURCE_FILE" ] || add_bullseye_source
fi
# The throwaway clusters are the project's own; no system-wide cluster is wanted.
mkdir -p "$(dirname "$NO_MAIN_CLUSTER")"
[ -f "$NO_MAIN_CLUSTER" ] || echo "create_main_cluster = false" > "$NO_MAIN_CLUSTER"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
# Base packages and servers first, then each server's development files at the
# server's own version (a newer security update of the headers alone would not
# match the server the module runs in).
first=()
from_source=()
for p in "${missing[@]}"; do
    case "$p" in
        postgresql-server-dev-*) ;;
        *-from-source) p=${p%-from-source}; from_source+=("${p#postgresql-}") ;;
        *) first+=("$p") ;;
    esac
done
[ "${#first[@]}" -eq 0 ] || apt-get install -y -qq --no-install-recommends "${first[@]}"
dev=()
for m in "${MAJORS[@]}"; do
    is_source_built "$m" && continue
    server=$(installed_version "postgresql-$m")
    [ "$(installed_version "postgresql-server-dev-$m")" = "$server" ] || dev+=("postgresql-server-dev-$m=$server")
done
[ "${#dev[@]}" -eq 0 ] || apt-get install -y -qq --no-install-recommends --allow-downgrades "${dev[@]}"
for m in "${from_source[@]}"; do bash "$KELVARN_ROOT/scripts/pgsource.sh" "$m"; done
echo "setup: done"

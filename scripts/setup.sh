#!/usr/bin/env bash
# Installs the system packages the project builds and tests with:
# PostgreSQL 13 server and headers (from Debian 11 "bullseye"), cmake, g++, GoogleTest,
# and clang 14 with its runtime libraries (libFuzzer and the sanitizers) for the fuzz targets.
# Does nothing when everything is already present; needs root only when something is missing.
set -euo pipefail

PG_MAJOR=13
PACKAGES=(postgresql-$PG_MAJOR postgresql-server-dev-$PG_MAJOR cmake g++ make libgtest-dev clang-14 libclang-rt-14-dev)
SOURCE_FILE=/etc/apt/sources.list.d/kelvarn-bullseye.sources
PIN_FILE=/etc/apt/preferences.d/kelvarn-bullseye
NO_MAIN_CLUSTER=/etc/postgresql-common/createcluster.d/kelvarn-no-main-cluster.conf

missing_packages() {
    local p
    for p in "${PACKAGES[@]}"; do
        [ "$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null)" = "install ok installed" ] || echo "$p"
    done
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

add_bullseye_source() {
    local uris
    uris=$(debian_uris)
    [ -n "$uris" ] || { echo "setup: no Debian source found in /etc/apt" >&2; exit 1; }
    cat > "$SOURCE_FILE" <<SRC
# Debian 11 for PostgreSQL $PG_MAJOR; pinned low in $PIN_FILE.
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
if [ "$(id -u)" -ne 0 ]; then
    echo "setup: missing packages: ${missing[*]}; run scripts/setup.sh as root once" >&2
    exit 1
fi

echo "setup: installing ${missing[*]}"
[ -f "$SOURCE_FILE" ] || add_bullseye_source
# The throwaway clusters are the project's own; no system-wide cluster is wanted.
mkdir -p "$(dirname "$NO_MAIN_CLUSTER")"
[ -f "$NO_MAIN_CLUSTER" ] || echo "create_main_cluster = false" > "$NO_MAIN_CLUSTER"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
echo "setup: done"

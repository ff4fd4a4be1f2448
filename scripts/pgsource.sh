#!/usr/bin/env bash
# Builds a PostgreSQL major that Debian 12 does not package (18) from Debian's
# own source package, with assertions, into a prefix of the project's own
# (source_prefix in lib.sh). The source package is found through a private apt
# sources list (deb-src of the suite that carries it) kept in a temporary
# directory: the system's sources are never changed. The newest version that
# suite serves is taken; the build is skipped when the prefix already holds a
# working one made by this version of this script.
#
# The server is configured as Debian configures its own for what users see
# (ICU, readline, lz4 compression of stored values), with --enable-cassert
# --enable-debug and with
# -DUSE_VALGRIND, so that memory contexts tell Valgrind what they free (costless
# outside Valgrind); contrib is built and installed too (postgres_fdw, amcheck,
# btree_gist, intarray) and so is PostgreSQL's Valgrind suppressions file.
# Debian's patches are not applied: they adapt paths to
# Debian's multi-version layout, which a self-contained prefix does not use.
#
# Runs as root (it installs the build dependencies). A failed download or build
# leaves no prefix behind: the result is installed into a staging directory and
# moved into place only when it works.
#   pgsource.sh MAJOR
set -euo pipefail
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

major=${1:?usage: pgsource.sh MAJOR}
SOURCE_SUITE=sid
BUILD_DEPENDS=(bison flex gcc make perl pkg-config libreadline-dev zlib1g-dev libicu-dev liblz4-dev
               libssl-dev valgrind dpkg-dev xz-utils bzip2)

prefix=$(source_prefix "$major")
started=$(date +%s)
say() { echo "pgsource: $*"; }
fail() { echo "pgsource: FAILED: $*" >&2; exit 1; }

if source_build_works "$major"; then
    say "PostgreSQL $major already built in $prefix ($("$prefix/bin/postgres" --version))"
    exit 0
fi
[ "$(id -u)" -eq 0 ] || fail "PostgreSQL $major must be built from source into $prefix; run scripts/setup.sh $major as root once"

say "building PostgreSQL $major from Debian's source package (suite $SOURCE_SUITE) into $prefix"
missing=()
for p in "${BUILD_DEPENDS[@]}"; do
    [ "$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null)" = "install ok installed" ] || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ]; then
    say "installing build dependencies from Debian 12: ${missing[*]}"
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null \
        || fail "could not install ${missing[*]}"
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/kelvarn-pgsource.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/lists/partial" "$work/download"
uris=$(debian_uris)
[ -n "$uris" ] || fail "no Debian source found in /etc/apt"
for uri in $uris; do
    echo "deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $uri $SOURCE_SUITE main"
done > "$work/sources.list"
private_apt=(-o Dir::Etc::SourceList="$work/sources.list" -o Dir::Etc::SourceParts=/dev/null
             -o Dir::State::Lists="$work/lists" -o APT::Get::List-Cleanup=0 -o APT::Sandbox::User=root)
say "reading the source index of $SOURCE_SUITE (private sources list)"
apt-get "${private_apt[@]}" -qq update >/dev/null || fail "could not read the $SOURCE_SUITE source index"
(cd "$work/download" && apt-get "${private_apt[@]}" -qq --download-only source "postgresql-$major" >/dev/null) \
    || fail "could not download the source package postgresql-$major from $SOURCE_SUITE"
orig=$(find "$work/download" -maxdepth 1 -name "postgresql-${major}_*.orig.tar.*" | head -1)
[ -n "$orig" ] || fail "the source package postgresql-$major has no upstream tarball"
say "downloaded $(basename "$(find "$work/download" -maxdepth 1 -name '*.dsc' | head -1)")"

mkdir "$work/src"
tar -xf "$orig" -C "$work/src" --strip-components=1 || fail "could not unpack $orig"
cd "$work/src"
say "configuring (--enable-cassert --enable-debug, -DUSE_VALGRIND)"
./configure --prefix="$prefix" --enable-cassert --enable-debug --with-icu --with-readline --with-lz4 \
    CFLAGS="-O2 -ggdb" CPPFLAGS="-DUSE_VALGRIND" > "$work/configure.log" 2>&1 \
    || { tail -30 "$work/configure.log" >&2; fail "configure failed"; }
say "compiling the server and contrib"
jobs=$(nproc)
{ make -j"$jobs" && make -j"$jobs" -C contrib; } > "$work/make.log" 2>&1 \
    || { tail -40 "$work/make.log" >&2; fail "make failed"; }
say "installing"
{ make install DESTDIR="$work/stage" && make -C contrib install DESTDIR="$work/stage"; } > "$work/install.log" 2>&1 \
    || { tail -30 "$work/install.log" >&2; fail "make install failed"; }
cp src/tools/valgrind.supp "$work/stage$prefix/share/valgrind.supp"  # for scripts/valgrind.sh
source_build_recipe > "$work/stage$prefix/.kelvarn-build-complete"

mkdir -p "$(dirname "$prefix")"
rm -rf "$prefix"
mv "$work/stage$prefix" "$prefix"
source_build_works "$major" || { rm -rf "$prefix"; fail "the installed build does not run"; }
say "PostgreSQL $major ready in $prefix ($("$prefix/bin/postgres" --version)) after $(( $(date +%s) - started )) s"

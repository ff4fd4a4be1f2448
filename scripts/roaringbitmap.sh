#!/usr/bin/env bash
# Builds pg_roaringbitmap, the peer bench/int4set.sql measures int4set against,
# with PGXS for one PostgreSQL major and installs it into a throwaway cluster
# that scripts/pgcluster.sh staged (CREATE EXTENSION roaringbitmap then works
# there; the system's PostgreSQL is left alone). Nothing of it belongs to this
# project: its source is taken, in order, from
#   - ROARINGBITMAP_SRC, a directory holding its source tree;
#   - a build kept from an earlier run (build/MAJOR/roaringbitmap), unless --rebuild;
#   - Debian's source package pg-roaringbitmap (suite sid), read through a
#     private apt sources list in a temporary directory, as scripts/pgsource.sh
#     reads PostgreSQL's (the system's sources are never changed).
# The build is kept in build/MAJOR/roaringbitmap and redone when the source,
# the server's version or this script changes. Exits 1, having installed
# nothing, when no source can be had or the build fails; bench.sh then runs
# without it.
#   roaringbitmap.sh [--rebuild] MAJOR ENV_FILE     ENV_FILE: as pgcluster.sh start wrote it
set -euo pipefail
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

rebuild=0
if [ "${1:-}" = "--rebuild" ]; then rebuild=1; shift; fi
[ $# -eq 2 ] || { echo "usage: $0 [--rebuild] MAJOR ENV_FILE" >&2; exit 2; }
major=$1
env_file=$2
check_major "$major"
SOURCE_SUITE=sid
SOURCE_PACKAGE=pg-roaringbitmap

say() { echo "roaringbitmap: $*"; }
fail() { echo "roaringbitmap: $*" >&2; exit 1; }

pg_config="$(major_bindir "$major")/pg_config"
[ -x "$pg_config" ] || fail "no pg_config for PostgreSQL $major"
command -v cc >/dev/null || fail "no C compiler"
[ -f "$("$pg_config" --pgxs)" ] || fail "no PGXS for PostgreSQL $major (postgresql-server-dev-$major)"
[ -f "$env_file" ] || fail "no cluster recorded in $env_file"

keep="$(major_build_dir "$major")/roaringbitmap"
work=$(mktemp -d "${TMPDIR:-/tmp}/kelvarn-roaringbitmap.XXXXXX")
trap 'rm -rf "$work"' EXIT

# The checksum of a source tree and of what it is built with.
recipe_of() {
    {
        (cd "$1" && find . -type f \( -name '*.c' -o -name '*.h' -o -name '*.sql' -o -name '*.control' \
            -o -name Makefile \) -print0 | LC_ALL=C sort -z | xargs -0 sha256sum)
        "$pg_config" --version
        sha256sum < "$KELVARN_ROOT/scripts/roaringbitmap.sh"
    } | sha256sum | cut -d' ' -f1
}

# Downloads and unpacks Debian's source package into $1; fails quietly.
debian_source() {
    local dest=$1 uris uri orig
    uris=$(debian_uris)
    [ -n "$uris" ] || return 1
    mkdir -p "$work/apt/lists/partial" "$work/apt/cache/archives/partial" "$work/apt/download"
    for uri in $uris; do
        echo "deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $uri $SOURCE_SUITE main"
    done > "$work/apt/sources.list"
    local private_apt=(-o Dir::Etc::SourceList="$work/apt/sources.list" -o Dir::Etc::SourceParts=/dev/null
                       -o Dir::State::Lists="$work/apt/lists" -o Dir::Cache="$work/apt/cache"
                       -o APT::Get::List-Cleanup=0 -o APT::Sandbox::User="$(id -un)")
    say "reading the source index of $SOURCE_SUITE (private sources list)"
    apt-get "${private_apt[@]}" -qq update >/dev/null 2>&1 || { say "could not read the $SOURCE_SUITE source index"; return 1; }
    (cd "$work/apt/download" && apt-get "${private_apt[@]}" -qq --download-only source "$SOURCE_PACKAGE" >/dev/null 2>&1) \
        || { say "could not download the source package $SOURCE_PACKAGE from $SOURCE_SUITE"; return 1; }
    orig=$(find "$work/apt/download" -maxdepth 1 -name "${SOURCE_PACKAGE}_*.orig.tar.*" | head -1)
    [ -n "$orig" ] || { say "the source package $SOURCE_PACKAGE has no upstream tarball"; return 1; }
    mkdir -p "$dest"
    tar -xf "$orig" -C "$dest" --strip-components=1 || return 1
    say "using $(basename "$(find "$work/apt/download" -maxdepth 1 -name '*.dsc' | head -1)")"
}

src=
if [ -n "${ROARINGBITMAP_SRC:-}" ]; then
    [ -f "$ROARINGBITMAP_SRC/roaringbitmap.control" ] || fail "ROARINGBITMAP_SRC=$ROARINGBITMAP_SRC holds no roaringbitmap.control"
    src=$ROARINGBITMAP_SRC
    say "using the source in $src"
elif [ "$rebuild" -eq 0 ] && [ -f "$keep/.built" ]; then
    say "using the build kept in $keep"
elif debian_source "$work/debian-src"; then
    src=$work/debian-src
else
    fail "no source: set ROARINGBITMAP_SRC to a pg_roaringbitmap source tree"
fi

if [ -n "$src" ]; then
    recipe=$(recipe_of "$src")
    if [ "$rebuild" -eq 1 ] || [ "$(cat "$keep/.built" 2>/dev/null)" != "$recipe" ]; then
        say "building with PGXS for PostgreSQL $major"
        rm -rf "$keep"
        mkdir -p "$keep"
        cp -a "$src/." "$keep/src"
        # with_llvm=no: no bitcode, whose directory the stage links to the system's.
        { make -C "$keep/src" PG_CONFIG="$pg_config" with_llvm=no -j"$(nproc)" \
              && make -C "$keep/src" PG_CONFIG="$pg_config" with_llvm=no install DESTDIR="$keep/install"; } \
            > "$keep/build.log" 2>&1 || { tail -20 "$keep/build.log" >&2; rm -rf "$keep/install"; fail "build failed ($keep/build.log)"; }
        echo "$recipe" > "$keep/.built"
    fi
fi

# Into the stage: the server finds its lib and share directories beside its binary.
# shellcheck disable=SC1090
. "$env_file"
pkglibdir=$("$pg_config" --pkglibdir)
extdir="$("$pg_config" --sharedir)/extension"
for dir in "$STAGE$pkglibdir" "$STAGE$extdir"; do
    if [ ! -d "$dir" ] || [ -L "$dir" ]; then fail "$dir is not a directory of the stage"; fi
done
rm -f "$STAGE$pkglibdir/roaringbitmap.so" "$STAGE$extdir"/roaringbitmap*
install -m 755 "$keep/install$pkglibdir"/roaringbitmap.so "$STAGE$pkglibdir/"
install -m 644 "$keep/install$extdir"/roaringbitmap* "$STAGE$extdir/"
say "installed into the cluster staged in $STAGE ($(sed -n "s/^default_version = //p" "$keep/install$extdir/roaringbitmap.control"))"

#!/usr/bin/env bash
# Checks that the module's magic block names the server major it was built for:
# the cluster of this build loads its own module, and refuses with "version
# mismatch" every module built for another major in a sibling build directory
# (build/13 beside build/15, as scripts/build.sh lays them out). An older server
# may refuse a newer major's module even before its magic block is read, when
# the module calls server functions the older one lacks (the multirange
# conversions of 14 and later): that refusal counts too. Exits 77 (skipped) when
# no other major has been built.
#   check_magic.sh ENV_FILE PG_BINDIR MAJOR BUILD_DIR
set -euo pipefail
env_file=$1 pg_bindir=$2 major=$3 build_dir=$4
# shellcheck disable=SC1090
. "$env_file"
export PGHOST PGPORT PGUSER
module_name=libKelvarnPgRangeOperators4_0

load() { "$pg_bindir/psql" -X -q -d postgres -v ON_ERROR_STOP=1 -c "LOAD '$1'" 2>&1; }

load "\$libdir/$module_name" >/dev/null || { echo "PostgreSQL $major refuses its own module"; exit 1; }
checked=0
fail=0
for cache in "$(dirname "$build_dir")"/*/CMakeCache.txt; do
    other_dir=$(dirname "$cache")
    other=$(sed -n 's/^PG_VERSION_MAJOR:INTERNAL=//p' "$cache")
    module="$other_dir/$module_name.so"
    [ -n "$other" ] && [ "$other" != "$major" ] && [ -f "$module" ] || continue
    checked=$((checked + 1))
    if out=$(load "$module"); then
        echo "PostgreSQL $major loaded the module built for $other"
        fail=1
    elif grep -qF "incompatible library \"$module\": version mismatch" <<<"$out" \
            && grep -qF "Server is version $major, library is version $other." <<<"$out"; then
        echo "PostgreSQL $major refuses the module built for $other"
    elif [ "$major" -lt "$other" ] && grep -qF "could not load library \"$module\"" <<<"$out" \
            && grep -qF "undefined symbol" <<<"$out"; then
        echo "PostgreSQL $major cannot link the module built for $other"
    else
        echo "PostgreSQL $major, module built for $other: unexpected answer: $out"
        fail=1
    fi
done
if [ "$checked" -eq 0 ]; then
    echo "no module of another major built beside $build_dir: skipped"
    exit 77
fi
exit $fail

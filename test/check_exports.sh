#!/usr/bin/env bash
# Checks the module's dynamic symbol table: the server's entry points, one
# version-1 record and function per C function named in the install and
# upgrade scripts, the version accessors, and nothing else of the module's own.
#   check_exports.sh MODULE.so SCRIPT.sql...
set -euo pipefail
module=$1
shift
exports=$(nm -D --defined-only "$module" | awk '{print $3}' | sort -u)
fail=0
expect() { grep -qx -- "$1" <<<"$exports" || { echo "missing export: $1"; fail=1; }; }

expect Pg_magic_func
expect _PG_init
expect _PG_fini
# A function is linked by its own name (CREATE FUNCTION qn_f ... AS 'MODULE_PATHNAME')
# or by the symbol it names (AS 'MODULE_PATHNAME', 'qn_f'), on the line after it.
linked() { grep -oE "^$1AS 'MODULE_PATHNAME', 'qn_[a-z0-9_A-Z]+'" | grep -oE "qn_[a-z0-9_A-Z]+" || true; }
mapfile -t functions < <(cat "$@" | { grep -oE "^CREATE (OR REPLACE )?FUNCTION qn_[a-z0-9_A-Z]+" | awk '{print $NF}'
                                      cat "$@" | linked ' {0,4}'; } | sort -u)
[ "${#functions[@]}" -gt 0 ] || { echo "no functions found in $*"; exit 1; }
for f in "${functions[@]}"; do
    expect "$f"
    expect "pg_finfo_$f"
done
# Functions declared indented, inside a DO block that tests server_version_num,
# exist only on the servers the block names, and the module has them exactly
# when it is built for those: all of a script's such functions or none.
mapfile -t versioned < <(cat "$@" | { grep -oE "^[[:space:]]+CREATE (OR REPLACE )?FUNCTION qn_[a-z0-9_A-Z]+" | awk '{print $NF}'
                                      cat "$@" | linked ' {5,}'; } | sort -u)
present=0
for f in "${versioned[@]}"; do
    grep -qx -- "$f" <<<"$exports" && grep -qx -- "pg_finfo_$f" <<<"$exports" && present=$((present + 1))
done
if [ "$present" -ne 0 ] && [ "$present" -ne "${#versioned[@]}" ]; then
    echo "only $present of the ${#versioned[@]} version-dependent functions exported: ${versioned[*]}"
    fail=1
fi
functions+=("${versioned[@]}")
for accessor in GetMajor GetMinor GetRelease GetRevision GetYear GetMonth GetDescStringMajorMinor \
                GetDescStringMajorMinorRelease GetDescStringMajorMinorReleaseRevision \
                GetDescStringMajorMinorReleaseRevisionDate IsBeta IsDebug IsDev; do
    grep -q "^_ZN26KelvarnPgRangeOperators4_07Version${#accessor}${accessor}E" <<<"$exports" \
        || { echo "missing export: KelvarnPgRangeOperators4_0::Version::$accessor"; fail=1; }
done
# Anything else exported by the module is a leak of internal code.
unexpected=$(grep -vE '^(Pg_magic_func|_PG_init|_PG_fini|(pg_finfo_)?qn_[A-Za-z0-9_]+|_ZN26KelvarnPgRangeOperators4_07Version.*|_init|_fini|_edata|_end|__bss_start)$' <<<"$exports" || true)
if [ -n "$unexpected" ]; then echo "unexpected exports:"; echo "$unexpected"; fail=1; fi
# Every exported SQL-callable function is declared in the install script.
declared=$(printf '%s\n' "${functions[@]}")
for f in $(grep -E '^qn_' <<<"$exports"); do
    grep -qx "$f" <<<"$declared" || { echo "exported but not declared: $f"; fail=1; }
done
[ $fail -eq 0 ] && echo "exports ok: $((${#functions[@]} - ${#versioned[@]} + present)) SQL functions"
exit $fail

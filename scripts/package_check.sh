#!/usr/bin/env bash
# The Debian packages as a user gets them: builds them (scripts/package.sh,
# lintian included), installs them into the machine's PostgreSQL 13 and 15 with
# dpkg -i, runs CREATE EXTENSION and the tour on each installed major in a
# throwaway cluster of the installed server (pg_virtualenv), runs the packages'
# autopkgtest (debian/tests/installcheck: the SQL suite against the installed
# files), and removes the packages again, whatever happened. Root only; used by
# scripts/test.sh --packages (CI).
#   package_check.sh
set -euo pipefail
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
[ "$(id -u)" -eq 0 ] || { echo "package_check.sh installs packages: run it as root" >&2; exit 1; }
majors=(13 15)
packages=()
for m in "${majors[@]}"; do packages+=("postgresql-$m-kelvarn-range-operators"); done
debs=$(mktemp -d "${TMPDIR:-/tmp}/kelvarn-debs.XXXXXX")
trap 'dpkg -r "${packages[@]}" >/dev/null 2>&1 || true; rm -rf "$debs"' EXIT
started=$(date +%s)
bash "$KELVARN_ROOT/scripts/package.sh" "$debs" "${majors[@]}"
echo "== packages built in $(( $(date +%s) - started )) s; installing"
for p in "${packages[@]}"; do
    [ "$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null)" != "install ok installed" ] \
        || { echo "$p is installed already: not touching it" >&2; packages=(); exit 1; }
done
files=()
for p in "${packages[@]}"; do files+=("$(ls "$debs/${p}"_*.deb)"); done
dpkg -i "${files[@]}" > "$debs/dpkg.log" 2>&1 || { cat "$debs/dpkg.log"; exit 1; }
cd "$KELVARN_ROOT"
export LC_ALL=C.UTF-8
version=$(sed -n "s/^default_version = '\(.*\)'/\1/p" sql/kelvarn_range_operators.control)
for m in "${majors[@]}"; do
    echo "== CREATE EXTENSION and the tour on the installed PostgreSQL $m"
    # The tour shows one refusal on purpose, so it runs on past errors; the
    # extension's version row tells that CREATE EXTENSION found the installed files.
    pg_virtualenv -v "$m" psql -X -q -f scripts/tour.sql > "$debs/tour-$m.log" 2>&1 || true
    grep -A2 extversion "$debs/tour-$m.log" | grep -qF " $version" || { cat "$debs/tour-$m.log"; exit 1; }
    echo "tour ran: $(grep -c . "$debs/tour-$m.log") lines, $(grep -c ERROR "$debs/tour-$m.log") refusal(s)"
done
echo "== autopkgtest installcheck"
sh debian/tests/installcheck

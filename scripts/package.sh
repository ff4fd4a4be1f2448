#!/usr/bin/env bash
# Builds the Debian packages of the extension, one per PostgreSQL major
# (postgresql-13-kelvarn-range-operators, postgresql-15-...), the way Debian
# builds PostgreSQL extensions (debian/: pg_buildext, debian/pgversions), from a
# clean copy of the checkout; checks them with lintian and writes the .deb files
# into OUTDIR. Installs what the build needs when run as root.
#   package.sh OUTDIR [MAJOR...]     majors default to 13 and 15
set -euo pipefail
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

out=${1:?usage: package.sh OUTDIR [MAJOR...]}
shift
majors=("$@")
[ "${#majors[@]}" -gt 0 ] || majors=(13 15)
for m in "${majors[@]}"; do
    is_source_built "$m" && { echo "package.sh: PostgreSQL $m has no Debian packages to build against" >&2; exit 1; }
done
bash "$KELVARN_ROOT/scripts/setup.sh" "${majors[@]}" >/dev/null
missing=()
for p in debhelper dpkg-dev fakeroot lintian postgresql-server-dev-all; do
    [ "$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null)" = "install ok installed" ] || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ]; then
    [ "$(id -u)" -eq 0 ] || { echo "package.sh: missing ${missing[*]}; run it as root once" >&2; exit 1; }
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

mkdir -p "$out"
out=$(cd "$out" && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/kelvarn-package.XXXXXX")
trap 'rm -rf "$work"' EXIT
# A clean copy: the files git knows of (committed or new, not ignored) when this is
# a git checkout, else the files
# as they are without build trees.
src="$work/kelvarn-range-operators"
mkdir "$src"
if git -C "$KELVARN_ROOT" rev-parse --git-dir >/dev/null 2>&1; then
    git -C "$KELVARN_ROOT" ls-files -z --cached --others --exclude-standard | (cd "$KELVARN_ROOT" && xargs -0 cp --parents -t "$src")
else
    (cd "$KELVARN_ROOT" && tar --exclude=./build --exclude=./.git -cf - .) | tar -xf - -C "$src"
fi
export PG_SUPPORTED_VERSIONS="${majors[*]}"
cd "$src"
echo "package.sh: building for PostgreSQL ${majors[*]}"
pg_buildext updatecontrol >/dev/null
if ! dpkg-buildpackage -us -uc -b > "$work/build.log" 2>&1; then
    tail -40 "$work/build.log"
    echo "package.sh: dpkg-buildpackage failed" >&2
    exit 1
fi
cd "$work"
# Every tag, pedantic ones included, fails the build unless an override in
# debian/lintian-overrides.in justifies it.
if ! lintian --fail-on error,warning,info,pedantic --pedantic --display-info ./*.changes > lintian.log 2>&1; then
    grep -v 'running with root privileges is not recommended' lintian.log
    echo "package.sh: lintian reports tags without a justification" >&2
    exit 1
fi
cp ./*.deb "$out"/
for deb in ./*.deb; do
    printf '%s %s kB\n' "$(basename "$deb")" "$(( $(stat -c %s "$deb") / 1024 ))"
done

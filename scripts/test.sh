#!/usr/bin/env bash
# Sets everything up and runs every test on every installed supported PostgreSQL
# major (or on the majors named): the unit tests (once, with the first major),
# and for each major the module's export check, the magic-block check, the SQL
# regression tests in a throwaway cluster of that major, the soak and, from 14
# on, pg_upgrade from 13. With --packages (root; CI), the Debian packages are
# then built, installed, exercised and removed (scripts/package_check.sh).
# Ends with one line "N passed, N failed" over all majors; exits non-zero on any
# failure.
#   test.sh [--packages] [MAJOR...]
set -uo pipefail
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

packages=no
if [ "${1:-}" = "--packages" ]; then
    packages=yes
    shift
fi

bash "$KELVARN_ROOT/scripts/setup.sh" "$@" || exit 1
if [ $# -gt 0 ]; then
    majors=("$@")
    for major in "${majors[@]}"; do check_major "$major" || exit 1; done
else
    mapfile -t majors < <(installed_majors)
fi
if [ "${#majors[@]}" -eq 0 ]; then
    echo "no supported PostgreSQL major is installed"
    echo "0 passed, 1 failed"
    exit 1
fi

# Every major is built before any is tested: the magic-block check of each
# loads the modules built for the others.
unit_tests=()
for major in "${majors[@]}"; do
    echo "== building for PostgreSQL $major"
    if ! bash "$KELVARN_ROOT/scripts/build.sh" --major "$major" "${unit_tests[@]}"; then
        echo "build for PostgreSQL $major failed"
        echo "0 passed, 1 failed"
        exit 1
    fi
    unit_tests=(--without-unit-tests)
done

passed=0
failed=0
report=()
for major in "${majors[@]}"; do
    build=$(major_build_dir "$major")
    echo "== testing on PostgreSQL $major"
    (cd "$build" && ctest --output-on-failure -j2 --timeout 900) 2>&1 | tee "$build/ctest.log"
    status=${PIPESTATUS[0]}
    summary=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$build/ctest.log" | tail -1)
    if [ -z "$summary" ]; then
        major_failed=1
        major_total=1
    else
        major_failed=$(sed -E 's/.* ([0-9]+) tests? failed.*/\1/' <<<"$summary")
        major_total=$(sed -E 's/.*out of ([0-9]+).*/\1/' <<<"$summary")
        [ "$status" -eq 0 ] || [ "$major_failed" -gt 0 ] || major_failed=1
    fi
    passed=$((passed + major_total - major_failed))
    failed=$((failed + major_failed))
    report+=("PostgreSQL $major: $((major_total - major_failed)) passed, $major_failed failed")
done
if [ "$packages" = yes ]; then
    echo "== Debian packages"
    if bash "$KELVARN_ROOT/scripts/package_check.sh"; then
        passed=$((passed + 1))
        report+=("Debian packages: 1 passed, 0 failed")
    else
        failed=$((failed + 1))
        report+=("Debian packages: 0 passed, 1 failed")
    fi
fi
printf '%s\n' "${report[@]}"
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]

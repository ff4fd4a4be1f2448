#!/usr/bin/env bash
# Sets everything up and runs every test: the unit tests, the module's export
# check, and the SQL regression tests in a throwaway PostgreSQL 13 cluster.
# Ends with the line "N passed, N failed"; exits non-zero on any failure.
set -uo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD_DIR:-$root/build}

bash "$root/scripts/setup.sh" || exit 1
if ! BUILD_DIR="$build" bash "$root/scripts/build.sh"; then
    echo "build failed"
    echo "0 passed, 1 failed"
    exit 1
fi

cd "$build" || exit 1
ctest --output-on-failure -j2 --timeout 900 2>&1 | tee "$build/ctest.log"
status=${PIPESTATUS[0]}
summary=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$build/ctest.log" | tail -1)
if [ -z "$summary" ]; then
    echo "0 passed, 1 failed"
    exit 1
fi
failed=$(sed -E 's/.* ([0-9]+) tests? failed.*/\1/' <<<"$summary")
total=$(sed -E 's/.*out of ([0-9]+).*/\1/' <<<"$summary")
echo "$((total - failed)) passed, $failed failed"
[ "$status" -eq 0 ] && [ "$failed" -eq 0 ]

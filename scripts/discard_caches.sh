#!/usr/bin/env bash
# Runs the SQL regression tests (all of test/sql, or the ones named) against a
# throwaway server of PostgreSQL 18, built with assertions, with
# debug_discard_caches = 1: every catalog and relation cache entry is thrown
# away at every opportunity, so a pointer the extension keeps into one across
# calls, or a lookup it assumes stays valid, fails at once. Very slow (each
# test takes minutes) and not part of the test command.
# Logs are kept in the major's build directory, discard_caches/.
#   discard_caches.sh [TEST...]
set -euo pipefail
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

take_major_option --major 18
out=$(major_build_dir "$major")/discard_caches
rm -rf "$out"
mkdir -p "$out"
start_throwaway_cluster "$major" discard-caches
# The tests' sessions discard their caches; the database setup before each does not.
export KELVARN_TEST_PGOPTIONS="-c debug_discard_caches=1"
started=$(date +%s)
run_sql_tests "$out" "$@"
echo "debug_discard_caches = 1 on PostgreSQL $major: $CHECKED_FAILED test(s) failed in $(($(date +%s) - started)) s; logs in $out"
[ "$CHECKED_FAILED" -eq 0 ]

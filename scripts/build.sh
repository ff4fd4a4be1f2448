#!/usr/bin/env bash
# Configures and builds the project for one PostgreSQL major, in
# ${BUILD_DIR:-build}/MAJOR: the module for that server, and the tests.
#   build.sh [--major N] [--without-unit-tests] [cmake --build arguments...]
# --major defaults to 13; --without-unit-tests leaves out the server-free unit
# tests (the same for every major, so test.sh builds them for one major only).
set -euo pipefail
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

major=$DEFAULT_MAJOR
unit_tests=ON
while [ $# -gt 0 ]; do
    case "$1" in
        --major) major=${2:?--major needs a version}; shift 2 ;;
        --without-unit-tests) unit_tests=OFF; shift ;;
        *) break ;;
    esac
done
check_major "$major"
build=$(major_build_dir "$major")
cmake -S "$KELVARN_ROOT" -B "$build" -DPG_MAJOR="$major" -DPG_CONFIG="$(major_bindir "$major")/pg_config" -DBUILD_TESTING=ON -DQN_UNIT_TESTS="$unit_tests" >/dev/null
cmake --build "$build" -j"$(nproc)" "$@"

#!/usr/bin/env bash
# Runs the libFuzzer targets of test/fuzz, each for SECONDS (default 5), and
# prints the executions of each and in total. Builds them first into
# build/13/fuzz (the fuzz targets do not depend on the major). Each target starts from its seeds in
# test/fuzz/seeds.txt plus what earlier runs found (build/13/fuzz/work/TARGET),
# so a longer run picks up where the last one ended. A crash, sanitizer report,
# leak or timeout is a finding: the input is saved as
# build/13/fuzz/work/TARGET/crash-* (or leak-*, timeout-*) and the script fails;
# replay it with build/13/fuzz/TARGET FILE.
#   fuzz.sh [SECONDS] [TARGET...]
#   fuzz.sh --bin-dir DIR SECONDS TARGET...   runs targets already built in DIR (the tests)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib.sh
. "$root/scripts/lib.sh"

bin_dir=
if [ "${1:-}" = "--bin-dir" ]; then
    bin_dir=$2
    shift 2
fi
seconds=${1:-5}
[ $# -eq 0 ] || shift
if [ -z "$bin_dir" ]; then
    bash "$root/scripts/setup.sh" "$DEFAULT_MAJOR" >/dev/null
    bash "$root/scripts/build.sh" --major "$DEFAULT_MAJOR" --target qn_fuzz >/dev/null
    bin_dir=$(major_build_dir "$DEFAULT_MAJOR")/fuzz
fi
if [ $# -eq 0 ]; then
    for source in "$root"/test/fuzz/fuzz_*.cpp; do set -- "$@" "$(basename "$source" .cpp)"; done
fi

total=0
failed=0
for target in "$@"; do
    work=$bin_dir/work/$target
    rm -rf "$work/seeds"
    mkdir -p "$work/corpus" "$work/seeds"
    awk -v target="$target" '$1 == target { print $2, $3 }' "$root/test/fuzz/seeds.txt" |
        while read -r name hex; do perl -e 'print pack "H*", $ARGV[0]' "$hex" >"$work/seeds/$name"; done
    log=$work/last-run.log
    status=ok
    if ! "$bin_dir/$target" -max_total_time="$seconds" -print_final_stats=1 -timeout=10 -rss_limit_mb=2048 \
            -max_len=8192 -artifact_prefix="$work/" "$work/corpus" "$work/seeds" >"$log" 2>&1; then
        status=FAILED
        failed=$((failed + 1))
        grep -v -E '^#[0-9]+|^INFO:|^stat::' "$log" | tail -60
    fi
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    executions=${executions:-0}
    total=$((total + executions))
    printf '%-26s %12d executions  %s\n' "$target" "$executions" "$status"
done
printf '%-26s %12d executions  %d finding(s)\n' total "$total" "$failed"
[ "$failed" -eq 0 ]

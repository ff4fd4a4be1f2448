#!/usr/bin/env bash
# Runs one SQL regression test with pg_regress against the cluster that
# pgcluster.sh started, in a database of its own, with the extension created.
# KELVARN_TEST_PGOPTIONS, when set, is the test sessions' PGOPTIONS (not the
# setup's): scripts/discard_caches.sh passes its setting that way.
#   pgregress.sh ENV_FILE PG_REGRESS PG_BINDIR INPUT_DIR OUTPUT_DIR TEST
set -euo pipefail
env_file=$1 pg_regress=$2 pg_bindir=$3 input_dir=$4 output_dir=$5 test=$6
# shellcheck disable=SC1090
. "$env_file"
export PGHOST PGPORT PGUSER
mkdir -p "$output_dir/$test"
db="regress_$test"
"$pg_bindir/psql" -X -q -v ON_ERROR_STOP=1 -d postgres \
    -c "DROP DATABASE IF EXISTS $db" -c "CREATE DATABASE $db TEMPLATE template0"
"$pg_bindir/psql" -X -q -v ON_ERROR_STOP=1 -d "$db" -c "CREATE EXTENSION kelvarn_range_operators"
cd "$input_dir"  # test files include helpers by paths relative to the test directory
if PGOPTIONS="${KELVARN_TEST_PGOPTIONS:-${PGOPTIONS:-}}" "$pg_regress" --use-existing --bindir="$pg_bindir" --host="$PGHOST" --port="$PGPORT" --user="$PGUSER" \
        --inputdir="$input_dir" --outputdir="$output_dir/$test" --dbname="$db" "$test"; then
    exit 0
fi
cat "$output_dir/$test/regression.diffs" 2>/dev/null | head -200
exit 1

-- int4set_agg over 1,000,000 rows of random integers: in one group, and in
-- 100,000 groups of 10 rows; then the range expression aggregate.
\timing off
CREATE TABLE random_ints AS
SELECT g / 10 AS grp, (hashint4(g) % 1000000000) AS v, (hashint4(g) & 2097151) AS dense
FROM generate_series(0, 999999) g ORDER BY random();
ANALYZE random_ints;
CREATE FUNCTION peak_kb() RETURNS int8 LANGUAGE sql AS $$
    SELECT (regexp_match(pg_read_file('/proc/' || pg_backend_pid() || '/status'), 'VmHWM:\s+(\d+) kB'))[1]::int8
$$;
\set serial 'SET max_parallel_workers_per_gather = 0;'
\set one_group 'SELECT cardinality(int4set_agg(v, ''r'')) / 2 AS ranges FROM random_ints;'
\set groups 'SELECT count(*) AS groups, sum(cardinality(r)) / 2 AS ranges FROM (SELECT grp, int4set_agg(v, ''r'') AS r FROM random_ints GROUP BY grp) g;'

\echo '-- one group, values spread over +-1e9 (about 1,000,000 ranges)'
\set settings :serial
\set query :one_group
\ir include/peak_memory.psql

\echo '-- one group, values within [0, 2097151] (runs merge)'
\set query 'SELECT cardinality(int4set_agg(dense, ''r'')) / 2 AS ranges FROM random_ints;'
\ir include/peak_memory.psql

\echo '-- one group, rows in ascending order'
\set query 'SELECT cardinality(int4set_agg(v, ''r'' ORDER BY v)) / 2 AS ranges FROM random_ints;'
\ir include/peak_memory.psql

\echo '-- one group, two parallel workers'
\set settings 'SET parallel_setup_cost = 0; SET parallel_tuple_cost = 0; SET max_parallel_workers_per_gather = 2;'
\set query :one_group
\ir include/peak_memory.psql

\echo '-- 100,000 groups of 10 rows, sorted grouping'
\set settings :serial 'SET enable_hashagg = off;'
\set query :groups
\ir include/peak_memory.psql

\echo '-- 100,000 groups of 10 rows, hashed grouping (work_mem 4MB: spills)'
\set settings :serial 'SET enable_sort = off;'
\ir include/peak_memory.psql

\echo '-- for scale: array_agg over the same 100,000 groups, sorted grouping'
\set settings :serial 'SET enable_hashagg = off;'
\set query 'SELECT count(*) AS groups FROM (SELECT grp, array_agg(v) AS r FROM random_ints GROUP BY grp) g;'
\ir include/peak_memory.psql

\echo '-- range expression: 1,000 operands of 1,000 ranges, alternating union and exclusion'
CREATE TABLE operands AS
SELECT i, ARRAY(SELECT x FROM generate_series(i, i + 3999 * 1000, 4000) s, LATERAL (VALUES (s), (s + 2)) p(x)) AS a
FROM generate_series(1, 1000) i;
\set settings ''
\set query 'SELECT cardinality(int4range_op_agg(CASE WHEN i % 2 = 0 THEN 3 ELSE 1 END, a ORDER BY i)) / 2 AS ranges FROM operands;'
\ir include/peak_memory.psql
DROP TABLE random_ints, operands;
DROP FUNCTION peak_kb();

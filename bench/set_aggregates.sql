-- int4set_agg over 1,000,000 rows of random integers: against array_agg(DISTINCT)
-- and array_agg on the same rows; then in one group and in 100,000 groups of 10
-- rows with peak memory; then the range expression aggregate. Parallel plans
-- over 10,000,000 rows: bench/parallel_sets.sql.
\timing off
SET jit = off;
CREATE TABLE random_ints AS
SELECT g / 10 AS grp, (hashint4(g) % 1000000000) AS v, (hashint4(g) % 1000000000) + (hashint4(-g) & 15) AS hi,
       (hashint4(g) & 2097151) AS dense
FROM generate_series(0, 999999) g ORDER BY random();
-- The same rows stored in ascending order of v.
CREATE TABLE sorted_ints AS SELECT * FROM random_ints ORDER BY v;
VACUUM ANALYZE random_ints;
VACUUM ANALYZE sorted_ints;
CREATE FUNCTION peak_kb() RETURNS int8 LANGUAGE sql AS $$
    SELECT (regexp_match(pg_read_file('/proc/' || pg_backend_pid() || '/status'), 'VmHWM:\s+(\d+) kB'))[1]::int8
$$;

\ir include/median_ms.psql

\echo '-- one group of 1,000,000 rows, 7 runs each: ours against array_agg(DISTINCT v ORDER BY v) (DISTINCT'
\echo '-- aggregates run serially) and array_agg(v) as the floor; the bounds form adds [v, v + 0..15] per row.'
\echo '-- random_ints holds the rows in random order, sorted_ints in ascending order of v. count(v), serial'
\echo '-- and parallel, shows what starting two workers and gathering costs on this machine.'
SELECT input, statement, workers, m.median AS median_ms, m.fastest || '-' || m.slowest AS range_ms, m.cpu AS cpu_ms,
       m.launched, round(m.median / first_value(m.median) OVER w, 2) AS vs_distinct,
       round(m.cpu / first_value(m.cpu) OVER w, 2) AS cpu_vs_distinct
FROM (VALUES (1, 'array_agg(DISTINCT v ORDER BY v)', 0), (2, 'array_agg(v)', 0),
             (3, 'int4set_agg(v, ''r'')', 0), (4, 'int4set_agg(v, hi, ''r'')', 0),
             (5, 'int4set_agg(v, ''r'')', 2), (6, 'int4set_agg(v, hi, ''r'')', 2),
             (7, 'count(v)', 0), (8, 'count(v)', 2)) s(n, statement, workers),
     (VALUES ('random_ints'), ('sorted_ints')) i(input),
     LATERAL pg_temp.median_ms(format('SELECT %s FROM %I', statement, input), workers, 7) m
WINDOW w AS (PARTITION BY input ORDER BY n)
ORDER BY input, n;

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
\ir include/median_ms.psql
DROP TABLE random_ints, sorted_ints, operands;
DROP FUNCTION peak_kb();

-- int4set_agg_optimized against int4set_agg over the same 10,000,000 random values
-- in [0, 1000000), with two parallel workers and serially. Each runs twice; the
-- results are compared.
\timing off
SET jit = off;
SELECT setseed(0.3);
CREATE TABLE ten_million AS SELECT (random() * 999999)::int AS v FROM generate_series(1, 10000000);
VACUUM ANALYZE ten_million;
SELECT int4set_agg_optimized(v, 999999, 'r') = int4set_agg(v, 'r') AS same_result FROM ten_million;
\timing on
SELECT cardinality(int4set_agg_optimized(v, 999999, 'r')) FROM ten_million;
SELECT cardinality(int4set_agg_optimized(v, 999999, 'r')) FROM ten_million;
SELECT cardinality(int4set_agg(v, 'r')) FROM ten_million;
SELECT cardinality(int4set_agg(v, 'r')) FROM ten_million;
SET max_parallel_workers_per_gather = 0;
SELECT cardinality(int4set_agg_optimized(v, 999999, 'r')) FROM ten_million;
SELECT cardinality(int4set_agg_optimized(v, 999999, 'r')) FROM ten_million;
SELECT cardinality(int4set_agg(v, 'r')) FROM ten_million;
SELECT cardinality(int4set_agg(v, 'r')) FROM ten_million;
SELECT count(v) FROM ten_million;
\timing off
DROP TABLE ten_million;

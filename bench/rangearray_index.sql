-- Finding rows by member: which rows' range arrays hold a value, or meet a set
-- of 10 ranges. The same sets as int4[] range arrays indexed by
-- qn_gin_rangearray_ops, and as int4multirange indexed by core's GiST (one
-- bounding range a key), against a sequential scan. Two shapes over [0, 16M):
-- 100,000 rows of 20 ranges (widths 1,000 to 3,000, one in each 800,000-wide
-- stripe) and 1,000,000 rows of 4 short ranges (widths 1 to 200, one in each
-- 4M-wide stripe). Build time, index size, and the median time of one probe
-- (batches of probes, 5 runs). Needs PostgreSQL 14 or later (int4multirange).
\timing off
SET jit = off;
SET max_parallel_workers_per_gather = 0;
SET max_parallel_maintenance_workers = 0;
SET maintenance_work_mem = '256MB';
SELECT setseed(0.25);
CREATE TABLE wide AS
SELECT i AS id, r, r::int4multirange AS mr
FROM (SELECT i, (SELECT array_agg(b ORDER BY k, e)
                 FROM (SELECT k, (k * 800000 + random() * 797000)::int AS lo, (1000 + random() * 2000)::int AS w
                       FROM generate_series(0, 19) k OFFSET 0) s,
                      LATERAL (VALUES (0, lo), (1, lo + w)) v(e, b)
                 WHERE i > 0) AS r
      FROM generate_series(1, 100000) i) s;
CREATE TABLE narrow AS
SELECT i AS id, r, r::int4multirange AS mr
FROM (SELECT i, ARRAY[l0, l0 + w0, l1, l1 + w1, l2, l2 + w2, l3, l3 + w3] AS r
      FROM (SELECT i, (random() * 3999800)::int AS l0, (4000000 + random() * 3999800)::int AS l1,
                   (8000000 + random() * 3999800)::int AS l2, (12000000 + random() * 3999800)::int AS l3,
                   (1 + random() * 199)::int AS w0, (1 + random() * 199)::int AS w1,
                   (1 + random() * 199)::int AS w2, (1 + random() * 199)::int AS w3
            FROM generate_series(1, 1000000) i) s) s;
VACUUM ANALYZE wide;
VACUUM ANALYZE narrow;
-- Probes: 100 values; 100 sets of 10 ranges of width 2,000, one in each 1.6M-wide stripe.
CREATE TABLE vprobe AS SELECT n, (random() * 16000000)::int AS v FROM generate_series(1, 100) n;
CREATE TABLE sprobe AS
SELECT n, r, r::int4multirange AS mr
FROM (SELECT n, (SELECT array_agg(b ORDER BY k, e)
                 FROM (SELECT k, (k * 1600000 + random() * 1598000)::int AS lo FROM generate_series(0, 9) k OFFSET 0) s,
                      LATERAL (VALUES (0, lo), (1, lo + 2000)) v(e, b) WHERE n > 0) AS r
      FROM generate_series(1, 100) n) s;
SELECT 'wide' AS shape, avg(c) AS rows_per_value_probe, avg(c) / 1000 AS percent_of_rows
FROM (SELECT (SELECT count(*) FROM wide WHERE v <@ r) AS c FROM vprobe WHERE n <= 20) s
UNION ALL
SELECT 'narrow', avg(c), avg(c) / 10000 FROM (SELECT (SELECT count(*) FROM narrow WHERE v <@ r) AS c FROM vprobe WHERE n <= 20) s;

\echo build time (ms) and size
\timing on
CREATE INDEX wide_gin ON wide USING gin (r qn_gin_rangearray_ops);
CREATE INDEX wide_mr ON wide USING gist (mr);
CREATE INDEX narrow_gin ON narrow USING gin (r qn_gin_rangearray_ops);
CREATE INDEX narrow_mr ON narrow USING gist (mr);
\timing off
SELECT relname, pg_size_pretty(pg_relation_size(oid)) AS size FROM pg_class
WHERE relname IN ('wide', 'wide_gin', 'wide_mr', 'narrow', 'narrow_gin', 'narrow_mr') ORDER BY relname;

\ir include/median_ms.psql
-- Each query runs `probes` probes; the table shows the median time of one.
-- Sequential scans run 10 probes, the indexes 100.
CREATE TEMP TABLE runs(n, shape, probe, method, probes, query) AS VALUES
    (1, 'wide', 'value', 'seq scan', 10, 'SELECT sum((SELECT count(*) FROM wide WHERE v <@ r)) FROM vprobe WHERE n <= 10'),
    (2, 'wide', 'value', 'qn_gin_rangearray_ops', 100, 'SELECT sum((SELECT count(*) FROM wide WHERE v <@ r)) FROM vprobe'),
    (3, 'wide', 'value', 'int4multirange GiST', 100, 'SELECT sum((SELECT count(*) FROM wide WHERE mr @> v)) FROM vprobe'),
    (4, 'wide', '10 ranges', 'seq scan', 10, 'SELECT sum((SELECT count(*) FROM wide w WHERE w.r ~&& p.r)) FROM sprobe p WHERE n <= 10'),
    (5, 'wide', '10 ranges', 'qn_gin_rangearray_ops', 100, 'SELECT sum((SELECT count(*) FROM wide w WHERE w.r ~&& p.r)) FROM sprobe p'),
    (6, 'wide', '10 ranges', 'int4multirange GiST', 100, 'SELECT sum((SELECT count(*) FROM wide w WHERE w.mr && p.mr)) FROM sprobe p'),
    (7, 'narrow', 'value', 'seq scan', 10, 'SELECT sum((SELECT count(*) FROM narrow WHERE v <@ r)) FROM vprobe WHERE n <= 10'),
    (8, 'narrow', 'value', 'qn_gin_rangearray_ops', 100, 'SELECT sum((SELECT count(*) FROM narrow WHERE v <@ r)) FROM vprobe'),
    (9, 'narrow', 'value', 'int4multirange GiST', 100, 'SELECT sum((SELECT count(*) FROM narrow WHERE mr @> v)) FROM vprobe'),
    (10, 'narrow', '10 ranges', 'seq scan', 10, 'SELECT sum((SELECT count(*) FROM narrow w WHERE w.r ~&& p.r)) FROM sprobe p WHERE n <= 10'),
    (11, 'narrow', '10 ranges', 'qn_gin_rangearray_ops', 100, 'SELECT sum((SELECT count(*) FROM narrow w WHERE w.r ~&& p.r)) FROM sprobe p'),
    (12, 'narrow', '10 ranges', 'int4multirange GiST', 100, 'SELECT sum((SELECT count(*) FROM narrow w WHERE w.mr && p.mr)) FROM sprobe p');
-- Forcing: sequential scans without index paths; the indexes without sequential scans.
CREATE FUNCTION pg_temp.timed(n int, query text, OUT median numeric, OUT scans text) LANGUAGE plpgsql AS $$
BEGIN
    PERFORM set_config('enable_seqscan', (n % 3 = 1)::text, true), set_config('enable_indexscan', (n % 3 <> 1)::text, true),
            set_config('enable_bitmapscan', (n % 3 <> 1)::text, true);
    SELECT m.median, m.scans INTO median, scans FROM pg_temp.median_ms(query, 0, 5) m;
END $$;
SELECT shape, probe, method, round(t.median / probes, 3) AS ms_per_probe, t.scans,
       CASE WHEN n % 3 <> 1 THEN round(first_value(t.median / probes) OVER w / (t.median / probes), 1) END AS times_faster_than_seq
FROM runs, LATERAL pg_temp.timed(n, query) t
WINDOW w AS (PARTITION BY shape, probe ORDER BY n)
ORDER BY n;
-- The plan of one value probe of each kind, as the planner likes it.
EXPLAIN (ANALYZE, COSTS OFF, TIMING OFF) SELECT count(*) FROM wide WHERE 1234567 <@ r;
EXPLAIN (ANALYZE, COSTS OFF, TIMING OFF) SELECT count(*) FROM narrow WHERE 1234567 <@ r;
DROP TABLE wide, narrow, vprobe, sprobe, runs;

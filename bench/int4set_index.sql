-- Finding rows by member in int4set columns: which rows' sets hold a value, or
-- meet a small set, through int4set_gin_ops (default options), against a
-- sequential scan and against the same sets as int4multirange indexed by core's
-- GiST (one bounding range a key). Three shapes over [0, 16M):
--   wide       100,000 rows of 20 ranges (widths 1,000 to 3,000, one in each
--              800,000-wide stripe), as in rangearray_index.sql;
--   narrow     1,000,000 rows of 4 short ranges (widths 1 to 200, one in each
--              4M-wide stripe);
--   scattered  100,000 rows of 1,000 members anywhere (about 3 kB a set, stored
--              out of line); its int4multirange (about 10 kB a set) is built for
--              the first 20,000 rows only, to keep the run short: its GiST probe
--              rechecks every row either way, so it scales with the rows.
-- Build time, index size, and the median time of one probe (batches of
-- probes, 5 runs; sequential scans fewer). Then the plans the planner picks by
-- itself. Needs PostgreSQL 14 or later (int4multirange).
\timing off
SET jit = off;
SET max_parallel_workers_per_gather = 0;
SET max_parallel_maintenance_workers = 0;
SET maintenance_work_mem = '256MB';
SELECT setseed(0.25);
CREATE TABLE wide AS
SELECT i AS id, r::int4set AS s, r::int4multirange AS mr
FROM (SELECT i, (SELECT array_agg(b ORDER BY k, e)
                 FROM (SELECT k, (k * 800000 + random() * 797000)::int AS lo, (1000 + random() * 2000)::int AS w
                       FROM generate_series(0, 19) k OFFSET 0) s,
                      LATERAL (VALUES (0, lo), (1, lo + w)) v(e, b)
                 WHERE i > 0) AS r
      FROM generate_series(1, 100000) i) s;
CREATE TABLE narrow AS
SELECT i AS id, r::int4set AS s, r::int4multirange AS mr
FROM (SELECT i, ARRAY[l0, l0 + w0, l1, l1 + w1, l2, l2 + w2, l3, l3 + w3] AS r
      FROM (SELECT i, (random() * 3999800)::int AS l0, (4000000 + random() * 3999800)::int AS l1,
                   (8000000 + random() * 3999800)::int AS l2, (12000000 + random() * 3999800)::int AS l3,
                   (1 + random() * 199)::int AS w0, (1 + random() * 199)::int AS w1,
                   (1 + random() * 199)::int AS w2, (1 + random() * 199)::int AS w3
            FROM generate_series(1, 1000000) i) s) s;
CREATE TABLE scattered AS
SELECT i AS id, (SELECT int4set_build_agg((random() * 16000000)::int) FROM generate_series(1, 1000) k WHERE i > 0) AS s
FROM generate_series(1, 100000) i;
CREATE TABLE scattered_mr AS SELECT id, s::int4multirange AS mr FROM scattered WHERE id <= 20000;
VACUUM ANALYZE wide;
VACUUM ANALYZE narrow;
VACUUM ANALYZE scattered;
VACUUM ANALYZE scattered_mr;
-- Probes: 100 values; 100 sets of 10 ranges of width 2,000, one in each 1.6M-wide stripe.
CREATE TABLE vprobe AS SELECT n, (random() * 16000000)::int AS v FROM generate_series(1, 100) n;
CREATE TABLE sprobe AS
SELECT n, r::int4set AS s, r::int4multirange AS mr
FROM (SELECT n, (SELECT array_agg(b ORDER BY k, e)
                 FROM (SELECT k, (k * 1600000 + random() * 1598000)::int AS lo FROM generate_series(0, 9) k OFFSET 0) s,
                      LATERAL (VALUES (0, lo), (1, lo + 2000)) v(e, b) WHERE n > 0) AS r
      FROM generate_series(1, 100) n) s;
SELECT shape, avg(c) AS rows_per_value_probe, avg(c) * 100 / total AS percent_of_rows, avg(bytes) AS avg_set_bytes
FROM (SELECT 'wide' AS shape, (SELECT count(*) FROM wide WHERE v <@ s) AS c, 100000 AS total,
             (SELECT avg(pg_column_size(s)) FROM wide WHERE id <= 1000) AS bytes FROM vprobe WHERE n <= 5
      UNION ALL
      SELECT 'narrow', (SELECT count(*) FROM narrow WHERE v <@ s), 1000000,
             (SELECT avg(pg_column_size(s)) FROM narrow WHERE id <= 1000) FROM vprobe WHERE n <= 5
      UNION ALL
      SELECT 'scattered', (SELECT count(*) FROM scattered WHERE v <@ s), 100000,
             (SELECT avg(pg_column_size(s)) FROM scattered WHERE id <= 1000) FROM vprobe WHERE n <= 2) c
GROUP BY shape, total ORDER BY shape;

\echo build time (ms) and size
\timing on
CREATE INDEX wide_gin ON wide USING gin (s);
CREATE INDEX wide_mr ON wide USING gist (mr);
CREATE INDEX narrow_gin ON narrow USING gin (s);
CREATE INDEX narrow_mr ON narrow USING gist (mr);
CREATE INDEX scattered_gin ON scattered USING gin (s);
CREATE INDEX scattered_mr_gist ON scattered_mr USING gist (mr);
\timing off
SELECT c.relname, pg_size_pretty(pg_relation_size(c.oid)) AS size,
       pg_size_pretty(pg_total_relation_size(c.oid)) AS with_toast
FROM pg_class c
WHERE relname IN ('wide', 'wide_gin', 'wide_mr', 'narrow', 'narrow_gin', 'narrow_mr', 'scattered', 'scattered_gin',
                  'scattered_mr', 'scattered_mr_gist')
ORDER BY relname;

\ir include/median_ms.psql
-- Each query runs `probes` probes; the table shows the median time of one. The
-- multirange GiST probes read most of their index (one bounding range a row):
-- few of them.
CREATE TEMP TABLE runs(n, shape, probe, method, probes, query) AS VALUES
    (1, 'wide', 'value', 'seq scan', 10, 'SELECT sum((SELECT count(*) FROM wide WHERE v <@ s)) FROM vprobe WHERE n <= 10'),
    (2, 'wide', 'value', 'int4set_gin_ops', 100, 'SELECT sum((SELECT count(*) FROM wide WHERE v <@ s)) FROM vprobe'),
    (3, 'wide', 'value', 'int4multirange GiST', 10, 'SELECT sum((SELECT count(*) FROM wide WHERE mr @> v)) FROM vprobe WHERE n <= 10'),
    (4, 'wide', '10 ranges', 'seq scan', 10, 'SELECT sum((SELECT count(*) FROM wide w WHERE w.s && p.s)) FROM sprobe p WHERE n <= 10'),
    (5, 'wide', '10 ranges', 'int4set_gin_ops', 20, 'SELECT sum((SELECT count(*) FROM wide w WHERE w.s && p.s)) FROM sprobe p WHERE n <= 20'),
    (6, 'wide', '10 ranges', 'int4multirange GiST', 10, 'SELECT sum((SELECT count(*) FROM wide w WHERE w.mr && p.mr)) FROM sprobe p WHERE n <= 10'),
    (7, 'narrow', 'value', 'seq scan', 5, 'SELECT sum((SELECT count(*) FROM narrow WHERE v <@ s)) FROM vprobe WHERE n <= 5'),
    (8, 'narrow', 'value', 'int4set_gin_ops', 100, 'SELECT sum((SELECT count(*) FROM narrow WHERE v <@ s)) FROM vprobe'),
    (9, 'narrow', 'value', 'int4multirange GiST', 5, 'SELECT sum((SELECT count(*) FROM narrow WHERE mr @> v)) FROM vprobe WHERE n <= 5'),
    (10, 'narrow', '10 ranges', 'seq scan', 5, 'SELECT sum((SELECT count(*) FROM narrow w WHERE w.s && p.s)) FROM sprobe p WHERE n <= 5'),
    (11, 'narrow', '10 ranges', 'int4set_gin_ops', 20, 'SELECT sum((SELECT count(*) FROM narrow w WHERE w.s && p.s)) FROM sprobe p WHERE n <= 20'),
    (12, 'narrow', '10 ranges', 'int4multirange GiST', 5, 'SELECT sum((SELECT count(*) FROM narrow w WHERE w.mr && p.mr)) FROM sprobe p WHERE n <= 5'),
    (13, 'scattered', 'value', 'seq scan', 2, 'SELECT sum((SELECT count(*) FROM scattered WHERE v <@ s)) FROM vprobe WHERE n <= 2'),
    (14, 'scattered', 'value', 'int4set_gin_ops', 100, 'SELECT sum((SELECT count(*) FROM scattered WHERE v <@ s)) FROM vprobe'),
    (15, 'scattered', 'value', 'int4multirange GiST (20,000 rows)', 2, 'SELECT sum((SELECT count(*) FROM scattered_mr WHERE mr @> v)) FROM vprobe WHERE n <= 2'),
    (16, 'scattered', '10 ranges', 'seq scan', 2, 'SELECT sum((SELECT count(*) FROM scattered w WHERE w.s && p.s)) FROM sprobe p WHERE n <= 2'),
    (17, 'scattered', '10 ranges', 'int4set_gin_ops', 20, 'SELECT sum((SELECT count(*) FROM scattered w WHERE w.s && p.s)) FROM sprobe p WHERE n <= 20'),
    (18, 'scattered', '10 ranges', 'int4multirange GiST (20,000 rows)', 2, 'SELECT sum((SELECT count(*) FROM scattered_mr w WHERE w.mr && p.mr)) FROM sprobe p WHERE n <= 2');
-- Forcing: sequential scans without index paths; the indexes without sequential scans.
CREATE FUNCTION pg_temp.timed(n int, query text, OUT median numeric, OUT scans text) LANGUAGE plpgsql AS $$
BEGIN
    PERFORM set_config('enable_seqscan', (n % 3 = 1)::text, true), set_config('enable_indexscan', (n % 3 <> 1)::text, true),
            set_config('enable_bitmapscan', (n % 3 <> 1)::text, true);
    SELECT m.median_fine, m.scans INTO median, scans FROM pg_temp.median_ms(query, 0, CASE WHEN n % 3 = 2 THEN 5 ELSE 3 END) m;
END $$;
SELECT shape, probe, method, round(t.median / probes, 3) AS ms_per_probe, t.scans,
       CASE WHEN n % 3 <> 1 THEN round(first_value(t.median / probes) OVER w / (t.median / probes), 1) END AS times_faster_than_seq
FROM runs, LATERAL pg_temp.timed(n, query) t
WINDOW w AS (PARTITION BY shape, probe ORDER BY n)
ORDER BY n;
-- The plan of one value probe and one set probe of each shape, as the planner likes it.
EXPLAIN (ANALYZE, COSTS OFF, TIMING OFF) SELECT count(*) FROM wide WHERE 1234567 <@ s;
EXPLAIN (ANALYZE, COSTS OFF, TIMING OFF) SELECT count(*) FROM narrow WHERE 1234567 <@ s;
EXPLAIN (ANALYZE, COSTS OFF, TIMING OFF) SELECT count(*) FROM scattered WHERE 1234567 <@ s;
EXPLAIN (ANALYZE, COSTS OFF, TIMING OFF) SELECT count(*) FROM scattered WHERE s && '{5000..7000,9000000..9002000}';
DROP TABLE wide, narrow, scattered, scattered_mr, vprobe, sprobe, runs;

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
-- probes). Then the plans the planner picks by itself. Needs PostgreSQL 14 or
-- later (int4multirange).
\timing off
\ir include/index_shapes.psql
CREATE TABLE scattered AS
SELECT i AS id, (SELECT int4set_build_agg((random() * 16000000)::int) FROM generate_series(1, 1000) k WHERE i > 0) AS s
FROM generate_series(1, 100000) i;
CREATE TABLE scattered_mr AS SELECT id, s::int4multirange AS mr FROM scattered WHERE id <= 20000;
VACUUM ANALYZE scattered;
VACUUM ANALYZE scattered_mr;
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

-- The multirange GiST probes read most of their index (one bounding range a
-- row): few of them.
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
\ir include/index_probes.psql
-- The plan of one value probe and one set probe of each shape, as the planner likes it.
EXPLAIN (ANALYZE, COSTS OFF, TIMING OFF) SELECT count(*) FROM wide WHERE 1234567 <@ s;
EXPLAIN (ANALYZE, COSTS OFF, TIMING OFF) SELECT count(*) FROM narrow WHERE 1234567 <@ s;
EXPLAIN (ANALYZE, COSTS OFF, TIMING OFF) SELECT count(*) FROM scattered WHERE 1234567 <@ s;
EXPLAIN (ANALYZE, COSTS OFF, TIMING OFF) SELECT count(*) FROM scattered WHERE s && '{5000..7000,9000000..9002000}';
DROP TABLE wide, narrow, scattered, scattered_mr, vprobe, sprobe, runs;

-- Finding rows by member: which rows' range arrays hold a value, or meet a set
-- of 10 ranges. The same sets as int4[] range arrays indexed by
-- qn_gin_rangearray_ops, and as int4multirange indexed by core's GiST (one
-- bounding range a key), against a sequential scan. Two shapes over [0, 16M):
-- 100,000 rows of 20 ranges (widths 1,000 to 3,000, one in each 800,000-wide
-- stripe) and 1,000,000 rows of 4 short ranges (widths 1 to 200, one in each
-- 4M-wide stripe). Build time, index size, and the median time of one probe
-- (batches of probes). Needs PostgreSQL 14 or later (int4multirange).
\timing off
\ir include/index_shapes.psql
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
\ir include/index_probes.psql
-- The plan of one value probe of each kind, as the planner likes it.
EXPLAIN (ANALYZE, COSTS OFF, TIMING OFF) SELECT count(*) FROM wide WHERE 1234567 <@ r;
EXPLAIN (ANALYZE, COSTS OFF, TIMING OFF) SELECT count(*) FROM narrow WHERE 1234567 <@ r;
DROP TABLE wide, narrow, vprobe, sprobe, runs;

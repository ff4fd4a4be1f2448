-- GiST over 1,000,000 rows: build time, index size, and 1,000 point and 1,000
-- range queries (each an index probe from a nested loop), for the packed-range
-- operator class against the core int4range GiST index on the same ranges, and
-- for the int4 operator class against btree_gist's int4 index on the same values.
\timing off
CREATE EXTENSION IF NOT EXISTS btree_gist;
SET jit = off;
SET max_parallel_maintenance_workers = 0;
SELECT setseed(0.5);
-- Ranges: lower bounds over ±10^9, widths mostly small with a long tail up to 10^5.
CREATE TABLE ranges AS
SELECT i AS id, qn_range_pack(lo, lo + w) AS packed, int4range(lo, lo + w, '[]') AS r
FROM (SELECT i, (random() * 2e9 - 1e9)::int AS lo, (random() ^ 4 * 1e5)::int AS w
      FROM generate_series(1, 1000000) i) s;
CREATE TABLE vals AS SELECT i AS id, (random() * 2e9 - 1e9)::int AS v FROM generate_series(1, 1000000) i;
CREATE TABLE points AS SELECT (random() * 2e9 - 1e9)::int AS p FROM generate_series(1, 1000);
CREATE TABLE spans AS SELECT lo, lo + 1000000 AS hi FROM (SELECT (random() * 2e9 - 1e9)::int AS lo FROM generate_series(1, 1000)) s;
VACUUM ANALYZE ranges;
VACUUM ANALYZE vals;
\timing on
CREATE INDEX ranges_packed ON ranges USING gist (packed qn_gist_rangepacked_ops);
CREATE INDEX ranges_r ON ranges USING gist (r);
CREATE INDEX vals_qn ON vals USING gist (v qn_gist_int4_ops);
CREATE INDEX vals_btree_gist ON vals USING gist (v gist_int4_ops);
\timing off
SELECT relname, pg_size_pretty(pg_relation_size(oid)) AS size FROM pg_class
WHERE relname IN ('ranges_packed', 'ranges_r', 'vals_qn', 'vals_btree_gist') ORDER BY relname;

SET enable_seqscan = off;
\timing on
-- 1,000 point queries.
SELECT sum((SELECT count(*) FROM ranges WHERE packed @> p)) AS hits FROM points;
SELECT sum((SELECT count(*) FROM ranges WHERE r @> p)) AS hits FROM points;
SELECT sum((SELECT count(*) FROM vals WHERE v <@ qn_range_pack(p, p))) AS hits FROM points;
SELECT sum((SELECT count(*) FROM vals WHERE v = p)) AS hits FROM points;
-- 1,000 range queries, each over a span of 10^6.
SELECT sum((SELECT count(*) FROM ranges WHERE packed && qn_range_pack(lo, hi))) AS hits FROM spans;
SELECT sum((SELECT count(*) FROM ranges WHERE r && int4range(lo, hi, '[]'))) AS hits FROM spans;
SELECT sum((SELECT count(*) FROM vals WHERE v <@ qn_range_pack(lo, hi))) AS hits FROM spans;
SELECT sum((SELECT count(*) FROM vals WHERE v BETWEEN lo AND hi)) AS hits FROM spans;
\timing off
-- The plans of the probes above use the indexes named.
EXPLAIN (COSTS OFF) SELECT count(*) FROM ranges WHERE packed && qn_range_pack(0, 1000000);
EXPLAIN (COSTS OFF) SELECT count(*) FROM vals WHERE v <@ qn_range_pack(0, 1000000);
EXPLAIN (COSTS OFF) SELECT count(*) FROM vals WHERE v BETWEEN 0 AND 1000000;
-- Ranges in ascending order, evenly spaced (each page split sees keys whose
-- penalties all favour one side): build time and size.
CREATE TABLE ascending AS SELECT qn_range_pack(i * 10, i * 10 + i % 7) AS packed FROM generate_series(1, 1000000) i;
\timing on
CREATE INDEX ascending_packed ON ascending USING gist (packed qn_gist_rangepacked_ops);
\timing off
SELECT pg_size_pretty(pg_relation_size('ascending_packed')) AS ascending_size;
DROP TABLE ranges, vals, points, spans, ascending;

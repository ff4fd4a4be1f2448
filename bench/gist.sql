-- GiST over 1,000,000 rows: build time, index size, and 1,000 point and 1,000
-- range queries (each an index probe from a nested loop, the table vacuumed so
-- that index-only scans can skip it), for the packed-range operator class
-- against the core int4range GiST index on the same ranges, and for the int4
-- operator class against btree_gist's int4 index on the same values.
\timing off
CREATE EXTENSION IF NOT EXISTS btree_gist;
SET jit = off;
SET max_parallel_maintenance_workers = 0;
-- The throwaway cluster commits asynchronously; VACUUM marks a page all-visible
-- only once the commit of its rows is flushed.
SET synchronous_commit = on;
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
-- Index-only scans skip the table where the visibility map says all rows of a
-- page are visible, which VACUUM above could record (see synchronous_commit).
SELECT relname, relallvisible = relpages AS all_visible FROM pg_class WHERE relname IN ('ranges', 'vals') ORDER BY 1;

\ir include/median_ms.psql
SET enable_seqscan = off;
-- 1,000 point queries and 1,000 range queries (each over a span of 10^6) per
-- statement, 5 runs each: once as the planner likes, once with bitmap scans
-- off, where each index answers by an index-only scan if its operator class can
-- give the value back. Ratios are against the core or btree_gist index on the
-- same data.
CREATE TEMP TABLE probes(n, probe, index, query) AS VALUES
    (1, 'point', 'qn_gist_rangepacked_ops', 'SELECT sum((SELECT count(*) FROM ranges WHERE packed @> p)) FROM points'),
    (2, 'point', 'int4range (core)', 'SELECT sum((SELECT count(*) FROM ranges WHERE r @> p)) FROM points'),
    (3, 'point', 'qn_gist_int4_ops', 'SELECT sum((SELECT count(*) FROM vals WHERE v <@ qn_range_pack(p, p))) FROM points'),
    (4, 'point', 'gist_int4_ops (btree_gist)', 'SELECT sum((SELECT count(*) FROM vals WHERE v = p)) FROM points'),
    (5, 'range', 'qn_gist_rangepacked_ops', 'SELECT sum((SELECT count(*) FROM ranges WHERE packed && qn_range_pack(lo, hi))) FROM spans'),
    (6, 'range', 'int4range (core)', 'SELECT sum((SELECT count(*) FROM ranges WHERE r && int4range(lo, hi, ''[]''))) FROM spans'),
    (7, 'range', 'qn_gist_int4_ops', 'SELECT sum((SELECT count(*) FROM vals WHERE v <@ qn_range_pack(lo, hi))) FROM spans'),
    (8, 'range', 'gist_int4_ops (btree_gist)', 'SELECT sum((SELECT count(*) FROM vals WHERE v BETWEEN lo AND hi)) FROM spans');
\set probe_times 'SELECT probe, index, m.median AS median_ms, m.fastest || ''-'' || m.slowest AS range_ms, m.scans, CASE WHEN n % 2 = 1 THEN round(m.median / lead(m.median) OVER (ORDER BY n), 2) END AS vs_reference FROM probes, LATERAL pg_temp.median_ms(query, 0, 5) m ORDER BY n;'
:probe_times
SET enable_bitmapscan = off;
:probe_times
RESET enable_bitmapscan;
-- The plans of single probes, as the planner likes them.
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
DROP TABLE ranges, vals, points, spans, ascending, probes;

-- Stored sets of 1,000,000 members under the three ways PostgreSQL can store a
-- large int4[]: the default (compressed with pglz), SET COMPRESSION lz4, and
-- SET STORAGE EXTERNAL (out of line, uncompressed). Two shapes: sparse (lone
-- members spread over the int4 range: 1,000,000 ranges, 8 MB as a range array)
-- and runs (1,000 runs of 1,000 members: 1,000 ranges, 8 kB). Each table holds
-- two sets a and b of each shape. Size on disk, then medians of 5 of: union,
-- overlap, 1,000 membership probes, member count.
\timing off
SET jit = off;
CREATE TABLE shapes AS
SELECT 'sparse' AS shape,
       ARRAY(SELECT x FROM (SELECT DISTINCT hashint4(g) AS v FROM generate_series(1, 1000000) g ORDER BY 1) s,
                           LATERAL (VALUES (v), (v)) p(x)) AS a,
       ARRAY(SELECT x FROM (SELECT DISTINCT hashint4(-g) AS v FROM generate_series(1, 1000000) g ORDER BY 1) s,
                           LATERAL (VALUES (v), (v)) p(x)) AS b
UNION ALL
SELECT 'runs', ARRAY(SELECT x FROM generate_series(0, 999) i, LATERAL (VALUES (i * 4000), (i * 4000 + 999)) p(x)),
               ARRAY(SELECT x FROM generate_series(0, 999) i, LATERAL (VALUES (i * 4000 + 500), (i * 4000 + 1499)) p(x));
CREATE TABLE stored_pglz (shape text, a int4[], b int4[]);
CREATE TABLE stored_lz4 (shape text, a int4[] COMPRESSION lz4, b int4[] COMPRESSION lz4);
CREATE TABLE stored_external (shape text, a int4[], b int4[]);
ALTER TABLE stored_external ALTER a SET STORAGE EXTERNAL, ALTER b SET STORAGE EXTERNAL;
-- Fresh values for each table (qn_rangearray_normalise copies them): a value
-- stored already compressed would be copied as it is, not stored anew.
INSERT INTO stored_pglz SELECT shape, qn_rangearray_normalise(a), qn_rangearray_normalise(b) FROM shapes;
INSERT INTO stored_lz4 SELECT shape, qn_rangearray_normalise(a), qn_rangearray_normalise(b) FROM shapes;
INSERT INTO stored_external SELECT shape, qn_rangearray_normalise(a), qn_rangearray_normalise(b) FROM shapes;
VACUUM ANALYZE stored_pglz, stored_lz4, stored_external;
CREATE TABLE probes AS SELECT hashint4(g * 7) AS v FROM generate_series(1, 1000) g;

SELECT shape, storage, stored_bytes_a, raw_bytes_a, round(raw_bytes_a::numeric / stored_bytes_a, 2) AS ratio
FROM (SELECT shape, 'pglz' AS storage, pg_column_size(a) AS stored_bytes_a, cardinality(a) * 4 AS raw_bytes_a FROM stored_pglz
      UNION ALL SELECT shape, 'lz4', pg_column_size(a), cardinality(a) * 4 FROM stored_lz4
      UNION ALL SELECT shape, 'external', pg_column_size(a), cardinality(a) * 4 FROM stored_external) s
ORDER BY shape DESC, storage;
SELECT t AS storage_table, pg_size_pretty(pg_total_relation_size(t::regclass)) AS total_size
FROM (VALUES ('stored_pglz'), ('stored_lz4'), ('stored_external')) s(t);

\ir include/median_ms.psql
SELECT shape, op, t AS storage, m.median AS median_ms, m.fastest || '-' || m.slowest AS range_ms
FROM (VALUES ('sparse'), ('runs')) sh(shape),
     (VALUES (1, 'union', 'SELECT cardinality(qn_int4range_union(a, b)) FROM %I WHERE shape = %L'),
             (2, 'overlap', 'SELECT qn_int4range_is_overlap(a, b) FROM %I WHERE shape = %L'),
             (3, '1,000 probes', 'SELECT count(*) FROM %I s, probes p WHERE s.shape = %L AND qn_int4_in_rangearray(p.v, s.a)'),
             (4, 'member count', 'SELECT qn_count_scalar_in_int4set(''r'', a) FROM %I WHERE shape = %L')) o(n, op, query),
     (VALUES ('stored_pglz'), ('stored_lz4'), ('stored_external')) s(t),
     LATERAL pg_temp.median_ms(format(query, t, shape), 0, 5) m
ORDER BY shape DESC, n, t;
DROP TABLE shapes, stored_pglz, stored_lz4, stored_external, probes;

-- Range arrays against core int4multirange (PostgreSQL 14 and later) and
-- intarray (contrib; lone members as a sorted int4[]), on the same sets of
-- 100,000 members in four shapes:
--   few_long      20 ranges of 5,000 members
--   many_short    10,000 ranges of 10 members
--   lone_dense    lone members, one in every 4 integers of [0, 400000)
--   lone_sparse   lone members spread over the whole int4 range
-- Two sets a and b of each shape are stored in a table. For each form: the
-- stored size of a (pg_column_size: compressed when the value is), then medians
-- of 5 of: 1,000 membership probes against the stored a (one nested loop), the
-- union and the intersection of a and b, and building a from one row per
-- member. A bitfield (qn_int4set2bitfield_int4) is stored and probed too where
-- the span is small enough for one. Serial plans, no JIT. Last, the sizes of a
-- set of 20 lone members.
\timing off
SELECT current_setting('server_version_num')::int >= 140000 AS has_multirange \gset
\if :has_multirange
\else
\echo alternatives.sql needs int4multirange: PostgreSQL 14 or later
\quit
\endif
SET jit = off;
-- intarray's operators on int4[] take precedence over core's while it is
-- installed: it is dropped again at the end.
CREATE EXTENSION intarray;

CREATE TABLE alt_members (shape text, v int4);
INSERT INTO alt_members
SELECT 'few_long', r * 1000000 + i FROM generate_series(0, 19) r, generate_series(0, 4999) i
UNION ALL SELECT 'many_short', r * 40 + (hashint4(r) & 15) + i FROM generate_series(0, 9999) r, generate_series(0, 9) i
UNION ALL SELECT 'lone_dense', i * 4 + (hashint4(i) & 1) * 2 FROM generate_series(0, 99999) i
UNION ALL (SELECT 'lone_sparse', v FROM (SELECT DISTINCT hashint4(i) AS v FROM generate_series(1, 100010) i) s
           ORDER BY v LIMIT 100000);
-- b: a's members moved by a third of a range (or of a gap) so that a and b overlap in part.
CREATE TABLE alt_members_b AS
SELECT shape, v + CASE shape WHEN 'few_long' THEN 1700 WHEN 'many_short' THEN 3 WHEN 'lone_dense' THEN 4 ELSE 0 END AS v
FROM alt_members WHERE shape <> 'lone_sparse'
UNION ALL (SELECT 'lone_sparse', v FROM (SELECT DISTINCT hashint4(-i) AS v FROM generate_series(1, 100010) i) s
           ORDER BY v LIMIT 100000);
-- The members of each shape in a table of its own, for the build timings.
SELECT format('CREATE TABLE %I AS SELECT v FROM alt_members WHERE shape = %L ORDER BY hashint4(v)', 'rows_' || shape, shape)
FROM (SELECT DISTINCT shape FROM alt_members) s \gexec

CREATE TABLE alt_sets AS
SELECT shape,
       int4set_agg(v, 'r') AS ra_a,
       range_agg(int4range(v, v, '[]')) AS mr_a,
       uniq(sort(array_agg(v))) AS ia_a,
       CASE WHEN max(v)::int8 - min(v) < 10000000 THEN qn_int4set2bitfield_int4('r', int4set_agg(v, 'r')) END AS bf_a
FROM alt_members GROUP BY shape;
ALTER TABLE alt_sets ADD ra_b int4[], ADD mr_b int4multirange, ADD ia_b int4[];
UPDATE alt_sets s SET ra_b = b.ra, mr_b = b.mr, ia_b = b.ia
FROM (SELECT shape, int4set_agg(v, 'r') AS ra, range_agg(int4range(v, v, '[]')) AS mr, uniq(sort(array_agg(v))) AS ia
      FROM alt_members_b GROUP BY shape) b WHERE b.shape = s.shape;
VACUUM ANALYZE alt_sets;
-- Probes within each set's span: about a quarter of them members in the dense shapes.
CREATE TABLE alt_probes AS
SELECT shape, lo + ((hashint4(g) & 2147483647)::int8 % (hi::int8 - lo + 1))::int4 AS v
FROM (SELECT shape, min(v) AS lo, max(v) AS hi FROM alt_members GROUP BY shape) s, generate_series(1, 1000) g;
ANALYZE alt_probes;

-- Every form holds the same members, and answers the same.
SELECT shape, qn_rangearray_count(ra_a) AS members, cardinality(ra_a) / 2 AS ranges,
       qn_rangearray_equal(ra_a, mr_a::int4[]) AND qn_int4setconv_int4('r', ra_a, 's') = ia_a AS same_a,
       qn_rangearray_equal(ra_b, mr_b::int4[]) AND qn_int4setconv_int4('r', ra_b, 's') = ia_b AS same_b,
       qn_rangearray_equal(qn_int4range_union(ra_a, ra_b), (mr_a + mr_b)::int4[])
           AND qn_int4setconv_int4('r', qn_int4range_union(ra_a, ra_b), 's') = ia_a | ia_b AS same_union,
       qn_rangearray_equal(qn_int4range_intersection(ra_a, ra_b), (mr_a * mr_b)::int4[])
           AND qn_int4setconv_int4('r', qn_int4range_intersection(ra_a, ra_b), 's') = ia_a & ia_b AS same_intersection,
       (SELECT count(*) FROM alt_probes p WHERE p.shape = s.shape AND p.v <@ s.ra_a) AS probe_hits,
       (SELECT count(*) FROM alt_probes p WHERE p.shape = s.shape AND s.mr_a @> p.v) AS probe_hits_mr,
       (SELECT count(*) FROM alt_probes p WHERE p.shape = s.shape AND s.ia_a @> ARRAY[p.v]) AS probe_hits_ia
FROM alt_sets s ORDER BY shape;

CREATE TABLE alt_results (shape text, form text, stored_bytes int, probes_ms numeric, union_ms numeric,
                          intersection_ms numeric, build_ms numeric);
INSERT INTO alt_results (shape, form, stored_bytes)
SELECT shape, f.form, f.bytes
FROM alt_sets, LATERAL (VALUES ('range array', pg_column_size(ra_a)), ('int4multirange', pg_column_size(mr_a)),
                               ('intarray', pg_column_size(ia_a)), ('bitfield', pg_column_size(bf_a))) f(form, bytes)
WHERE f.bytes IS NOT NULL;

\ir include/median_ms.psql
-- Each query per form: %1$L is the shape, %2$I the table of its rows.
CREATE TABLE alt_queries (form text, probes text, union_q text, intersection_q text, build text);
INSERT INTO alt_queries VALUES
    ('range array',
     'SELECT count(*) FROM alt_sets s JOIN alt_probes p USING (shape) WHERE s.shape = %1$L AND p.v <@ s.ra_a',
     'SELECT qn_int4range_union(ra_a, ra_b) FROM alt_sets WHERE shape = %1$L',
     'SELECT qn_int4range_intersection(ra_a, ra_b) FROM alt_sets WHERE shape = %1$L',
     'SELECT int4set_agg(v, ''r'') FROM %2$I'),
    ('int4multirange',
     'SELECT count(*) FROM alt_sets s JOIN alt_probes p USING (shape) WHERE s.shape = %1$L AND s.mr_a @> p.v',
     'SELECT mr_a + mr_b FROM alt_sets WHERE shape = %1$L',
     'SELECT mr_a * mr_b FROM alt_sets WHERE shape = %1$L',
     'SELECT range_agg(int4range(v, v, ''[]'')) FROM %2$I'),
    ('intarray',
     'SELECT count(*) FROM alt_sets s JOIN alt_probes p USING (shape) WHERE s.shape = %1$L AND s.ia_a @> ARRAY[p.v]',
     'SELECT ia_a | ia_b FROM alt_sets WHERE shape = %1$L',
     'SELECT ia_a & ia_b FROM alt_sets WHERE shape = %1$L',
     'SELECT uniq(sort(array_agg(v))) FROM %2$I'),
    ('bitfield',
     'SELECT count(*) FROM alt_sets s JOIN alt_probes p USING (shape) WHERE s.shape = %1$L AND p.v <@ s.bf_a',
     NULL, NULL, NULL);
UPDATE alt_results r
SET probes_ms = (SELECT median FROM pg_temp.median_ms(format(q.probes, r.shape, 'rows_' || r.shape), 0, 5)),
    union_ms = (SELECT median FROM pg_temp.median_ms(format(q.union_q, r.shape, 'rows_' || r.shape), 0, 5)
                WHERE q.union_q IS NOT NULL),
    intersection_ms = (SELECT median FROM pg_temp.median_ms(format(q.intersection_q, r.shape, 'rows_' || r.shape), 0, 5)
                       WHERE q.intersection_q IS NOT NULL),
    build_ms = (SELECT median FROM pg_temp.median_ms(format(q.build, r.shape, 'rows_' || r.shape), 0, 5)
                WHERE q.build IS NOT NULL)
FROM alt_queries q WHERE q.form = r.form;

SELECT shape, form, stored_bytes, round(stored_bytes / 100000.0, 2) AS bytes_per_member,
       probes_ms AS "1,000 probes ms", union_ms, intersection_ms, build_ms
FROM alt_results
ORDER BY array_position('{few_long,many_short,lone_dense,lone_sparse}', shape),
         array_position('{range array,int4multirange,intarray,bitfield}', form);

-- For scale, one small set: 20 lone members.
SELECT pg_column_size(int4set_agg(v, 'r')) AS range_array_bytes,
       pg_column_size(range_agg(int4range(v, v, '[]'))) AS int4multirange_bytes,
       pg_column_size(uniq(sort(array_agg(v)))) AS intarray_bytes
FROM generate_series(1, 20) i, LATERAL (VALUES (i * 3)) m(v);

SELECT format('DROP TABLE %I', 'rows_' || shape) FROM (SELECT DISTINCT shape FROM alt_members) s \gexec
DROP TABLE alt_members, alt_members_b, alt_sets, alt_probes, alt_results, alt_queries;
DROP EXTENSION intarray;

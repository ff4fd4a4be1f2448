-- needs: roaringbitmap
-- int4set against the other ways to keep a large set of int4 in a column:
-- range arrays (int4[] with this extension's functions), core int4multirange
-- (PostgreSQL 14 and later) and pg_roaringbitmap's roaringbitmap (when
-- installed: bench.sh runs scripts/roaringbitmap.sh for this file). Four shapes,
-- two sets a and b of each (different seeds) and their union u:
--   runs    1,000 runs of 1,000 members scattered over the int4 line, apart
--   lone    1,000,000 random members over the whole int4 line
--   dense   30% of [0, 10,000,000), members drawn one by one
--   huge    100 ranges of 20,000,000 members over the whole line, apart
-- Each form keeps a, b and u in a table of its own, stored as that type stores
-- a value by default (int4set, int4[] and int4multirange out of line and
-- compressed with pglz where that pays, roaringbitmap out of line uncompressed),
-- so every timing includes fetching and decompressing the stored operands. For
-- each shape and form: the stored size of a (pg_column_size), then medians of 5
-- (after one run more) of: a ∪ b, a ∩ b, a − b, a overlaps b, u contains a
-- (true: a full walk), 1,000 membership probes of the stored a (half members of
-- a, half anywhere in its span) by a join of the probe table with the one row
-- holding the set, the member count of a, and a as text. A cell whose first run
-- took over 5 s is that single run (marked *). Empty: the form has no such
-- operation. Last, the floor under the cells: reading the row alone, the probe
-- join without a test. roaringbitmap's text is its member list
-- (roaringbitmap.output_format = 'array'; its default prints the stored bytes in
-- hex), left out for huge (past 1 GB). Serial plans, no JIT, timed by EXPLAIN
-- ANALYZE (bench/include/median_ms.psql): the results are computed in full but
-- not sent to the client.
\timing off
SET jit = off;
SET client_min_messages = warning;
SELECT current_setting('server_version_num')::int >= 140000 AS has_multirange,
       EXISTS (SELECT FROM pg_available_extensions WHERE name = 'roaringbitmap') AS has_roaringbitmap \gset
\if :has_roaringbitmap
CREATE EXTENSION roaringbitmap;
SET roaringbitmap.output_format = 'array';
\else
\echo note: pg_roaringbitmap is not installed (scripts/roaringbitmap.sh): its cells are empty
\endif
\if :has_multirange
\else
\echo note: int4multirange needs PostgreSQL 14 or later: its cells are empty
\endif

-- A uniform int8 in [0, 2^32) for row i of seed s.
CREATE FUNCTION pg_temp.rnd(i int8, s int8) RETURNS int8 LANGUAGE sql IMMUTABLE PARALLEL SAFE
    AS 'SELECT pg_catalog.hashint8extended(i, s) & 4294967295';
-- The sets as range arrays, built from their members or ranges. Runs and huge
-- ranges each lie at a random place within a slot of their own (1,000 or 100
-- slots over the line), so that they stay apart; lone members are the first
-- 1,000,000 distinct of a random sequence.
CREATE TABLE s_rangearray (shape text, a int4[], b int4[], u int4[]);
CREATE TABLE s_gen (shape text, seed int, ra int4[]);
INSERT INTO s_gen
SELECT 'runs', s, (SELECT int4set_agg(lo, lo + 999, 'r')
                   FROM (SELECT (-2147483648 + i * 4294967 + pg_temp.rnd(i, s) % (4294967 - 1001))::int4 AS lo
                         FROM generate_series(0::int8, 999) i) r)
FROM generate_series(1, 2) s
UNION ALL
SELECT 'lone', s, (SELECT int4set_agg(v, 'r')
                   FROM (SELECT v FROM (SELECT (pg_temp.rnd(i, s) - 2147483648)::int4 AS v, i
                                        FROM generate_series(1, 1000300) i) r
                         GROUP BY v ORDER BY min(i) LIMIT 1000000) r)
FROM generate_series(1, 2) s
UNION ALL
SELECT 'dense', s, (SELECT int4set_agg(v, 'r') FROM generate_series(0, 9999999) v WHERE pg_temp.rnd(v, s) % 10 < 3)
FROM generate_series(1, 2) s
UNION ALL
SELECT 'huge', s, (SELECT int4set_agg(lo, lo + 19999999, 'r')
                   FROM (SELECT (-2147483648 + i * 42949672 + pg_temp.rnd(i, s) % (42949672 - 20000001))::int4 AS lo
                         FROM generate_series(0::int8, 99) i) r)
FROM generate_series(1, 2) s;
INSERT INTO s_rangearray
SELECT a.shape, a.ra, b.ra, qn_int4range_union(a.ra, b.ra)
FROM s_gen a JOIN s_gen b ON b.shape = a.shape AND b.seed = 2 WHERE a.seed = 1;
DROP TABLE s_gen;

-- The other forms, each converted from the range arrays: fresh values, stored
-- (and compressed) as their type stores them.
CREATE TABLE s_int4set (shape text, a int4set, b int4set, u int4set);
INSERT INTO s_int4set SELECT shape, a::int4set, b::int4set, u::int4set FROM s_rangearray;
\if :has_multirange
CREATE TABLE s_multirange (shape text, a int4multirange, b int4multirange, u int4multirange);
INSERT INTO s_multirange SELECT shape, a::int4set::int4multirange, b::int4set::int4multirange, u::int4set::int4multirange
FROM s_rangearray;
\endif
\if :has_roaringbitmap
-- roaringbitmap orders int4 as uint32 (negative values last): a range across 0
-- is filled as two. Sets of up to 10,000,000 members are built from their
-- members, larger ones range by range; then run containers where they are smaller.
CREATE FUNCTION pg_temp.to_rb(ra int4[]) RETURNS roaringbitmap LANGUAGE sql AS $$
    SELECT rb_runoptimize(CASE WHEN qn_rangearray_count(ra) <= 10000000
                               THEN rb_build(int4set_to_array(ra::int4set, 's'))
                               ELSE (SELECT rb_or_agg(rb_fill('{}'::roaringbitmap, lo, hi + 1))
                                     FROM (SELECT first::int8 + 4294967296 AS lo, least(last, -1)::int8 + 4294967296 AS hi
                                           FROM ranges(ra::int4set) WHERE first < 0
                                           UNION ALL
                                           SELECT greatest(first, 0), last FROM ranges(ra::int4set) WHERE last >= 0) r)
                          END)
$$;
CREATE TABLE s_roaringbitmap (shape text, a roaringbitmap, b roaringbitmap, u roaringbitmap);
INSERT INTO s_roaringbitmap SELECT shape, pg_temp.to_rb(a), pg_temp.to_rb(b), pg_temp.to_rb(u) FROM s_rangearray;
\endif

-- Probes per shape, in random order: 500 members of a (a random range, a random
-- place in it), 500 values anywhere between a's least and greatest members.
CREATE TABLE probe_ranges AS
SELECT shape, row_number() OVER (PARTITION BY shape ORDER BY first) - 1 AS k, first, last
FROM s_rangearray, ranges(a::int4set);
CREATE TABLE probes AS
WITH span AS (SELECT shape, count(*) AS n, min(first)::int8 AS lo, max(last)::int8 AS hi
              FROM probe_ranges GROUP BY shape),
     picks AS (SELECT s.shape, g, pg_temp.rnd(g, 3) % s.n AS k, s.lo, s.hi FROM span s, generate_series(1, 1000) g)
SELECT p.shape, p.g,
       CASE WHEN p.g <= 500 THEN r.first + pg_temp.rnd(p.g, 4) % (r.last::int8 - r.first + 1)
            ELSE p.lo + pg_temp.rnd(p.g, 5) % (p.hi - p.lo + 1) END::int4 AS v
FROM picks p JOIN probe_ranges r ON r.shape = p.shape AND r.k = p.k
ORDER BY p.shape, pg_temp.rnd(p.g, 6);
DROP TABLE probe_ranges;
VACUUM ANALYZE s_rangearray, s_int4set, probes;
\if :has_multirange
VACUUM ANALYZE s_multirange;
\endif
\if :has_roaringbitmap
VACUUM ANALYZE s_roaringbitmap;
\endif

-- The operations of each form, over the columns a, b, u of its table (s.a and
-- p.v in the probe join); card: the member count of a value of the form.
CREATE TABLE bench_ops (op text, n int);
INSERT INTO bench_ops VALUES ('union', 1), ('intersection', 2), ('difference', 3), ('overlap', 4),
    ('contains', 5), ('probes', 6), ('cardinality', 7), ('text', 8);
CREATE TABLE bench_forms (form text, n int, tbl text, card text, available bool);
INSERT INTO bench_forms VALUES
    ('int4set', 1, 's_int4set', 'cardinality(%s)', true),
    ('range array', 2, 's_rangearray', 'qn_rangearray_count(%s)', true),
    ('int4multirange', 3, 's_multirange', 'cardinality((%s)::int4set)', :'has_multirange'),
    ('roaringbitmap', 4, 's_roaringbitmap', 'rb_cardinality(%s)', :'has_roaringbitmap');
CREATE TABLE bench_exprs (form text, op text, expr text, skip text[] DEFAULT '{}');
INSERT INTO bench_exprs (form, op, expr) VALUES
    ('int4set', 'union', 'a + b'), ('int4set', 'intersection', 'a * b'), ('int4set', 'difference', 'a - b'),
    ('int4set', 'overlap', 'a && b'), ('int4set', 'contains', 'u @> a'), ('int4set', 'probes', 's.a @> p.v'),
    ('int4set', 'cardinality', 'cardinality(a)'), ('int4set', 'text', 'a::text'),
    ('range array', 'union', 'qn_int4range_union(a, b)'), ('range array', 'intersection', 'qn_int4range_intersection(a, b)'),
    ('range array', 'difference', 'qn_int4range_exclusion(a, b)'), ('range array', 'overlap', 'qn_int4range_is_overlap(a, b)'),
    ('range array', 'contains', 'qn_int4range_contains(u, a)'), ('range array', 'probes', 'qn_int4_in_rangearray(p.v, s.a)'),
    ('range array', 'cardinality', 'qn_rangearray_count(a)'), ('range array', 'text', 'a::text'),
    ('int4multirange', 'union', 'a + b'), ('int4multirange', 'intersection', 'a * b'),
    ('int4multirange', 'difference', 'a - b'), ('int4multirange', 'overlap', 'a && b'),
    ('int4multirange', 'contains', 'u @> a'), ('int4multirange', 'probes', 's.a @> p.v'),
    ('int4multirange', 'text', 'a::text'),
    ('roaringbitmap', 'union', 'rb_or(a, b)'), ('roaringbitmap', 'intersection', 'rb_and(a, b)'),
    ('roaringbitmap', 'difference', 'rb_andnot(a, b)'), ('roaringbitmap', 'overlap', 'rb_intersect(a, b)'),
    ('roaringbitmap', 'contains', 'rb_contains(u, a)'), ('roaringbitmap', 'probes', 'rb_contains(s.a, p.v)'),
    ('roaringbitmap', 'cardinality', 'rb_cardinality(a)'), ('roaringbitmap', 'text', 'a::text');
-- 1,600,000,000 members as text pass PostgreSQL's 1 GB limit for a value.
UPDATE bench_exprs SET skip = '{huge}' WHERE form = 'roaringbitmap' AND op = 'text';

-- The query of an operation on one shape.
CREATE FUNCTION pg_temp.bench_query(tbl text, op text, expr text, shape text) RETURNS text LANGUAGE sql AS $$
    SELECT CASE op
        WHEN 'probes' THEN format('SELECT count(*) FROM %I s JOIN probes p USING (shape) WHERE s.shape = %L AND %s',
                                  tbl, shape, expr)
        ELSE format('SELECT %s FROM %I WHERE shape = %L', expr, tbl, shape) END
$$;

-- Every form answers the same: the member counts of a ∪ b, a ∩ b and a − b,
-- a && b, u @> a, the probes' hits and the member count of a.
CREATE TABLE bench_answers (shape text, form text, answers text);
DO $$
DECLARE
    f record;
    sh text;
    q text;
    answer text;
BEGIN
    FOR f IN SELECT * FROM bench_forms WHERE available LOOP
        FOR sh IN SELECT shape FROM s_rangearray LOOP
            SELECT string_agg(CASE WHEN e.op IN ('union', 'intersection', 'difference')
                                   THEN format(f.card, e.expr) || '::text'
                                   WHEN e.op = 'probes' THEN format('(SELECT count(*) FROM probes p WHERE p.shape = s.shape AND %s)::text', e.expr)
                                   ELSE '(' || e.expr || ')::text' END || ' || '' '' || ', '' ORDER BY o.n)
                   || format(f.card, 'a') || '::text'
            INTO q
            FROM bench_exprs e JOIN bench_ops o USING (op)
            WHERE e.form = f.form AND e.op NOT IN ('cardinality', 'text');
            EXECUTE format('SELECT %s FROM %I s WHERE shape = %L', q, f.tbl, sh) INTO answer;
            INSERT INTO bench_answers VALUES (sh, f.form, answer);
        END LOOP;
    END LOOP;
END $$;
SELECT shape, qn_rangearray_count(a) AS members_a, cardinality(a) / 2 AS ranges_a,
       qn_rangearray_count(b) AS members_b, cardinality(b) / 2 AS ranges_b,
       qn_rangearray_count(qn_int4range_intersection(a, b)) AS members_a_and_b,
       (SELECT answers FROM bench_answers x WHERE x.shape = s.shape AND x.form = 'int4set')
           AS "∪ ∩ − && @> hits |a|",
       (SELECT count(DISTINCT answers) = 1 AND count(*) = (SELECT count(*) FROM bench_forms WHERE available)
        FROM bench_answers x WHERE x.shape = s.shape) AS all_forms_agree
FROM s_rangearray s ORDER BY array_position('{runs,lone,dense,huge}', shape);

\ir include/median_ms.psql
-- The median of 5 runs after one more, or that first run alone when it took over 5 s.
CREATE FUNCTION pg_temp.timed(query text, OUT ms numeric, OUT runs int) LANGUAGE plpgsql AS $$
BEGIN
    SELECT median_fine INTO ms FROM pg_temp.median_ms(query, 0, 1);
    runs := 1;
    IF ms <= 5000 THEN
        SELECT median_fine INTO ms FROM pg_temp.median_ms(query, 0, 5);
        runs := 5;
    END IF;
END $$;
-- Memory the backend has freed is kept for reuse once glibc has seen a large
-- block freed (its mmap threshold rises): without this warm-up the first
-- statements would also pay for touching fresh memory, slow on a virtual machine
-- (about 4 ms a MB here), and the cells would depend on their order.
SELECT pg_column_size(repeat('x', 30000000)) AS warm_up \g /dev/null
CREATE TABLE bench_results (shape text, form text, op text, ms numeric, runs int);
DO $$
DECLARE
    c record;
    t record;
BEGIN
    FOR c IN SELECT s.shape, f.form, f.tbl, e.op, e.expr
             FROM s_rangearray s, bench_forms f JOIN bench_exprs e USING (form)
             WHERE f.available AND s.shape <> ALL (e.skip)
             ORDER BY array_position('{runs,lone,dense,huge}', s.shape), f.n, e.op LOOP
        t := pg_temp.timed(pg_temp.bench_query(c.tbl, c.op, c.expr, c.shape));
        INSERT INTO bench_results VALUES (c.shape, c.form, c.op, t.ms, t.runs);
    END LOOP;
    -- The floor under every cell: the row alone, and the probe join without a test.
    FOR c IN SELECT shape FROM s_rangearray LOOP
        t := pg_temp.timed(format('SELECT shape FROM s_int4set WHERE shape = %L', c.shape));
        INSERT INTO bench_results VALUES (c.shape, 'floor', 'row', t.ms, t.runs);
        t := pg_temp.timed(format('SELECT count(*) FROM s_int4set s JOIN probes p USING (shape) WHERE s.shape = %L',
                                  c.shape));
        INSERT INTO bench_results VALUES (c.shape, 'floor', 'probes', t.ms, t.runs);
    END LOOP;
END $$;

-- Stored bytes of a, then milliseconds.
CREATE FUNCTION pg_temp.cell(shape text, form text, op text) RETURNS text LANGUAGE sql AS $$
    SELECT round(ms, 2) || CASE WHEN runs = 1 THEN '*' ELSE '' END
    FROM bench_results r WHERE r.shape = $1 AND r.form = $2 AND r.op = $3
$$;
CREATE TABLE bench_sizes (shape text, form text, bytes int);
INSERT INTO bench_sizes SELECT shape, 'int4set', pg_column_size(a) FROM s_int4set
    UNION ALL SELECT shape, 'range array', pg_column_size(a) FROM s_rangearray;
\if :has_multirange
INSERT INTO bench_sizes SELECT shape, 'int4multirange', pg_column_size(a) FROM s_multirange;
\endif
\if :has_roaringbitmap
INSERT INTO bench_sizes SELECT shape, 'roaringbitmap', pg_column_size(a) FROM s_roaringbitmap;
\endif
SELECT s.shape, f.form, z.bytes AS stored_bytes,
       pg_temp.cell(s.shape, f.form, 'union') AS "union ms",
       pg_temp.cell(s.shape, f.form, 'intersection') AS "intersection ms",
       pg_temp.cell(s.shape, f.form, 'difference') AS "difference ms",
       pg_temp.cell(s.shape, f.form, 'overlap') AS "overlap ms",
       pg_temp.cell(s.shape, f.form, 'contains') AS "contains ms",
       pg_temp.cell(s.shape, f.form, 'probes') AS "1,000 probes ms",
       pg_temp.cell(s.shape, f.form, 'cardinality') AS "cardinality ms",
       pg_temp.cell(s.shape, f.form, 'text') AS "text ms"
FROM s_rangearray s CROSS JOIN bench_forms f LEFT JOIN bench_sizes z ON z.shape = s.shape AND z.form = f.form
ORDER BY array_position('{runs,lone,dense,huge}', s.shape), f.n;
SELECT shape, pg_temp.cell(shape, 'floor', 'row') AS "reading the row ms",
       pg_temp.cell(shape, 'floor', 'probes') AS "the probe join without a test ms"
FROM s_rangearray ORDER BY array_position('{runs,lone,dense,huge}', shape);

DROP TABLE s_rangearray, s_int4set, probes, bench_ops, bench_forms, bench_exprs, bench_answers, bench_results, bench_sizes;
\if :has_multirange
DROP TABLE s_multirange;
\endif
\if :has_roaringbitmap
DROP TABLE s_roaringbitmap;
DROP FUNCTION pg_temp.to_rb(int4[]);
DROP EXTENSION roaringbitmap;
\endif

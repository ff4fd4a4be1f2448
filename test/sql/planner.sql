-- Planning: estimates within a band of actual rows, function forms through the GiST indexes, seq scans kept when wide.
\i sql/include/errors.psql
\i sql/include/plans.psql
\i sql/include/estimates.psql
SET max_parallel_workers_per_gather = 0;

-- int4 values: 20% the value 4242, the rest over [0, 100000).
CREATE TABLE pv AS
SELECT i AS id, CASE WHEN i % 5 = 0 THEN 4242 ELSE (hashint4(i) & 2147483647) % 100000 END AS v
FROM generate_series(1, 20000) i;
-- Packed ranges: 10% [5000, 5099], the rest with lower bounds over [0, 1000000), widths up to 999.
CREATE TABLE pp AS
SELECT i AS id, CASE WHEN i % 10 = 0 THEN qn_range_pack(5000, 5099)
                     ELSE qn_range_pack(lo, lo + (hashint4(-i) & 2147483647) % 1000) END AS p
FROM (SELECT i, (hashint4(i) & 2147483647) % 1000000 AS lo FROM generate_series(1, 20000) i) s;
-- Segments of five ranges, and probe ranges from pp, for joins.
CREATE TABLE segments AS
SELECT s AS seg, (SELECT int4set_agg(lo, lo + 3000, 'r')
                  FROM (SELECT (hashint4(s * 5 + k) & 2147483647) % 100000 AS lo FROM generate_series(1, 5) k) x) AS ranges
FROM generate_series(1, 40) s;
CREATE TABLE probes AS SELECT id, p FROM pp WHERE id % 100 = 1;
ANALYZE pv, pp, segments, probes;

-- Selective, wide, heavy-hitter and many-range clauses, on either side.
SELECT clause, pg_temp.within(format('SELECT * FROM %s WHERE %s', tbl, clause), factor) AS estimate_within
FROM (VALUES
    ('pv', 'v <@ ''{1000,1999}''::int4[]', 1.5), ('pv', 'v <@ ''{0,49999}''::int4[]', 1.2),
    ('pv', 'v <@ ''{4242,4242}''::int4[]', 1.2),
    ('pv', 'v <@ ''{0,99,10000,10099,20000,20099,30000,30099,40000,40099,50000,50099}''::int4[]', 1.5),
    ('pv', 'v <@ qn_int4set2bitfield_int4(''r'', ''{4000,4999,60000,60999}'')', 1.5),
    ('pv', 'v <@ qn_range_pack(90000, 99999)', 1.2), ('pv', 'qn_int4_in_rangearray(v, ''{50000,59999}'')', 1.2),
    ('pp', 'p @> 5050', 1.2), ('pp', 'p @> 500000', 3), ('pp', '500000 <@ p', 3),
    ('pp', 'p && qn_range_pack(200000, 209999)', 1.5), ('pp', 'p && ''{0,99999,500000,599999}''::int4[]', 1.2),
    ('pp', 'p <@ qn_range_pack(0, 499999)', 1.2), ('pp', 'qn_range_pack(0, 499999) @> p', 1.2),
    ('pp', 'p @> qn_range_pack(700000, 700200)', 3),
    ('pp', 'qn_int4rangepacked_in_int4rangepacked(qn_range_pack(300000, 319999), p)', 1.5)) c(tbl, clause, factor);

-- Joins: inner, and semi joins seen from either side.
SELECT query, pg_temp.within(query, 1.5) AS estimate_within
FROM (VALUES ('SELECT * FROM pv JOIN segments s ON v <@ s.ranges'),
             ('SELECT * FROM pv WHERE EXISTS (SELECT FROM segments s WHERE v <@ s.ranges)'),
             ('SELECT * FROM segments s WHERE EXISTS (SELECT FROM pv WHERE v <@ s.ranges)'),
             ('SELECT * FROM probes q JOIN pp ON pp.p && q.p')) q(query);

-- Clauses that cannot be true, or operands statistics cannot read: the smallest estimate, or the defaults.
SELECT pg_temp.rows('SELECT * FROM pv WHERE v <@ ''{}''::int4[]') AS empty_array,
       pg_temp.rows('SELECT * FROM pv WHERE v <@ qn_int4set2bitfield_int4(''s'', ''{}'')') AS empty_bitfield,
       pg_temp.rows('SELECT * FROM pv WHERE v <@ ''\x0102''::bytea') AS malformed_bitfield,
       pg_temp.rows('SELECT * FROM pp WHERE p && qn_range_pack(id, id)') AS varying_range,
       pg_temp.rows('SELECT * FROM pp WHERE 5 <@ ARRAY[id, id]') AS column_of_arrays;

-- Generic plans: a parameter in packed ranges as a typical value (~9 rows), a one-value packed range as equality.
SET plan_cache_mode = force_generic_plan;
PREPARE contains_value(int4) AS SELECT * FROM pp WHERE p @> $1;
PREPARE value_in(int4) AS SELECT * FROM pv WHERE v <@ qn_range_pack($1, $1);
SELECT pg_temp.rows('EXECUTE contains_value(400000)') BETWEEN 3 AND 30 AS typical_value,
       pg_temp.rows('EXECUTE value_in(400000)') BETWEEN 1 AND 3 AS as_equality;
RESET plan_cache_mode;

-- Function forms become index conditions (a Filter only for a non-constant first argument), with seq scan's rows.
CREATE INDEX pv_v ON pv USING gist (v qn_gist_int4_ops);
CREATE INDEX pp_p ON pp USING gist (p qn_gist_rangepacked_ops);
-- by_index(query, indexes): the plain index scan's condition (+ Filter) and its rows, or the sequential scan's rows.
CREATE FUNCTION pg_temp.by_index(query text, indexes bool, OUT cond text, OUT n bigint) LANGUAGE plpgsql AS $$
DECLARE line text;
BEGIN
    PERFORM set_config('enable_seqscan', (NOT indexes)::text, true), set_config('enable_indexscan', indexes::text, true),
            set_config('enable_bitmapscan', 'off', true);
    cond := 'no index';
    FOR line IN EXECUTE 'EXPLAIN (COSTS OFF) ' || query LOOP
        IF line ~ 'Index Cond' THEN cond := btrim(line); END IF;
        IF line ~ 'Filter' AND indexes THEN cond := cond || ' + Filter'; END IF;
    END LOOP;
    EXECUTE 'SELECT count(*) FROM (' || query || ') q' INTO n;
    PERFORM set_config('enable_seqscan', 'on', true), set_config('enable_indexscan', 'on', true),
            set_config('enable_bitmapscan', 'on', true);
END $$;
SELECT clause, i.cond AS index_plan, i.n AS rows, i.n = s.n AS same_rows
FROM (VALUES
    ('pv', 'qn_int4_in_rangearray(v, ''{1000,1999,4242,4242}'')'),
    ('pv', 'qn_int4_in_rangebitfield(v, qn_int4set2bitfield_int4(''r'', ''{4240,4249}''))'),
    ('pv', 'qn_int4_in_packedrange(v, qn_range_pack(1000, 1999))'),
    ('pv', 'qn_int4rangepacked_contains_int4(qn_range_pack(1000, 1999), v)'),
    ('pv', 'qn_int4rangepacked_contains_int4(0, v, qn_range_pack(1000, 1999))'),
    ('pp', 'qn_int4_in_packedrange(5050, p)'), ('pp', 'qn_int4rangepacked_contains_int4(p, 400000)'),
    ('pp', 'qn_int4rangepacked_contains_int4(0, 5050, p)'),
    ('pp', 'qn_int4rangepacked_contains_int4(CASE WHEN id % 2 = 0 THEN 0 END, 5050, p)'),
    ('pp', 'qn_int4rangepacked_in_rangearray(p, ''{300000,309999}'')'),
    ('pp', 'qn_int4rangepacked_in_int4rangepacked(p, qn_range_pack(300000, 309999))'),
    ('pp', 'qn_int4rangepacked_in_int4rangepacked(qn_range_pack(300000, 309999), p)'),
    ('pp', 'qn_int4rangepacked_included_in_int4rangepacked(p, qn_range_pack(300000, 349999))'),
    ('pp', 'qn_int4rangepacked_included_in_int4rangepacked(qn_range_pack(5010, 5020), p)'),
    ('pp', 'qn_int4rangepacked_contains_int4rangepacked(p, qn_range_pack(5010, 5020))'),
    ('pp', 'qn_int4rangepacked_contains_int4rangepacked(qn_range_pack(300000, 349999), p)')) c(tbl, clause),
LATERAL pg_temp.by_index(format('SELECT * FROM %s WHERE %s', tbl, clause), true) i,
LATERAL pg_temp.by_index(format('SELECT * FROM %s WHERE %s', tbl, clause), false) s;

-- A range array of odd length answers alike in every plan: `v <@` and its function ignore the odd element,
-- `packed &&` and its function refuse the array; as a constant, a join operand and a generic plan's parameter.
CREATE TABLE odd_seg AS SELECT '{1000,1999,7}'::int4[] AS a;
SET plan_cache_mode = force_generic_plan;
PREPARE odd_value_seq(int4[]) AS SELECT count(*) FROM pv WHERE qn_int4_in_rangearray(v, $1);
PREPARE odd_value_idx(int4[]) AS SELECT count(*) FROM pv WHERE qn_int4_in_rangearray(v, $1);
PREPARE odd_packed_seq(int4[]) AS SELECT count(*) FROM pp WHERE qn_int4rangepacked_in_rangearray(p, $1);
PREPARE odd_packed_idx(int4[]) AS SELECT count(*) FROM pp WHERE qn_int4rangepacked_in_rangearray(p, $1);
SET enable_indexscan = off;
SET enable_bitmapscan = off;
CREATE TEMP TABLE odd_runs AS
SELECT q, pg_temp.run(format(q, 'seq')) AS seq_scan
FROM (VALUES ('SELECT count(*) FROM pv WHERE qn_int4_in_rangearray(v, ''{1000,1999,7}'')'),
             ('SELECT count(*) FROM odd_seg s JOIN pv ON qn_int4_in_rangearray(pv.v, s.a)'),
             ('SELECT count(*) FROM odd_seg s JOIN pv ON pv.v <@ s.a'), ('EXECUTE odd_value_%s(''{1000,1999,7}'')'),
             ('SELECT count(*) FROM odd_seg s JOIN pp ON qn_int4rangepacked_in_rangearray(pp.p, s.a)'),
             ('EXECUTE odd_packed_%s(''{1000,1999,7}'')')) t(q);
RESET enable_indexscan;
RESET enable_bitmapscan;
SET enable_seqscan = off;
SELECT q, seq_scan, pg_temp.run(format(q, 'idx')) AS by_index, pg_temp.plan_has(format(q, 'idx'), 'Index Cond') AS indexed
FROM odd_runs;
RESET enable_seqscan;
RESET plan_cache_mode;

-- A clause matching most of the table keeps the sequential scan, in either form.
SELECT pg_temp.plan_has('SELECT * FROM pv WHERE v <@ ''{0,89999}''::int4[]', 'Seq Scan') AS operator_seq_scan,
       pg_temp.plan_has('SELECT * FROM pv WHERE qn_int4_in_rangearray(v, ''{0,89999}'')', 'Seq Scan') AS function_seq_scan,
       pg_temp.plan_has('SELECT * FROM pp WHERE p <@ qn_range_pack(0, 899999)', 'Seq Scan') AS packed_seq_scan,
       pg_temp.plan_has('SELECT * FROM pv WHERE v <@ ''{1000,1049}''::int4[]', 'Seq Scan') AS selective_seq_scan;

-- Range arrays in and out of int4range, int4range[], int4multirange and rows; normalising and comparing them.
\i sql/include/errors.psql

-- int4range to packed range and back: closed ranges, unbounded ends as the int4 extremes, no packed empty range.
SELECT r, pg_temp.run(format('SELECT qn_rangepacked_to_text(qn_rangepacked_from_int4range(%L))', r)) AS packed,
       pg_temp.run(format('SELECT qn_rangepacked_to_int4range(qn_rangepacked_from_int4range(%L))', r)) AS back
FROM (VALUES ('[3,5]'::int4range), ('(3,5)'), ('[-10,0)'), ('(,5]'), ('[7,)'), ('(,)'),
             ('[-2147483648,0]'), ('[0,2147483647)'), ('[4,5)'), ('empty')) t(r);
SELECT p, pg_temp.run(format('SELECT qn_rangepacked_to_int4range(%s)', p)) AS range
FROM (VALUES (qn_range_pack(-1, 0)), (qn_range_pack(5, 5)), (-4294967296), (0)) t(p);

-- int4range[] to a range array (merged; NULLs and empty ranges add nothing) and back (one range per pair, in order).
SELECT a, qn_rangearray_from_int4ranges(a) AS range_array
FROM (VALUES ('{"[10,20)","[1,3]",empty,NULL,"[4,5]"}'::int4range[]), ('{"(,-5)","[100,)","[-5,-5]"}'),
             ('{{"[1,2]","[8,9]"},{"[3,4]",NULL}}'), ('{"(,)","[1,2]"}'), ('{empty,NULL}'), ('{}')) t(a);
SELECT a, pg_temp.run(format('SELECT qn_rangearray_to_int4ranges(%L)', a)) AS ranges
FROM (VALUES ('{1,3,10,19,5,4}'::int4[]), ('{-2147483648,0,7,2147483647}'), ('{3,3}'), ('{}'),
             ('{{1,2},{3,4}}'), ('{1,NULL}'), ('{1,2,3}')) t(a);

-- int4multirange (14 and later, absent before): checks run where it exists and list only failures, for every server.
SELECT current_setting('server_version_num')::int >= 140000 AS has_multirange \gset
SELECT count(*) = CASE WHEN :'has_multirange' THEN 4 ELSE 0 END AS multirange_objects_as_expected
FROM pg_depend d JOIN pg_extension e ON e.oid = d.refobjid AND e.extname = 'kelvarn_range_operators'
WHERE d.deptype = 'e' AND pg_describe_object(d.classid, d.objid, d.objsubid) LIKE '%multirange%'
  AND pg_describe_object(d.classid, d.objid, d.objsubid) NOT LIKE '%int4set%';
CREATE TEMP TABLE checks (name text, query text, expected text);
INSERT INTO checks VALUES
    ('declarations', $$SELECT string_agg(format('%s %s%s%s', oid::regprocedure, proisstrict, provolatile, proparallel), '; '
                                         ORDER BY oid::regprocedure::text)
                       FROM pg_proc WHERE proname LIKE 'qn\_rangearray\_%multirange'$$,
     'qn_rangearray_from_int4multirange(int4multirange) tis; qn_rangearray_to_int4multirange(integer[]) tis'),
    ('to a range array', $$SELECT qn_rangearray_from_int4multirange('{[1,3),[5,9),(,-10),[100,)}')$$,
     '{-2147483648,-11,1,2,5,8,100,2147483647}'),
    ('the empty multirange', $$SELECT array_dims(qn_rangearray_from_int4multirange('{}'))$$, '[1:0]'),
    ('from any order, inverted pairs dropped', $$SELECT qn_rangearray_to_int4multirange('{5,9,1,3,4,4,200,100}')$$,
     '{[1,10)}'),
    ('extremes are unbounded', $$SELECT qn_rangearray_to_int4multirange('{-2147483648,5,7,2147483647}')$$, '{(,6),[7,)}'),
    ('both forms of {} and arrays read as empty',
     $$SELECT concat(qn_rangearray_to_int4multirange('{}'), qn_rangearray_to_int4multirange(qn_int4range_intersection('{1,2}', '{5,6}')),
                     qn_rangearray_to_int4multirange('{1,NULL}'))$$, '{}{}{}'),
    ('odd length', $$SELECT qn_rangearray_to_int4multirange('{1,2,3}')$$, '42804: array length should be even'),
    ('casts both ways', $$SELECT '{[1,3),[5,9)}'::int4multirange::int4[] || '{7,9,1,3,4,4}'::int4[]::int4multirange::int4[]$$,
     '{1,2,5,8,1,4,7,9}'),
    -- Written in the stored layout: equal to the server's own multirange of the same ranges, in value, text and size,
    -- past the every-fourth-range offsets and with unbounded ends; lists that differ are counted.
    ('as the server builds it', $$WITH c AS MATERIALIZED (  -- stored alike, so that their sizes compare
        SELECT a, qn_rangearray_to_int4multirange(a) AS ours,
               coalesce((SELECT range_agg(r) FROM unnest(qn_rangearray_to_int4ranges(a)) r), '{}') AS server
        FROM (SELECT lo || ARRAY(SELECT x FROM generate_series(1, k) j, LATERAL (VALUES (j * 100), (j * 100 + j % 7)) v(x)) || hi
              FROM generate_series(0, 9) k, (VALUES ('{}'::int4[]), ('{-2147483648,-5}')) l(lo),
                   (VALUES ('{}'::int4[]), ('{5000,2147483647}')) h(hi)) t(a))
        SELECT count(*) FROM c WHERE ours <> server OR ours::text <> server::text OR pg_column_size(ours) <> pg_column_size(server)
                                     OR qn_rangearray_from_int4multirange(ours)::text <> a::text$$, '0');
SELECT name, got, expected
FROM (SELECT name, pg_temp.run(query) AS got, expected FROM checks WHERE :'has_multirange') c
WHERE got IS DISTINCT FROM expected;

-- Rows: pairs as they are (inverted add nothing, overlaps repeat), no wrap at the int4 extremes, odd lengths refused.
SELECT * FROM qn_rangearray_unnest('{1,3,10,10,-5,-7}');
SELECT a, pg_temp.try(format('SELECT qn_rangearray_members(%L)', a)) AS outcome,
       CASE WHEN cardinality(a) % 2 = 0 THEN ARRAY(SELECT qn_rangearray_members(a)) END AS members,
       CASE WHEN cardinality(a) % 2 = 0 THEN (SELECT count(*) FROM qn_rangearray_unnest(a)) END AS pairs
FROM (VALUES ('{1,3,10,10}'::int4[]), ('{5,3,7,8}'), ('{1,3,2,4}'), ('{2147483646,2147483647}'),
             ('{-2147483648,-2147483647}'), ('{}'), ('{{1,2},{3,4}}'), ('{1,NULL}'), ('{1,2,3}')) t(a);
SELECT pg_temp.try($$SELECT * FROM qn_rangearray_unnest('{1}')$$) AS unnest_odd,
       (SELECT count(*) FROM qn_rangearray_members(NULL)) AS null_members,
       (SELECT count(*) FROM qn_rangearray_unnest(NULL)) AS null_pairs;
-- Rows stream (the first of 2^31 come at once) and a walk over every int4 ends at the statement timeout.
SELECT qn_rangearray_members('{0,2147483647}') LIMIT 3;
SET statement_timeout = '100ms';
SELECT count(*) FROM (SELECT qn_rangearray_members('{-2147483648,2147483647}')) s;
RESET statement_timeout;

-- Normalising unsorted, overlapping, adjacent, inverted and repeated pairs, at the int4 extremes too, and empty shapes.
SELECT a, pg_temp.run(format('SELECT qn_rangearray_normalise(%L)', a)) AS normalised,
       pg_temp.run(format('SELECT qn_rangearray_is_normalised(%L)', a)) AS is_normalised,
       pg_temp.run(format('SELECT qn_rangearray_is_empty(%L)', a)) AS is_empty
FROM (VALUES ('{}'::int4[]), (qn_int4range_intersection('{1,2}', '{5,6}')), ('{1,3,5,9}'), ('{1,3,4,6}'), ('{5,9,1,3}'),
             ('{1,10,2,3}'), ('{5,3}'), ('{5,3,1,1}'), ('{1,5,1,5}'), ('{1,5,7,6}'),
             ('{9,9,8,8,7,7,6,6,5,5,4,4,3,3,2,2,1,1,-1,-1}'),
             ('{-2147483648,2147483646,2147483647,2147483647}'), ('{2147483647,2147483647,-2147483648,-2147483648}'),
             ('{-2147483648,-2147483648,2147483647,2147483647}'), ('[0:3]={5,6,1,2}'),
             ('{{1,2},{3,4}}'), ('{1,NULL}'), ('{1,2,3}')) t(a);
-- Equality of sets: order, overlaps and the form of '{}' do not matter.
SELECT a, b, pg_temp.run(format('SELECT qn_rangearray_equal(%L, %L)', a, b)) AS equal
FROM (VALUES ('{}'::int4[], qn_int4range_intersection('{1,2}', '{5,6}')), ('{1,6}', '{4,6,1,3}'), ('{1,6}', '{1,5}'),
             ('{5,3}', '{}'), ('{1,2,8,9}', '{8,9,1,2}'), ('{1,2,8,9}', '{1,2,8,10}'), ('{1,NULL}', '{}'),
             ('{1,2,3}', '{}'), ('{}', '{1}')) t(a, b);

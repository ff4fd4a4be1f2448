-- PostgreSQL's int4range in and out of packed ranges, int4range[] in and out of
-- range arrays: known answers and errors, then generated arrays of ranges
-- checked with PostgreSQL's own range operators, and round trips.
\i sql/include/errors.psql
\i sql/include/run.psql

-- int4range to packed range and back: any bound style gives the closed range;
-- unbounded ends are the int4 extremes and come back unbounded; the empty range
-- has no packed form.
SELECT r, pg_temp.run(format('SELECT qn_rangepacked_to_text(qn_rangepacked_from_int4range(%L))', r)) AS packed,
       pg_temp.run(format('SELECT qn_rangepacked_to_int4range(qn_rangepacked_from_int4range(%L))', r)) AS back
FROM (VALUES ('[3,5]'::int4range), ('(3,5)'), ('[-10,0)'), ('(,5]'), ('[7,)'), ('(,)'),
             ('[-2147483648,0]'), ('[0,2147483647)'), ('[4,5)'), ('empty')) t(r);
-- Packed ranges back to int4range; one whose upper is below its lower is refused,
-- as qn_range_pack refuses it.
SELECT p, pg_temp.run(format('SELECT qn_rangepacked_to_int4range(%s)', p)) AS range
FROM (VALUES (qn_range_pack(-1, 0)), (qn_range_pack(5, 5)), (-4294967296), (0)) t(p);

-- int4range[] to a range array: any order and shape; overlapping and adjacent
-- ranges merge, NULL elements and empty ranges add nothing.
SELECT a, qn_rangearray_from_int4ranges(a) AS range_array
FROM (VALUES ('{"[10,20)","[1,3]",empty,NULL,"[4,5]"}'::int4range[]), ('{"(,-5)","[100,)","[-5,-5]"}'),
             ('{{"[1,2]","[8,9]"},{"[3,4]",NULL}}'), ('{"(,)","[1,2]"}'), ('{empty,NULL}'), ('{}')) t(a);
SELECT array_dims(qn_rangearray_from_int4ranges('{}')) AS empty_dims,
       array_dims(qn_rangearray_from_int4ranges('{empty}')) AS only_empty_dims;

-- A range array to int4range[]: one range per pair in pair order, an inverted
-- pair as the empty range; arrays read as empty give PostgreSQL's empty array.
SELECT a, pg_temp.run(format('SELECT qn_rangearray_to_int4ranges(%L)', a)) AS ranges
FROM (VALUES ('{1,3,10,19,5,4}'::int4[]), ('{-2147483648,0,7,2147483647}'), ('{3,3}'), ('{}'),
             ('{{1,2},{3,4}}'), ('{1,NULL}'), ('{1,2,3}')) t(a);

-- Generated arrays of 1 to 9 int4ranges each: every bound style, unbounded
-- ends, empty ranges and NULL elements, in any order.
CREATE TEMP TABLE cases AS
SELECT c, array_agg(CASE WHEN h % 11 = 0 THEN NULL
                         WHEN h % 13 = 0 THEN 'empty'::int4range
                         ELSE int4range(CASE WHEN h % 17 = 0 THEN NULL ELSE lo END,
                                        CASE WHEN h % 19 = 0 THEN NULL ELSE lo + w END,
                                        (ARRAY['[)', '[]', '()', '(]'])[1 + (h >> 20) % 4]) END
                    ORDER BY k) AS ranges
FROM (SELECT c, k, h, ((h >> 4) % 60)::int - 30 AS lo, ((h >> 12) % 8)::int AS w
      FROM generate_series(1, 400) c, generate_series(1, 1 + c % 9) k,
           LATERAL (SELECT hashint4(c * 1000 + k)::int8 + 2147483648 AS h) x) q
GROUP BY c;
ALTER TABLE cases ADD arr int4[];
UPDATE cases SET arr = qn_rangearray_from_int4ranges(ranges);

-- Against PostgreSQL's operators: a value is in the range array exactly when
-- some input range contains it (@>); the result's ranges, as int4ranges, are
-- each strictly left of the next (<<) without touching it (-|-); both round
-- trips give back what went in.
SELECT count(*) AS cases,
       count(*) FILTER (WHERE EXISTS (
           SELECT FROM (SELECT generate_series(-45, 45) UNION ALL VALUES ((-2147483648)::int), (2147483647)) v(v)
           WHERE qn_int4_in_rangearray(v, arr) <> coalesce((SELECT bool_or(r @> v) FROM unnest(ranges) r), false))) AS membership_wrong,
       count(*) FILTER (WHERE EXISTS (
           SELECT FROM unnest(qn_rangearray_to_int4ranges(arr)) WITH ORDINALITY a(r, i)
           JOIN unnest(qn_rangearray_to_int4ranges(arr)) WITH ORDINALITY b(s, j) ON j = i + 1
           WHERE isempty(r) OR NOT r << s OR r -|- s)) AS not_apart,
       count(*) FILTER (WHERE qn_rangearray_from_int4ranges(qn_rangearray_to_int4ranges(arr)) <> arr) AS array_round_trip_wrong,
       count(*) FILTER (WHERE EXISTS (
           SELECT FROM unnest(qn_rangearray_to_int4ranges(arr)) r
           WHERE qn_rangepacked_to_int4range(qn_rangepacked_from_int4range(r)) <> r)) AS packed_round_trip_wrong,
       count(*) FILTER (WHERE NOT qn_rangearray_is_normalised(arr)) AS not_normalised
FROM cases;
-- The generated cases merge ranges, and hold unbounded ends, empty ranges and NULLs.
SELECT count(*) FILTER (WHERE cardinality(arr) / 2 < (SELECT count(*) FROM unnest(ranges) r WHERE NOT isempty(r))) > 0 AS has_merges,
       count(*) FILTER (WHERE EXISTS (SELECT FROM unnest(ranges) r WHERE lower_inf(r) OR upper_inf(r))) > 0 AS has_unbounded,
       count(*) FILTER (WHERE EXISTS (SELECT FROM unnest(ranges) r WHERE isempty(r))) > 0 AS has_empty,
       count(*) FILTER (WHERE array_position(ranges, NULL) IS NOT NULL) > 0 AS has_nulls
FROM cases;

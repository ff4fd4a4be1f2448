-- Packed ranges (packing, text form) and membership and overlap tests over range arrays and packed ranges.
\i sql/include/errors.psql

-- Packing: lower in the low 32 bits, upper in the high 32 bits.
SELECT qn_range_pack(3, 3) AS three, qn_range_pack('{3,3}') AS three_from_array,
       qn_range_pack(-1, 0) AS minus_one_to_zero, qn_range_pack(-2147483648, 2147483647) AS full_span,
       qn_rangepacked_lower(qn_range_pack(-10, -1)) AS lower, qn_rangepacked_upper(qn_range_pack(-10, -1)) AS upper,
       qn_rangepacked_lower(-4294967296) AS unchecked_lower, qn_rangepacked_upper(-4294967296) AS unchecked_upper,
       qn_rangepacked_to_text(-4294967296) AS unchecked_text;
SELECT a, pg_temp.try(format('SELECT qn_range_pack(%L::int4[])', a)) AS outcome
FROM (VALUES ('{1,2,3}'), ('{1,NULL}'), ('{{1,2}}'), ('{}'), ('{5,4}')) t(a);
SELECT pg_temp.try('SELECT qn_range_pack(5, 4)') AS inverted, pg_temp.try('SELECT qn_range_pack(4, 4)') AS single,
       qn_range_pack(NULL::int4, 1) IS NULL AS strict_bounds, qn_range_pack(NULL::int4[]) IS NULL AS strict_array;

-- Text "[lower,upper]" and back: blanks and signs are accepted; anything else is a syntax error (22P02), a bound outside
-- int4 is out of range (22003), upper below lower is an invalid range (22023).
SELECT t, pg_temp.run(format('SELECT qn_rangepacked_to_text(qn_rangepacked_from_text(%L))', t)) AS parsed
FROM (VALUES ('[3,5]'), (' [ -5 , +7 ] '), (E'\t[1,1]\n'), ('[-2147483648,2147483647]'), ('[007,8]'),
             ('[1,2'), ('1,2]'), ('[1;2]'), ('[1,2)'), ('[,2]'), ('[1,2]x'), ('[1,2,3]'), ('[+,2]'), ('[1 2,3]'), (''),
             ('[1,2147483648]'), ('[-2147483649,0]'), ('[99999999999999999999,0]'), ('[1,x99999999999]'),
             ('[5,4]')) v(t);

-- Known answers: both ends inclusive, an odd tail ignored, the first argument of the three-argument form unread.
SELECT qn_int4_in_rangearray(5, '{1,5}') AS upper_end, qn_int4_in_rangearray(1, '{1,5}') AS lower_end,
       qn_int4_in_rangearray(6, '{1,5,7,9}') AS gap, qn_int4_in_rangearray(7, '{1,5,7}') AS odd_tail_ignored,
       qn_int4_in_packedrange(-5, qn_range_pack(-10, -1)) AS negative,
       qn_int4rangepacked_contains_int4(12345, -5, qn_range_pack(-10, -1)) AS first_argument_unread,
       qn_int4_in_packedrange(2147483647, qn_range_pack(0, 2147483647)) AS top,
       qn_int4_in_packedrange(-2147483648, qn_range_pack(-2147483647, 0)) AS below,
       qn_int4rangepacked_contains_int4(0, -2147483648, qn_range_pack(-2147483648, -2147483648)) AS bottom;

-- Shapes: zero-dimension, two-dimension and NULL-holding arrays make the tests false; odd lengths are refused by the
-- range tests (after the shape check).
SELECT a, qn_int4_in_rangearray(1, a) AS value_in, qn_int4rangepacked_in_rangearray(qn_range_pack(0, 9), a) AS packed_in,
       qn_int4range_overlap_rangearray(a, '{0,9}') AS overlap_a, qn_int4range_overlap_rangearray('{0,9,20,30}', a) AS overlap_b
FROM (VALUES ('{}'::int4[]), ('{{1,2},{3,4}}'), ('{{1,2,3}}'), ('{1,NULL}')) t(a);
SELECT pg_temp.try($$SELECT qn_int4rangepacked_in_rangearray(qn_range_pack(0, 9), '{1,2,3}')$$) AS packed_odd,
       pg_temp.try($$SELECT qn_int4range_overlap_rangearray('{1,2,3}', '{}')$$) AS overlap_odd_a,
       pg_temp.try($$SELECT qn_int4range_overlap_rangearray('{}', '{1,2,3}')$$) AS overlap_odd_b;

-- Pairs of packed ranges, at the int4 extremes too: overlap ("in": sharing a member), inclusion, containment.
SELECT a, b, qn_int4rangepacked_in_int4rangepacked(pa, pb) AS overlap,
       qn_int4rangepacked_included_in_int4rangepacked(pa, pb) AS included, qn_int4rangepacked_contains_int4rangepacked(pa, pb) AS contains
FROM (VALUES ('{3,4}'::int4[], '{1,9}'::int4[]), ('{1,9}', '{3,4}'), ('{1,9}', '{9,12}'), ('{-2147483648,0}', '{-2147483648,-2147483648}'),
             ('{2147483647,2147483647}', '{-2147483648,2147483647}'), ('{0,5}', '{-5,-1}'), ('{1,5}', '{5,9}'),
             ('{1,4}', '{5,9}'), ('{1,4}', '{1,4}')) t(a, b),
     LATERAL (SELECT qn_range_pack(a), qn_range_pack(b)) p(pa, pb);

-- Range arrays and bitfields stored out of line (bitfields also compressed inline) are fetched once per call site and
-- kept, keyed by their TOAST pointer: rows alternating between stored values still get their own value's answer.
CREATE TABLE stored (id int, a int4[], bf bytea, bfc bytea);
ALTER TABLE stored ALTER a SET STORAGE EXTERNAL, ALTER bf SET STORAGE EXTERNAL, ALTER bfc SET STORAGE MAIN;
INSERT INTO stored SELECT id, ARRAY(SELECT x FROM generate_series(id, 40000, 10) s, LATERAL (VALUES (s), (s + id)) p(x)), bf, bf
FROM generate_series(1, 4) id,
     LATERAL (SELECT qn_int4set2bitfield_int4('s', ARRAY(SELECT g FROM generate_series(0, 50000) g WHERE g % (id + 1) = 0)) bf) b;
SELECT count(*) FILTER (WHERE pg_column_size(a) > 2000 AND pg_column_size(bf) > 2000) AS out_of_line,
       count(*) FILTER (WHERE pg_column_size(bfc) < octet_length(bfc)) AS compressed FROM stored;
SELECT count(*) AS cases,
       count(*) FILTER (WHERE qn_int4_in_rangearray(v, a) = qn_int4_in_rangearray(v, a || '{}'::int4[])
                        AND qn_int4rangepacked_in_rangearray(qn_range_pack(v, v + 1), a)
                            = qn_int4rangepacked_in_rangearray(qn_range_pack(v, v + 1), a || '{}'::int4[])) AS same,
       count(*) FILTER (WHERE qn_int4_in_rangearray(v, a)) AS hits,
       count(*) FILTER (WHERE qn_int4_in_rangebitfield(v, bf) = (v % (id + 1) = 0) AND qn_int4_in_rangebitfield(v, bfc) = (v % (id + 1) = 0)
                        AND qn_int4set_overlap_bitfield('s', ARRAY[v], bf) = (v % (id + 1) = 0)) AS bitfield_own_answer
FROM (SELECT v, id, a, bf, bfc FROM generate_series(0, 50000, 13) v, stored ORDER BY v, id) q;
SELECT x.id, y.id, qn_int4range_overlap_rangearray(x.a, y.a) AS overlap,
       qn_int4range_overlap_rangearray(x.a || '{}'::int4[], y.a || '{}'::int4[]) AS in_memory
FROM stored x, stored y ORDER BY x.id, y.id LIMIT 6;
DROP TABLE stored;

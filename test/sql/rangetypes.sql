-- PostgreSQL's int4range in and out of packed ranges, int4range[] in and out of range arrays: known answers and errors
-- (fuzz_rangetypes compares the kernels with a model).
\i sql/include/errors.psql

-- int4range to packed range and back: any bound style gives the closed range; unbounded ends are the int4 extremes and
-- come back unbounded; the empty range has no packed form.
SELECT r, pg_temp.run(format('SELECT qn_rangepacked_to_text(qn_rangepacked_from_int4range(%L))', r)) AS packed,
       pg_temp.run(format('SELECT qn_rangepacked_to_int4range(qn_rangepacked_from_int4range(%L))', r)) AS back
FROM (VALUES ('[3,5]'::int4range), ('(3,5)'), ('[-10,0)'), ('(,5]'), ('[7,)'), ('(,)'),
             ('[-2147483648,0]'), ('[0,2147483647)'), ('[4,5)'), ('empty')) t(r);
-- Packed ranges back to int4range; one whose upper is below its lower is refused, as qn_range_pack refuses it.
SELECT p, pg_temp.run(format('SELECT qn_rangepacked_to_int4range(%s)', p)) AS range
FROM (VALUES (qn_range_pack(-1, 0)), (qn_range_pack(5, 5)), (-4294967296), (0)) t(p);

-- int4range[] to a range array: any order and shape; overlapping and adjacent ranges merge, NULL elements and empty
-- ranges add nothing.
SELECT a, qn_rangearray_from_int4ranges(a) AS range_array
FROM (VALUES ('{"[10,20)","[1,3]",empty,NULL,"[4,5]"}'::int4range[]), ('{"(,-5)","[100,)","[-5,-5]"}'),
             ('{{"[1,2]","[8,9]"},{"[3,4]",NULL}}'), ('{"(,)","[1,2]"}'), ('{empty,NULL}'), ('{}')) t(a);
SELECT array_dims(qn_rangearray_from_int4ranges('{}')) AS empty_dims,
       array_dims(qn_rangearray_from_int4ranges('{empty}')) AS only_empty_dims;

-- A range array to int4range[]: one range per pair in pair order, an inverted pair as the empty range; arrays read as
-- empty give PostgreSQL's empty array.
SELECT a, pg_temp.run(format('SELECT qn_rangearray_to_int4ranges(%L)', a)) AS ranges
FROM (VALUES ('{1,3,10,19,5,4}'::int4[]), ('{-2147483648,0,7,2147483647}'), ('{3,3}'), ('{}'),
             ('{{1,2},{3,4}}'), ('{1,NULL}'), ('{1,2,3}')) t(a);


-- Normalising range arrays of any order, and telling whether one is normalised, empty, or the same set as another,
-- through the server: shapes, forms of '{}' and errors (the kernels are compared with a model in the unit tests).
\i sql/include/errors.psql

-- Unsorted (in a few runs, or in many), overlapping, adjacent, inverted and repeated pairs; adjacency and order at the
-- int4 extremes (compared without wrapping); both forms of '{}', and the shapes read as empty.
SELECT a, pg_temp.run(format('SELECT qn_rangearray_normalise(%L)', a)) AS normalised,
       pg_temp.run(format('SELECT qn_rangearray_is_normalised(%L)', a)) AS is_normalised,
       pg_temp.run(format('SELECT qn_rangearray_is_empty(%L)', a)) AS is_empty
FROM (VALUES ('{}'::int4[]), (qn_int4range_intersection('{1,2}', '{5,6}')), ('{1,3,5,9}'), ('{1,3,4,6}'), ('{5,9,1,3}'),
             ('{1,10,2,3}'), ('{5,3}'), ('{5,3,1,1}'), ('{1,5,1,5}'), ('{1,5,7,6}'),
             ('{9,9,8,8,7,7,6,6,5,5,4,4,3,3,2,2,1,1,-1,-1}'),
             ('{-2147483648,2147483646,2147483647,2147483647}'), ('{2147483647,2147483647,-2147483648,-2147483648}'),
             ('{-2147483648,-2147483648,2147483647,2147483647}'), ('[0:3]={5,6,1,2}'),
             ('{{1,2},{3,4}}'), ('{1,NULL}'), ('{1,2,3}')) t(a);
SELECT array_dims(qn_rangearray_normalise('{}')) AS empty_dims, array_dims(qn_rangearray_normalise('{5,3}')) AS inverted_dims;

-- Equality of sets: order, overlaps and the form of '{}' do not matter.
SELECT a, b, pg_temp.run(format('SELECT qn_rangearray_equal(%L, %L)', a, b)) AS equal
FROM (VALUES ('{}'::int4[], qn_int4range_intersection('{1,2}', '{5,6}')), ('{1,6}', '{4,6,1,3}'), ('{1,6}', '{1,5}'),
             ('{5,3}', '{}'), ('{1,2,8,9}', '{8,9,1,2}'), ('{1,2,8,9}', '{1,2,8,10}'), ('{1,NULL}', '{}'),
             ('{1,2,3}', '{}'), ('{}', '{1}')) t(a, b);

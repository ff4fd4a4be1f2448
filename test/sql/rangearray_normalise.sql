-- Normalising range arrays of any order, and telling whether one is
-- normalised, empty, or the same set as another: known answers, then generated
-- arrays checked against int4set_agg over the members plain SQL finds.
\i sql/include/run.psql

-- Unsorted, overlapping, adjacent, inverted and repeated pairs; adjacency and
-- order at the int4 extremes (compared without wrapping); both forms of '{}',
-- and the shapes read as empty.
SELECT a, pg_temp.run(format('SELECT qn_rangearray_normalise(%L)', a)) AS normalised,
       pg_temp.run(format('SELECT qn_rangearray_is_normalised(%L)', a)) AS is_normalised,
       pg_temp.run(format('SELECT qn_rangearray_is_empty(%L)', a)) AS is_empty
FROM (VALUES ('{}'::int4[]), (qn_int4range_intersection('{1,2}', '{5,6}')), ('{1,3,5,9}'), ('{1,3,4,6}'), ('{5,9,1,3}'),
             ('{1,10,2,3}'), ('{5,3}'), ('{5,3,1,1}'), ('{1,5,1,5}'), ('{1,5,7,6}'),
             ('{-2147483648,2147483646,2147483647,2147483647}'), ('{2147483647,2147483647,-2147483648,-2147483648}'),
             ('{-2147483648,-2147483648,2147483647,2147483647}'), ('[0:3]={5,6,1,2}'),
             ('{{1,2},{3,4}}'), ('{1,NULL}'), ('{1,2,3}')) t(a);
SELECT array_dims(qn_rangearray_normalise('{}')) AS empty_dims, array_dims(qn_rangearray_normalise('{5,3}')) AS inverted_dims;

-- Equality of sets: order, overlaps and the form of '{}' do not matter.
SELECT a, b, pg_temp.run(format('SELECT qn_rangearray_equal(%L, %L)', a, b)) AS equal
FROM (VALUES ('{}'::int4[], qn_int4range_intersection('{1,2}', '{5,6}')), ('{1,6}', '{4,6,1,3}'), ('{1,6}', '{1,5}'),
             ('{5,3}', '{}'), ('{1,2,8,9}', '{8,9,1,2}'), ('{1,2,8,9}', '{1,2,8,10}'), ('{1,NULL}', '{}'),
             ('{1,2,3}', '{}'), ('{}', '{1}')) t(a, b);

-- Generated arrays of up to 12 pairs in [-30, 30], in any order, some
-- inverted. Each is compared with the normalised range array that int4set_agg
-- builds from its members, and with its own pairs in reverse order.
CREATE TEMP TABLE arrays AS
SELECT c, coalesce(array_agg(b ORDER BY k) FILTER (WHERE b IS NOT NULL), '{}') AS a
FROM generate_series(1, 500) c
LEFT JOIN LATERAL (SELECT k, hashint4(c * 100 + k) % 31 AS b FROM generate_series(1, 2 * (c % 13)) k) q ON true
GROUP BY c;
ALTER TABLE arrays ADD reference int4[], ADD reversed int4[];
UPDATE arrays SET
    reference = (SELECT coalesce(int4set_agg(v, 'r'), '{}') FROM generate_series(1, cardinality(a) / 2) i,
                 generate_series(a[2 * i - 1], a[2 * i]) v),
    reversed = coalesce((SELECT array_agg(a[2 * i + e] ORDER BY i DESC, e) FROM generate_series(0, cardinality(a) / 2 - 1) i,
                         generate_series(1, 2) e), '{}');
SELECT count(*) AS arrays,
       count(*) FILTER (WHERE qn_rangearray_normalise(a) <> reference) AS normalise_wrong,
       count(*) FILTER (WHERE qn_rangearray_is_normalised(a) <> (a = reference OR cardinality(a) = 0)) AS is_normalised_wrong,
       count(*) FILTER (WHERE qn_rangearray_is_empty(a) <> (cardinality(reference) = 0)) AS is_empty_wrong,
       count(*) FILTER (WHERE NOT qn_rangearray_equal(a, reversed) OR NOT qn_rangearray_equal(reference, a)) AS equal_wrong,
       count(*) FILTER (WHERE qn_rangearray_normalise(reversed) <> reference) AS reversed_wrong
FROM arrays;
-- The generated arrays hold normalised ones, empty ones and unsorted ones.
SELECT count(*) FILTER (WHERE a = reference AND cardinality(a) > 0) > 0 AS has_normalised,
       count(*) FILTER (WHERE cardinality(reference) = 0 AND cardinality(a) > 0) > 0 AS has_empty_sets,
       count(*) FILTER (WHERE a <> reference AND cardinality(reference) > 2) > 0 AS has_unsorted
FROM arrays;

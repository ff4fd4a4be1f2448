-- Arguments that are not normalised range arrays (unsorted, overlapping, reversed
-- bounds, values at the int32 extremes) give some result, never a crash: every
-- result is an even-length range array, and the server keeps answering.
SET max_parallel_workers_per_gather = 0;
\i sql/include/hash_random.psql
CREATE TEMP TABLE arbitrary AS
SELECT c, ARRAY(SELECT CASE WHEN pg_temp.rnd(2, c, k) < 0.25
                            THEN (ARRAY[-2147483648, -2147483647, -1, 0, 1, 2147483646, 2147483647])[1 + floor(pg_temp.rnd(3, c, k) * 7)::int]
                            ELSE floor(pg_temp.rnd(3, c, k) * 41)::int - 20 END
                FROM generate_series(1, 2 * floor(pg_temp.rnd(1, c) * 7)::int) k ORDER BY k) AS r
FROM generate_series(1, 3000) AS c;
SELECT count(*) AS pairs,
       count(*) FILTER (WHERE cardinality(qn_int4range_union(a.r, b.r)) % 2 = 0) AS union_even,
       count(*) FILTER (WHERE cardinality(qn_int4range_intersection(a.r, b.r)) % 2 = 0) AS intersection_even,
       count(*) FILTER (WHERE cardinality(qn_int4range_exclusion(a.r, b.r)) % 2 = 0) AS exclusion_even,
       count(qn_int4range_is_overlap(a.r, b.r)) AS overlap_answers,
       count(qn_int4range_is_strictly_include(a.r, b.r)) AS inclusion_answers
FROM arbitrary a JOIN arbitrary b ON b.c = a.c % 3000 + 1;
SELECT 'still connected' AS status;

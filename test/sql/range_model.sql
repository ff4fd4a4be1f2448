-- Union, intersection and exclusion agree with plain SQL set operations on the
-- members, for hundreds of random normalised range arrays, and their results are
-- normalised themselves.
SET max_parallel_workers_per_gather = 0;
\i sql/include/hash_random.psql

-- Random member sets per case and side; each becomes a normalised range array.
-- Every tenth case has an empty side 'a'; every fourth draws both sides from one
-- stream, 'a' at a lower density, so that 'a' lies within 'b'.
CREATE TEMP TABLE members AS
SELECT c, side, v
FROM generate_series(1, 600) AS c, (VALUES ('a'), ('b')) AS s(side), generate_series(-40, 40) AS v
WHERE pg_temp.rnd(CASE WHEN c % 4 = 1 THEN 0 ELSE ascii(side) END, c, v)
      < CASE WHEN c % 10 = 0 AND side = 'a' THEN 0
             WHEN c % 4 = 1 THEN CASE side WHEN 'a' THEN 0.2 ELSE 0.6 END
             WHEN c % 3 = 0 THEN 0.8 ELSE 0.3 END;

CREATE TEMP TABLE range_sets AS
WITH islands AS (
    SELECT c, side, v - row_number() OVER (PARTITION BY c, side ORDER BY v)::int AS island, v FROM members
), ranges AS (
    SELECT c, side, min(v) AS lo, max(v) AS hi FROM islands GROUP BY c, side, island
)
SELECT cs.c, s.side,
       coalesce((SELECT array_agg(x ORDER BY r.lo, k) FROM ranges r, LATERAL (VALUES (1, r.lo), (2, r.hi)) AS p(k, x)
                 WHERE r.c = cs.c AND r.side = s.side), '{}') AS arr
FROM generate_series(1, 600) AS cs(c), (VALUES ('a'), ('b')) AS s(side);

CREATE FUNCTION pg_temp.members_of(r int4[]) RETURNS int[] LANGUAGE sql IMMUTABLE AS $$
    SELECT coalesce(array_agg(v ORDER BY v), '{}')
    FROM generate_subscripts(r, 1) AS i, generate_series(r[i], r[i + 1]) AS v
    WHERE (i - array_lower(r, 1)) % 2 = 0 $$;

CREATE FUNCTION pg_temp.is_normalised(r int4[]) RETURNS bool LANGUAGE sql IMMUTABLE AS $$
    SELECT coalesce(cardinality(r) % 2 = 0 AND bool_and(r[i] <= r[i + 1]
                    AND (i + 2 > cardinality(r) OR r[i + 2]::int8 >= r[i + 1]::int8 + 2)), true)
    FROM generate_series(1, cardinality(r), 2) AS i $$;

CREATE TEMP TABLE outcomes AS
SELECT a.c,
       qn_int4range_union(a.arr, b.arr) AS u,
       qn_int4range_intersection(a.arr, b.arr) AS i,
       qn_int4range_exclusion(a.arr, b.arr) AS e,
       qn_int4range_is_overlap(a.arr, b.arr) AS o,
       qn_int4range_is_strictly_include(a.arr, b.arr) AS s,
       ARRAY(SELECT v FROM members WHERE c = a.c AND side = 'a' ORDER BY v) AS ma,
       ARRAY(SELECT v FROM members WHERE c = a.c AND side = 'b' ORDER BY v) AS mb
FROM range_sets a JOIN range_sets b ON a.c = b.c AND a.side = 'a' AND b.side = 'b';

SELECT count(*) AS cases,
       count(*) FILTER (WHERE pg_temp.members_of(u) <> ARRAY(SELECT unnest(ma) UNION SELECT unnest(mb) ORDER BY 1)) AS union_wrong,
       count(*) FILTER (WHERE pg_temp.members_of(i) <> ARRAY(SELECT unnest(ma) INTERSECT SELECT unnest(mb) ORDER BY 1)) AS intersection_wrong,
       count(*) FILTER (WHERE pg_temp.members_of(e) <> ARRAY(SELECT unnest(ma) EXCEPT SELECT unnest(mb) ORDER BY 1)) AS exclusion_wrong,
       count(*) FILTER (WHERE o <> (ma && mb)) AS overlap_wrong,
       count(*) FILTER (WHERE s <> (cardinality(ma) > 0 AND ma <@ mb)) AS inclusion_wrong,
       count(*) FILTER (WHERE NOT (pg_temp.is_normalised(u) AND pg_temp.is_normalised(i) AND pg_temp.is_normalised(e))) AS not_normalised
FROM outcomes;
-- The random cases cover empty sides, overlaps, inclusions and their absence.
SELECT count(*) FILTER (WHERE cardinality(ma) = 0 OR cardinality(mb) = 0) > 0 AS has_empty_sides,
       count(*) FILTER (WHERE o) > 0 AND count(*) FILTER (WHERE NOT o) > 0 AS has_both_overlaps,
       count(*) FILTER (WHERE s) > 0 AS has_inclusions
FROM outcomes;

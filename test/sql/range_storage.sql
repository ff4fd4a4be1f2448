-- Results stored in tables, the shape of the empty result, and arguments that arrive TOASTed (compressed inline, or out
-- of line).

-- The empty set is the one-dimensional array of length 0: 24 bytes.
SELECT r AS empty, array_ndims(r) AS ndims, array_length(r, 1) AS length, array_lower(r, 1) AS lower,
       pg_column_size(r) AS bytes, r = '{}'::int4[] AS equals_zero_dim_empty
FROM (VALUES (qn_int4range_intersection('{1,4}', '{5,9}')), (qn_int4range_union('{}', '{}')),
             (qn_int4range_exclusion('{1,3}', '{0,9}'))) AS v(r);

-- Large range arrays of 200,000 ranges each: the even points [2k, 2k] stored compressed, the odd points [2k+1, 2k+1]
-- stored out of line uncompressed.
CREATE TABLE big (id int PRIMARY KEY, r int4[]);
INSERT INTO big SELECT 1, ARRAY(SELECT x FROM generate_series(0, 399998, 2) AS s, LATERAL (VALUES (s), (s)) AS p(x));
ALTER TABLE big ALTER COLUMN r SET STORAGE EXTERNAL;
INSERT INTO big SELECT 2, ARRAY(SELECT x FROM generate_series(1, 399999, 2) AS s, LATERAL (VALUES (s), (s)) AS p(x));
SELECT id, cardinality(r) AS elements, pg_column_size(r) < 2 * cardinality(r) AS compressed,
       pg_column_size(r) >= 4 * cardinality(r) AS uncompressed
FROM big ORDER BY id;
-- Even and odd points touch each other: their union is one range.
SELECT qn_int4range_union(a, b) AS "union",
       cardinality(qn_int4range_intersection(a, b)) AS intersection_elements,
       qn_int4range_exclusion(a, b) = a AS exclusion_keeps_left,
       qn_int4range_exclusion(qn_int4range_union(a, b), b) = a AS union_minus_odd_is_even,
       qn_int4range_is_overlap(a, b) AS overlap,
       qn_int4range_is_strictly_include(a, qn_int4range_union(a, b)) AS even_inside_union
FROM (SELECT (SELECT r FROM big WHERE id = 1) AS a, (SELECT r FROM big WHERE id = 2) AS b) AS args;
-- A large result stored and read back is unchanged.
INSERT INTO big SELECT 3, qn_int4range_exclusion(a.r, '{1000,299999}') FROM big a WHERE a.id = 1;
SELECT cardinality(r) AS elements, r[999:1004] AS around_the_cut, r = qn_int4range_exclusion(
           (SELECT r FROM big WHERE id = 1), '{1000,299999}') AS round_trip
FROM big WHERE id = 3;

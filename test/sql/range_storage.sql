-- Arguments that arrive TOASTed: range arrays of 200,000 ranges each, the even points [2k, 2k] stored compressed, the
-- odd points [2k+1, 2k+1] out of line uncompressed.
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

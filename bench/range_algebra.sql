-- Set algebra on two range arrays of 1,000,000 ranges each (8 MB apiece).
-- A = [4k, 4k+1], B = [4k+2, 4k+2]: the union merges pairs into [4k, 4k+2].
\timing off
CREATE TEMP TABLE operands AS
SELECT ARRAY(SELECT x FROM generate_series(0, 3999999, 4) AS s, LATERAL (VALUES (s), (s + 1)) AS p(x)) AS a,
       ARRAY(SELECT x FROM generate_series(2, 3999998, 4) AS s, LATERAL (VALUES (s), (s)) AS p(x)) AS b;
SELECT cardinality(a) / 2 AS ranges_a, cardinality(b) / 2 AS ranges_b FROM operands;
-- Warm the cache and detoast once outside the timed statements.
SELECT cardinality(qn_int4range_union(a, b)) FROM operands;
\timing on
SELECT cardinality(qn_int4range_union(a, b)) AS union_elements FROM operands;
SELECT cardinality(qn_int4range_union(a, b)) AS union_elements FROM operands;
SELECT cardinality(qn_int4range_union(a, b)) AS union_elements FROM operands;
SELECT cardinality(qn_int4range_intersection(a, b)) AS intersection_elements FROM operands;
SELECT cardinality(qn_int4range_exclusion(a, b)) AS exclusion_elements FROM operands;
SELECT qn_int4range_is_overlap(a, b) AS overlap FROM operands;
SELECT qn_int4range_is_strictly_include(a, a) AS included FROM operands;
-- For scale: detoasting and measuring the operands alone.
SELECT cardinality(a) + cardinality(b) AS operand_elements FROM operands;

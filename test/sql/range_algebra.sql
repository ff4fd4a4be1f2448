-- Union, intersection, exclusion, overlap and strict inclusion of range arrays: every function on every pair (the
-- kernels are compared with a model by the fuzz targets): touching and crossing pieces, the int4 extremes, NULLs
-- (each function's own rule; a copied argument keeps the shape rules), shapes read as empty (zero or two dimensions,
-- NULL elements, other lower bounds), odd lengths on either side (42804), then TOASTed arguments.
\i sql/include/errors.psql

SELECT a, b, pg_temp.run(format('SELECT qn_int4range_union(%L, %L)', a, b)) AS "union",
       pg_temp.run(format('SELECT qn_int4range_intersection(%L, %L)', a, b)) AS intersection,
       pg_temp.run(format('SELECT qn_int4range_exclusion(%L, %L)', a, b)) AS exclusion,
       pg_temp.run(format('SELECT qn_int4range_is_overlap(%L, %L)', a, b)) AS overlap,
       pg_temp.run(format('SELECT qn_int4range_is_strictly_include(%L, %L)', a, b)) AS strictly_included
FROM (VALUES ('{1,2,10,12}', '{3,5,13,20}'), ('{4,6,1,2}', '{}'), ('{-2000000000,-1999999990}', '{2000000000,2000000001}'),
             ('{-10,-5,0,3,8,20}', '{-7,1,3,9}'), ('{5,10,20,30}', '{1,5,30,40}'), ('{1,3,5,10}', '{2,6}'),
             ('{-2147483648,2147483647}', '{0,0}'), ('{1,3}', '{4,6}'), ('{1,3}', '{3,6}'), ('{1,3,10,20}', '{4,9,15,15}'),
             ('{-2147483648,-2147483648}', '{-2147483648,2147483647}'), ('{2,3,7,8}', '{1,5,7,9}'), ('{2,6}', '{1,5,6,9}'),
             ('{}', '{1,5}'), ('{20,30}', '{1,5}'), (NULL, NULL), (NULL, '{4,6,1,2}'), ('{1,3}', NULL),
             (NULL, '{{1,2},{3,4}}'), ('{1,NULL}', NULL), (NULL, '{1,2,3}'), ('{1,2,3}', NULL), ('{1,2,3}', '{}'),
             ('{1,2}', '{5}'), ('{}', '{5,6}'), ('{{1,2},{3,4}}', '{5,6}'), ('{1,NULL}', '{5,6}'), ('{{1,2,3},{4,5,6}}', '{1,9}'),
             ('{1,10}', '{NULL,NULL,NULL}'), ('[0:1]={1,3}', '[5:6]={4,6}'), ('{{1,2},{3,4}}', '{1,9}'), ('{1,NULL}', '{1,9}'),
             ('{{1,2,3}}', '{1,9}')) t(a, b);

-- TOASTed arguments: 200,000 ranges each, the even points [2k, 2k] compressed, the odd ones out of line uncompressed.
CREATE TABLE big (id int PRIMARY KEY, r int4[]);
INSERT INTO big SELECT 1, ARRAY(SELECT x FROM generate_series(0, 399998, 2) AS s, LATERAL (VALUES (s), (s)) AS p(x));
ALTER TABLE big ALTER COLUMN r SET STORAGE EXTERNAL;
INSERT INTO big SELECT 2, ARRAY(SELECT x FROM generate_series(1, 399999, 2) AS s, LATERAL (VALUES (s), (s)) AS p(x));
SELECT id, cardinality(r) AS elements, pg_column_size(r) < 2 * cardinality(r) AS compressed,
       pg_column_size(r) >= 4 * cardinality(r) AS uncompressed
FROM big ORDER BY id;
-- Even and odd points touch: their union is one range.
SELECT qn_int4range_union(a, b) AS "union",
       cardinality(qn_int4range_intersection(a, b)) AS intersection_elements,
       qn_int4range_exclusion(a, b) = a AS exclusion_keeps_left,
       qn_int4range_exclusion(qn_int4range_union(a, b), b) = a AS union_minus_odd_is_even,
       qn_int4range_is_overlap(a, b) AS overlap,
       qn_int4range_is_strictly_include(a, qn_int4range_union(a, b)) AS even_inside_union
FROM (SELECT (SELECT r FROM big WHERE id = 1) AS a, (SELECT r FROM big WHERE id = 2) AS b) AS args;

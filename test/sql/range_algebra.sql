-- Union, intersection, exclusion, overlap and strict inclusion of range arrays through SQL: a few known answers (the
-- kernels are compared with a model by the fuzz targets), the null rules, the shapes read as empty, odd lengths.
\i sql/include/errors.psql

SELECT qn_int4range_union('{1,2,10,12}', '{3,5,13,20}') AS merged_from_both,
       qn_int4range_union('{4,6,1,2}', '{}') AS empty_side_as_is,
       qn_int4range_union('{-2000000000,-1999999990}', '{2000000000,2000000001}') AS wrapped_order;
SELECT qn_int4range_intersection('{-10,-5,0,3,8,20}', '{-7,1,3,9}') AS crossing,
       qn_int4range_intersection('{5,10,20,30}', '{1,5,30,40}') AS touching_ends,
       qn_int4range_exclusion('{1,3,5,10}', '{2,6}') AS spanning_two,
       qn_int4range_exclusion('{-2147483648,2147483647}', '{0,0}') AS split_full_span;

-- Null rules differ per function.
SELECT f, a, b, CASE f
        WHEN 'union' THEN qn_int4range_union(a, b)::text
        WHEN 'intersection' THEN qn_int4range_intersection(a, b)::text
        WHEN 'exclusion' THEN qn_int4range_exclusion(a, b)::text
        WHEN 'is_overlap' THEN qn_int4range_is_overlap(a, b)::text
        WHEN 'is_strictly_include' THEN qn_int4range_is_strictly_include(a, b)::text END AS result
FROM unnest(ARRAY['union', 'intersection', 'exclusion', 'is_overlap', 'is_strictly_include']) AS f,
     (VALUES (NULL::int4[], NULL::int4[]), (NULL, '{4,6,1,2}'), ('{1,3}', NULL)) AS args(a, b)
ORDER BY f, a NULLS FIRST, b NULLS FIRST;
-- A copied argument keeps the shape rules: odd length fails, two dimensions and nulls read as empty.
SELECT pg_temp.try($$SELECT qn_int4range_union(NULL, '{1,2,3}')$$) AS union_null_odd,
       pg_temp.try($$SELECT qn_int4range_exclusion('{1,2,3}', NULL)$$) AS exclusion_null_odd,
       qn_int4range_union(NULL, '{{1,2},{3,4}}') AS two_dims_copied,
       qn_int4range_exclusion('{1,NULL}', NULL) AS nulls_copied;

-- Odd lengths fail with 42804, whichever side; one report covers both.
SELECT f, pg_temp.try(format('SELECT %s(%L, %L)', f, a, b)) AS outcome
FROM unnest(ARRAY['qn_int4range_union', 'qn_int4range_intersection', 'qn_int4range_exclusion',
                  'qn_int4range_is_overlap', 'qn_int4range_is_strictly_include']) AS f,
     (VALUES ('{1,2,3}', '{}'), ('{1,2}', '{5}')) AS args(a, b)
ORDER BY f, a;

-- Zero dimensions, two dimensions and NULL elements read as empty, without error; lower bounds other than 1 do not
-- matter.
SELECT qn_int4range_union('{}', '{5,6}') AS zero_dims,
       qn_int4range_union('{{1,2},{3,4}}', '{5,6}') AS two_dims,
       qn_int4range_union('{1,NULL}', '{5,6}') AS with_null,
       qn_int4range_intersection('{{1,2,3},{4,5,6}}', '{1,9}') AS two_dims_odd,
       qn_int4range_exclusion('{1,10}', '{NULL,NULL,NULL}') AS null_odd,
       qn_int4range_union('[0:1]={1,3}'::int4[], '[5:6]={4,6}'::int4[]) AS other_lbounds;

-- Overlap and strict inclusion: boundary cases and empty shapes.
SELECT qn_int4range_is_overlap('{1,3}', '{4,6}') AS adjacent,
       qn_int4range_is_overlap('{1,3}', '{3,6}') AS shared_bound,
       qn_int4range_is_overlap('{1,3,10,20}', '{4,9,15,15}') AS later_pair,
       qn_int4range_is_overlap('{-2147483648,-2147483648}', '{-2147483648,2147483647}') AS extremes;
SELECT qn_int4range_is_strictly_include('{2,3,7,8}', '{1,5,7,9}') AS inside,
       qn_int4range_is_strictly_include('{2,6}', '{1,5,6,9}') AS spans_two,
       qn_int4range_is_strictly_include('{}', '{1,5}') AS empty_left,
       qn_int4range_is_strictly_include('{20,30}', '{1,5}') AS beyond_last;
SELECT qn_int4range_is_overlap('{{1,2},{3,4}}', '{1,9}') AS two_dims,
       qn_int4range_is_overlap('{1,NULL}', '{1,9}') AS with_null,
       qn_int4range_is_strictly_include('{{1,2,3}}', '{1,9}') AS two_dims_odd;

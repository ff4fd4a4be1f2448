-- Overlap and strict inclusion of range arrays: boundary cases (the random
-- comparison with a model is in the fuzz targets), null rules and empty shapes.
SELECT qn_int4range_is_overlap('{1,3}', '{4,6}') AS adjacent,
       qn_int4range_is_overlap('{1,3}', '{3,6}') AS shared_bound,
       qn_int4range_is_overlap('{1,3,10,20}', '{4,9,15,15}') AS later_pair,
       qn_int4range_is_overlap('{-2147483648,-2147483648}', '{-2147483648,2147483647}') AS extremes;
SELECT qn_int4range_is_strictly_include('{2,3,7,8}', '{1,5,7,9}') AS inside,
       qn_int4range_is_strictly_include('{2,6}', '{1,5,6,9}') AS spans_two,
       qn_int4range_is_strictly_include('{}', '{1,5}') AS empty_left,
       qn_int4range_is_strictly_include('{20,30}', '{1,5}') AS beyond_last;
SELECT qn_int4range_is_overlap(NULL, '{1,2}') AS overlap_null_left,
       qn_int4range_is_overlap('{1,2}', NULL) AS overlap_null_right,
       qn_int4range_is_strictly_include(NULL, '{1,2}') AS include_null_left,
       qn_int4range_is_strictly_include('{1,2}', NULL) AS include_null_right;
SELECT qn_int4range_is_overlap('{{1,2},{3,4}}', '{1,9}') AS two_dims,
       qn_int4range_is_overlap('{1,NULL}', '{1,9}') AS with_null,
       qn_int4range_is_strictly_include('{{1,2,3}}', '{1,9}') AS two_dims_odd;

-- Range arrays as rows: qn_rangearray_unnest and qn_rangearray_members, which stream (a result of 2^31 rows stops at
-- its LIMIT at once) and can be cancelled.
\i sql/include/errors.psql

SELECT * FROM qn_rangearray_unnest('{1,3,10,10,-5,-7}');

-- Pairs come as they are: inverted pairs add no member, overlapping ones repeat members; the int4 extremes end a range
-- without wrapping; arrays read as empty give no rows; odd lengths are refused.
SELECT a, pg_temp.try(format('SELECT qn_rangearray_members(%L)', a)) AS outcome,
       CASE WHEN cardinality(a) % 2 = 0 THEN ARRAY(SELECT qn_rangearray_members(a)) END AS members,
       CASE WHEN cardinality(a) % 2 = 0 THEN (SELECT count(*) FROM qn_rangearray_unnest(a)) END AS pairs
FROM (VALUES ('{1,3,10,10}'::int4[]), ('{5,3,7,8}'), ('{1,3,2,4}'), ('{2147483646,2147483647}'),
             ('{-2147483648,-2147483647}'), ('{}'), ('{{1,2},{3,4}}'), ('{1,NULL}'), ('{1,2,3}')) t(a);
SELECT pg_temp.try($$SELECT * FROM qn_rangearray_unnest('{1}')$$) AS unnest_odd,
       (SELECT count(*) FROM qn_rangearray_members(NULL)) AS null_members,
       (SELECT count(*) FROM qn_rangearray_unnest(NULL)) AS null_pairs;

-- Streaming: the first rows of 2^31 come at once.
SELECT qn_rangearray_members('{0,2147483647}') LIMIT 3;

-- Cancellable: a walk over every int4 ends at the statement timeout.
SET statement_timeout = '100ms';
SELECT count(*) FROM (SELECT qn_rangearray_members('{-2147483648,2147483647}')) s;
RESET statement_timeout;

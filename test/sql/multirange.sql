-- int4multirange in and out of range arrays, where the server has multiranges (PostgreSQL 14 and later); elsewhere the
-- functions and casts must be absent. The checks are queries with the text they must give, run only where multiranges
-- exist: the output lists the checks that fail, so that it reads the same on every server.
\i sql/include/errors.psql
SELECT current_setting('server_version_num')::int >= 140000 AS has_multirange \gset

-- Two functions and two casts exist exactly where multiranges do.
SELECT count(*) = CASE WHEN :'has_multirange' THEN 4 ELSE 0 END AS multirange_objects_as_expected
FROM pg_depend d JOIN pg_extension e ON e.oid = d.refobjid AND e.extname = 'kelvarn_range_operators'
WHERE d.deptype = 'e' AND pg_describe_object(d.classid, d.objid, d.objsubid) LIKE '%multirange%';

CREATE TEMP TABLE checks (name text, query text, expected text);
INSERT INTO checks VALUES
    ('declarations', $$SELECT string_agg(format('%s %s%s%s', oid::regprocedure, proisstrict, provolatile, proparallel), '; '
                                         ORDER BY oid::regprocedure::text)
                       FROM pg_proc WHERE proname LIKE 'qn\_rangearray\_%multirange'$$,
     'qn_rangearray_from_int4multirange(int4multirange) tis; qn_rangearray_to_int4multirange(integer[]) tis'),
    ('to a range array', $$SELECT qn_rangearray_from_int4multirange('{[1,3),[5,9),(,-10),[100,)}')$$,
     '{-2147483648,-11,1,2,5,8,100,2147483647}'),
    ('the empty multirange', $$SELECT array_dims(qn_rangearray_from_int4multirange('{}'))$$, '[1:0]'),
    ('from any order, inverted pairs dropped', $$SELECT qn_rangearray_to_int4multirange('{5,9,1,3,4,4,200,100}')$$,
     '{[1,10)}'),
    ('extremes are unbounded', $$SELECT qn_rangearray_to_int4multirange('{-2147483648,5,7,2147483647}')$$, '{(,6),[7,)}'),
    ('both forms of {} and arrays read as empty',
     $$SELECT concat(qn_rangearray_to_int4multirange('{}'), qn_rangearray_to_int4multirange(qn_int4range_intersection('{1,2}', '{5,6}')),
                     qn_rangearray_to_int4multirange('{1,NULL}'))$$, '{}{}{}'),
    ('odd length', $$SELECT qn_rangearray_to_int4multirange('{1,2,3}')$$, '42804: array length should be even'),
    ('casts both ways', $$SELECT '{[1,3),[5,9)}'::int4multirange::int4[] || '{7,9,1,3,4,4}'::int4[]::int4multirange::int4[]$$,
     '{1,2,5,8,1,4,7,9}');

SELECT name, got, expected
FROM (SELECT name, pg_temp.run(query) AS got, expected FROM checks WHERE :'has_multirange') c
WHERE got IS DISTINCT FROM expected;

-- qn_rangearray refuses what would answer wrongly and is an int4[] range array everywhere else; the int8 count.
\i sql/include/errors.psql
\i sql/include/plans.psql
\i sql/include/estimates.psql

-- Refused with 23514, whatever the shape of the fault; normalised values and both forms of {} accepted.
SELECT v, pg_temp.run(format('SELECT %L::qn_rangearray', v)) AS cast
FROM unnest(ARRAY['{50,60,1,45}', '{1,10,5,20}', '{1,10,11,20}', '{5,1}', '{1,2,3}', '{{1,2},{3,4}}', '{1,NULL}',
                  '{}', '{-2147483648,-2147483648,2147483647,2147483647}', '{1,10,12,20}', '[0:1]={7,9}']) v;

-- A column of the domain through functions, operators, aggregates, casts, both operator classes and the estimator.
CREATE TABLE slots (id int, free qn_rangearray);
INSERT INTO slots SELECT i, (SELECT int4set_agg(lo, lo + 20 + i % 50, 'r')
                             FROM (SELECT (hashint4(i * 8 + k) & 2147483647) % 100000 AS lo FROM generate_series(1, 8) k) s)
FROM generate_series(1, 5000) i;
SELECT pg_temp.try('INSERT INTO slots VALUES (0, ''{9,9,1,1}'')') AS insert_refused,
       pg_temp.try('UPDATE slots SET free = free || 1 WHERE id = 1') AS update_refused;
ANALYZE slots;
SELECT count(*) FILTER (WHERE 500 <@ free) = count(*) FILTER (WHERE qn_int4_in_rangearray(500, free)) AS value_tests,
       count(*) FILTER (WHERE qn_range_pack(0, 999) && free) = count(*) FILTER (WHERE free ~&& '{0,999}') AS overlap_tests,
       bool_and(qn_int4range_union(free, free)::qn_rangearray = free) AS algebra_casts_back,
       bool_and(qn_rangearray_count(free) = qn_count_scalar_in_int4set('r', free)) AS counts,
       (SELECT int4set_agg('r', free, 'r') FROM slots)::qn_rangearray IS NOT NULL AS aggregate
FROM slots;
-- Estimated from the column's statistics as a plain int4[] column is.
CREATE TABLE slots_plain AS SELECT id, free::int4[] AS free FROM slots;
ANALYZE slots_plain;
SELECT clause, pg_temp.rows('SELECT * FROM slots WHERE ' || clause) = pg_temp.rows('SELECT * FROM slots_plain WHERE ' || clause) AS as_int4_array
FROM unnest(ARRAY['500 <@ free', 'free ~@> 500', 'free ~&& ''{0,9999}''', 'qn_range_pack(0, 9999) && free',
                  'free ~<@ ''{0,49999}''']) clause;
CREATE INDEX slots_free ON slots USING gin (free qn_gin_rangearray_ops);
CREATE TABLE ticks AS SELECT i AS v FROM generate_series(0, 99999, 7) i;
CREATE INDEX ticks_v ON ticks USING gist (v qn_gist_int4_ops);
SET enable_seqscan = off;
SELECT pg_temp.plan_has('SELECT id FROM slots WHERE 500 <@ free', 'slots_free') AS gin_used,
       pg_temp.plan_has('SELECT v FROM ticks WHERE v <@ (SELECT free FROM slots WHERE id = 1)', 'ticks_v') AS gist_used,
       (SELECT count(*) FROM ticks WHERE v <@ (SELECT free FROM slots WHERE id = 1))
       = (SELECT count(*) FROM ticks, slots WHERE id = 1 AND qn_int4_in_rangearray(v, free::int4[])) AS gist_same;
RESET enable_seqscan;

-- The int8 count: overlaps count once, inverted pairs nothing (the whole line and the int4 count's wrap: README).
SELECT qn_rangearray_count('{1,10,5,20,30,25}') AS overlapping_and_inverted, qn_rangearray_count('{}') AS empty,
       qn_rangearray_count(NULL) AS null_count, pg_temp.run('SELECT qn_rangearray_count(''{1,2,3}'')') AS odd;

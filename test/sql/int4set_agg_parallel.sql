-- int4set_agg under the server's own parallel, sorted and hashed aggregation: the
-- partial states are serialised in the workers, deserialised and combined in the
-- leader, and every plan gives the results of the plain serial plan.
\i sql/include/errors.psql

CREATE TABLE rows_in (grp int4, v int4, lo int4, hi int4, s int4[], r int4[], m int4[]);
INSERT INTO rows_in
SELECT g % 400, hashint4(g) % 5000, lo, lo + (g % 7), ARRAY[lo, lo + 3], ARRAY[lo, lo + 1, lo + 5, lo + 9],
       ARRAY[12, lo, (lo + 20) | (-2147483648), lo + 30]
FROM (SELECT g, abs(hashint4(g + 1)) % 100000 AS lo FROM generate_series(1, 240000) g) q
ORDER BY hashint8(g);
ANALYZE rows_in;

-- Every aggregate of the family, in every output form, per group: one row per
-- (group, query).
CREATE VIEW results AS
SELECT grp, q, result FROM (
    SELECT grp, int4set_agg(v, 'r') AS a1, int4set_agg(v, 's') AS a2, int4set_agg(v, 'm') AS a3,
           int4set_agg(lo, hi, 'r') AS a4, int4set_agg(lo, hi, 'm') AS a5,
           int4set_agg('s', s, 'r') AS a6, int4set_agg('r', r, 's') AS a7, int4set_agg('m', m, 'm') AS a8
    FROM rows_in GROUP BY grp) g
CROSS JOIN LATERAL (VALUES ('v r', a1), ('v s', a2), ('v m', a3), ('b r', a4), ('b m', a5),
                           ('s r', a6), ('r s', a7), ('m m', a8)) x(q, result);

\i sql/include/plans.psql

SET max_parallel_workers_per_gather = 0;
CREATE TEMP TABLE serial AS SELECT * FROM results;
SELECT count(*) AS results, count(DISTINCT grp) AS groups FROM serial;

-- Forced parallel plans: partial aggregation in two workers and the leader.
\i sql/include/force_parallel.psql
SELECT pg_temp.plan_has($$SELECT * FROM results$$, 'Partial') AS grouped_partial,
       pg_temp.plan_has($$SELECT int4set_agg(v, 'r') FROM rows_in$$, 'Partial Aggregate') AS plain_partial,
       pg_temp.plan_has($$SELECT int4set_agg(v, 'r') FROM rows_in$$, 'Gather') AS gathered;
SELECT count(*) AS differing_parallel
FROM (SELECT * FROM results EXCEPT SELECT * FROM serial) d;
SELECT int4set_agg(v, 'r') = (SELECT int4set_agg(x, 'r') FROM (SELECT unnest(result) x FROM serial WHERE q = 'v s') u)
           AS whole_table_equals_union_of_groups
FROM rows_in;

-- Sorted and hashed grouping, the hash table spilling to disk in small work_mem.
SET max_parallel_workers_per_gather = 0;
SET work_mem = '64kB';
SET enable_hashagg = off;
SELECT pg_temp.plan_has($$SELECT * FROM results$$, 'HashAggregate') AS sorted_uses_hash;
SELECT count(*) AS differing_sorted FROM (SELECT * FROM results EXCEPT SELECT * FROM serial) d;
SET enable_hashagg = on;
SET enable_sort = off;
SELECT pg_temp.hash_batches($$SELECT grp, int4set_agg(v, 'r'), int4set_agg('r', r, 's') FROM rows_in GROUP BY grp$$) > 1
    AS hash_spilled;
SELECT count(*) AS differing_hashed FROM (
    SELECT grp, int4set_agg(v, 'r') AS a, int4set_agg('r', r, 's') AS b FROM rows_in GROUP BY grp
    EXCEPT
    SELECT grp, (SELECT result FROM serial s WHERE s.grp = g.grp AND q = 'v r'),
                (SELECT result FROM serial s WHERE s.grp = g.grp AND q = 'r s')
    FROM (SELECT DISTINCT grp FROM rows_in) g) d;
RESET enable_sort;
RESET work_mem;

-- A partial state that saw rows but no members (NULLs only) travels with its
-- forms and no ranges, which the leader refuses to read back. Filtering the NULL
-- rows out keeps such states from being made at all.
SET max_parallel_workers_per_gather = 2;
UPDATE rows_in SET v = NULL WHERE grp = 7;
SELECT pg_temp.try($$SELECT grp, int4set_agg(v, 'r') FROM rows_in GROUP BY grp$$) AS group_of_nulls;
SELECT grp, cardinality(int4set_agg(v, 'r') FILTER (WHERE v IS NOT NULL)) AS filtered_bounds, count(*) AS rows
FROM rows_in WHERE grp IN (7, 8) GROUP BY grp ORDER BY grp;
-- No row at all: the partial states are NULL and the result is the empty array.
SELECT pg_temp.plan_has($$SELECT int4set_agg(v, 's') FROM rows_in WHERE v > 5000$$, 'Partial Aggregate') AS partial,
       int4set_agg(v, 's') AS no_rows FROM rows_in WHERE v > 5000;

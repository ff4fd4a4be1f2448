-- Every aggregate, in each of its input forms, over rows that include rows without
-- members, gives the answer of the plain sorted plan in every plan the server can
-- choose: hashed, hashed and spilling, hashed and rescanned inside a subplan,
-- parallel partial (sorted and hashed), partition-wise with a partition of rows
-- without members (serial and parallel), grouping sets (sorted and hashed), and
-- with FILTER, DISTINCT and ORDER BY inside the call. Each plan's shape is checked
-- before its answer. Then the aggregates as running and sliding window aggregates.
\i sql/include/plans.psql

-- 100 rows per group over two partitions; every 7th row has no member (a NULL
-- value or bound, arrays holding a NULL, a NULL operand). A third partition holds
-- only rows without members, for every group. Values stay within [0, 5000] so that
-- int4set_agg_optimized takes them; the bound `hi` and the arrays are never NULL,
-- since that aggregate refuses a first row whose second argument is NULL.
CREATE TABLE agg_rows (id int4, part int4, grp int4, v int4, lo int4, hi int4, s int4[], r int4[], m int4[],
                       label text, word int4) PARTITION BY LIST (part);
CREATE TABLE agg_rows_0 PARTITION OF agg_rows FOR VALUES IN (0);
CREATE TABLE agg_rows_1 PARTITION OF agg_rows FOR VALUES IN (1);
CREATE TABLE agg_rows_2 PARTITION OF agg_rows FOR VALUES IN (2);
INSERT INTO agg_rows
SELECT id, CASE WHEN id > 12000 THEN 2 ELSE id % 2 END, id % 120,
       CASE WHEN member THEN abs(hashint4(id)) % 5000 END, CASE WHEN member THEN lo END, lo + id % 9,
       CASE WHEN member THEN ARRAY[lo + 4, lo] ELSE '{NULL}' END,
       CASE WHEN member THEN ARRAY[lo, lo + 1, lo + 5, lo + 9] ELSE '{1,NULL}' END,
       CASE WHEN member THEN ARRAY[7, lo, (lo + 20) | (-2147483648), lo + 30] ELSE '{NULL,1}' END,
       CASE WHEN id % 120 % 10 <> 3 THEN 'g' || id % 120 END, CASE WHEN id % 13 = 0 THEN 3 ELSE 1 END
FROM (SELECT id, abs(hashint4(id + 1)) % 4970 AS lo, id <= 12000 AND id % 7 <> 0 AS member
      FROM generate_series(1, 13200) id) g;
ANALYZE agg_rows;

-- The aggregate calls: plain, and with FILTER, DISTINCT or ORDER BY inside the
-- call (the same answer by construction). `kind` says which plans can run them:
-- 'partial' ones have a combine function, 'op' has none, 'ordered' needs its rows
-- in order and so a sorted plan.
CREATE TEMP TABLE calls (n int, name text, kind text, plain text, modified text);
INSERT INTO calls VALUES
 (1, 'int4set_agg value', 'partial', $$int4set_agg(v, 'm')$$, $$int4set_agg(DISTINCT v, 'm') FILTER (WHERE id > 0)$$),
 (2, 'int4set_agg bounds', 'partial', $$int4set_agg(lo, hi, 'r')$$, $$int4set_agg(lo, hi, 'r' ORDER BY id DESC)$$),
 (3, 'int4set_agg s', 'partial', $$int4set_agg('s', s, 's')$$, $$int4set_agg('s', s, 's') FILTER (WHERE s IS NOT NULL)$$),
 (4, 'int4set_agg r', 'partial', $$int4set_agg('r', r, 'm')$$, $$int4set_agg(DISTINCT 'r', r, 'm')$$),
 (5, 'int4set_agg m', 'partial', $$int4set_agg('m', m, 'r')$$, $$int4set_agg('m', m, 'r' ORDER BY lo NULLS FIRST)$$),
 (6, 'optimized value', 'partial', $$int4set_agg_optimized(v, 5000, 's')$$,
     $$int4set_agg_optimized(DISTINCT v, 5000, 's')$$),
 (7, 'optimized bounds', 'partial', $$int4set_agg_optimized(lo, hi, 5000, 'm')$$,
     $$int4set_agg_optimized(lo, hi, 5000, 'm' ORDER BY hi) FILTER (WHERE id > 0)$$),
 (8, 'optimized s', 'partial', $$int4set_agg_optimized('s', s, 5000, 'r')$$,
     $$int4set_agg_optimized(DISTINCT 's', s, 5000, 'r')$$),
 (9, 'optimized r', 'partial', $$int4set_agg_optimized('r', r, 5000, 's')$$,
     $$int4set_agg_optimized('r', r, 5000, 's' ORDER BY id DESC)$$),
 (10, 'optimized m', 'partial', $$int4set_agg_optimized('m', m, 5000, 'm')$$,
     $$int4set_agg_optimized('m', m, 5000, 'm') FILTER (WHERE m IS NOT NULL)$$),
 (11, 'keep_single', 'partial', $$agg_keep_single(label)$$, $$agg_keep_single(DISTINCT label)$$),
 (12, 'keep_single policy off', 'partial', $$agg_keep_single(grp * 7, false)$$,
     $$agg_keep_single(grp * 7, false ORDER BY id DESC)$$),
 (13, 'op_agg unions', 'op', $$int4range_op_agg(1, CASE WHEN id % 11 <> 0 THEN r END)$$,
     $$int4range_op_agg(1, CASE WHEN id % 11 <> 0 THEN r END ORDER BY id DESC) FILTER (WHERE id > 0)$$),
 (14, 'op_agg ordered', 'ordered', $$int4range_op_agg(word, r ORDER BY id)$$,
     $$int4range_op_agg(word, r ORDER BY id) FILTER (WHERE word > 0)$$);

-- query(kinds, use_modified, source, group_by): every call of those kinds as one text[]
-- per group, (grp, res), from `source` grouped by `group_by`.
CREATE FUNCTION pg_temp.query(kinds text[], use_modified bool, source text, group_by text) RETURNS text
LANGUAGE sql AS $$
    SELECT format('SELECT grp, ARRAY[%s]::text[] AS res FROM %s GROUP BY %s',
                  string_agg(format('(%s)::text', CASE WHEN use_modified THEN c.modified ELSE c.plain END), ', ' ORDER BY n),
                  source, group_by)
    FROM calls c WHERE kind = ANY (kinds)
$$;

-- The answers of the plain sorted plan.
SET max_parallel_workers_per_gather = 0;
SET enable_hashagg = off;
SELECT pg_temp.plan_has(pg_temp.query('{partial,op,ordered}', false, 'agg_rows', 'grp'), 'GroupAggregate') AS sorted;
CREATE TEMP TABLE expected (grp int4, name text, result text);
DO $$
BEGIN
    EXECUTE format('INSERT INTO expected SELECT grp, unnest(names), unnest(res) FROM (%s) q, '
                   '(SELECT array_agg(name ORDER BY n) AS names FROM calls) c',
                   pg_temp.query('{partial,op,ordered}', false, 'agg_rows', 'grp'));
END $$;
SELECT count(DISTINCT grp) AS groups, count(*) AS answers,
       count(*) FILTER (WHERE result IN ('{}', '') OR result IS NULL) AS empty_answers
FROM expected;

-- check(label, kinds, modified, query, nodes): whether the plan of `query` holds
-- every node of `nodes`, and the calls whose answer differs from the expected one
-- in some group, or whose group is missing or extra. `query` gives (grp, res) as
-- query() makes it; a group may come more than once (grouping sets).
CREATE FUNCTION pg_temp.check(label text, kinds text[], query text, nodes text[])
RETURNS TABLE (plan text, calls int, shape_ok bool, differing text) LANGUAGE plpgsql AS $$
DECLARE names text[] := (SELECT array_agg(name ORDER BY n) FROM calls WHERE kind = ANY (kinds));
BEGIN
    plan := label;
    calls := cardinality(names);
    shape_ok := (SELECT bool_and(pg_temp.plan_has(query, node)) FROM unnest(nodes) node);
    EXECUTE format('CREATE TEMP TABLE got AS SELECT grp, unnest(%L::text[]) AS name, unnest(res) AS result FROM (%s) q',
                   names, query);
    differing := coalesce((
        SELECT string_agg(DISTINCT e.name, ', ') FROM expected e
        FULL JOIN got g ON g.grp = e.grp AND g.name = e.name
        WHERE coalesce(e.name, g.name) = ANY (names) AND g.result IS DISTINCT FROM e.result), '');
    DROP TABLE got;
    RETURN NEXT;
END $$;

-- Hashed in memory, and hashed in a work_mem so small that the hash table spills.
SET enable_hashagg = on;
SET enable_sort = off;
SET work_mem = '256MB';
SELECT * FROM pg_temp.check('hashed', '{partial,op}', pg_temp.query('{partial,op}', false, 'agg_rows', 'grp'),
                            '{HashAggregate}');
SET work_mem = '64kB';
SELECT pg_temp.hash_batches(pg_temp.query('{partial,op}', false, 'agg_rows', 'grp')) > 1 AS spilled;
SELECT * FROM pg_temp.check('hashed, spilling', '{partial,op}', pg_temp.query('{partial,op}', false, 'agg_rows', 'grp'),
                            '{HashAggregate}');
SET work_mem = '256MB';

-- A subquery's hash table kept across the rescans of a subplan: every group is
-- finalised again on each rescan, from the same states.
SELECT * FROM pg_temp.check('hashed, rescanned', '{partial,op}',
    format('SELECT g.grp, (SELECT s.res FROM (%s OFFSET 0) s WHERE s.grp = g.grp) AS res
            FROM (SELECT grp FROM generate_series(0, 119) grp) g',
           pg_temp.query('{partial,op}', false, 'agg_rows', 'grp')),
    '{SubPlan,HashAggregate}');

-- Partial aggregation in two workers and the leader: states serialised, combined.
\i sql/include/force_parallel.psql
RESET enable_sort;
SET enable_hashagg = off;
SELECT * FROM pg_temp.check('parallel, sorted', '{partial}', pg_temp.query('{partial}', false, 'agg_rows', 'grp'),
                            '{"Partial GroupAggregate","Finalize GroupAggregate"}');
SET enable_hashagg = on;
SET enable_sort = off;
SELECT * FROM pg_temp.check('parallel, hashed', '{partial}', pg_temp.query('{partial}', false, 'agg_rows', 'grp'),
                            '{"Partial HashAggregate","Finalize HashAggregate"}');

-- Partition-wise: one partial state per partition, those of the third partition
-- having seen only rows without members; serial, then in parallel.
SET enable_partitionwise_aggregate = on;
SELECT * FROM pg_temp.check('partition-wise, parallel', '{partial}', pg_temp.query('{partial}', false, 'agg_rows', 'grp'),
                            '{"Partial HashAggregate","Parallel Append",agg_rows_2}');
SET max_parallel_workers_per_gather = 0;
SELECT * FROM pg_temp.check('partition-wise', '{partial}', pg_temp.query('{partial}', false, 'agg_rows', 'grp'),
                            '{"Partial HashAggregate",Append,agg_rows_2}');
-- Partial states whose first rows fixed other output forms refuse to combine.
\i sql/include/errors.psql
SELECT pg_temp.try($$SELECT grp / 2, int4set_agg(v, CASE part WHEN 0 THEN 'r' ELSE 's' END::"char")
                     FROM agg_rows WHERE part < 2 GROUP BY grp / 2$$) AS other_forms;
RESET enable_partitionwise_aggregate;

-- Grouping sets: each group twice from one pass, by grp and by (grp, label),
-- which holds the same rows since label depends on grp only; hashed and sorted.
SELECT * FROM pg_temp.check('grouping sets, hashed', '{partial,op}',
                            pg_temp.query('{partial,op}', false, 'agg_rows', 'GROUPING SETS ((grp), (grp, label))'),
                            '{HashAggregate,"Hash Key: agg_rows.grp, agg_rows.label"}');
RESET enable_sort;
SET enable_hashagg = off;
SELECT * FROM pg_temp.check('grouping sets, sorted', '{partial,op,ordered}',
                            pg_temp.query('{partial,op,ordered}', false, 'agg_rows', 'GROUPING SETS ((grp), (grp, label))'),
                            '{GroupAggregate,"Group Key: agg_rows.grp, agg_rows.label"}');

-- FILTER, DISTINCT and ORDER BY inside the calls.
SELECT * FROM pg_temp.check('FILTER, DISTINCT, ORDER BY', '{partial,op,ordered}',
                            pg_temp.query('{partial,op,ordered}', true, 'agg_rows', 'grp'), '{GroupAggregate}');

-- The whole table as one group, and no row at all (every partial state NULL), in
-- parallel: the answers of the serial plan.
RESET enable_hashagg;
SET max_parallel_workers_per_gather = 0;
CREATE TEMP VIEW whole AS
SELECT int4set_agg(v, 'r') AS a, int4set_agg('m', m, 's') AS b, int4set_agg_optimized(lo, hi, 5000, 'r') AS c
FROM agg_rows;
CREATE TEMP VIEW no_rows AS
SELECT int4set_agg(v, 'r') AS a, int4set_agg_optimized(v, 5000, 'm') AS b, agg_keep_single(label) AS c
FROM agg_rows WHERE lo + hi < 0;
CREATE TEMP TABLE serial AS SELECT (SELECT whole::text FROM whole) AS whole, (SELECT no_rows::text FROM no_rows) AS no_rows;
SET max_parallel_workers_per_gather = 2;
SELECT pg_temp.plan_has('SELECT * FROM whole', 'Partial Aggregate') AS whole_partial,
       pg_temp.plan_has('SELECT * FROM no_rows', 'Partial Aggregate') AS no_rows_partial,
       (SELECT whole::text FROM whole) = s.whole AS whole_equal, (SELECT no_rows::text FROM no_rows) AS no_rows,
       (SELECT no_rows::text FROM no_rows) = s.no_rows AS no_rows_equal
FROM serial s;

-- Window aggregates: each final call leaves the state as it was, so a frame that
-- grows row by row adds rows after finalising, and a sliding frame restarts the
-- aggregate for every row. Both equal the self-joins that spell the frames out.
CREATE TEMP TABLE window_rows AS
SELECT *, row_number() OVER (PARTITION BY grp ORDER BY id) AS rn FROM agg_rows WHERE grp IN (0, 3, 7) AND id < 3600;
CREATE TEMP VIEW framed AS
SELECT a.id AS frame, b.* FROM window_rows a JOIN window_rows b ON b.grp = a.grp AND b.rn <= a.rn;
SELECT count(*) AS rows, count(*) FILTER (WHERE w.res = j.res) AS running_equal, count(*) FILTER (WHERE s.res = k.res) AS sliding_equal
FROM (SELECT id, ARRAY[(int4set_agg(v, 'm') OVER w)::text, (int4set_agg(lo, hi, 'r') OVER w)::text,
                       (int4set_agg('r', r, 'm') OVER w)::text, (int4set_agg_optimized(lo, hi, 5000, 'm') OVER w)::text,
                       (int4set_agg_optimized('r', r, 5000, 's') OVER w)::text, agg_keep_single(label) OVER w,
                       (int4range_op_agg(word, r) OVER w)::text] AS res
      FROM window_rows WINDOW w AS (PARTITION BY grp ORDER BY id)) w
JOIN (SELECT frame AS id, ARRAY[int4set_agg(v, 'm')::text, int4set_agg(lo, hi, 'r')::text, int4set_agg('r', r, 'm')::text,
                                int4set_agg_optimized(lo, hi, 5000, 'm')::text,
                                int4set_agg_optimized('r', r, 5000, 's')::text, agg_keep_single(label),
                                int4range_op_agg(word, r ORDER BY id)::text] AS res
      FROM framed GROUP BY frame) j USING (id)
JOIN (SELECT id, ARRAY[(int4set_agg(v, 'm') OVER w)::text, (int4set_agg_optimized('r', r, 5000, 's') OVER w)::text,
                       (int4range_op_agg(word, r) OVER w)::text] AS res
      FROM window_rows WINDOW w AS (PARTITION BY grp ORDER BY id ROWS BETWEEN 3 PRECEDING AND CURRENT ROW)) s USING (id)
JOIN (SELECT f.frame AS id, ARRAY[int4set_agg(v, 'm')::text, int4set_agg_optimized('r', r, 5000, 's')::text,
                                  int4range_op_agg(word, r ORDER BY id)::text] AS res
      FROM framed f WHERE f.rn > (SELECT rn FROM window_rows x WHERE x.id = f.frame) - 4 GROUP BY f.frame) k USING (id);

-- Every aggregate form gives the plain sorted plan's answer in every plan shape (each shape checked), and in windows.
\i sql/include/plans.psql

-- 100 rows per group over two partitions, every 7th without a member; a third partition without members; values in [0, 5000].
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

-- Each call plain and with FILTER, DISTINCT or ORDER BY (same answer); 'op' has no combine, 'ordered' needs a sort.
CREATE TEMP TABLE calls (n int, name text, kind text, plain text, modified text);
INSERT INTO calls VALUES
 (1, 'int4set_agg value', 'partial', $$int4set_agg(v, 'm')$$, $$int4set_agg(DISTINCT v, 'm') FILTER (WHERE id > 0)$$),
 (2, 'int4set_agg bounds', 'partial', $$int4set_agg(lo, hi, 'r')$$, $$int4set_agg(lo, hi, 'r' ORDER BY id DESC)$$),
 (3, 'int4set_agg s', 'partial', $$int4set_agg('s', s, 's')$$, $$int4set_agg('s', s, 's') FILTER (WHERE s IS NOT NULL)$$),
 (4, 'int4set_agg r', 'partial', $$int4set_agg('r', r, 'm')$$, $$int4set_agg(DISTINCT 'r', r, 'm')$$),
 (5, 'int4set_agg m', 'partial', $$int4set_agg('m', m, 'r')$$, $$int4set_agg('m', m, 'r' ORDER BY lo NULLS FIRST)$$),
 (6, 'optimized value', 'partial', $$int4set_agg_optimized(v, 5000, 's')$$, $$int4set_agg_optimized(DISTINCT v, 5000, 's')$$),
 (7, 'optimized bounds', 'partial', $$int4set_agg_optimized(lo, hi, 5000, 'm')$$,
     $$int4set_agg_optimized(lo, hi, 5000, 'm' ORDER BY hi) FILTER (WHERE id > 0)$$),
 (8, 'optimized s', 'partial', $$int4set_agg_optimized('s', s, 5000, 'r')$$, $$int4set_agg_optimized(DISTINCT 's', s, 5000, 'r')$$),
 (9, 'optimized r', 'partial', $$int4set_agg_optimized('r', r, 5000, 's')$$,
     $$int4set_agg_optimized('r', r, 5000, 's' ORDER BY id DESC)$$),
 (10, 'optimized m', 'partial', $$int4set_agg_optimized('m', m, 5000, 'm')$$,
     $$int4set_agg_optimized('m', m, 5000, 'm') FILTER (WHERE m IS NOT NULL)$$),
 (11, 'keep_single', 'partial', $$agg_keep_single(label)$$, $$agg_keep_single(DISTINCT label)$$),
 (12, 'keep_single float8, policy off', 'partial', $$agg_keep_single((grp / 8.0)::float8, false)$$,
     $$agg_keep_single((grp / 8.0)::float8, false ORDER BY id DESC)$$),
 (13, 'op_agg unions', 'op', $$int4range_op_agg(1, CASE WHEN id % 11 <> 0 THEN r END)$$,
     $$int4range_op_agg(1, CASE WHEN id % 11 <> 0 THEN r END ORDER BY id DESC) FILTER (WHERE id > 0)$$),
 (14, 'op_agg ordered', 'ordered', $$int4range_op_agg(word, r ORDER BY id)$$,
     $$int4range_op_agg(word, r ORDER BY id) FILTER (WHERE word > 0)$$),
 (15, 'int4set build', 'partial', $$int4set_build_agg(v)$$, $$int4set_build_agg(DISTINCT v) FILTER (WHERE id > 0)$$),
 (16, 'int4set union', 'partial', $$int4set_union_agg(CASE WHEN v IS NOT NULL THEN int4set(ARRAY[lo, hi]) END)$$,
     $$int4set_union_agg(CASE WHEN v IS NOT NULL THEN int4set(ARRAY[lo, hi]) END ORDER BY id DESC)$$),
 (17, 'int4set intersect', 'partial', $$int4set_intersect_agg(CASE WHEN v IS NOT NULL THEN int4set(ARRAY[lo % 50, lo % 50 + 4000]) END)$$,
     $$int4set_intersect_agg(DISTINCT CASE WHEN v IS NOT NULL THEN int4set(ARRAY[lo % 50, lo % 50 + 4000]) END)$$);

-- query(kinds, use_modified, group_by, wrap): the calls of those kinds as one text[] per group, (grp, res).
CREATE FUNCTION pg_temp.query(kinds text, use_modified bool DEFAULT false, group_by text DEFAULT 'grp', wrap text DEFAULT '%s')
RETURNS text LANGUAGE sql AS $$
    SELECT format(wrap, format('SELECT grp, ARRAY[%s]::text[] AS res FROM agg_rows GROUP BY %s',
                  string_agg(format('(%s)::text', CASE WHEN use_modified THEN c.modified ELSE c.plain END), ', ' ORDER BY n), group_by))
    FROM calls c WHERE kind = ANY (kinds::text[])
$$;

-- The answers of the plain sorted plan.
SET max_parallel_workers_per_gather = 0;
SET enable_hashagg = off;
SELECT pg_temp.plan_has(pg_temp.query('{partial,op,ordered}'), 'GroupAggregate') AS sorted;
CREATE TEMP TABLE expected (grp int4, name text, result text);
DO $$ BEGIN
    EXECUTE format('INSERT INTO expected SELECT grp, unnest(names), unnest(res) FROM (%s) q, '
                   '(SELECT array_agg(name ORDER BY n) AS names FROM calls) c', pg_temp.query('{partial,op,ordered}'));
END $$;
SELECT count(DISTINCT grp) AS groups, count(*) AS answers,
       count(*) FILTER (WHERE result IN ('{}', '') OR result IS NULL) AS empty_answers FROM expected;

-- check(label, kinds, nodes, ...): whether the plan holds every node, and the calls whose answer differs in some group.
CREATE FUNCTION pg_temp.check(label text, kinds text, nodes text[], use_modified bool DEFAULT false,
                              group_by text DEFAULT 'grp', wrap text DEFAULT '%s')
RETURNS TABLE (plan text, calls int, shape_ok bool, differing text) LANGUAGE plpgsql AS $$
DECLARE
    names text[] := (SELECT array_agg(name ORDER BY n) FROM calls WHERE kind = ANY (kinds::text[]));
    query text := pg_temp.query(kinds, use_modified, group_by, wrap);
BEGIN
    plan := label;
    calls := cardinality(names);
    shape_ok := (SELECT bool_and(pg_temp.plan_has(query, node)) FROM unnest(nodes) node);
    EXECUTE format('CREATE TEMP TABLE got AS SELECT grp, unnest(%L::text[]) AS name, unnest(res) AS result FROM (%s) q',
                   names, query);
    differing := coalesce((SELECT string_agg(DISTINCT e.name, ', ') FROM expected e
                           FULL JOIN got g ON g.grp = e.grp AND g.name = e.name
                           WHERE coalesce(e.name, g.name) = ANY (names) AND g.result IS DISTINCT FROM e.result), '');
    DROP TABLE got;
    RETURN NEXT;
END $$;

-- Hashed in memory, spilling, and rescanned inside a subplan (finalised again from the same states).
SET enable_hashagg = on;
SET enable_sort = off;
SET work_mem = '256MB';
SELECT * FROM pg_temp.check('hashed', '{partial,op}', '{HashAggregate}');
SET work_mem = '64kB';
SELECT pg_temp.hash_agg_max(pg_temp.query('{partial,op}'), 'HashAgg Batches') > 1 AS spilled;
SELECT * FROM pg_temp.check('hashed, spilling', '{partial,op}', '{HashAggregate}');
SET work_mem = '256MB';
SELECT * FROM pg_temp.check('hashed, rescanned', '{partial,op}', '{SubPlan,HashAggregate}', wrap =>
    'SELECT g.grp, (SELECT s.res FROM (%s OFFSET 0) s WHERE s.grp = g.grp) AS res FROM generate_series(0, 119) g(grp)');

-- Partial aggregation in two workers and the leader: states serialised, combined.
\i sql/include/force_parallel.psql
RESET enable_sort;
SET enable_hashagg = off;
SELECT * FROM pg_temp.check('parallel, sorted', '{partial}', '{"Partial GroupAggregate","Finalize GroupAggregate"}');
SET enable_hashagg = on;
SET enable_sort = off;
SELECT * FROM pg_temp.check('parallel, hashed', '{partial}', '{"Partial HashAggregate","Finalize HashAggregate"}');
-- 12,000 groups of partial states under 64 kB of work_mem: the final step spills, and the states it deserialises for
-- tuples it spills go with those tuples. Its memory is of the order of array_agg's on the same rows, its answers the
-- serial plan's.
CREATE TABLE many_groups AS SELECT i % 12000 AS g, hashint4(i) % 1000 AS v FROM generate_series(1, 240000) i;
ANALYZE many_groups;
\set many 'SELECT g, int4set_agg(v, ''r'') AS a, int4set_agg_optimized(abs(v), 1000, ''m'') AS b, agg_keep_single(g) AS c, int4set_build_agg(v) AS d FROM many_groups GROUP BY g'
\set many_arrays 'SELECT g, array_agg(v) AS a, array_agg(abs(v)) AS b, array_agg(g) AS c, array_agg(-v) AS d FROM many_groups GROUP BY g'
SET work_mem = '64kB';
SELECT pg_temp.plan_has(:'many', 'Finalize HashAggregate') AS finalize_hashed,
       pg_temp.hash_agg_max(:'many', 'HashAgg Batches') > 1 AS spilled,
       pg_temp.hash_agg_max(:'many', 'Peak Memory Usage') <= 4 * pg_temp.hash_agg_max(:'many_arrays', 'Peak Memory Usage')
           AS memory_as_array_agg,
       (SELECT md5(string_agg(s::text, ',' ORDER BY g)) FROM (:many) s) AS parallel_answer \gset
SET max_parallel_workers_per_gather = 0;
SELECT :'finalize_hashed' AS finalize_hashed, :'spilled' AS spilled, :'memory_as_array_agg' AS memory_as_array_agg,
       (SELECT md5(string_agg(s::text, ',' ORDER BY g)) FROM (:many) s) = :'parallel_answer' AS same_answer;
SET max_parallel_workers_per_gather = 2;
SET work_mem = '256MB';
-- Stored sets read out of line leave nothing behind in the group's memory: 8,000 sets of 1,000 members (21 MB
-- stored) into two hashed groups keep the peak under half of that.
CREATE TABLE stored_sets AS
SELECT i % 2 AS g, (SELECT int4set_build_agg((hashint4(i * 1000 + k) & 2147483647) % 10000000) FROM generate_series(1, 1000) k) AS s
FROM generate_series(1, 8000) i;
SET enable_sort = off;
SELECT pg_temp.hash_agg_max('SELECT g, int4set_union_agg(s) FROM stored_sets GROUP BY g', 'Peak Memory Usage')
       < (SELECT sum(pg_column_size(s)) / 2048 FROM stored_sets) AS stored_sets_not_kept;
RESET enable_sort;

-- Partition-wise, parallel and serial; the third partition's states saw only rows without members.
SET enable_partitionwise_aggregate = on;
SELECT * FROM pg_temp.check('partition-wise, parallel', '{partial}', '{"Partial HashAggregate","Parallel Append",agg_rows_2}');
SET max_parallel_workers_per_gather = 0;
SELECT * FROM pg_temp.check('partition-wise', '{partial}', '{"Partial HashAggregate",Append,agg_rows_2}');
-- Over 64 partitions, each combine merges into the group's state: the final step's memory is of the order of the set
-- (at most twice a plain hashed plan's), not of the number of partitions; partial sets of values more than 2^31 apart
-- unite as sets (the same answer as the plain plan).
CREATE TABLE spread (k int4, v int4) PARTITION BY HASH (v);
DO $$ BEGIN
    FOR i IN 0..63 LOOP
        EXECUTE format('CREATE TABLE spread_%s PARTITION OF spread FOR VALUES WITH (MODULUS 64, REMAINDER %s)', i, i);
    END LOOP;
END $$;
INSERT INTO spread SELECT 1, CASE WHEN i % 2 = 0 THEN -2000000000 + i * 7 ELSE 2000000000 - i * 7 END FROM generate_series(1, 64000) i;
ANALYZE spread;
\set spread 'SELECT k, int4set_agg(v, ''r''), int4set_agg_optimized(v & 1048575, 1048575, ''r''), agg_keep_single(k), int4set_build_agg(v) FROM spread GROUP BY k'
SELECT pg_temp.plan_has(:'spread', 'Partial HashAggregate') AS partition_wise,
       pg_temp.hash_agg_max(:'spread', 'Peak Memory Usage') AS partition_wise_kb,
       (SELECT md5(string_agg(s::text, ',')) FROM (:spread) s) AS partition_wise_answer \gset
SET enable_partitionwise_aggregate = off;
SELECT :'partition_wise' AS partition_wise, :partition_wise_kb <= 2 * pg_temp.hash_agg_max(:'spread', 'Peak Memory Usage')
       AS memory_of_the_set, (SELECT md5(string_agg(s::text, ',')) FROM (:spread) s) = :'partition_wise_answer' AS same_answer;
SET enable_partitionwise_aggregate = on;
-- Partial states whose first rows fixed other output forms refuse to combine.
\i sql/include/errors.psql
SELECT pg_temp.try($$SELECT grp / 2, int4set_agg(v, CASE part WHEN 0 THEN 'r' ELSE 's' END::"char")
                     FROM agg_rows WHERE part < 2 GROUP BY grp / 2$$) AS other_forms;
RESET enable_partitionwise_aggregate;

-- Grouping sets, hashed and sorted; then FILTER, DISTINCT and ORDER BY inside the calls.
SELECT * FROM pg_temp.check('grouping sets, hashed', '{partial,op}', '{HashAggregate,"Hash Key: agg_rows.grp, agg_rows.label"}',
                            group_by => 'GROUPING SETS ((grp), (grp, label))');
RESET enable_sort;
SET enable_hashagg = off;
SELECT * FROM pg_temp.check('grouping sets, sorted', '{partial,op,ordered}', '{GroupAggregate,"Group Key: agg_rows.grp, agg_rows.label"}',
                            group_by => 'GROUPING SETS ((grp), (grp, label))');
SELECT * FROM pg_temp.check('FILTER, DISTINCT, ORDER BY', '{partial,op,ordered}', '{GroupAggregate}', use_modified => true);

-- The whole table as one group, and no row at all (every partial state NULL), in parallel.
RESET enable_hashagg;
CREATE TEMP VIEW whole AS
SELECT int4set_agg(v, 'r') AS a, int4set_agg('m', m, 's') AS b, int4set_agg_optimized(lo, hi, 5000, 'r') AS c,
       int4set_build_agg(v) AS d FROM agg_rows;
CREATE TEMP VIEW no_rows AS
SELECT int4set_agg(v, 'r') AS a, int4set_agg_optimized(v, 5000, 'm') AS b, agg_keep_single(label) AS c,
       int4set_build_agg(v) AS d FROM agg_rows WHERE lo + hi < 0;
CREATE TEMP TABLE serial AS SELECT (SELECT whole::text FROM whole) AS whole, (SELECT no_rows::text FROM no_rows) AS no_rows;
SET max_parallel_workers_per_gather = 2;
SELECT pg_temp.plan_has('SELECT * FROM whole', 'Partial Aggregate') AND pg_temp.plan_has('SELECT * FROM no_rows', 'Partial Aggregate')
           AS partial,
       (SELECT whole::text FROM whole) = s.whole AS whole_equal, (SELECT no_rows::text FROM no_rows) AS no_rows,
       (SELECT no_rows::text FROM no_rows) = s.no_rows AS no_rows_equal
FROM serial s;

-- Windows (finalising leaves the state as it was) equal the self-joins that spell growing and sliding frames out.
CREATE TEMP TABLE window_rows AS
SELECT *, row_number() OVER (PARTITION BY grp ORDER BY id) AS rn FROM agg_rows WHERE grp IN (0, 3, 7) AND id < 3600;
-- windowed(calls, frame, first): rows whose calls over the window frame equal them over rows rn >= first of the frame.
CREATE FUNCTION pg_temp.windowed(calls text[], frame text, first text) RETURNS bigint LANGUAGE plpgsql AS $$
DECLARE n bigint;
BEGIN
    EXECUTE format('SELECT count(*) FROM (SELECT id, ARRAY[%s] AS res FROM window_rows WINDOW w AS (PARTITION BY grp ORDER BY id %s)) w '
                   'JOIN (SELECT frame AS id, ARRAY[%s] AS res FROM (SELECT id AS frame, grp AS frame_grp, rn AS frame_rn FROM window_rows) a '
                   'JOIN window_rows b ON b.grp = frame_grp AND b.rn <= frame_rn AND b.rn >= %s GROUP BY frame) j USING (id) '
                   'WHERE w.res = j.res',
                   (SELECT string_agg(format('(%s OVER w)::text', replace(c, ' ORDER BY id', '')), ', ') FROM unnest(calls) c), frame,
                   (SELECT string_agg(format('(%s)::text', c), ', ') FROM unnest(calls) c), first) INTO n;
    RETURN n;
END $$;
SELECT count(*) AS rows,
       pg_temp.windowed(ARRAY['int4set_agg(v, ''m'')', 'int4set_agg(lo, hi, ''r'')', 'int4set_agg(''r'', r, ''m'')',
                              'int4set_agg_optimized(lo, hi, 5000, ''m'')', 'int4set_agg_optimized(''r'', r, 5000, ''s'')',
                              'agg_keep_single(label)', 'int4range_op_agg(word, r ORDER BY id)', 'int4set_build_agg(v)',
                              'int4set_union_agg(CASE WHEN lo IS NOT NULL THEN int4set(ARRAY[lo, hi]) END)'], '', '1') AS running_equal,
       pg_temp.windowed(ARRAY['int4set_agg(v, ''m'')', 'int4set_agg_optimized(''r'', r, 5000, ''s'')',
                              'int4range_op_agg(word, r ORDER BY id)', 'int4set_intersect_agg(CASE WHEN lo IS NOT NULL THEN int4set(ARRAY[lo % 50, lo % 50 + 4000]) END)'],
                        'ROWS BETWEEN 3 PRECEDING AND CURRENT ROW', 'frame_rn - 3') AS sliding_equal
FROM window_rows;

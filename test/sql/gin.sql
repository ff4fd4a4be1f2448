-- GIN over range-array columns: every query form gives the sequential scan's rows through the index, on stored
-- sets of every shape (unsorted, overlapping, inverted pairs, empty, NULL, larger than the key budget); refusals
-- happen with and without the index alike; core's array operators keep their meaning.
\i sql/include/errors.psql
\i sql/include/plans.psql
\i sql/include/estimates.psql
\i sql/include/hash_random.psql
\i sql/include/scan_vs_index.psql
SET jit = off;

SELECT opcname, amvalidate(oid) FROM pg_opclass WHERE opcname = 'qn_gin_rangearray_ops';

-- 20,000 stored sets: mostly normalised sets of 1 to 20 ranges of widths from 1 to 10^6, dense around zero or
-- anywhere; every 10th unsorted with overlapping and inverted pairs; a few at the int4 extremes, the whole line,
-- empty, NULL, two-dimensional, or of 3,000 ranges (keyed by a covering).
CREATE TABLE gs AS
SELECT i AS id,
       CASE WHEN i % 10 = 9 THEN
                (SELECT array_agg(x) FROM (SELECT unnest(ARRAY[lo, lo + w * (CASE WHEN k % 4 = 0 THEN -1 ELSE 1 END)]) x
                 FROM (SELECT k, (pg_temp.rnd(1, i, k) * 2e5 - 1e5)::int AS lo, (pg_temp.rnd(2, i, k) * 5000)::int AS w
                       FROM generate_series(1, 1 + i % 6) k) p) u)
            ELSE (SELECT int4set_agg(lo, least(lo + w, 2147483647)::int, 'r')
                  FROM (SELECT CASE WHEN i % 2 = 0 THEN (pg_temp.rnd(3, i, k) * 2e5 - 1e5)::int
                                    ELSE (pg_temp.rnd(3, i, k) * 4294967295 - 2147483648)::bigint::int END AS lo,
                               (10 ^ (pg_temp.rnd(4, i, k) * 6))::bigint AS w
                        FROM generate_series(1, 1 + i % 20) k) p) END AS r
FROM generate_series(1, 20000) i;
INSERT INTO gs VALUES (-1, '{-2147483648,-2147483648}'), (-2, '{2147483647,2147483647}'), (-3, '{-2147483648,2147483647}'),
                      (-4, '{}'), (-5, NULL), (-6, '{{1,2},{3,4}}'), (-7, '{1,NULL}'), (-8, '{-10,-1,1,10}');
INSERT INTO gs SELECT -100 - j, (SELECT array_agg(x ORDER BY x) FROM generate_series(j * 7, j * 7 + 3000 * 40 - 1, 40) s,
                                 LATERAL (VALUES (s), (s + 3 + j)) v(x))
FROM generate_series(1, 3) j;
CREATE INDEX gs_r ON gs USING gin (r qn_gin_rangearray_ops (finest_block = 1));

-- 40 queries: a value (some on stored bounds and the extremes), a range array (normalised, unsorted with inverted
-- pairs, 100 ranges, empty), a packed range (some inverted).
CREATE TABLE gq AS
SELECT q AS qid,
       CASE WHEN q = 1 THEN -2147483648 WHEN q = 2 THEN 2147483647
            WHEN q % 3 = 0 THEN (SELECT r[1 + 2 * (q % 3)] FROM gs WHERE id = q * 311)
            ELSE (pg_temp.rnd(5, q) * 2e5 - 1e5)::int END AS val,
       CASE WHEN q % 10 = 0 THEN '{}'::int4[]
            WHEN q % 10 = 5 THEN ARRAY[(pg_temp.rnd(6, q) * 2e5 - 1e5)::int, (pg_temp.rnd(7, q) * 2e5 - 1e5)::int,
                                       50000, -50000, 3, 4]
            WHEN q % 10 = 7 THEN (SELECT int4set_agg(k * 2000, k * 2000 + 300, 'r') FROM generate_series(-50, 49) k)
            ELSE (SELECT int4set_agg(lo, lo + (pg_temp.rnd(8, q, k) * CASE WHEN q % 4 = 0 THEN 1e6 ELSE 500 END)::int, 'r')
                  FROM (SELECT (pg_temp.rnd(9, q, k) * 2e5 - 1e5)::int AS lo, q, k FROM generate_series(1, 1 + q % 4) k) s) END AS arr,
       CASE WHEN q % 5 = 0 THEN ((pg_temp.rnd(10, q) * 1000)::int8 << 32) | 1000  -- [1000; below 1000]
            ELSE qn_range_pack(lo, lo + (pg_temp.rnd(11, q) * 3000)::int) END AS pr
FROM (SELECT q, (pg_temp.rnd(12, q) * 2e5 - 1e5)::int AS lo FROM generate_series(1, 40) q) s;
-- Stored sets equal to query sets, so that containment meets equal bounds.
INSERT INTO gs SELECT -200 - qid, arr FROM gq WHERE qid % 10 IN (1, 2);

CREATE TEMP TABLE index_conditions AS SELECT * FROM unnest(ARRAY[
    'q.val <@ t.r', 't.r ~@> q.val', 'qn_int4_in_rangearray(q.val, t.r)', 'qn_rangearray_contains_int4(t.r, q.val)',
    't.r ~&& q.arr', 'q.arr ~&& t.r', 'qn_int4range_is_overlap(t.r, q.arr)', 'qn_int4range_is_overlap(q.arr, t.r)',
    't.r ~@> q.arr', 'qn_int4range_is_strictly_include(q.arr, t.r)', 'qn_int4range_contains(t.r, q.arr)',
    't.r ~<@ q.arr', 'qn_int4range_is_strictly_include(t.r, q.arr)',
    'q.pr && t.r', 't.r ~&& q.pr', 'qn_int4rangepacked_in_rangearray(q.pr, t.r)']) WITH ORDINALITY c(cond, n);
-- Keys down to single values, then the default (blocks of 64 values at the finest) and blocks of 65,536.
SELECT * FROM pg_temp.all_same('gq', 'gs', 'gs_r');
DROP INDEX gs_r;
CREATE INDEX gs_r ON gs USING gin (r qn_gin_rangearray_ops);
SELECT bool_and(same_rows AND index_used) AS default_blocks_same FROM pg_temp.all_same('gq', 'gs', 'gs_r');
DROP INDEX gs_r;
CREATE INDEX gs_r ON gs USING gin (r qn_gin_rangearray_ops (finest_block = 65536));
SELECT bool_and(same_rows AND index_used) AS coarse_blocks_same FROM pg_temp.all_same('gq', 'gs', 'gs_r');
SELECT pg_temp.try('CREATE INDEX ON gs USING gin (r qn_gin_rangearray_ops (finest_block = 0))') AS no_empty_blocks;
DROP INDEX gs_r;
CREATE INDEX gs_r ON gs USING gin (r qn_gin_rangearray_ops);

-- The index keeps few false candidates: blocks follow each range's length.
ANALYZE gs;
SET enable_seqscan = off;
SELECT coalesce(pg_temp.hash_agg_max('SELECT * FROM gs WHERE 12345 <@ r', 'Rows Removed by Index Recheck'), 0) <
       pg_temp.hash_agg_max('SELECT * FROM gs WHERE 12345 <@ r', 'Actual Rows') AS fewer_false_than_true_candidates;
RESET enable_seqscan;
-- Estimates from the column's statistics, either way round.
SELECT clause, pg_temp.within('SELECT * FROM gs WHERE ' || clause, 1.5) AS estimate_within
FROM unnest(ARRAY['0 <@ r', 'r ~@> 0', 'r ~&& ''{-50000,50000}''', '''{-50000,50000}'' ~&& r', 'r ~<@ ''{-100000,100000}''',
                  'r ~@> ''{10,20}''', 'r ~&& qn_range_pack(0, 99999)', 'qn_int4range_is_overlap(r, ''{0,99999}'')']) clause;

-- Odd-length arrays: `v <@ r` ignores the last element, the other tests refuse the array, with the index as without.
CREATE TABLE godd (id int, r int4[]);
INSERT INTO godd VALUES (1, '{1,5,9}'), (2, '{10,20}'), (3, NULL);
CREATE INDEX godd_r ON godd USING gin (r qn_gin_rangearray_ops);
SET enable_bitmapscan = off;
CREATE TEMP TABLE odd_runs AS SELECT q, pg_temp.run(q) AS seq_scan FROM unnest(ARRAY[
    'SELECT string_agg(id::text, '','') FROM godd WHERE 3 <@ r', 'SELECT string_agg(id::text, '','') FROM godd WHERE 9 <@ r',
    'SELECT count(*) FROM godd WHERE r ~&& ''{4,4}''', 'SELECT count(*) FROM godd WHERE r ~&& ''{}''',
    'SELECT count(*) FROM godd WHERE r ~&& qn_range_pack(4, 4)', 'SELECT count(*) FROM godd WHERE r ~&& ''{1,2,3}''',
    'SELECT count(*) FROM gs WHERE r ~&& ''{1,2,3}''', 'SELECT count(*) FROM gs WHERE r ~@> ''{1,2,3}''',
    'SELECT count(*) FROM gs WHERE r ~<@ NULL::int4[]']) q;
RESET enable_bitmapscan;
SET enable_seqscan = off;
SELECT q, seq_scan, pg_temp.run(q) AS by_index, pg_temp.plan_has(q, 'Bitmap Index Scan') AS indexed FROM odd_runs;
RESET enable_seqscan;

-- ~&& walks its operands in different roles, so on arrays that are not normalised a ~&& b and b ~&& a can differ; its
-- commutator is &&~ (b &&~ a is a ~&& b), and neither a partial index nor constraint exclusion loses a row over it.
SELECT '{5,12}'::int4[] ~&& '{5,3}' AS left_first, '{5,3}'::int4[] ~&& '{5,12}' AS right_first,
       '{5,12}'::int4[] &&~ '{5,3}' AS commuted, (SELECT oprcom::regoperator FROM pg_operator WHERE oid = '~&&(int4[],int4[])'::regoperator) AS commutator;
CREATE TABLE gcom (id int, a int4[] CHECK (NOT a ~&& '{5,3}'));
INSERT INTO gcom SELECT i, '{5,12}' FROM generate_series(1, 1000) i;
CREATE INDEX gcom_meets ON gcom (id) WHERE a ~&& '{5,3}';
ANALYZE gcom;
SET constraint_exclusion = on;
SET enable_seqscan = off;
SELECT count(*) AS rows_found, pg_temp.plan_has('SELECT count(*) FROM gcom WHERE ''{5,3}'' ~&& a', 'gcom_meets') AS partial_index_used
FROM gcom WHERE '{5,3}' ~&& a;
RESET enable_seqscan;
RESET constraint_exclusion;
DROP TABLE gcom;

-- Core's array operators on int4[], typed and untyped, answer as they do without the extension.
CREATE TABLE core_answers AS
SELECT e, pg_temp.run('SELECT ' || e) AS answer FROM unnest(ARRAY[
    'ARRAY[1,2] @> ''{1}''', 'ARRAY[1,2] <@ ''{1,2,3}''', 'ARRAY[1,2] && ''{2}''', 'ARRAY[1,2] = ''{1,2}''',
    '''{1,100}''::int4[] @> ''{42,42}''', '''{1,10}''::int4[] && ''{5,6}''', '''{1,2}'' @> ARRAY[1]',
    'ARRAY[1,2] @> ARRAY[1]::int4[]', 'ARRAY[1,2] || 3', 'ARRAY[1,2]::int4[] <@ ''{1,2}''']) e;
DROP EXTENSION kelvarn_range_operators CASCADE;
SELECT c.e, c.answer, pg_temp.run('SELECT ' || c.e) = c.answer AS same_without_extension FROM core_answers c;

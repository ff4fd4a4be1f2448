-- Indexes over int4set: GIN over int4set columns and GiST over int4 columns give the sequential scan's rows for every
-- operator and its function form, on sets of every shape (empty, NULL, the int4 line's ends, the whole line, more
-- ranges than the key budget, dense chunks); the planner takes the GIN indexes by itself where they are faster.
\i sql/include/errors.psql
\i sql/include/plans.psql
\i sql/include/hash_random.psql
\i sql/include/scan_vs_index.psql
SET jit = off;

SELECT opcname, opcdefault, amvalidate(oid) FROM pg_opclass
WHERE opcname IN ('int4set_gin_ops', 'qn_gin_rangearray_ops', 'qn_gist_int4_ops') ORDER BY 1;

-- 4,000 stored sets: 1 to 20 ranges of widths from 1 to 10^6 around zero or anywhere, scattered members, dense
-- members (bitmap chunks); a few at the int4 ends, the whole line, empty, NULL, or of 3,000 ranges.
CREATE TABLE ss AS
SELECT i AS id,
       CASE WHEN i % 10 = 9 THEN
                (SELECT int4set_build_agg((pg_temp.rnd(1, i, k) * CASE WHEN i % 20 = 9 THEN 2e5 ELSE 4e4 END - 2e4)::int)
                 FROM generate_series(1, 1 + (i % 7) * 400) k)
            WHEN i % 97 = 0 THEN '{}'::int4set
            ELSE (SELECT int4set_agg(lo, least(lo + w, 2147483647)::int, 'r')::int4set
                  FROM (SELECT CASE WHEN i % 2 = 0 THEN (pg_temp.rnd(3, i, k) * 2e5 - 1e5)::int
                                    ELSE (pg_temp.rnd(3, i, k) * 4294967295 - 2147483648)::bigint::int END AS lo,
                               (10 ^ (pg_temp.rnd(4, i, k) * 6))::bigint AS w
                        FROM generate_series(1, 1 + i % 20) k) p) END AS s
FROM generate_series(1, 4000) i;
INSERT INTO ss VALUES (-1, '{-2147483648}'), (-2, '{2147483647}'), (-3, '{-2147483648..2147483647}'), (-4, '{}'),
                      (-5, NULL), (-6, '{-2147483648..-2147483600,2147483600..2147483647}'), (-7, '{-10..-1,1..10}');
INSERT INTO ss SELECT -100 - j, (SELECT int4set_build_agg(x) FROM generate_series(j * 7, j * 7 + 3000 * 40 - 1, 40) x)
FROM generate_series(1, 3) j;
CREATE INDEX ss_s ON ss USING gin (s int4set_gin_ops (finest_block = 1));

-- 40 queries: a value (stored bounds, the int4 ends), a set (a few ranges, 100 ranges, members, empty, the
-- whole line), an int4range (bounded, unbounded, empty).
CREATE TABLE sq AS
SELECT q AS qid,
       CASE WHEN q = 1 THEN -2147483648 WHEN q = 2 THEN 2147483647
            WHEN q % 3 = 0 THEN (SELECT min_member(s) FROM ss WHERE id = q * 97 + 1)
            ELSE (pg_temp.rnd(5, q) * 2e5 - 1e5)::int END AS val,
       CASE WHEN q % 10 = 0 THEN '{}'::int4set
            WHEN q = 5 THEN '{-2147483648..2147483647}'::int4set
            WHEN q % 10 = 5 THEN '{-2147483648,2147483647}'::int4set
            WHEN q % 10 = 7 THEN (SELECT int4set_agg(k * 2000, k * 2000 + 300, 'r')::int4set FROM generate_series(-50, 49) k)
            WHEN q % 10 = 3 THEN (SELECT s FROM ss WHERE id = q * 13)
            ELSE (SELECT int4set_agg(lo, lo + (pg_temp.rnd(8, q, k) * CASE WHEN q % 4 = 0 THEN 1e6 ELSE 500 END)::int, 'r')::int4set
                  FROM (SELECT (pg_temp.rnd(9, q, k) * 2e5 - 1e5)::int AS lo, q, k FROM generate_series(1, 1 + q % 4) k) s) END AS qs,
       CASE WHEN q % 8 = 0 THEN 'empty'::int4range WHEN q % 8 = 1 THEN int4range(lo, NULL)
            WHEN q % 8 = 2 THEN int4range(NULL, lo) ELSE int4range(lo, lo + (pg_temp.rnd(11, q) * 3000)::int) END AS qr
FROM (SELECT q, (pg_temp.rnd(12, q) * 2e5 - 1e5)::int AS lo FROM generate_series(1, 40) q) s;
-- Stored sets equal to query sets, so that containment meets equal bounds.
INSERT INTO ss SELECT -200 - qid, qs FROM sq WHERE qid % 10 IN (1, 2);

CREATE TEMP TABLE index_conditions AS SELECT * FROM unnest(ARRAY[
    't.s @> q.val', 'q.val <@ t.s', 'int4set_contains(t.s, q.val)', 'int4set_contained(q.val, t.s)',
    't.s && q.qs', 'q.qs && t.s', 'int4set_overlaps(t.s, q.qs)', 'int4set_overlaps(q.qs, t.s)',
    't.s @> q.qs', 'q.qs <@ t.s', 'int4set_contains(t.s, q.qs)', 'int4set_contained(q.qs, t.s)',
    't.s <@ q.qs', 'q.qs @> t.s', 'int4set_contained(t.s, q.qs)', 'int4set_contains(q.qs, t.s)',
    't.s && q.qr', 't.s @> q.qr', 't.s <@ q.qr', 'int4set_overlaps(t.s, q.qr)', 'int4set_contains(t.s, q.qr)',
    'int4set_contained(t.s, q.qr)']) WITH ORDINALITY c(cond, n);
-- Keys down to single values, then the default (blocks of 64 values at the finest) and blocks of 65,536.
SELECT * FROM pg_temp.all_same('sq', 'ss', 'ss_s');
DROP INDEX ss_s;
CREATE INDEX ss_s ON ss USING gin (s);
SELECT bool_and(same_rows AND index_used) AS default_blocks_same FROM pg_temp.all_same('sq', 'ss', 'ss_s');
DROP INDEX ss_s;
CREATE INDEX ss_s ON ss USING gin (s int4set_gin_ops (finest_block = 65536));
SELECT bool_and(same_rows AND index_used) AS coarse_blocks_same FROM pg_temp.all_same('sq', 'ss', 'ss_s');
-- `<@` finds the empty sets through their own key; `@>` the empty set takes every row.
SET enable_seqscan = off;
SELECT (SELECT count(*) FROM ss WHERE s <@ '{}') AS within_empty, (SELECT count(*) FROM ss WHERE s <@ 'empty'::int4range) AS within_empty_range,
       (SELECT count(*) FROM ss WHERE s @> '{}') AS containing_empty, (SELECT count(*) FROM ss WHERE s IS NOT NULL) AS not_null,
       pg_temp.plan_has('SELECT * FROM ss WHERE s <@ ''{}''', 'ss_s') AS indexed;
RESET enable_seqscan;
-- Rows added after the index was built are found too.
INSERT INTO ss VALUES (-9, '{}'), (-10, '{2147483647}'), (-11, '{5..7,2000000000}');
SELECT bool_and(same_rows AND index_used) AS after_inserts_same FROM pg_temp.all_same('sq', 'ss', 'ss_s');

-- GiST over int4 columns: `v <@ set` and its function, the int4 ends and NULLs included.
CREATE TABLE sv AS
SELECT i AS id, CASE WHEN i % 1000 = 0 THEN NULL ELSE (pg_temp.rnd(13, i) * 2e5 - 1e5)::int END AS v
FROM generate_series(1, 20000) i;
INSERT INTO sv VALUES (-1, -2147483648), (-2, 2147483647), (-3, 0);
CREATE INDEX sv_v ON sv USING gist (v qn_gist_int4_ops);
SELECT c.condition, c.same_rows, c.index_used, c.queries_hit
FROM unnest(ARRAY['t.v <@ q.qs', 'int4set_contained(t.v, q.qs)']) x, LATERAL pg_temp.scan_vs_index('sq', 'sv', 'sv_v', x) c;

-- The planner's own choice: 2,000 stored sets of 1,000 scattered members, as int4set and as range arrays, each
-- out of line. A probe for one value or a small set takes the index: a sequential scan reads every set.
CREATE TABLE sp AS
SELECT id, m::int4set AS s, m AS r
FROM (SELECT i AS id, (SELECT int4set_agg(x, x, 'r') FROM (SELECT (pg_temp.rnd(14, i, k) * 1e7)::int AS x
                                                        FROM generate_series(1, 1000) k) p) AS m
      FROM generate_series(1, 2000) i) g;
CREATE INDEX sp_s ON sp USING gin (s);
CREATE INDEX sp_r ON sp USING gin (r qn_gin_rangearray_ops);
ANALYZE sp;
SELECT pg_temp.plan_has(q, 'Bitmap Index Scan') AS indexed, q
FROM unnest(ARRAY['SELECT id FROM sp WHERE s @> 123456', 'SELECT id FROM sp WHERE 123456 <@ s',
                  'SELECT id FROM sp WHERE int4set_contains(s, 123456)', 'SELECT id FROM sp WHERE s && ''{5..9,70000}''',
                  'SELECT id FROM sp WHERE r ~@> 123456', 'SELECT id FROM sp WHERE 123456 <@ r',
                  'SELECT id FROM sp WHERE qn_rangearray_contains_int4(r, 123456)',
                  'SELECT id FROM sp WHERE r ~&& ''{5,9,70000,70000}''']) q;

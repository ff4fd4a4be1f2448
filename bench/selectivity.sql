-- The planner's row estimates for the operators, against the actual rows, over
-- 1,000,000 rows of int4 values and of packed ranges: selective, wide,
-- heavy-hitter and many-range queries, each next to the server's estimate for
-- the plain equivalent (BETWEEN, OR chains, = ANY, and the core int4range
-- operators over the same ranges). q-error = max(estimate / actual, actual /
-- estimate), an actual of 0 counted as 1. Then joins, and a nested loop of 200
-- GiST probes planned with the default JIT settings.
\timing off
SET max_parallel_workers_per_gather = 0;

-- int4 values: 20% one heavy hitter, 10% in a cluster of 10,000 values, the
-- rest over [0, 10^7).
CREATE TABLE nums AS
SELECT i AS id,
       CASE WHEN i % 5 = 0 THEN 4242424
            WHEN i % 10 = 1 THEN 2000000 + (hashint4(i) & 2147483647) % 10000
            ELSE (hashint4(i) & 2147483647) % 10000000 END AS v
FROM generate_series(1, 1000000) i;
-- Packed ranges (and the same ranges as int4range): 10% one heavy range, lower
-- bounds over [0, 10^7), widths: 5% up to 10^6, 20% up to 10^4, the rest up to 100.
CREATE TABLE spans AS
SELECT id, qn_range_pack(lo, lo + w) AS p, int4range(lo, lo + w, '[]') AS r
FROM (SELECT i AS id,
             CASE WHEN i % 10 = 0 THEN 3000000 ELSE (hashint4(i) & 2147483647) % 10000000 END AS lo,
             CASE WHEN i % 10 = 0 THEN 999
                  WHEN i % 20 = 1 THEN (hashint4(-i) & 2147483647) % 1000000
                  WHEN i % 4 = 1 THEN (hashint4(-i) & 2147483647) % 10000
                  ELSE (hashint4(-i) & 2147483647) % 100 END AS w
      FROM generate_series(1, 1000000) i) s;
ANALYZE nums;
ANALYZE spans;

-- Query sets: 200 ranges of 500 values every 50,000; 100 values of the column
-- (outside the heavy hitter and the cluster); 100 values every 100,003, most
-- of which the column does not hold.
CREATE TABLE sets AS
SELECT (SELECT int4set_agg(g * 50000 + 1000, g * 50000 + 1499, 'r') FROM generate_series(0, 199) g) AS many,
       (SELECT int4set_agg(v, 'r') FROM (SELECT v FROM nums WHERE id % 10 = 2 ORDER BY id LIMIT 100) s) AS points,
       (SELECT int4set_agg(g * 100003, 'r') FROM generate_series(0, 99) g) AS absent;

\ir include/qerror.psql
-- Literals for the query texts.
CREATE FUNCTION pg_temp.lit(a int4[]) RETURNS text LANGUAGE sql AS $$ SELECT quote_literal(a::text) || '::int4[]' $$;
CREATE FUNCTION pg_temp.bf(a int4[]) RETURNS text LANGUAGE sql AS $$
    SELECT quote_literal(qn_int4set2bitfield_int4('r', a)::text) || '::bytea'
$$;
CREATE FUNCTION pg_temp.between_chain(a int4[]) RETURNS text LANGUAGE sql AS $$
    SELECT string_agg(format('v BETWEEN %s AND %s', a[2 * k + 1], a[2 * k + 2]), ' OR ')
    FROM generate_series(0, cardinality(a) / 2 - 1) k
$$;
CREATE FUNCTION pg_temp.points_list(a int4[]) RETURNS text LANGUAGE sql AS $$
    SELECT format('v = ANY(%L::int4[])', ARRAY(SELECT a[2 * k + 1] FROM generate_series(0, cardinality(a) / 2 - 1) k))
$$;
CREATE FUNCTION pg_temp.range_any(a int4[]) RETURNS text LANGUAGE sql AS $$
    SELECT format('r && ANY(ARRAY[%s])',
                  string_agg(format('int4range(%s, %s, ''[]'')', a[2 * k + 1], a[2 * k + 2]), ', '))
    FROM generate_series(0, cardinality(a) / 2 - 1) k
$$;

CREATE TABLE cases (n serial, operator text, kind text, clause text, plain text);
INSERT INTO cases (operator, kind, clause, plain)
SELECT * FROM (VALUES
    ('int4 <@ int4[]', 'selective', 'v <@ ''{5000000,5000999}''::int4[]', 'v BETWEEN 5000000 AND 5000999'),
    ('int4 <@ int4[]', 'wide', 'v <@ ''{0,4999999}''::int4[]', 'v BETWEEN 0 AND 4999999'),
    ('int4 <@ int4[]', 'heavy hitter', 'v <@ ''{4242000,4242999}''::int4[]', 'v BETWEEN 4242000 AND 4242999'),
    ('int4 <@ int4[]', 'cluster', 'v <@ ''{2000000,2004999}''::int4[]', 'v BETWEEN 2000000 AND 2004999')) c
UNION ALL
SELECT 'int4 <@ int4[]', 'many ranges (200)', 'v <@ ' || pg_temp.lit(many), pg_temp.between_chain(many) FROM sets
UNION ALL
SELECT 'int4 <@ int4[]', 'points (100)', 'v <@ ' || pg_temp.lit(points), pg_temp.points_list(points) FROM sets
UNION ALL
SELECT 'int4 <@ int4[]', 'absent points (100)', 'v <@ ' || pg_temp.lit(absent), pg_temp.points_list(absent) FROM sets
UNION ALL
SELECT 'int4 <@ bytea', kind, 'v <@ ' || pg_temp.bf(a), plain
FROM sets, LATERAL (VALUES ('selective', '{5000000,5000999}'::int4[], 'v BETWEEN 5000000 AND 5000999'),
                           ('heavy hitter', '{4242000,4242999}', 'v BETWEEN 4242000 AND 4242999'),
                           ('many ranges (200)', many, pg_temp.between_chain(many)),
                           ('points (100)', points, pg_temp.points_list(points))) x(kind, a, plain)
UNION ALL
SELECT * FROM (VALUES
    ('int4 <@ int8', 'selective', 'v <@ qn_range_pack(5000000, 5000999)', 'v BETWEEN 5000000 AND 5000999'),
    ('int4 <@ int8', 'wide', 'v <@ qn_range_pack(0, 4999999)', 'v BETWEEN 0 AND 4999999'),
    ('int4 <@ int8', 'heavy hitter', 'v <@ qn_range_pack(4242424, 4242424)', 'v = 4242424'),
    ('int8 @> int4', 'point', 'p @> 5000000', 'r @> 5000000'),
    ('int8 @> int4', 'heavy hitter', 'p @> 3000500', 'r @> 3000500'),
    ('int8 && int8', 'selective', 'p && qn_range_pack(5000000, 5000999)', 'r && int4range(5000000, 5000999, ''[]'')'),
    ('int8 && int8', 'wide', 'p && qn_range_pack(0, 4999999)', 'r && int4range(0, 4999999, ''[]'')'),
    ('int8 && int8', 'heavy hitter', 'p && qn_range_pack(3000500, 3000600)', 'r && int4range(3000500, 3000600, ''[]'')'),
    ('int8 && int4[]', 'selective', 'p && ''{5000000,5000999}''::int4[]', 'r && int4range(5000000, 5000999, ''[]'')'),
    ('int8 && int4[]', 'wide', 'p && ''{0,2499999,5000000,7499999}''::int4[]',
     'r && int4range(0, 2499999, ''[]'') OR r && int4range(5000000, 7499999, ''[]'')'),
    ('int8 <@ int8', 'selective', 'p <@ qn_range_pack(5000000, 5009999)', 'r <@ int4range(5000000, 5009999, ''[]'')'),
    ('int8 <@ int8', 'wide', 'p <@ qn_range_pack(0, 4999999)', 'r <@ int4range(0, 4999999, ''[]'')'),
    ('int8 <@ int8', 'heavy hitter', 'p <@ qn_range_pack(2999000, 3001000)', 'r <@ int4range(2999000, 3001000, ''[]'')'),
    ('int8 @> int8', 'selective', 'p @> qn_range_pack(5000000, 5000100)', 'r @> int4range(5000000, 5000100, ''[]'')'),
    ('int8 @> int8', 'wide query', 'p @> qn_range_pack(5000000, 5500000)', 'r @> int4range(5000000, 5500000, ''[]'')'),
    ('int8 @> int8', 'heavy hitter', 'p @> qn_range_pack(3000000, 3000999)', 'r @> int4range(3000000, 3000999, ''[]'')')) c
UNION ALL
SELECT 'int8 && int4[]', 'many ranges (200)', 'p && ' || pg_temp.lit(many), pg_temp.range_any(many) FROM sets;

\timing on
CREATE TEMP TABLE results AS
SELECT n, operator, kind, pg_temp.est(q) AS est, pg_temp.act(q) AS act, pg_temp.est(pq) AS plain_est
FROM (SELECT n, operator, kind,
             format('SELECT * FROM %s WHERE %s', CASE WHEN clause LIKE 'v %' THEN 'nums' ELSE 'spans' END, clause) AS q,
             format('SELECT * FROM %s WHERE %s', CASE WHEN plain LIKE 'v %' THEN 'nums' ELSE 'spans' END, plain) AS pq
      FROM cases) c;
\timing off
SELECT operator, kind, round(est) AS estimated, act AS actual, pg_temp.qerr(est, act) AS q_error,
       round(plain_est) AS plain_estimated, pg_temp.qerr(plain_est, act) AS plain_q_error
FROM results ORDER BY n;
-- The packed-range estimates rest on the widths of the ~100 ranges that the
-- histogram keeps, so they vary from one ANALYZE to the next: the median and
-- largest q-error over five ANALYZE runs, at the default statistics target and
-- at 1000 (ALTER TABLE spans ALTER p SET STATISTICS 1000).
CREATE TEMP TABLE spread (target int, n int, est float8);
DO $$
BEGIN
    FOR target IN 0..1 LOOP
        EXECUTE format('ALTER TABLE spans ALTER p SET STATISTICS %s', CASE target WHEN 0 THEN -1 ELSE 1000 END);
        FOR run IN 1..5 LOOP
            ANALYZE spans;
            INSERT INTO spread
            SELECT CASE target WHEN 0 THEN 100 ELSE 1000 END, n, pg_temp.est(format('SELECT * FROM spans WHERE %s', clause))
            FROM cases WHERE clause LIKE 'p %';
        END LOOP;
    END LOOP;
END $$;
SELECT c.operator, c.kind, r.act AS actual,
       percentile_disc(0.5) WITHIN GROUP (ORDER BY pg_temp.qerr(s.est, r.act)) FILTER (WHERE target = 100) AS median_q_100,
       max(pg_temp.qerr(s.est, r.act)) FILTER (WHERE target = 100) AS max_q_100,
       percentile_disc(0.5) WITHIN GROUP (ORDER BY pg_temp.qerr(s.est, r.act)) FILTER (WHERE target = 1000) AS median_q_1000,
       max(pg_temp.qerr(s.est, r.act)) FILTER (WHERE target = 1000) AS max_q_1000
FROM spread s JOIN cases c USING (n) JOIN results r USING (n)
GROUP BY c.n, c.operator, c.kind, r.act ORDER BY c.n;
ALTER TABLE spans ALTER p SET STATISTICS -1;
ANALYZE spans;

-- The function forms are estimated as their operators.
SELECT pg_temp.est('SELECT * FROM nums WHERE qn_int4_in_rangearray(v, ''{5000000,5000999}'')') AS function_form,
       pg_temp.est('SELECT * FROM nums WHERE v <@ ''{5000000,5000999}''::int4[]') AS operator_form;

-- Joins. 100,000 events (user ids from nums) against 100 segments of 5 ranges
-- (each up to 20,000 values wide); the same segments unnested into BETWEEN
-- bounds as the plain equivalent. 2,000 probe ranges against the packed ranges.
CREATE TABLE events AS SELECT id, v AS user_id FROM nums WHERE id % 10 = 3;
CREATE TABLE segments AS
SELECT s AS seg, (SELECT int4set_agg(lo, lo + (hashint4(s * 7 + k) & 2147483647) % 20000, 'r')
                  FROM (SELECT k, (hashint4(s * 5 + k) & 2147483647) % 10000000 AS lo, s FROM generate_series(1, 5) k) x) AS ranges
FROM generate_series(1, 100) s;
CREATE TABLE segment_bounds AS
SELECT seg, ranges[2 * k + 1] AS lo, ranges[2 * k + 2] AS hi FROM segments, generate_series(0, 4) k
WHERE 2 * k + 1 <= cardinality(ranges);
CREATE TABLE probes AS SELECT id, p, r FROM spans WHERE id % 500 = 7;
ANALYZE events;
ANALYZE segments;
ANALYZE segment_bounds;
ANALYZE probes;
CREATE INDEX spans_p ON spans USING gist (p qn_gist_rangepacked_ops);
CREATE TEMP TABLE join_results AS
SELECT j.*, pg_temp.est(q) AS est, pg_temp.act(q) AS act, pg_temp.est(pq) AS plain_est
FROM (VALUES
    (1, 'events.user_id <@ segments.ranges', 'SELECT * FROM events e JOIN segments s ON e.user_id <@ s.ranges',
     'SELECT * FROM events e JOIN segment_bounds b ON e.user_id BETWEEN b.lo AND b.hi'),
    (2, 'events with a segment (semi join)', 'SELECT * FROM events e WHERE EXISTS (SELECT FROM segments s WHERE e.user_id <@ s.ranges)',
     'SELECT * FROM events e WHERE EXISTS (SELECT FROM segment_bounds b WHERE e.user_id BETWEEN b.lo AND b.hi)'),
    (3, 'segments with an event (semi join)', 'SELECT * FROM segments s WHERE EXISTS (SELECT FROM events e WHERE e.user_id <@ s.ranges)',
     NULL),
    (4, 'probes.p && spans.p', 'SELECT * FROM probes q JOIN spans s ON s.p && q.p',
     'SELECT * FROM probes q JOIN spans s ON s.r && q.r')) j(n, join_clause, q, pq);
SELECT join_clause, round(est) AS estimated, act AS actual, pg_temp.qerr(est, act) AS q_error,
       round(plain_est) AS plain_estimated, pg_temp.qerr(plain_est, act) AS plain_q_error
FROM join_results ORDER BY n;

-- 200 GiST probes from a nested loop, over data like bench/gist.sql's: 1,000,000
-- ranges (lower bounds over ±10^9, widths mostly small, up to 10^5) and
-- 1,000,000 int4 values over ±10^9, each probed at 200 points. Planned with the
-- default JIT settings: no "JIT:" section means the plan's cost stayed below
-- jit_above_cost. Then the same with the operators' former fixed selectivity
-- (0.1%), rolled back afterwards.
CREATE TABLE gist_ranges AS
SELECT i AS id, qn_range_pack(lo, lo + w) AS packed
FROM (SELECT i, hashint4(i) % 1000000000 AS lo, (((hashint4(-i) & 65535) / 65536.0) ^ 4 * 1e5)::int AS w
      FROM generate_series(1, 1000000) i) s;
CREATE TABLE gist_vals AS SELECT i AS id, hashint4(i + 7) % 1000000000 AS v FROM generate_series(1, 1000000) i;
CREATE TABLE probe_points AS SELECT hashint4(-g - 7) % 1000000000 AS x FROM generate_series(1, 200) g;
CREATE INDEX gist_ranges_packed ON gist_ranges USING gist (packed qn_gist_rangepacked_ops);
CREATE INDEX gist_vals_v ON gist_vals USING gist (v qn_gist_int4_ops);
ANALYZE gist_ranges;
ANALYZE gist_vals;
ANALYZE probe_points;
RESET max_parallel_workers_per_gather;
SHOW jit;
SHOW jit_above_cost;
\ir include/gist_probes.psql
BEGIN;
ALTER OPERATOR @> (int8, int4) SET (RESTRICT = contsel);
ALTER OPERATOR <@ (int4, int8) SET (RESTRICT = contsel);
\ir include/gist_probes.psql
ROLLBACK;

DROP TABLE nums, spans, sets, cases, events, segments, segment_bounds, probes, gist_ranges, gist_vals, probe_points;

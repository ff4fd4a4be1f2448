-- The planner's row estimates for the int4set operators against the actual
-- rows, from the statistics ANALYZE keeps on int4set columns, at full size:
-- 100,000 rows of 20 random ranges, 1,000,000 rows of 4 short ranges,
-- 100,000 rows of 1,000 scattered members (with 50 hot values), 2,000 rows of
-- 1 to 50 scattered members; value probes on hot and cold values, overlap with
-- a small set and an int4range, containment of a small set, lying within a
-- large set, the positional operators, and joins. q-error = max(estimate /
-- actual, actual / estimate), rows floored at 1; next to it the q-error of the
-- 0.1% that contsel, the operators' estimator before 3.8.0, gives. The sample
-- is random past 30,000 rows: the largest q-error over three more ANALYZE runs
-- closes the file.
\timing off
SET max_parallel_workers_per_gather = 0;
SET default_statistics_target = 100;

\set ranges_rows 100000
\set short_rows 1000000
\set members_rows 100000
\set probes_rows 500
\ir ../test/sql/include/int4set_shapes.psql
\timing on
ANALYZE set_ranges;
ANALYZE set_short;
ANALYZE set_members;
\timing off
ANALYZE set_few, set_probes;

\ir include/qerror.psql

-- Each case: its shape, what it asks, the query, and contsel's rows (0.1% of the
-- table, of the pairs for a join).
CREATE TABLE cases (n serial, shape text, kind text, query text, contsel float8);
INSERT INTO cases (shape, kind, query, contsel)
SELECT shape, kind, format('SELECT * FROM %s WHERE %s', tbl, clause), 0.001 * rows
FROM (VALUES
    ('20 ranges', 'set_ranges', 100000, '@> value', 's @> 5000000'),
    ('20 ranges', 'set_ranges', 100000, '@> value near the edge', 's @> 3000'),
    ('20 ranges', 'set_ranges', 100000, '&& small set', 's && ''{100,200000,3000000}'''),
    ('20 ranges', 'set_ranges', 100000, '&& int4range', 's && int4range(1000000, 1100000)'),
    ('20 ranges', 'set_ranges', 100000, '@> small set', 's @> ''{4000000,4000500,4001000}'''),
    ('20 ranges', 'set_ranges', 100000, '@> int4range', 's @> int4range(7000000, 7001000)'),
    ('20 ranges', 'set_ranges', 100000, '<@ large set', 's <@ ''{0..9000000}'''),
    ('20 ranges', 'set_ranges', 100000, '&> set', 's &> ''{500000}'''),
    ('20 ranges', 'set_ranges', 100000, '&< set', 's &< ''{9900000}'''),
    ('4 short ranges', 'set_short', 1000000, '@> hot value', 's @> 500005'),
    ('4 short ranges', 'set_short', 1000000, '@> cold value', 's @> 123456'),
    ('4 short ranges', 'set_short', 1000000, '&& small set', 's && ''{100,200000,300000,400000,600000}'''),
    ('4 short ranges', 'set_short', 1000000, '&& int4range', 's && int4range(10000, 20000)'),
    ('4 short ranges', 'set_short', 1000000, '@> small set (hot)', 's @> ''{500001,500007}'''),
    ('4 short ranges', 'set_short', 1000000, '@> small set (cold)', 's @> ''{123456,123457}'''),
    ('4 short ranges', 'set_short', 1000000, '<@ large set', 's <@ ''{0..500000}'''),
    ('4 short ranges', 'set_short', 1000000, '<@ int4range', 's <@ int4range(0, 700000)'),
    ('4 short ranges', 'set_short', 1000000, '<< set', 's << ''{300000}'''),
    ('4 short ranges', 'set_short', 1000000, '>> set', 's >> ''{700000}'''),
    ('1,000 members', 'set_members', 100000, '@> hot value', 's @> 7000'),
    ('1,000 members', 'set_members', 100000, '@> cold value', 's @> 7001'),
    ('1,000 members', 'set_members', 100000, '@> cold value', 's @> 5555555'),
    ('1,000 members', 'set_members', 100000, '&& small set', 's && ''{7000,8000,123,456789}'''),
    ('1,000 members', 'set_members', 100000, '&& small set (cold)', 's && ''{123,456789,5000001}'''),
    ('1,000 members', 'set_members', 100000, '&& int4range', 's && int4range(5000000, 5001000)'),
    ('1,000 members', 'set_members', 100000, '@> small set', 's @> ''{1000,2000}'''),
    ('1,000 members', 'set_members', 100000, '<@ large set', 's <@ ''{0..9990000}'''),
    ('few members', 'set_few', 2000, '@> value', 's @> 5000'),
    ('few members', 'set_few', 2000, '&& small set', 's && ''{1..2000}'''),
    ('few members', 'set_few', 2000, '&& int4range', 's && int4range(40000, 41000)'),
    ('few members', 'set_few', 2000, '@> small set', 's @> ''{1..2}'''),
    ('few members', 'set_few', 2000, '<@ large set', 's <@ ''{0..50000}'''),
    ('few members', 'set_few', 2000, '&< set', 's &< ''{30000}''')
) AS c(shape, tbl, rows, kind, clause);
INSERT INTO cases (shape, kind, query, contsel) VALUES
    ('20 ranges x int4', 'join @>', 'SELECT * FROM set_ranges r JOIN set_probes p ON r.s @> p.v', 0.001 * 100000 * 500),
    ('1,000 members x int4', 'join <@', 'SELECT * FROM set_members m JOIN set_probes p ON p.v <@ m.s', 0.001 * 100000 * 500),
    ('20 ranges x int4', 'semi join', 'SELECT * FROM set_probes p WHERE EXISTS (SELECT FROM set_ranges r WHERE r.s @> p.v)', 500),
    ('few x few', 'join &&', 'SELECT * FROM set_few a JOIN set_few b ON a.s && b.s', 0.001 * 2000 * 2000),
    ('few x 20 ranges', 'join &&', 'SELECT * FROM set_few a JOIN set_ranges b ON a.s && b.s', 0.001 * 2000 * 100000);

\timing on
CREATE TEMP TABLE results AS SELECT n, shape, kind, query, pg_temp.est(query) AS est, pg_temp.act(query) AS act, contsel FROM cases;
\timing off
SELECT shape, kind, round(est) AS estimated, act AS actual, pg_temp.qerr(est, act) AS q_error,
       pg_temp.qerr(contsel, act) AS contsel_q_error
FROM results ORDER BY n;
SELECT max(pg_temp.qerr(est, act)) AS max_q_error, round(exp(avg(ln(pg_temp.qerr(est, act))))::numeric, 2) AS geomean_q_error,
       max(pg_temp.qerr(contsel, act)) AS contsel_max_q_error FROM results;

-- Three more ANALYZE runs of the tables larger than the sample: the largest q-error of each case over all four.
CREATE TEMP TABLE spread AS SELECT n, pg_temp.qerr(est, act) AS q FROM results;
DO $$
BEGIN
    FOR run IN 1..3 LOOP
        ANALYZE set_ranges, set_short, set_members;
        INSERT INTO spread SELECT n, pg_temp.qerr(pg_temp.est(query), act) FROM results;
    END LOOP;
END $$;
SELECT r.shape, r.kind, max(s.q) AS worst_q_error FROM results r JOIN spread s USING (n)
GROUP BY r.n, r.shape, r.kind ORDER BY r.n;
SELECT max(q) AS worst_q_error_over_runs FROM spread;

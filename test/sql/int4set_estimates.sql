-- int4set statistics and estimates: ANALYZE on int4set columns of the shapes the estimates are built for, and each
-- estimate within a factor of 3 of the actual rows. The tables are smaller than the statistics sample (30,000 rows at
-- the fixed target), so ANALYZE reads every row and the results do not depend on its random sample.
\i sql/include/estimates.psql
SET default_statistics_target = 100;
SET max_parallel_workers_per_gather = 0;

\set ranges_rows 20000
\set short_rows 20000
\set members_rows 10000
\set probes_rows 1000
\i sql/include/int4set_shapes.psql
-- A tenth of the short ranges, for a join of two set columns.
CREATE TABLE set_short_part AS SELECT * FROM set_short WHERE id % 10 = 3;
ANALYZE set_ranges, set_short, set_members, set_few, set_probes, set_short_part;

-- The column's own statistics sit next to those of whole values; the hot members are found.
SELECT c.relname, array_remove(ARRAY[s.stakind1, s.stakind2, s.stakind3, s.stakind4, s.stakind5], 0::int2) @> '{17301}' AS runs,
       array_remove(ARRAY[s.stakind1, s.stakind2, s.stakind3, s.stakind4, s.stakind5], 0::int2) @> '{17302}' AS members
FROM pg_statistic s JOIN pg_class c ON c.oid = s.starelid JOIN pg_attribute a ON a.attrelid = c.oid AND a.attnum = s.staattnum
WHERE c.relname IN ('set_ranges', 'set_short', 'set_members', 'set_few') AND a.attname = 's' ORDER BY c.relname;

-- Restrictions, the column on either side.
SELECT tbl, clause, pg_temp.within(format('SELECT * FROM %s WHERE %s', tbl, clause), 3) AS within_3
FROM (VALUES
    ('set_ranges', 's @> 5000000'), ('set_ranges', '123456 <@ s'),
    ('set_ranges', 's && ''{100,200000,3000000}''::int4set'), ('set_ranges', 's && int4range(1000000, 1100000)'),
    ('set_ranges', 's @> ''{4000000,4000500,4001000}''::int4set'), ('set_ranges', 's @> int4range(7000000, 7001000)'),
    ('set_ranges', 's <@ ''{0..9000000}''::int4set'), ('set_ranges', '''{0..9000000}''::int4set @> s'),
    ('set_ranges', 's &> ''{500000}''::int4set'), ('set_ranges', 's &< ''{9000000}''::int4set'),
    ('set_ranges', '''{9000000}''::int4set &< s'), ('set_ranges', '''{500000}''::int4set &> s'),
    ('set_short', 's @> 500005'), ('set_short', 's @> 123456'),
    ('set_short', 's && ''{100,200000,300000,400000,600000}''::int4set'), ('set_short', 's && int4range(10000, 20000)'),
    ('set_short', 's @> ''{500001,500007}''::int4set'), ('set_short', 's <@ ''{0..500000}''::int4set'),
    ('set_short', 's <@ int4range(0, 700000)'), ('set_short', 's << ''{300000}''::int4set'),
    ('set_short', '''{300000}''::int4set >> s'), ('set_short', 's >> ''{700000}''::int4set'),
    ('set_members', 's @> 7000'), ('set_members', 's @> 7001'), ('set_members', '5555555 <@ s'),
    ('set_members', 's && ''{7000,8000,123,456789}''::int4set'), ('set_members', 's && int4range(0, 20000)'),
    ('set_members', 's && int4range(5000000, 5001000)'), ('set_members', 's @> ''{1000,2000}''::int4set'),
    ('set_members', 's <@ ''{0..9990000}''::int4set'),
    ('set_few', 's @> 5000'), ('set_few', 's && ''{1..2000}''::int4set'), ('set_few', 's <@ ''{0..50000}''::int4set'),
    ('set_few', 's && int4range(40000, 41000)'), ('set_few', 's <@ ''{}''::int4set'), ('set_few', 's @> ''{}''::int4set'),
    ('set_few', 's &< ''{30000}''::int4set'),
    ('set_probes', 'v <@ ''{0..999999,7000}''::int4set'), ('set_probes', '''{0..49000}''::int4set @> v')
) AS t(tbl, clause);

-- Joins: a set column and an int4 column by membership, either way round and as a semi join; two set columns by &&.
SELECT query, pg_temp.within(query, 3) AS within_3
FROM (VALUES
    ('SELECT * FROM set_ranges r JOIN set_probes p ON r.s @> p.v'),
    ('SELECT * FROM set_members m JOIN set_probes p ON p.v <@ m.s'),
    ('SELECT * FROM set_probes p WHERE EXISTS (SELECT FROM set_ranges r WHERE r.s @> p.v)'),
    ('SELECT * FROM set_probes p WHERE NOT EXISTS (SELECT FROM set_ranges r WHERE p.v <@ r.s)'),
    ('SELECT * FROM set_few a JOIN set_few b ON a.s && b.s'),
    ('SELECT * FROM set_short_part a JOIN set_few b ON a.s && b.s')
) AS t(query);

-- = and < keep the statistics of whole values: one set in four is {1..3}.
CREATE TABLE set_repeats AS
SELECT i AS id, CASE WHEN i % 4 = 0 THEN '{1..3}'::int4set ELSE int4set(ARRAY[i, i + 7], 's') END AS s
FROM generate_series(1, 4000) i;
ANALYZE set_repeats;
SELECT pg_temp.within('SELECT * FROM set_repeats WHERE s = ''{1..3}''', 1.2) AS eq_mcv,
       pg_temp.within('SELECT * FROM set_repeats WHERE s < ''{2000}''', 1.5) AS lt_histogram;

-- Without statistics, and with an operand that varies: the defaults (1% overlap, 0.5% the rest) of the rows.
CREATE TABLE set_unanalyzed AS SELECT * FROM set_short;
VACUUM set_unanalyzed;
SELECT pg_temp.rows('SELECT * FROM set_unanalyzed WHERE s && ''{1}''') AS overlap_rows,
       pg_temp.rows('SELECT * FROM set_unanalyzed WHERE s @> 5') AS contains_rows,
       pg_temp.rows('SELECT * FROM set_unanalyzed WHERE s << ''{5}''') AS left_rows,
       pg_temp.rows('SELECT * FROM set_short WHERE s @> (SELECT 500005)') AS varying_rows;

-- Columns of NULLs only, of empty sets only: nothing is met, every set lies within any set.
CREATE TABLE set_degenerate AS SELECT i AS id, NULL::int4set AS n, '{}'::int4set AS e FROM generate_series(1, 1000) i;
ANALYZE set_degenerate;
SELECT pg_temp.rows('SELECT * FROM set_degenerate WHERE n && ''{1}''') AS null_overlap_rows,
       pg_temp.rows('SELECT * FROM set_degenerate WHERE e && ''{1}''') AS empty_overlap_rows,
       pg_temp.rows('SELECT * FROM set_degenerate WHERE e <@ ''{1}''') AS empty_within_rows,
       pg_temp.rows('SELECT * FROM set_degenerate WHERE e @> 1') AS empty_contains_rows,
       pg_temp.rows('SELECT * FROM set_degenerate WHERE e << ''{1}''') AS empty_left_rows;

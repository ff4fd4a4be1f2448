-- needs: roaringbitmap
-- int4set's aggregates against pg_roaringbitmap's (when installed: bench.sh
-- runs scripts/roaringbitmap.sh for this file): building a set from
-- 10,000,000 int4 rows, int4set_build_agg against rb_build_agg, and uniting
-- 10,000 stored sets, int4set_union_agg against rb_or_agg; serially and with 2
-- and 6 parallel workers forced. Two shapes:
--   spread  values anywhere on the int4 line: a set about as large as its
--           rows, about 150 members in each of the 65,536 chunks
--   dense   values in [0, 10,000,000): 63% of each of 153 chunks
-- The stored sets are the rows of a shape in 10,000 groups of 1,000 by row
-- number (so each spans the shape), built by each form's build aggregate and
-- stored as its type stores them (int4set compressed where that pays). For each
-- cell: the median of 3 runs (EXPLAIN ANALYZE, bench/include/median_ms.psql:
-- the result is computed in full but not sent), and the stored size of the
-- result (pg_column_size); rb/int4set is roaringbitmap's time over int4set's.
-- The shapes of bench/parallel_sets.sql differ (values over +-1e9 and in
-- [0, 2^20)): it measures how int4set's aggregates scale with workers against
-- what the parallel machinery itself costs; this file compares the two forms.
\timing off
SET jit = off;
SET client_min_messages = warning;
SELECT EXISTS (SELECT FROM pg_available_extensions WHERE name = 'roaringbitmap') AS has_roaringbitmap \gset
\if :has_roaringbitmap
CREATE EXTENSION roaringbitmap;
\else
\echo note: pg_roaringbitmap is not installed (scripts/roaringbitmap.sh): its cells are empty
\endif

CREATE TABLE ten_million AS
SELECT g, hashint4(g) AS spread, (hashint4(g) & 2147483647) % 10000000 AS dense
FROM generate_series(0, 9999999) g ORDER BY random();
VACUUM ANALYZE ten_million;
CREATE TABLE stored_int4set AS
SELECT g / 1000 AS grp, int4set_build_agg(spread) AS spread, int4set_build_agg(dense) AS dense
FROM ten_million GROUP BY 1;
VACUUM ANALYZE stored_int4set;
-- The planner would give tables of these sizes fewer workers than asked for.
ALTER TABLE ten_million SET (parallel_workers = 6);
ALTER TABLE stored_int4set SET (parallel_workers = 6);
\if :has_roaringbitmap
CREATE TABLE stored_roaringbitmap AS
SELECT g / 1000 AS grp, rb_build_agg(spread) AS spread, rb_build_agg(dense) AS dense
FROM ten_million GROUP BY 1;
VACUUM ANALYZE stored_roaringbitmap;
ALTER TABLE stored_roaringbitmap SET (parallel_workers = 6);
\endif

-- The statements of each form: build from the rows, unite the stored sets;
-- card: the member count of a value of the form.
CREATE TABLE bench_forms (form text, n int, build text, unite text, stored text, card text, available bool);
INSERT INTO bench_forms VALUES
    ('int4set', 1, 'int4set_build_agg', 'int4set_union_agg', 'stored_int4set', 'cardinality', true),
    ('roaringbitmap', 2, 'rb_build_agg', 'rb_or_agg', 'stored_roaringbitmap', 'rb_cardinality', :'has_roaringbitmap');
CREATE FUNCTION pg_temp.bench_query(f bench_forms, op text, shape text, result text) RETURNS text LANGUAGE sql AS $$
    SELECT CASE op WHEN 'build' THEN format('SELECT %s(%s(%I)) FROM ten_million', result, f.build, shape)
                   ELSE format('SELECT %s(%s(%I)) FROM %I', result, f.unite, shape, f.stored) END
$$;

-- Both forms hold the same sets: member counts and stored sizes of the results.
CREATE TABLE bench_sizes (shape text, op text, form text, members int8, bytes int8);
DO $$
DECLARE
    f bench_forms;
    sh text;
    o text;
    members int8;
    bytes int8;
BEGIN
    FOR f IN SELECT * FROM bench_forms WHERE available LOOP
        FOREACH sh IN ARRAY '{spread,dense}'::text[] LOOP
            FOREACH o IN ARRAY '{build,unite}'::text[] LOOP
                EXECUTE format('SELECT %s(s), pg_column_size(s) FROM (%s) q(s)', f.card,
                               pg_temp.bench_query(f, o, sh, ''))
                    INTO members, bytes;
                INSERT INTO bench_sizes VALUES (sh, o, f.form, members, bytes);
            END LOOP;
        END LOOP;
    END LOOP;
END $$;
SELECT shape, op, string_agg(DISTINCT members::text, ' / ') AS members,
       count(DISTINCT members) = 1 AS forms_agree,
       max(bytes) FILTER (WHERE form = 'int4set') AS int4set_bytes,
       max(bytes) FILTER (WHERE form = 'roaringbitmap') AS roaringbitmap_bytes
FROM bench_sizes GROUP BY shape, op ORDER BY shape DESC, op;
SELECT pg_size_pretty(pg_total_relation_size('stored_int4set')) AS "stored sets, int4set";
\if :has_roaringbitmap
SELECT pg_size_pretty(pg_total_relation_size('stored_roaringbitmap')) AS "stored sets, roaringbitmap";
\endif

\ir include/median_ms.psql
CREATE TABLE bench_results (shape text, op text, form text, workers int, median numeric, launched int);
DO $$
DECLARE
    f bench_forms;
    sh text;
    o text;
    w int;
    m record;
BEGIN
    FOREACH sh IN ARRAY '{spread,dense}'::text[] LOOP
        FOREACH o IN ARRAY '{build,unite}'::text[] LOOP
            FOREACH w IN ARRAY '{0,2,6}'::int[] LOOP
                FOR f IN SELECT * FROM bench_forms WHERE available ORDER BY n LOOP
                    m := pg_temp.median_ms(pg_temp.bench_query(f, o, sh, 'pg_column_size'), w, 3);
                    INSERT INTO bench_results VALUES (sh, o, f.form, w, m.median, m.launched);
                END LOOP;
            END LOOP;
        END LOOP;
    END LOOP;
END $$;
SELECT shape, op, workers, max(launched) AS launched,
       max(median) FILTER (WHERE form = 'int4set') AS int4set_ms,
       max(median) FILTER (WHERE form = 'roaringbitmap') AS roaringbitmap_ms,
       round(max(median) FILTER (WHERE form = 'roaringbitmap') / max(median) FILTER (WHERE form = 'int4set'), 2)
           AS "rb/int4set"
FROM bench_results GROUP BY shape, op, workers ORDER BY shape DESC, op, workers;

DROP FUNCTION pg_temp.bench_query(bench_forms, text, text, text);
DROP TABLE ten_million, stored_int4set, bench_forms, bench_sizes, bench_results;
\if :has_roaringbitmap
DROP TABLE stored_roaringbitmap;
DROP EXTENSION roaringbitmap;
\endif

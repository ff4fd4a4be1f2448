-- int4set_agg in one backend: each row form into each output form, the first row
-- fixing the forms, the rows that are skipped, the empty result, the errors, and
-- random inputs checked against the same set computed in plain SQL.
\i sql/include/errors.psql

-- Values, bounds and arrays of each form, into each output form.
SELECT int4set_agg(v, 'r') AS r, int4set_agg(v, 's') AS s, int4set_agg(v, 'm') AS m
FROM (VALUES (5), (3), (4), (NULL), (-1)) t(v);
SELECT int4set_agg(lo, hi, 'r') AS r, int4set_agg(lo, hi, 's') AS s, int4set_agg(lo, hi, 'm') AS m
FROM (VALUES (10, 12), (1, 3), (4, 4), (NULL, 8), (8, NULL), (20, 21)) t(lo, hi);
SELECT form, int4set_agg(form, a, 'r') AS r, int4set_agg(form, a, 's') AS s, int4set_agg(form, a, 'm') AS m
FROM (VALUES ('s'::"char", '{9,1,2,2}'::int4[]), ('s', '{5}'), ('s', NULL),
             ('r', '{1,2,7,9}'), ('r', '{3,4}'), ('r', '{}'),
             ('m', '{3,-2147483647,3,9}'), ('m', '{1,5}'), ('m', '{}')) t(form, a)
GROUP BY form ORDER BY form;
-- The mix array's count word counts the integers; a single value has no range item.
SELECT int4set_agg(v, 'm') AS single, int4set_agg(v + 1000, 'm') AS run
FROM (VALUES (7)) t(v);

-- No rows, or only NULL rows: the 24-byte one-dimensional empty array, never NULL.
SELECT r, r IS NULL AS is_null, pg_column_size(r) AS bytes, array_ndims(r) AS ndims, cardinality(r) AS n
FROM (SELECT int4set_agg(v, 'r') AS r FROM (VALUES (1)) t(v) WHERE false) q
UNION ALL
SELECT int4set_agg(v, 's'), NULL, NULL, NULL, NULL FROM (VALUES (NULL::int4)) t(v)
UNION ALL
SELECT int4set_agg(v, 'm'), NULL, NULL, NULL, NULL FROM (VALUES (NULL::int4)) t(v);

-- The first row fixes both forms: later letters are not read.
SELECT int4set_agg(form, a, out ORDER BY ord) AS read_as_first
FROM (VALUES (1, 'r'::"char", '{1,3}'::int4[], 's'::"char"),
             (2, 's', '{10,11}', 'm')) t(ord, form, a, out);

-- Arrays that are not one-dimensional or hold NULLs change nothing; a bounds row
-- is taken as given, even inverted.
SELECT int4set_agg(form, a, 'r') AS ignored
FROM (VALUES ('s'::"char", '{{1,2},{3,4}}'::int4[]), ('r', '{1,NULL}'), ('m', '{{1,2}}'), ('s', '{42}')) t(form, a);
SELECT int4set_agg(lo, hi, 'r') AS inverted_kept, int4set_agg(lo, hi, 's') AS inverted_has_no_members
FROM (VALUES (9, 5)) t(lo, hi);

-- The ends of int4: a range up to 2147483647 expands to its members and stops.
SELECT int4set_agg(lo, hi, 's') AS top, int4set_agg(-lo - 1, -hi - 1, 'r') AS bottom
FROM (VALUES (2147483645, 2147483647)) t(lo, hi);

-- Errors, with their SQLSTATEs.
SELECT pg_temp.try($$SELECT int4set_agg('r', a, 'r') FROM (VALUES ('{1,2,3}'::int4[])) t(a)$$) AS odd_range_array,
       pg_temp.try($$SELECT int4set_agg('m', a, 'r') FROM (VALUES ('{3,-2147483647}'::int4[])) t(a)$$) AS mix_ends_in_opener,
       pg_temp.try($$SELECT int4set_agg(v, 'x') FROM (VALUES (1)) t(v)$$) AS bad_output_letter,
       pg_temp.try($$SELECT int4set_agg('R', a, 'r') FROM (VALUES ('{1,2}'::int4[])) t(a)$$) AS bad_input_letter,
       pg_temp.try($$SELECT int4set_agg(v, NULL) FROM (VALUES (1)) t(v)$$) AS null_letter;
SELECT pg_temp.try($$SELECT int4set_agg(lo, hi, 's') FROM (VALUES (-2147483648, 2147483647)) t(lo, hi)$$) AS s_too_long,
       pg_temp.try($$SELECT int4set_agg(lo, hi, 'm') FROM (VALUES (-2147483648, 2147483647)) t(lo, hi)$$) AS m_of_full_span,
       pg_temp.try($$SELECT int4set_agg(lo, lo + 299999999, 's') FROM (VALUES (0)) t(lo)$$) AS s_beyond_array_limit;
SELECT int4set_agg(lo, hi, 'm') AS full_span_count_wraps FROM (VALUES (-2147483648, 2147483647)) t(lo, hi);

-- 2147483647 is where inserting wraps ("upper + 1"): it goes to the front of the
-- list, which is then no longer ascending.
SELECT int4set_agg(v, 'r' ORDER BY ord) AS top_value_first
FROM (VALUES (1, 1), (2, 5), (3, 2147483647)) t(ord, v);

-- Random rows in random order, many groups: the 's' result is the sorted distinct
-- members and the 'r' result their runs, computed here in plain SQL.
\i sql/include/hash_random.psql
CREATE TEMP TABLE vals AS
SELECT g % 41 AS grp, hashint4(g) % 1500 AS v
FROM generate_series(1, 20000) g ORDER BY pg_temp.rnd(1, g);
INSERT INTO vals SELECT 41, v FROM generate_series(-2147483648, -2147483640) v;
INSERT INTO vals SELECT 41, v FROM generate_series(2147483600, 2147483646, 3) v;
CREATE TEMP VIEW expected_runs AS
SELECT grp, array_agg(b ORDER BY lo, b) AS r
FROM (SELECT grp, min(v) AS lo, unnest(ARRAY[min(v), max(v)]) AS b
      FROM (SELECT DISTINCT grp, v, v::int8 - dense_rank() OVER (PARTITION BY grp ORDER BY v) AS island FROM vals) d
      GROUP BY grp, island) i
GROUP BY grp;
SELECT count(*) AS groups,
       count(*) FILTER (WHERE s = (SELECT array_agg(DISTINCT v ORDER BY v) FROM vals w WHERE w.grp = a.grp)) AS s_ok,
       count(*) FILTER (WHERE r = (SELECT e.r FROM expected_runs e WHERE e.grp = a.grp)) AS r_ok
FROM (SELECT grp, int4set_agg(v, 's') AS s, int4set_agg(v, 'r') AS r FROM vals GROUP BY grp) a;

-- The same members arriving as sets, range arrays and mix arrays of a few rows
-- each give what the value rows give (mix arrays hold members from 0 up).
CREATE TEMP TABLE chunk_sets AS
SELECT grp, chunk, array_agg(DISTINCT v ORDER BY v) AS s
FROM (SELECT grp, v, row_number() OVER (PARTITION BY grp ORDER BY pg_temp.rnd(2, v, grp), v) % 17 AS chunk
      FROM vals WHERE v >= 0) c
GROUP BY grp, chunk ORDER BY pg_temp.rnd(3, grp, chunk);
SELECT count(*) AS groups, count(*) FILTER (WHERE from_s = expected AND from_r = expected AND from_m = expected) AS all_forms_ok
FROM (SELECT grp, int4set_agg('s', s, 'r') AS from_s, int4set_agg('r', r, 'r') AS from_r, int4set_agg('m', m, 'r') AS from_m
      FROM (SELECT grp, s, (SELECT int4set_agg(x, 'r') FROM unnest(s) x) AS r,
                   (SELECT int4set_agg(x, 'm') FROM unnest(s) x) AS m
            FROM chunk_sets) c
      GROUP BY grp) a
JOIN (SELECT grp, int4set_agg(v, 'r') AS expected FROM vals WHERE v >= 0 GROUP BY grp) e USING (grp);

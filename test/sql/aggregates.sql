-- int4set_agg, int4set_agg_optimized and agg_keep_single in one backend (other plans: aggregate_plans).
\i sql/include/errors.psql
\i sql/include/plans.psql

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

-- The first row fixes both forms: later letters are not read.
SELECT int4set_agg(form, a, out ORDER BY ord) AS read_as_first
FROM (VALUES (1, 'r'::"char", '{1,3}'::int4[], 's'::"char"),
             (2, 's', '{10,11}', 'm')) t(ord, form, a, out);

-- Arrays that are not one-dimensional or hold NULLs change nothing.
SELECT int4set_agg(form, a, 'r') AS ignored
FROM (VALUES ('s'::"char", '{{1,2},{3,4}}'::int4[]), ('r', '{1,NULL}'), ('m', '{{1,2}}'), ('s', '{42}')) t(form, a);

-- 2147483647 is where inserting wraps ("upper + 1"): it goes to the front of the list.
SELECT int4set_agg(v, 'r' ORDER BY ord) AS top_value_first
FROM (VALUES (1, 1), (2, 5), (3, 2147483647)) t(ord, v);

-- int4set_agg_optimized: only the first row's 'maxinput' and letters are read.
SELECT int4set_agg_optimized(v, m, 's' ORDER BY ord) AS first_row_fixes_limit
FROM (VALUES (1, 10, 0), (15, 0, 1), (0, -5, 2)) t(v, m, ord);
-- A NULL first row fixes the state in the value form, but not when argument 2 (the upper bound or the array) is NULL.
SELECT int4set_agg_optimized(v, 10, 'r') AS null_value_skipped FROM (VALUES (NULL), (4)) t(v);
SELECT pg_temp.try($$SELECT int4set_agg_optimized(lo, hi, 10, 'r') FROM (VALUES (1, NULL), (1, 2)) t(lo, hi)$$) AS null_upper_first;

-- Each row form: inverted bounds and mix items add nothing; empty, 2-D and NULL-holding arrays are skipped.
SELECT int4set_agg_optimized(v, 100, 's') AS s, int4set_agg_optimized(v, 100, 'r') AS r,
       int4set_agg_optimized(v, 100, 'm') AS m
FROM (VALUES (1), (2), (3), (7), (NULL)) t(v);
SELECT int4set_agg_optimized(lo, hi, 100, 'r') AS bounds
FROM (VALUES (10, 12), (1, 3), (9, 5), (NULL, 50), (4, 4), (60, 71)) t(lo, hi);
SELECT form, int4set_agg_optimized(form, a, 100, 'r') AS r
FROM (VALUES ('s'::"char", '{9,1,2,2}'::int4[]), ('s', '{}'), ('s', '{{50,51}}'), ('s', '{60,NULL}'),
             ('r', '{1,2,7,9}'), ('r', '{20,10}'), ('r', '{3,4}'),
             ('m', '{3,-2147483647,3,9}'), ('m', '{1,-2147483628,5}'), ('m', '{0}'), ('m', '{}')) t(form, a)
GROUP BY form ORDER BY form;
-- The top of int4: a 'maxinput' of 2147483647 holds every non-negative value.
SELECT int4set_agg_optimized(v, 2147483647, 'm') AS top FROM (VALUES (0), (2147483646), (2147483647)) t(v);

-- One-row calls and their errors: bounds taken as given, a range up to 2147483647 stops there, 'maxinput' rounded up
-- to its byte's end (10 accepts 0 to 15), sets counted before they are built, no bits as an 'm' without count word.
SELECT q, pg_temp.run('SELECT ' || q) AS result FROM (VALUES
    ($$int4set_agg(7, 'm')$$), ($$int4set_agg(1007, 'm')$$), ($$int4set_agg(9, 5, 'r')$$), ($$int4set_agg(9, 5, 's')$$),
    ($$int4set_agg(2147483645, 2147483647, 's')$$), ($$int4set_agg(-2147483646, -2147483648, 'r')$$),
    ($$int4set_agg(-2147483648, 2147483647, 's')$$), ($$int4set_agg(-2147483648, 2147483647, 'm')$$),
    ($$int4set_agg(0, 299999999, 's')$$), ($$int4set_agg('r', '{1,2,3}'::int4[], 'r')$$),
    ($$int4set_agg('m', '{3,-2147483647}'::int4[], 'r')$$), ($$int4set_agg(1, 'x')$$), ($$int4set_agg(1, NULL)$$),
    ($$int4set_agg('R', '{1,2}'::int4[], 'r')$$), ($$int4set_agg_optimized(15, 10, 's')$$),
    ($$int4set_agg_optimized(16, 10, 's')$$), ($$int4set_agg_optimized(1, 0, 's')$$), ($$int4set_agg_optimized(1, -3, 's')$$),
    ($$int4set_agg_optimized(1, NULL, 's')$$), ($$int4set_agg_optimized(-1, 10, 's')$$),
    ($$int4set_agg_optimized('s', NULL::int4[], 10, 'r')$$), ($$int4set_agg_optimized(NULL::int4, 10, 'm')$$),
    ($$int4set_agg_optimized(0, 2147483647, 2147483647, 's')$$), ($$int4set_agg_optimized(-1, 3, 10, 's')$$),
    ($$int4set_agg_optimized(3, 16, 10, 's')$$), ($$int4set_agg_optimized('s', '{1,16}'::int4[], 10, 's')$$),
    ($$int4set_agg_optimized('r', '{1,2,3}'::int4[], 10, 's')$$), ($$int4set_agg_optimized('r', '{1,2,-1,3}'::int4[], 10, 's')$$),
    ($$int4set_agg_optimized('m', '{2,-2147483647,20}'::int4[], 10, 's')$$),
    ($$int4set_agg_optimized('m', '{2,30,-2147483647}'::int4[], 10, 's')$$), ($$int4set_agg_optimized(1, 10, 'x')$$),
    ($$int4set_agg_optimized('R', '{1,2}'::int4[], 10, 'r')$$)) t(q);

-- agg_keep_single: every supported type comes back with its own type.
SELECT agg_keep_single(true) AS b, agg_keep_single(2::int2) AS i2, agg_keep_single(4) AS i4,
       agg_keep_single(8::int8) AS i8, agg_keep_single(0.5::float4) AS f4, agg_keep_single(-1.5::float8) AS f8,
       agg_keep_single('\x00ff'::bytea) AS y, agg_keep_single('ab'::text) AS t,
       pg_typeof(agg_keep_single(2::int2)) AS i2_type, pg_typeof(agg_keep_single(0.5::float4)) AS f4_type
FROM generate_series(1, 2);
-- Policy on: another value (bit for bit) or NULL-ness is refused, a NULL after an int is 0; off: the first row is kept.
SELECT call, rows, pg_temp.run(format('SELECT %s FROM (VALUES %s) t(o, v)', call, rows)) AS result
FROM (VALUES ('agg_keep_single(v)', '(1, 1.5::numeric)'), ('agg_keep_single(v, false)', '(1, NULL::numeric), (2, 2)'),
             ('agg_keep_single(v ORDER BY o)', '(1, 5), (2, 6)'), ('agg_keep_single(v ORDER BY o)', '(1, 0::float8), (2, ''-0'')'),
             ('agg_keep_single(v ORDER BY o)', '(1, ''ab''::text), (2, ''abc'')'),
             ('agg_keep_single(v ORDER BY o)', '(1, ''\x01''::bytea), (2, ''\x02'')'),
             ('agg_keep_single(v, false ORDER BY o)', '(1, 5), (2, 6)'),
             ('agg_keep_single(v, false ORDER BY o)', '(1, NULL::text), (2, ''x'')'),
             ('agg_keep_single(v, o = 1 ORDER BY o)', '(1, 1), (2, 1)'), ('agg_keep_single(v)', '(1, NULL::int4), (2, NULL)'),
             ('agg_keep_single(v ORDER BY o)', '(1, 0), (2, NULL)'), ('agg_keep_single(v ORDER BY o)', '(1, NULL), (2, 6)'),
             ('agg_keep_single(v ORDER BY o)', '(1, 5), (2, NULL)'),
             ('agg_keep_single(v ORDER BY o)', '(1, ''ab''::text), (2, NULL)')) t(call, rows);

-- The serialised state: kind, NULL flag, type, then the Datum or the bytes (none for a NULL text).
CREATE AGGREGATE pg_temp.keep_single_state(anyelement) (
    SFUNC = qn_agg_keep_single_transfn, STYPE = internal, FINALFUNC = qn_agg_keep_single_serialfn);
SELECT pg_temp.keep_single_state(7) AS int4_7, pg_temp.keep_single_state('ab'::text) AS text_ab,
       pg_temp.keep_single_state(NULL::text) AS text_null;

-- Large values stored compressed or out of line are compared and returned whole.
CREATE TABLE big (grp int4, t text, y bytea);
ALTER TABLE big ALTER COLUMN y SET STORAGE EXTERNAL;
INSERT INTO big SELECT g % 2, repeat('x', 100000) || (g % 2), convert_to(repeat('y', 100000), 'UTF8')
FROM generate_series(1, 6) g;
SELECT grp, length(agg_keep_single(t)) AS t_length, agg_keep_single(t) = min(t) AS t_whole,
       agg_keep_single(y) = convert_to(repeat('y', 100000), 'UTF8') AS y_whole,
       max(pg_column_size(t)) < 100000 AS t_compressed
FROM big GROUP BY grp ORDER BY grp;
SELECT pg_temp.try($$SELECT agg_keep_single(t) FROM big$$) AS toasted_differ;

-- TOASTed values in a parallel plan (parallel plans of other values: aggregate_plans).
\i sql/include/force_parallel.psql
SELECT pg_temp.plan_has($$SELECT agg_keep_single(t) FROM big$$, 'Partial Aggregate') AS big_partial,
       (SELECT length(agg_keep_single(t)) FROM big WHERE grp = 0) AS big_length;

-- int4set_agg in one backend: each row form into each output form, the first row fixing the forms, the rows that are
-- skipped, the empty result and the errors.
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

-- The first row fixes both forms: later letters are not read.
SELECT int4set_agg(form, a, out ORDER BY ord) AS read_as_first
FROM (VALUES (1, 'r'::"char", '{1,3}'::int4[], 's'::"char"),
             (2, 's', '{10,11}', 'm')) t(ord, form, a, out);

-- Arrays that are not one-dimensional or hold NULLs change nothing; a bounds row is taken as given, even inverted.
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

-- 2147483647 is where inserting wraps ("upper + 1"): it goes to the front of the list, which is then no longer
-- ascending.
SELECT int4set_agg(v, 'r' ORDER BY ord) AS top_value_first
FROM (VALUES (1, 1), (2, 5), (3, 2147483647)) t(ord, v);


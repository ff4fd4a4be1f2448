-- int4set_agg_optimized: the 'maxinput' limit and its rounding, each row form into each output form, and the errors.
\i sql/include/errors.psql

-- 'maxinput' is rounded up to the end of its byte: 10 accepts 0 to 15. Only the first row's 'maxinput' and letters are
-- read.
SELECT int4set_agg_optimized(v, m, 's' ORDER BY ord) AS first_row_fixes_limit
FROM (VALUES (1, 10, 0), (15, 0, 1), (0, -5, 2)) t(v, m, ord);
SELECT pg_temp.try($$SELECT int4set_agg_optimized(v, 10, 's') FROM (VALUES (16)) t(v)$$) AS past_rounding,
       pg_temp.try($$SELECT int4set_agg_optimized(v, 0, 's') FROM (VALUES (1)) t(v)$$) AS zero,
       pg_temp.try($$SELECT int4set_agg_optimized(v, -3, 's') FROM (VALUES (1)) t(v)$$) AS negative,
       pg_temp.try($$SELECT int4set_agg_optimized(v, NULL, 's') FROM (VALUES (1)) t(v)$$) AS null_limit;
-- A NULL first row fixes the state in the value form, but not when argument 2 (the upper bound or the array) is NULL.
SELECT int4set_agg_optimized(v, 10, 'r') AS null_value_skipped FROM (VALUES (NULL), (4)) t(v);
SELECT pg_temp.try($$SELECT int4set_agg_optimized(lo, hi, 10, 'r') FROM (VALUES (1, NULL), (1, 2)) t(lo, hi)$$) AS null_upper_first,
       pg_temp.try($$SELECT int4set_agg_optimized('s', a, 10, 'r') FROM (VALUES (NULL::int4[])) t(a)$$) AS null_array_first;

-- Each row form into each output form. Inverted bounds and inverted mix items add nothing; arrays that are empty, not
-- one-dimensional or hold NULLs are skipped.
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

-- No bits: an 'm' without count word.
SELECT int4set_agg_optimized(v, 10, 'm') AS no_bits FROM (VALUES (NULL::int4)) t(v);

-- The top of int4: 2147483647 holds every non-negative value; the full span has too many members for an 's' array,
-- which is counted before it is built.
SELECT int4set_agg_optimized(v, 2147483647, 'm') AS top FROM (VALUES (0), (2147483646), (2147483647)) t(v);
SELECT pg_temp.try($$SELECT int4set_agg_optimized(0, 2147483647, 2147483647, 's')$$) AS s_too_long;

-- Errors, with their SQLSTATEs.
SELECT pg_temp.try($$SELECT int4set_agg_optimized(v, 10, 's') FROM (VALUES (-1)) t(v)$$) AS negative_value,
       pg_temp.try($$SELECT int4set_agg_optimized(lo, hi, 10, 's') FROM (VALUES (-1, 3)) t(lo, hi)$$) AS bounds_below,
       pg_temp.try($$SELECT int4set_agg_optimized(lo, hi, 10, 's') FROM (VALUES (3, 16)) t(lo, hi)$$) AS bounds_above,
       pg_temp.try($$SELECT int4set_agg_optimized('s', a, 10, 's') FROM (VALUES ('{1,16}'::int4[])) t(a)$$) AS set_member;
SELECT pg_temp.try($$SELECT int4set_agg_optimized('r', a, 10, 's') FROM (VALUES ('{1,2,3}'::int4[])) t(a)$$) AS odd_range_array,
       pg_temp.try($$SELECT int4set_agg_optimized('r', a, 10, 's') FROM (VALUES ('{1,2,-1,3}'::int4[])) t(a)$$) AS range_below,
       pg_temp.try($$SELECT int4set_agg_optimized('m', a, 10, 's') FROM (VALUES ('{2,-2147483647,20}'::int4[])) t(a)$$) AS mix_run_above,
       pg_temp.try($$SELECT int4set_agg_optimized('m', a, 10, 's') FROM (VALUES ('{2,30,-2147483647}'::int4[])) t(a)$$) AS mix_ends_in_opener;
SELECT pg_temp.try($$SELECT int4set_agg_optimized(v, 10, 'x') FROM (VALUES (1)) t(v)$$) AS bad_output_letter,
       pg_temp.try($$SELECT int4set_agg_optimized('R', a, 10, 'r') FROM (VALUES ('{1,2}'::int4[])) t(a)$$) AS bad_input_letter;


-- int4range_op_agg: a bracketed set expression over range arrays, one operand per row. Operation word: bits 0-1 the
-- operation (1 union, 2 intersection, 3 exclusion), bits 2-8 groups closed before the operand, bits 9-15 groups opened.
\i sql/include/errors.psql

CREATE FUNCTION pg_temp.word(op int, close int DEFAULT 0, open int DEFAULT 0) RETURNS int4
    LANGUAGE sql IMMUTABLE AS $$ SELECT op | (close << 2) | (open << 9) $$;

-- A ∩ (B ∪ C) \ D, and the same with the foundation's functions.
SELECT int4range_op_agg(w, a ORDER BY ord) AS expression,
       qn_int4range_exclusion(qn_int4range_intersection('{1,100}', qn_int4range_union('{10,20}', '{30,40}')),
                              '{15,35}') AS by_functions
FROM (VALUES (1, pg_temp.word(1), '{1,100}'::int4[]),
             (2, pg_temp.word(2, open => 1), '{10,20}'),
             (3, pg_temp.word(1), '{30,40}'),
             (4, pg_temp.word(3, close => 1), '{15,35}')) t(ord, w, a);

-- Left to right; a first ∩ or \ meets the empty start; bits 16+ ignored; open groups close at the end.
SELECT int4range_op_agg(w, a ORDER BY ord) FILTER (WHERE k = 'left_to_right') AS left_to_right,
       int4range_op_agg(w, a ORDER BY ord) FILTER (WHERE k = 'starts_empty') AS starts_empty,
       int4range_op_agg(w, a ORDER BY ord) FILTER (WHERE k = 'high_bits') AS high_bits,
       int4range_op_agg(w, a ORDER BY ord) FILTER (WHERE k = 'left_open') AS left_open
FROM (VALUES ('left_to_right', 1, pg_temp.word(1), '{1,10}'::int4[]), ('left_to_right', 2, pg_temp.word(3), '{3,4}'),
             ('left_to_right', 3, pg_temp.word(1), '{4,4}'), ('left_to_right', 4, pg_temp.word(2), '{2,8}'),
             ('starts_empty', 1, pg_temp.word(2), '{1,10}'), ('starts_empty', 2, pg_temp.word(1), '{20,21}'),
             ('high_bits', 1, pg_temp.word(1) | (7 << 16), '{1,10}'), ('high_bits', 2, pg_temp.word(3) | (-1 << 16), '{5,5}'),
             ('left_open', 1, pg_temp.word(1), '{1,10}'), ('left_open', 2, pg_temp.word(3, open => 2), '{2,3}'),
             ('left_open', 3, pg_temp.word(1), '{8,9}')) t(k, ord, w, a);

-- NULL operands skip the row (closes and opens too); 2-D or NULL-holding arrays are empty operands.
SELECT int4range_op_agg(w, a ORDER BY ord) AS null_row_skipped
FROM (VALUES (1, pg_temp.word(1), '{1,10}'::int4[]), (2, pg_temp.word(3, open => 1), NULL),
             (3, pg_temp.word(3, close => 1), NULL), (4, pg_temp.word(3), '{{2,3},{4,5}}'),
             (5, pg_temp.word(3), '{2,NULL}'), (6, pg_temp.word(3), '{9,9}')) t(ord, w, a);

-- Nesting: the root plus five groups, opened at once or row by row; one more fails.
SELECT int4range_op_agg(w, a ORDER BY ord) AS five_at_once
FROM (VALUES (1, pg_temp.word(1, open => 5), '{1,5}'::int4[]), (2, pg_temp.word(3, close => 5), '{3,3}')) t(ord, w, a);
SELECT int4range_op_agg(pg_temp.word(1, open => 1), '{1,1}'::int4[] ORDER BY g) AS five_row_by_row
FROM generate_series(1, 5) g;
SELECT pg_temp.try($$SELECT int4range_op_agg(pg_temp.word(1, open => 6), '{1,1}'::int4[])$$) AS six_at_once,
       pg_temp.try($$SELECT int4range_op_agg(pg_temp.word(1, open => 1), '{1,1}'::int4[] ORDER BY g)
                     FROM generate_series(1, 6) g$$) AS six_row_by_row;

-- Errors; operation 0 fails when applied, and opening a group with it is fine until the group closes. Rows (o, w, a).
SELECT w, pg_temp.run(format('SELECT int4range_op_agg(w, a ORDER BY o) FROM (VALUES %s) t(o, w, a)', w)) AS outcome
FROM (VALUES ('(1, NULL::int4, ''{1,2}''::int4[])'), ('(1, pg_temp.word(1, close => 1), ''{1,2}''::int4[])'),
             ('(1, pg_temp.word(1, open => 1), ''{1,2}''::int4[]), (2, pg_temp.word(1, close => 2), ''{5,6}'')'),
             ('(1, pg_temp.word(1), ''{1,2,3}''::int4[])'), ('(1, 0, ''{1,2}''::int4[])'),
             ('(1, pg_temp.word(0, open => 1), ''{1,2}''::int4[])'),
             ('(1, pg_temp.word(0, open => 1), ''{1,2}''::int4[]), (2, pg_temp.word(1), ''{5,6}'')')) t(w);

-- agg_keep_single: each type, the policy, NULL rows, TOASTed values, the serialised state.
\i sql/include/errors.psql
\i sql/include/plans.psql

-- Every supported type comes back with its own type.
SELECT agg_keep_single(true) AS b, agg_keep_single(2::int2) AS i2, agg_keep_single(4) AS i4,
       agg_keep_single(8::int8) AS i8, agg_keep_single(0.5::float4) AS f4, agg_keep_single(-1.5::float8) AS f8,
       agg_keep_single('\x00ff'::bytea) AS y, agg_keep_single('ab'::text) AS t,
       pg_typeof(agg_keep_single(2::int2)) AS i2_type, pg_typeof(agg_keep_single(0.5::float4)) AS f4_type
FROM generate_series(1, 2);
SELECT pg_temp.try($$SELECT agg_keep_single(v) FROM (VALUES (1.5::numeric)) t(v)$$) AS numeric_refused,
       (SELECT agg_keep_single(v, false) FROM (VALUES (NULL::numeric), (2)) t(v)) AS numeric_null_first_kept;

-- Policy on (the default): any other value, or a change of NULL-ness, is refused; policy off: the first row is kept.
SELECT pg_temp.try($$SELECT agg_keep_single(v) FROM (VALUES (5), (6)) t(v)$$) AS int4_differs,
       pg_temp.try($$SELECT agg_keep_single(v) FROM (VALUES (0::float8), ('-0')) t(v)$$) AS float_bits_differ,
       pg_temp.try($$SELECT agg_keep_single(v) FROM (VALUES ('ab'::text), ('abc')) t(v)$$) AS text_differs,
       pg_temp.try($$SELECT agg_keep_single(v) FROM (VALUES ('\x01'::bytea), ('\x02')) t(v)$$) AS bytea_differs;
SELECT (SELECT agg_keep_single(v, false) FROM (VALUES (5), (6)) t(v)) AS off_first,
       (SELECT agg_keep_single(v, false) FROM (VALUES (NULL::text), ('x')) t(v)) AS off_null_first,
       pg_temp.try($$SELECT agg_keep_single(v, p ORDER BY o) FROM (VALUES (1, 1, true), (2, 1, false)) t(o, v, p)$$) AS policy_changes;

-- NULL rows under the policy: NULLs only give NULL; a value after a NULL is refused; a NULL after an int value compares
-- as 0, after a text value never matches.
SELECT (SELECT agg_keep_single(v) FROM (VALUES (NULL::int4), (NULL)) t(v)) AS nulls_only,
       (SELECT agg_keep_single(v ORDER BY o) FROM (VALUES (1, 0), (2, NULL)) t(o, v)) AS zero_then_null,
       pg_temp.try($$SELECT agg_keep_single(v ORDER BY o) FROM (VALUES (1, NULL), (2, 6)) t(o, v)$$) AS null_then_value,
       pg_temp.try($$SELECT agg_keep_single(v ORDER BY o) FROM (VALUES (1, 5), (2, NULL)) t(o, v)$$) AS five_then_null,
       pg_temp.try($$SELECT agg_keep_single(v ORDER BY o) FROM (VALUES (1, 'ab'::text), (2, NULL)) t(o, v)$$) AS text_then_null;

-- The serialised state, through an aggregate that ends in the serial function: kind, NULL flag, type, then the Datum
-- (by-value types) or the bytes; a text state without a value carries no bytes.
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

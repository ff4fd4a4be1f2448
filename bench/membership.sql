-- 1,000,000 membership tests: a value against a range array of 100,000 pairs, and
-- against a bitfield of 1,000,000 values.
\timing off
CREATE TABLE range_arrays AS
SELECT ARRAY(SELECT x FROM generate_series(0, 99999) i, LATERAL (VALUES (i * 20), (i * 20 + 9)) p(x)) AS a;
CREATE TABLE bitfields AS
SELECT qn_int4set2bitfield_int4('s', ARRAY(SELECT g FROM generate_series(0, 999999) g WHERE hashint4(g) & 1 = 0)) AS bf;
SELECT cardinality(a) / 2 AS pairs, pg_column_size(a) AS stored_bytes FROM range_arrays;
SELECT octet_length(bf) AS bitfield_bytes, pg_column_size(bf) AS stored_bytes FROM bitfields;
\timing on
-- For scale: the same loop with a trivial test.
SELECT count(*) FILTER (WHERE v % 3 = 0) AS hits FROM generate_series(0, 1999999, 2) v;
-- The range array computed once per query (held in memory, not detoasted per call).
SELECT count(*) FILTER (WHERE qn_int4_in_rangearray(v, r.a)) AS hits
FROM generate_series(0, 1999999, 2) v, (SELECT a || '{}'::int4[] AS a FROM range_arrays OFFSET 0) r;
-- The range array read from its table, as it is stored (compressed).
SELECT count(*) FILTER (WHERE qn_int4_in_rangearray(v, r.a)) AS hits
FROM generate_series(0, 1999999, 2) v, (SELECT a FROM range_arrays OFFSET 0) r;
-- The bitfield, held in memory and as stored.
SELECT count(*) FILTER (WHERE qn_int4_in_rangebitfield(v, b.bf)) AS hits
FROM generate_series(0, 999999) v, (SELECT bf || '\x'::bytea AS bf FROM bitfields OFFSET 0) b;
SELECT count(*) FILTER (WHERE qn_int4_in_rangebitfield(v, b.bf)) AS hits
FROM generate_series(0, 999999) v, (SELECT bf FROM bitfields OFFSET 0) b;
\timing off
DROP TABLE range_arrays, bitfields;

-- The int4set type: text and binary forms, the operators against the range-array functions and int4multirange on
-- random sets, order and hash, functions, casts.
\i sql/include/errors.psql
SELECT current_setting('server_version_num')::int >= 140000 AS has_multirange,
       current_setting('server_version_num')::int >= 160000 AS has_soft_errors \gset

-- Text: members and ranges in any order, overlapping, repeated, with blanks and signs, read back canonical.
-- Errors: 22P02 (22003 for a number outside int4) with the character where the text goes wrong.
CREATE FUNCTION pg_temp.parse(t text) RETURNS text LANGUAGE plpgsql AS $$
DECLARE detail text;
BEGIN
    RETURN t::int4set::text;
EXCEPTION WHEN OTHERS THEN
    GET STACKED DIAGNOSTICS detail = PG_EXCEPTION_DETAIL;
    RETURN SQLSTATE || ': ' || SQLERRM || ' ' || detail;
END $$;
SELECT t, pg_temp.parse(t) AS parsed
FROM (VALUES ('{}'), (' { } '), ('{9, 1..5,-3 ,7..8,3,+4}'), ('{5..5,6,4}'), ('{-10..-5,3,7..9}'),
             ('{2147483647,-2147483648}'), ('{-2147483648..2147483647}'), ('{0..2147483647,-2147483648..-1}'),
             ('{1..3,4..6,8}'), ('{1,x}'), ('{1..}'), ('{5..1}'), ('{1,2'), ('{1}}'), ('1'), ('{1 2}'), ('{1..2..3}'),
             ('{,}'), ('{2147483648}'), ('{-2147483649..0}'), ('')) t(t);
SELECT CASE WHEN :'has_soft_errors' THEN pg_temp.run($$SELECT string_agg(pg_input_is_valid(t, 'int4set')::text, ',')
                                                      FROM unnest('{"{1..3}","{1..}","{99999999999}"}'::text[]) t$$)
            ELSE 'true,false,false' END AS soft_errors;

-- Random sets of every shape (lone members, short and long runs, spans of millions of values, the line's ends and the
-- empty set), as normalised range arrays and as int4sets: every operator against the range-array functions. Those
-- wrap near the line's ends (README, Limitations): the union is checked against the normalised concatenation, the
-- difference where the first set stays below 2147483647; int4multirange checks both everywhere (below).
SELECT setseed(0.25);
CREATE TEMP TABLE sets AS
WITH shape AS (
    SELECT i, (ARRAY[5, 12, 17, 22, 33])[1 + floor(random() * 5)::int] AS spread,
           (ARRAY[0, 0, 4, 300, 70000, 30000000])[1 + floor(random() * 6)::int] AS width,
           floor(random() * 300)::int AS n, random() < 0.25 AS ends,
           floor(random() * 4294967296 - 2147483648)::bigint AS centre
    FROM generate_series(1, 300) i)
SELECT i, qn_rangearray_normalise(coalesce(array_agg(v::int4 ORDER BY j, k), '{}')
                                  || CASE WHEN ends THEN '{-2147483648,-2147483000,2147483000,2147483647}'::int4[] END) AS a
FROM shape LEFT JOIN LATERAL (
    SELECT j, greatest(-2147483648, least(2147483647, centre + floor((random() - 0.5) * 2 ^ spread)))::bigint AS lo
    FROM generate_series(1, n) j) m ON true
LEFT JOIN LATERAL (VALUES (1, lo), (2, least(2147483647, lo + floor(random() * width)))) p(k, v) ON m.j IS NOT NULL
GROUP BY i, ends
UNION ALL SELECT 0, '{}';
ALTER TABLE sets ADD s int4set;
UPDATE sets SET s = a::int4set;
CREATE TEMP TABLE pairs AS
SELECT x.i AS i, x.a AS xa, x.s AS xs, y.a AS ya, y.s AS ys
FROM sets x JOIN sets y ON y.i IN (x.i, x.i % 300 + 1, x.i * 7 % 300 + 1, 1 + (x.i + 150) % 300);
SELECT count(*) AS pairs, count(*) FILTER (WHERE cardinality(xa) = 0 OR cardinality(ya) = 0) > 0 AS with_empty,
       count(*) FILTER (WHERE xs && ys AND xs <> ys) > 100 AS overlapping, count(*) FILTER (WHERE xa[1] = -2147483648) > 100 AS at_min,
       count(*) FILTER (WHERE cardinality(xs) > 1000000) > 100 AS large
FROM pairs;
SELECT count(*) FILTER (WHERE (xs + ys)::int4[] IS DISTINCT FROM qn_rangearray_normalise(xa || ya)) AS union_,
       count(*) FILTER (WHERE (xs * ys)::int4[] IS DISTINCT FROM qn_int4range_intersection(xa, ya)) AS intersection,
       count(*) FILTER (WHERE (xs - ys)::int4[] IS DISTINCT FROM qn_int4range_exclusion(xa, ya)
                         AND xa[cardinality(xa)] < 2147483647) AS difference,
       count(*) FILTER (WHERE (xs && ys) IS DISTINCT FROM qn_int4range_is_overlap(xa, ya)) AS overlap,
       count(*) FILTER (WHERE (xs @> ys) IS DISTINCT FROM (cardinality(ya) = 0 OR qn_int4range_contains(xa, ya))) AS contains,
       count(*) FILTER (WHERE (ys <@ xs) IS DISTINCT FROM (xs @> ys)) AS contained,
       count(*) FILTER (WHERE (xs = ys) IS DISTINCT FROM (xa = ya) OR (xs <> ys) = (xs = ys)) AS equal,
       count(*) FILTER (WHERE cardinality(xs) IS DISTINCT FROM qn_rangearray_count(xa)) AS cardinality_,
       count(*) FILTER (WHERE (min_member(xs), max_member(xs)) IS DISTINCT FROM (xa[1], xa[cardinality(xa)])) AS extremes,
       count(*) FILTER (WHERE xs::text::int4set <> xs OR (xs + ys) - ys <> xs - ys OR (xs - ys) + (xs * ys) <> xs)
           AS identities
FROM pairs;
-- Members: every range's ends and their neighbours, and random values, against the range array.
SELECT count(*) > 10000 AS many_probes, count(*) FILTER (WHERE (s @> v) IS DISTINCT FROM qn_int4_in_rangearray(v, a)
                                                OR (v <@ s) IS DISTINCT FROM (s @> v)) AS member_mismatches
FROM sets, LATERAL (SELECT e + d FROM unnest(a) e, (VALUES (-1), (0), (1)) d(d) WHERE e::bigint + d BETWEEN -2147483648 AND 2147483647
                    UNION ALL SELECT floor(random() * 4294967296 - 2147483648)::int FROM generate_series(1, 20)) v(v);

-- The same sets against int4multirange (14 and later; every check lists only its failures, on every server).
CREATE TEMP TABLE multirange_checks (name text, query text);
INSERT INTO multirange_checks VALUES
    ('algebra', $$SELECT count(*) FROM pairs WHERE (xs + ys)::int4multirange <> xs::int4multirange + ys::int4multirange
                    OR (xs * ys)::int4multirange <> xs::int4multirange * ys::int4multirange
                    OR (xs - ys)::int4multirange <> xs::int4multirange - ys::int4multirange$$),
    ('tests', $$SELECT count(*) FROM pairs, LATERAL (SELECT xs::int4multirange AS xm, ys::int4multirange AS ym) m
                WHERE (xs @> ys) <> (xm @> ym) OR (xs && ys) <> (xm && ym) OR (xs << ys) <> (xm << ym)
                   OR (xs >> ys) <> (xm >> ym) OR (xs &< ys) <> (xm &< ym) OR (xs &> ys) <> (xm &> ym)
                   OR (xs -|- ys) <> (xm -|- ym)$$),
    ('ranges', $$SELECT count(*) FROM pairs, LATERAL unnest(ys::int4multirange) r
                 WHERE (xs @> r) <> (xs::int4multirange @> r) OR (xs && r) <> (xs::int4multirange && r)
                    OR (xs <@ r) <> (xs::int4multirange <@ r) OR xs::int4multirange::int4set <> xs$$),
    ('a range and its set', $$SELECT count(*) FROM pairs, LATERAL unnest(ys::int4multirange) r
                              WHERE r::int4set::int4range <> r OR r::int4set <> int4set(r)$$);
SELECT name, got FROM (SELECT name, pg_temp.run(query) AS got FROM multirange_checks WHERE :'has_multirange') c
WHERE got <> '0';

-- Order, equality and hash: ORDER BY sorts by member sequence ({} < {1} < {1,2} < {1,3} < {2}); DISTINCT, GROUP BY
-- (sorted and hashed), a UNIQUE index and hash joins agree; the extended hash at seed 0 holds the standard one.
SELECT string_agg(s::text, ' < ' ORDER BY s) AS ordered
FROM unnest('{"{2}","{1,3}","{}","{1..2}","{1}","{-5..10}","{-5..0}","{-4}","{-2147483648}","{2147483647}"}'::int4set[]) s;
CREATE TEMP TABLE small AS
SELECT int4set(ARRAY(SELECT (random() * 6 + g * 0)::int FROM generate_series(1, (random() * 4 + g * 0)::int)), 's') AS s
FROM generate_series(1, 2000) g;
CREATE TEMP VIEW small_expected AS
SELECT count(*) AS groups, sum(n * n) AS equal_pairs FROM (SELECT count(*) AS n FROM small GROUP BY int4set_to_array(s, 's')) g;
SELECT (SELECT array_agg(s ORDER BY s) FROM small) = (SELECT array_agg(s ORDER BY int4set_to_array(s, 's')) FROM small)
           AS order_is_member_sequence,
       (SELECT count(DISTINCT s) FROM small) = groups AS distinct_sets,
       (SELECT count(*) FROM small a JOIN small b ON a.s = b.s) = equal_pairs AS equal_pairs,
       (SELECT count(*) FROM sets WHERE int4set_hash(s)::bigint & 4294967295 <> int4set_hash_extended(s, 0) & 4294967295
                                      OR int4set_hash_extended(s, 1) = int4set_hash_extended(s, 0)) AS hash_faults,
       (SELECT bool_and(amvalidate(oid)) FROM pg_opclass WHERE opcname IN ('int4set_btree_ops', 'int4set_hash_ops'))
           AS opclasses_valid
FROM small_expected;
SET enable_sort = off;
SELECT (SELECT count(*) FROM (SELECT s FROM small GROUP BY s) g) = groups AS hashed_groups FROM small_expected;
RESET enable_sort;
SET enable_hashagg = off;
SELECT (SELECT count(*) FROM (SELECT s FROM small GROUP BY s) g) = groups AS sorted_groups FROM small_expected;
RESET enable_hashagg;
SET enable_hashjoin = off;
SET enable_mergejoin = off;
SELECT (SELECT count(*) FROM small a JOIN small b ON a.s = b.s) = equal_pairs AS nested_loop_pairs FROM small_expected;
RESET enable_hashjoin;
RESET enable_mergejoin;
CREATE TEMP TABLE uniq (s int4set UNIQUE);
INSERT INTO uniq SELECT DISTINCT s FROM small;
SELECT pg_temp.try($$INSERT INTO uniq VALUES ('{0..1,2}')$$) AS duplicate;

-- Functions: the whole line, the empty set, rows of members and ranges (streaming: the first of 2^31 come at once).
SELECT cardinality(s), isempty(s), min_member(s), max_member(s), (SELECT count(*) FROM ranges(s)) AS ranges
FROM unnest('{"{}","{-2147483648..2147483647}","{7}","{-3..-1,5,2147483647}"}'::int4set[]) s;
SELECT * FROM ranges('{-2147483648,-3..-1,5,2147483647}');
SELECT members('{-2147483648..-2147483647,0..2147483647}') LIMIT 4;

-- Positions by the extremes; with an int4range.
SELECT a, b, a << b AS "<<", a >> b AS ">>", a &< b AS "&<", a &> b AS "&>", a -|- b AS "-|-"
FROM (VALUES ('{1..3}'::int4set, '{4..5}'::int4set), ('{1..3,10}', '{4..5}'), ('{4..5}', '{1..3}'), ('{}', '{1}'),
             ('{2147483647}', '{-2147483648}')) t(a, b);
SELECT s @> r AS contains, s <@ r AS within, s && r AS overlaps
FROM (VALUES ('{1..5,8}'::int4set, '[2,5]'::int4range), ('{1..5,8}', '[2,7)'), ('{1..5,8}', 'empty'), ('{}', '[1,2)'),
             ('{1..5,8}', '(,)'), ('{2147483647}', '[0,)'), ('{6..7}', '[5,8)')) t(s, r);

-- Casts and conversions: forms 'r' (validated, normalised) and 's' (any order, repeats), int4range; errors.
SELECT a, f, pg_temp.run(format('SELECT int4set(%L::int4[], %L)', a, f)) AS set
FROM (VALUES ('{5,9,1,3,4,4}', 'r'), ('{-2147483648,-2147483648,2147483647,2147483647}', 'r'), ('{}', 'r'),
             ('{1,2,3}', 'r'), ('{5,3}', 'r'), ('{1,NULL}', 'r'), ('{{1,2},{3,4}}', 'r'), ('{9,1,3,2,2}', 's'),
             ('{}', 's'), ('{1}', 'm')) t(a, f);
SELECT int4set_to_array('{-2..0,7}', 's') AS members, int4set_to_array('{-2..0,7}') AS ranges,
       '{-2..0,7}'::int4set::int4[] AS cast, qn_int4range_union('{-2..0,7}'::int4set::int4[], '{1,3}') AS through_the_cast,
       pg_temp.run($$SELECT int4set_to_array('{0..200000000}', 's')$$) AS too_many_members;
SELECT pg_temp.run(format('SELECT %L::int4set::int4range', s)) AS range, pg_temp.run(format('SELECT %L::int4range::int4set', r)) AS set
FROM (VALUES ('{}', '[3,3)'), ('{3..9}', '(,5]'), ('{3..2147483647}', '[-2147483648,)'), ('{1,3}', '[1,3]')) t(s, r);

-- Binary form: COPY BINARY round-trips the sets; a message that is not a valid payload is refused with 22P03.
\set copyfile '/tmp/kelvarn_int4set_' :PORT '.bin'
COPY (SELECT s FROM sets) TO :'copyfile' WITH (FORMAT binary);
CREATE TEMP TABLE copied (s int4set);
COPY copied FROM :'copyfile' WITH (FORMAT binary);
SELECT (SELECT array_agg(s ORDER BY s) FROM copied) = (SELECT array_agg(s ORDER BY s) FROM sets) AS copied_equal;
CREATE TEMP TABLE received (s int4set);
-- receive(payload): the set that COPY FROM (FORMAT binary) reads from a file holding one row of that payload.
CREATE FUNCTION pg_temp.receive(payload bytea) RETURNS text LANGUAGE plpgsql AS $$
DECLARE
    file text := current_setting('int4set.copyfile');
    lo oid := lo_from_bytea(0, '\x5047434f50590aff0d0a00'::bytea || '\x00000000000000000001'::bytea
                               || int4send(length(payload)) || payload || '\xffff'::bytea);
BEGIN
    PERFORM lo_export(lo, file);
    PERFORM lo_unlink(lo);
    DELETE FROM received;
    EXECUTE format('COPY received FROM %L WITH (FORMAT binary)', file);
    RETURN (SELECT s::text FROM received);
EXCEPTION WHEN OTHERS THEN
    RETURN SQLSTATE || ': ' || SQLERRM;
END $$;
SELECT set_config('int4set.copyfile', :'copyfile', false) IS NOT NULL AS ready;
SELECT name, pg_temp.receive(p) AS received
FROM (VALUES ('a set', int4set_send('{-3..-1,5}')), ('the empty set', int4set_send('{}')),
             ('the whole line', int4set_send('{-2147483648..2147483647}')), ('unknown format', '\x09'::bytea),
             ('a range list', int4set_send('{-2147483648..-2000000000,0..300000000}')),
             ('a list where chunks are as small', '\x0201000000000000000500000005000000'),
             ('nothing', '\x'), ('no directory', '\x01ff'),
             ('cut short', substring(int4set_send('{1..100000}') FROM 1 FOR 14)),
             ('wrong cardinality', overlay(int4set_send('{1,2,3,5}') PLACING '\x05' FROM 2))) t(name, p);

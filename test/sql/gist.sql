-- GiST: every indexable operator gives the sequential scan's rows by index and index-only scans, on built and
-- inserted indexes (the soak checks them after deletes and VACUUM under load); refusals.
\i sql/include/errors.psql
\i sql/include/plans.psql
SET jit = off;  -- forced index plans cost enough to be compiled, which only slows the test

SELECT opcname, amvalidate(oid) FROM pg_opclass WHERE opcname LIKE 'qn_gist%' ORDER BY 1;

\i sql/include/hash_random.psql
-- int4 values: half dense around zero, half anywhere, and both extremes.
CREATE TABLE gi AS
SELECT i AS id, CASE WHEN i % 2 = 0 THEN (pg_temp.rnd(1, i) * 200000 - 100000)::int
                     ELSE (pg_temp.rnd(1, i) * 4294967295 - 2147483648)::bigint::int END AS v
FROM generate_series(1, 100000) i;
INSERT INTO gi VALUES (100001, -2147483648), (100002, 2147483647);
-- Packed ranges: single values to wide spans, dense around zero or anywhere, some at either extreme.
CREATE TABLE gp AS
SELECT i AS id, qn_range_pack(lo::int, least(lo + w, 2147483647)::int) AS r
FROM (SELECT i,
             CASE WHEN i % 50 = 0 THEN -2147483648
                  WHEN i % 2 = 0 THEN (pg_temp.rnd(2, i) * 2000000 - 1000000)::bigint
                  ELSE (pg_temp.rnd(2, i) * 4294967295 - 2147483648)::bigint END AS lo,
             CASE i % 4 WHEN 0 THEN 0 WHEN 1 THEN (pg_temp.rnd(3, i) * 100)::bigint
                        WHEN 2 THEN (pg_temp.rnd(3, i) * 100000)::bigint
                        ELSE (pg_temp.rnd(3, i) ^ 3 * 4294967295)::bigint END AS w
      FROM generate_series(1, 100000) i) s;

-- 30 queries: a range array, a bitfield, a packed range, a value (some on stored bounds, and the extremes).
CREATE TABLE gq AS
SELECT q AS qid,
       (SELECT int4set_agg(lo, lo + (pg_temp.rnd(5, q, k) * w)::int, 'r')
        FROM (SELECT CASE WHEN q % 3 = 0 THEN (pg_temp.rnd(4, q, k) * 4e9 - 2e9)::int
                          ELSE (pg_temp.rnd(4, q, k) * 2e5 - 1e5)::int END AS lo,
                     CASE WHEN q % 5 = 0 THEN 1e7 ELSE 300 END AS w, q, k FROM generate_series(1, 1 + q % 7) k) s) AS arr,
       (SELECT qn_int4set2bitfield_int4('r', int4set_agg(lo, lo + (pg_temp.rnd(7, q, k) * 40)::int, 'r'))
        FROM (SELECT (q * 1000 - 15000 + pg_temp.rnd(6, q, k) * 30000)::int AS lo, q, k FROM generate_series(1, 400) k) s) AS bf,
       CASE WHEN q % 6 = 0 THEN qn_range_pack(-2147483648, (pg_temp.rnd(8, q) * 1e5 - 2147483648)::int)
            WHEN q % 6 = 1 THEN qn_range_pack((2147483647 - pg_temp.rnd(8, q) * 1e6)::int, 2147483647)
            ELSE (SELECT qn_range_pack(lo, (lo + pg_temp.rnd(9, q) * w)::int)
                  FROM (SELECT (pg_temp.rnd(8, q) * 2e6 - 1e6)::int AS lo, CASE q % 3 WHEN 0 THEN 10 ELSE 2e6 END AS w, q) s) END AS pr,
       CASE WHEN q = 1 THEN -2147483648 WHEN q = 2 THEN 2147483647 WHEN q % 2 = 0 THEN (pg_temp.rnd(10, q) * 2e5 - 1e5)::int
            ELSE (SELECT CASE WHEN q % 4 = 1 THEN qn_rangepacked_lower(r) ELSE qn_rangepacked_upper(r) END
                  FROM gp WHERE id = q * 997) END AS val
FROM generate_series(1, 30) q;
-- Stored ranges equal to some query ranges, so that inclusion and containment meet equal bounds.
INSERT INTO gp SELECT -qid, pr FROM gq WHERE qid % 4 = 0;

-- check(tbl, col, op, arg): `tbl.col <op> gq.arg` by sequential scan, by the index (used?), by an index-only scan.
CREATE TYPE pg_temp.hit AS (id int, val int8);
CREATE FUNCTION pg_temp.check(tbl text, col text, op text, arg text, OUT operator text, OUT same_rows bool,
                              OUT index_used bool, OUT index_only bool, OUT queries_hit bigint) LANGUAGE plpgsql AS $$
DECLARE
    matches text := 'SELECT q.qid, ARRAY(SELECT %s FROM %I t WHERE t.%I %s q.%I ORDER BY 1) AS a FROM gq q';
    digest text := 'SELECT string_agg(qid || '':'' || a::text, '';'' ORDER BY qid), count(*) FILTER (WHERE a <> ''{}'') FROM (%s) m';
    ids text := format(matches, 't.id', tbl, col, op, arg);
    vals text := format(matches, format('t.%I', col), tbl, col, op, arg);
    scan_ids text;
    scan_vals text;
    got text;
BEGIN
    operator := format('%s.%s %s %s', tbl, col, op, arg);
    PERFORM set_config('enable_seqscan', 'on', true), set_config('enable_indexscan', 'off', true),
            set_config('enable_bitmapscan', 'off', true);
    EXECUTE 'CREATE TEMP TABLE scanned AS ' || format(matches, format('(t.id, t.%I)::pg_temp.hit', col), tbl, col, op, arg);
    EXECUTE format(digest, 'SELECT qid, ARRAY(SELECT (h).id FROM unnest(a) h ORDER BY 1) AS a FROM scanned') INTO scan_ids, queries_hit;
    EXECUTE format(digest, 'SELECT qid, ARRAY(SELECT (h).val FROM unnest(a) h ORDER BY 1) AS a FROM scanned') INTO scan_vals;
    DROP TABLE scanned;
    PERFORM set_config('enable_seqscan', 'off', true), set_config('enable_indexscan', 'on', true),
            set_config('enable_bitmapscan', 'on', true);
    index_used := pg_temp.plan_has(ids, tbl || '_' || col);
    EXECUTE format(digest, ids) INTO got;
    same_rows := got = scan_ids;
    PERFORM set_config('enable_bitmapscan', 'off', true);  -- left: an index path, index-only where it can be
    EXECUTE format(digest, vals) INTO got;
    index_only := pg_temp.plan_has(vals, 'Index Only Scan using ' || tbl || '_' || col) AND got = scan_vals;
END $$;
CREATE FUNCTION pg_temp.check_all(ti text, tp text)
RETURNS TABLE(operator text, same_rows bool, index_used bool, index_only bool, queries_hit bigint)
LANGUAGE sql AS $$
    SELECT r.* FROM (VALUES
        (ti, 'v', '<@', 'arr'), (ti, 'v', '<@', 'bf'), (ti, 'v', '<@', 'pr'),
        (tp, 'r', '&&', 'arr'), (tp, 'r', '&&', 'pr'), (tp, 'r', '<@', 'pr'), (tp, 'r', '@>', 'pr'), (tp, 'r', '@>', 'val')) x(t, c, o, a),
    LATERAL pg_temp.check(t, c, o, a) r
$$;

CREATE INDEX gi_v ON gi USING gist (v qn_gist_int4_ops);
CREATE INDEX gp_r ON gp USING gist (r qn_gist_rangepacked_ops);
SELECT * FROM pg_temp.check_all('gi', 'gp');

-- Indexes created empty and filled by inserts, splitting pages as they go.
CREATE TABLE gi2 (id int, v int4);
CREATE TABLE gp2 (id int, r int8);
CREATE INDEX gi2_v ON gi2 USING gist (v qn_gist_int4_ops);
CREATE INDEX gp2_r ON gp2 USING gist (r qn_gist_rangepacked_ops);
INSERT INTO gi2 SELECT * FROM gi ORDER BY pg_temp.rnd(11, id);
INSERT INTO gp2 SELECT * FROM gp ORDER BY pg_temp.rnd(11, id);
SELECT * FROM pg_temp.check_all('gi2', 'gp2');

-- Refused: inverted packed ranges, malformed bitfields; empty and 2-D queries match nothing (odd and unsorted arrays: below).
SET enable_seqscan = off;
SELECT q, pg_temp.run(q) AS outcome
FROM (VALUES ('INSERT INTO gp2 VALUES (0, (5::int8 << 32) | 7) RETURNING id'),
             ('SELECT count(*) FROM gi WHERE v <@ ''\x000000000100000000000000''::bytea'),
             ('SELECT count(*) FROM gi WHERE v <@ ''{}''::int4[]'), ('SELECT count(*) FROM gi WHERE v <@ ''{{1,2},{3,4}}''::int4[]'),
             ('SELECT count(*) FROM gi WHERE v <@ qn_int4set2bitfield_int4(''s'', ''{}'')'),
             ('SELECT count(*) FROM gp WHERE r && ''{}''::int4[]')) t(q);

-- Queries the operators read their own way give the sequential scan's answer, or its error, through the index: an
-- unsorted range array (`v <@` binary-searches it), an odd one for && and a malformed bitfield, which the operators
-- refuse on each row they test: where every row is deleted, neither plan raises.
CREATE TABLE gsmall AS SELECT i AS id, i AS v, qn_range_pack(i, i + 1) AS r FROM generate_series(0, 30) i;
CREATE TABLE gnone WITH (autovacuum_enabled = off) AS SELECT * FROM gsmall;
CREATE INDEX gsmall_v ON gsmall USING gist (v qn_gist_int4_ops);
CREATE INDEX gsmall_r ON gsmall USING gist (r qn_gist_rangepacked_ops);
CREATE INDEX gnone_v ON gnone USING gist (v qn_gist_int4_ops);
CREATE INDEX gnone_r ON gnone USING gist (r qn_gist_rangepacked_ops);
DELETE FROM gnone;
CREATE FUNCTION pg_temp.both_ways(q text, tbl text, OUT by_index text, OUT index_used bool, OUT as_sequential_scan bool)
LANGUAGE plpgsql AS $$
DECLARE sequential text;
BEGIN
    PERFORM set_config('enable_seqscan', 'on', true), set_config('enable_indexscan', 'off', true),
            set_config('enable_bitmapscan', 'off', true);
    sequential := pg_temp.run(q);
    PERFORM set_config('enable_seqscan', 'off', true), set_config('enable_indexscan', 'on', true),
            set_config('enable_bitmapscan', 'on', true);
    by_index := pg_temp.run(q);
    index_used := pg_temp.plan_has(q, tbl || '_');
    as_sequential_scan := by_index = sequential;
END $$;
SELECT tbl, clause, r.*
FROM (VALUES ('v <@ ''{10,20,1,2,3,5}''::int4[]'), ('v <@ ''{1,2,3}''::int4[]'), ('r && ''{1,5,10}''::int4[]'),
             ('v <@ ''\x0102''::bytea')) c(clause),
     (VALUES ('gsmall'), ('gnone')) t(tbl),
     LATERAL pg_temp.both_ways(format('SELECT string_agg(id::text, '','' ORDER BY id) FROM %s WHERE %s', tbl, clause), tbl) r
ORDER BY tbl DESC, clause;

-- Unimplemented strategies and by-value operands to pointer strategies fail cleanly.
CREATE OPERATOR CLASS misfit_strategies FOR TYPE int8 USING gist AS
    OPERATOR 1 <= (int8, int8), OPERATOR 2 >= (int8, int8), OPERATOR 4 = (int8, int8), OPERATOR 12 < (int8, int8),
    OPERATOR 17 > (int8, int8), FUNCTION 1 qn_gist_range_consistent(internal, int8, int2, oid, internal),
    FUNCTION 2 qn_gist_range_union(internal, internal), FUNCTION 3 qn_gist_range_compress_int8(internal),
    FUNCTION 5 qn_gist_range_penalty(internal, internal, internal), FUNCTION 6 qn_gist_range_picksplit(internal, internal),
    FUNCTION 7 qn_gist_range_same(int8, int8, internal);
CREATE TABLE gs AS SELECT qn_range_pack(i, i + 5) AS r FROM generate_series(1, 1000) i;
CREATE INDEX gs_r ON gs USING gist (r misfit_strategies);
SELECT op, pg_temp.try(format('SELECT count(*) FROM gs WHERE r %s 5::int8', op)) AS outcome
FROM (VALUES ('='), ('<'), ('>'), ('<='), ('>=')) t(op);

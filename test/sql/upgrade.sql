-- ALTER EXTENSION ... UPDATE from 3.3.16 keeps users' objects working and gives exactly CREATE EXTENSION's objects.
\i sql/include/plans.psql

-- The extension's objects, each with what defines it and its comment.
CREATE FUNCTION pg_temp.extension_objects() RETURNS TABLE (object text, definition text) LANGUAGE sql AS $$
    SELECT pg_describe_object(d.classid, d.objid, 0),
           concat_ws(' | ',
               (SELECT format('returns %s%s, kind %s, strict %s, volatility %s, parallel %s, rows %s, symbol %s',
                              CASE WHEN p.proretset THEN 'setof ' END, pg_get_function_result(p.oid), p.prokind,
                              p.proisstrict, p.provolatile, p.proparallel, p.prorows, p.prosrc)
                FROM pg_proc p WHERE d.classid = 'pg_proc'::regclass AND p.oid = d.objid),
               (SELECT format('aggregate %s %s %s %s %s %s %s %s', a.aggtransfn, a.aggfinalfn, a.aggfinalextra,
                              a.aggfinalmodify, a.aggcombinefn, a.aggserialfn, a.aggdeserialfn, a.aggtranstype::regtype)
                FROM pg_aggregate a WHERE d.classid = 'pg_proc'::regclass AND a.aggfnoid = d.objid),
               (SELECT format('operator %s %s %s %s %s %s', o.oprcode, o.oprresult::regtype, o.oprcom::regoperator,
                              o.oprnegate::regoperator, o.oprrest, o.oprjoin)
                FROM pg_operator o WHERE d.classid = 'pg_operator'::regclass AND o.oid = d.objid),
               (SELECT format('opclass %s %s %s', c.opcintype::regtype, c.opcdefault, c.opckeytype::regtype)
                FROM pg_opclass c WHERE d.classid = 'pg_opclass'::regclass AND c.oid = d.objid),
               (SELECT string_agg(format('op %s %s %s', m.amopstrategy, m.amopopr::regoperator, m.amoppurpose), ', '
                                  ORDER BY m.amopstrategy)
                FROM pg_amop m WHERE d.classid = 'pg_opfamily'::regclass AND m.amopfamily = d.objid),
               (SELECT string_agg(format('fn %s %s', f.amprocnum, f.amproc::regprocedure), ', '
                                  ORDER BY f.amprocnum, f.amproclefttype)
                FROM pg_amproc f WHERE d.classid = 'pg_opfamily'::regclass AND f.amprocfamily = d.objid),
               (SELECT format('cast %s %s %s', c.castfunc::regprocedure, c.castcontext, c.castmethod)
                FROM pg_cast c WHERE d.classid = 'pg_cast'::regclass AND c.oid = d.objid),
               obj_description(d.objid, d.classid::regclass::text))
    FROM pg_depend d JOIN pg_extension e ON e.oid = d.refobjid AND e.extname = 'kelvarn_range_operators'
    WHERE d.deptype = 'e' AND d.refclassid = 'pg_extension'::regclass
$$;

-- The extension as CREATE EXTENSION made it for this database.
CREATE TABLE created_objects AS SELECT * FROM pg_temp.extension_objects();

DROP EXTENSION kelvarn_range_operators;
CREATE EXTENSION kelvarn_range_operators VERSION '3.3.16';
SELECT extversion FROM pg_extension WHERE extname = 'kelvarn_range_operators';

-- A user's schema on 3.3.16: a view, a GiST index, a default and a check calling the extension.
CREATE TABLE events AS
SELECT i AS id, i % 7 AS day, (hashint4(i) % 1000) AS v FROM generate_series(1, 3000) i;
CREATE VIEW daily_sets AS SELECT day, int4set_agg(v, 'r') AS members FROM events GROUP BY day;
CREATE TABLE segments AS
SELECT i AS id, qn_range_pack(lo, lo + (hashint4(-i) % 50 + 50)) AS r
FROM (SELECT i, hashint4(i) % 100000 AS lo FROM generate_series(1, 5000) i) s;
CREATE INDEX segments_r ON segments USING gist (r qn_gist_rangepacked_ops);
CREATE TABLE spans (id int, r int8 DEFAULT qn_range_pack(0, 0) CHECK (qn_rangepacked_lower(r) <= qn_rangepacked_upper(r)));
INSERT INTO spans (id) VALUES (1);
ANALYZE segments;

-- What the user's objects answer, before and after the update.
CREATE VIEW answers AS
SELECT (SELECT string_agg(format('%s:%s', day, md5(members::text)), ' ' ORDER BY day) FROM daily_sets) AS daily,
       (SELECT string_agg(id::text, ',' ORDER BY id) FROM segments WHERE r && '{-2000,-1000,500,900}'::int4[]) AS segments;
CREATE TABLE answers_before AS SELECT * FROM answers;

ALTER EXTENSION kelvarn_range_operators UPDATE;
SELECT extversion FROM pg_extension WHERE extname = 'kelvarn_range_operators';

-- The view, the index (used), the default and the check work as before.
SET enable_seqscan = off;
SELECT pg_temp.plan_has($$SELECT id FROM segments WHERE r && '{-2000,-1000,500,900}'::int4[]$$, 'segments_r') AS index_used;
SELECT a.daily = b.daily AS same_daily_sets, a.segments = b.segments AS same_segments
FROM answers a, answers_before b;
RESET enable_seqscan;
INSERT INTO spans (id) VALUES (2);
INSERT INTO spans VALUES (3, qn_rangepacked_from_text('[5,9]'));
INSERT INTO spans VALUES (4, -4294967296);  -- [0,-1]: refused by the check
SELECT id, qn_rangepacked_to_text(r) FROM spans ORDER BY id;
SELECT count(*) FILTER (WHERE qn_rangepacked_to_int4range(r) = int4range(qn_rangepacked_lower(r), qn_rangepacked_upper(r), '[]'))
       = count(*) AS new_functions_on_old_data
FROM segments;

-- The updated extension equals a new one, object for object.
SELECT 'missing after update' AS side, * FROM (SELECT * FROM created_objects EXCEPT SELECT * FROM pg_temp.extension_objects()) m
UNION ALL
SELECT 'only after update', * FROM (SELECT * FROM pg_temp.extension_objects() EXCEPT SELECT * FROM created_objects) o;
-- The listing reads every kind of object the extension has.
SELECT p AS kind, (SELECT count(*) FROM created_objects WHERE definition LIKE p) > 0 AS listed
FROM unnest(ARRAY['returns % | aggregate %', 'returns % symbol qn\_% | %', 'operator qn\_% | %', 'opclass % | %', 'op 1% | fn 1 %']) p;

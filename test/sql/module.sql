-- The module loads into PostgreSQL 13 and declares its functions as intended.
SELECT current_setting('server_version_num')::int / 10000 AS server_major;
SELECT extname, extversion FROM pg_extension WHERE extname = 'kelvarn_range_operators';

-- Every SQL function of the extension, with its null rule, volatility and
-- parallel safety, bound to the module under its own C name.
SELECT p.oid::regprocedure AS function, p.proisstrict AS strict, p.provolatile AS volatility,
       p.proparallel AS parallel, p.prosrc = p.proname AS c_name_matches
FROM pg_proc p
JOIN pg_depend d ON d.classid = 'pg_proc'::regclass AND d.objid = p.oid AND d.deptype = 'e'
JOIN pg_extension e ON e.oid = d.refobjid AND e.extname = 'kelvarn_range_operators'
ORDER BY 1::text;

SELECT count(*) AS functions_bound_to_module
FROM pg_proc WHERE probin LIKE '%KelvarnPgRangeOperators4_0%';

-- No operator of the extension shadows the server's own operators on int4[].
SELECT count(*) AS operators_on_int4_arrays
FROM pg_operator o
JOIN pg_depend d ON d.classid = 'pg_operator'::regclass AND d.objid = o.oid AND d.deptype = 'e'
WHERE o.oprleft = 'int4[]'::regtype AND o.oprright = 'int4[]'::regtype;

-- The extension can be dropped and created again in the same session.
DROP EXTENSION kelvarn_range_operators;
CREATE EXTENSION kelvarn_range_operators;
SELECT qn_int4range_union('{1,3}', '{4,6}');

-- The module loads into a supported server and declares its functions as intended.
SELECT current_setting('server_version_num')::int / 10000 BETWEEN 13 AND 18 AS supported_major;
SELECT extname, extversion FROM pg_extension WHERE extname = 'kelvarn_range_operators';

-- Every C function of the extension, with its null rule, volatility, parallel safety and the module symbol it is bound
-- to; the multirange functions, which only servers from 14 on have, are checked in multirange.
CREATE TEMP VIEW extension_functions AS
SELECT p.*
FROM pg_proc p
JOIN pg_depend d ON d.classid = 'pg_proc'::regclass AND d.objid = p.oid AND d.deptype = 'e'
JOIN pg_extension e ON e.oid = d.refobjid AND e.extname = 'kelvarn_range_operators';

SELECT oid::regprocedure AS function, proisstrict AS strict, provolatile AS volatility,
       proparallel AS parallel, prosrc AS symbol
FROM extension_functions WHERE prokind = 'f' AND proname NOT LIKE '%multirange%'
ORDER BY oid::regprocedure::text;

-- The aggregates, their support functions, and whether they run in parallel.
SELECT oid::regprocedure AS aggregate, a.aggtransfn, a.aggfinalfn, a.aggfinalmodify AS finalmodify,
       a.aggcombinefn, a.aggserialfn, a.aggdeserialfn, proparallel AS parallel
FROM extension_functions JOIN pg_aggregate a ON a.aggfnoid = oid
ORDER BY oid::regprocedure::text;

SELECT count(DISTINCT prosrc) AS c_functions_bound_to_module
FROM pg_proc WHERE probin LIKE '%KelvarnPgRangeOperators4_0%' AND proname NOT LIKE '%multirange%';

-- No operator of the extension shadows the server's own operators on int4[].
SELECT count(*) AS operators_on_int4_arrays
FROM pg_operator o
JOIN pg_depend d ON d.classid = 'pg_operator'::regclass AND d.objid = o.oid AND d.deptype = 'e'
WHERE o.oprleft = 'int4[]'::regtype AND o.oprright = 'int4[]'::regtype;

-- The extension can be dropped and created again in the same session.
DROP EXTENSION kelvarn_range_operators;
CREATE EXTENSION kelvarn_range_operators;
SELECT qn_int4range_union('{1,3}', '{4,6}');

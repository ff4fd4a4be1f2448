-- The module loads into a supported server and declares its objects as intended.
SELECT current_setting('server_version_num')::int / 10000 BETWEEN 13 AND 18 AS supported_major;
SELECT extname, extversion FROM pg_extension WHERE extname = 'kelvarn_range_operators';
CREATE TEMP VIEW members AS SELECT d.classid, d.objid FROM pg_depend d
JOIN pg_extension e ON e.oid = d.refobjid AND e.extname = 'kelvarn_range_operators' WHERE d.deptype = 'e';

-- Every C function with its null rule, volatility, parallel safety, module symbol, planner support and cost; the
-- multirange functions, which only servers from 14 on have, are checked in rangearray_forms.
SELECT p.oid::regprocedure AS function, proisstrict AS strict, provolatile AS volatility, proparallel AS parallel,
       prosrc AS symbol, prosupport, procost
FROM pg_proc p JOIN members m ON m.objid = p.oid AND m.classid = 'pg_proc'::regclass
WHERE prokind = 'f' AND p.oid::regprocedure::text NOT LIKE '%multirange%' ORDER BY p.oid::regprocedure::text;

-- The aggregates, their support functions, and whether they run in parallel.
SELECT p.oid::regprocedure AS aggregate, a.aggtransfn, a.aggfinalfn, a.aggfinalmodify AS finalmodify,
       a.aggcombinefn, a.aggserialfn, a.aggdeserialfn, proparallel AS parallel
FROM pg_proc p JOIN members m ON m.objid = p.oid AND m.classid = 'pg_proc'::regclass JOIN pg_aggregate a ON a.aggfnoid = p.oid
ORDER BY p.oid::regprocedure::text;

-- The operators and their estimators; none on (int4[], int4[]), which would shadow the server's own.
SELECT o.oid::regoperator AS operator, o.oprrest, o.oprjoin
FROM pg_operator o JOIN members m ON m.objid = o.oid AND m.classid = 'pg_operator'::regclass ORDER BY o.oid::regoperator::text;

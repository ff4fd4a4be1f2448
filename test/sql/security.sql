-- Safe to install where other roles can create objects: a database owner plants look-alikes of every built-in
-- function and operator the install and update scripts use; a superuser then takes every install and update path,
-- and the owner installs the extension itself (it is trusted). Not one look-alike may run and the owner gains nothing.
-- Then: the functions that take internal or a serialised state refuse what a user can pass them.
SELECT current_database() AS home \gset
DROP DATABASE IF EXISTS regress_attacked;
DROP ROLE IF EXISTS regress_attacker;
CREATE ROLE regress_attacker;
CREATE DATABASE regress_attacked OWNER regress_attacker TEMPLATE template0;
\c regress_attacked
\i sql/include/errors.psql
-- The scripts as installed, and what the superuser lets the attacker read of them.
CREATE TABLE public.scripts AS
SELECT f AS file, pg_read_file(d || '/' || f) AS body
FROM (SELECT setting || '/extension' AS d FROM pg_config WHERE name = 'SHAREDIR') s, pg_ls_dir(d) f
WHERE f LIKE 'kelvarn\_range\_operators--%.sql';
GRANT SELECT ON public.scripts TO regress_attacker;
GRANT CREATE ON SCHEMA public TO regress_attacker;  -- as on PostgreSQL 13 and 14, where public is open to everyone
SET ROLE regress_attacker;  -- a role switch, not a login: the test runs under any authentication
CREATE SEQUENCE public.shadow_runs;
GRANT USAGE, SELECT, UPDATE ON SEQUENCE public.shadow_runs TO PUBLIC;
-- Each look-alike counts its runs (a sequence: the count outlives a rolled-back install) and, run by a superuser,
-- makes its owner one.
DO $plant$
DECLARE
    code text;
    fn_names text[];
    op_names text[];
    types regtype[];
    body constant text := $b$ BEGIN PERFORM pg_catalog.nextval('public.shadow_runs'::pg_catalog.regclass);
        IF (SELECT rolsuper FROM pg_catalog.pg_roles WHERE rolname OPERATOR(pg_catalog.=) current_user) THEN
            EXECUTE 'ALTER ROLE regress_attacker SUPERUSER';
        END IF; RETURN NULL; END $b$;
    sig record;
    n int := 0;
BEGIN
    -- The scripts' code, without comments and string literals.
    SELECT string_agg(regexp_replace(regexp_replace(s.body, '--[^\n]*', '', 'g'), '''([^'']|'''')*''', '''''', 'g'), E'\n')
    INTO code FROM public.scripts s;
    -- Built-in functions named, qualified or not, and operators: those named by OPERATOR(pg_catalog.x) and the
    -- comparison and arithmetic operators written bare.
    SELECT array_agg(DISTINCT m[2]) INTO fn_names
    FROM regexp_matches(code, '(^|[^a-z0-9_])([a-z_][a-z0-9_]*)\s*\(', 'g') m
    WHERE EXISTS (SELECT FROM pg_proc WHERE proname = m[2] AND pronamespace = 'pg_catalog'::regnamespace);
    SELECT array_agg(DISTINCT o) INTO op_names FROM (
        SELECT m[1] AS o FROM regexp_matches(code, 'OPERATOR\(pg_catalog\.([^)]+)\)', 'g') m
        UNION
        SELECT m[1] FROM regexp_matches(code, '\s(=|<>|<=|>=|<|>|%|\+|-|\*|/|\|\|)\s', 'g') m) ops;
    -- The types a look-alike takes: those the scripts name, those of the catalog columns they read, their arrays.
    SELECT array_agg(DISTINCT t) INTO types FROM (
        SELECT to_regtype(m[1]) AS t FROM regexp_matches(code, 'pg_catalog\.("?[a-z0-9_]+"?)', 'g') m
        UNION SELECT a.atttypid::regtype FROM regexp_matches(code, 'pg_catalog\.(pg_[a-z_]+)', 'g') m
            JOIN pg_attribute a ON a.attrelid = to_regclass('pg_catalog.' || m[1]) AND a.attnum > 0
        UNION SELECT ty.typarray::regtype FROM regexp_matches(code, 'pg_catalog\.("?[a-z0-9_]+"?)', 'g') m
            JOIN pg_type ty ON ty.oid = to_regtype(m[1]) AND ty.typarray <> 0) c
    WHERE t IS NOT NULL AND (SELECT typtype NOT IN ('p') FROM pg_type WHERE oid = t);
    -- For a built-in taking T: any listed type that reaches T by an implicit cast, or that a polymorphic T accepts;
    -- a look-alike of exactly those types is a better match than the built-in.
    CREATE TEMP TABLE stand_ins AS
    SELECT p.oid AS typ, s.t FROM pg_type p, unnest(types) s(t) JOIN pg_type st ON st.oid = s.t
    WHERE p.oid = s.t
       OR EXISTS (SELECT FROM pg_cast c WHERE c.castsource = s.t AND c.casttarget = p.oid AND c.castcontext = 'i')
       OR (p.typname IN ('anyelement', 'anycompatible', 'anynonarray') AND st.typcategory <> 'A')
       OR (p.typname IN ('anyarray', 'anycompatiblearray') AND st.typcategory = 'A');
    CREATE TEMP TABLE planted (kind text, name text, args regtype[], ret regtype);
    INSERT INTO planted
    WITH RECURSIVE builtins AS (
        SELECT oid, proname, pronargs, proargtypes, prorettype FROM pg_proc
        WHERE proname = ANY (fn_names) AND pronamespace = 'pg_catalog'::regnamespace AND pronargs BETWEEN 1 AND 3
          AND NOT proretset AND prokind = 'f'
    ), combos(oid, i, args) AS (
        SELECT oid, 0, ARRAY[]::regtype[] FROM builtins
        UNION ALL
        SELECT c.oid, c.i + 1, c.args || s.t::regtype
        FROM combos c JOIN builtins b ON b.oid = c.oid JOIN stand_ins s ON s.typ = b.proargtypes[c.i]
        WHERE c.i < b.pronargs
    )
    SELECT DISTINCT ON (b.proname, c.args) 'function', b.proname, c.args,
           CASE WHEN rt.typtype <> 'p' THEN b.prorettype::regtype
                ELSE (SELECT c.args[k + 1] FROM generate_series(0, b.pronargs - 1) k
                      WHERE b.proargtypes[k] = b.prorettype LIMIT 1) END
    FROM combos c JOIN builtins b ON b.oid = c.oid AND c.i = b.pronargs JOIN pg_type rt ON rt.oid = b.prorettype
    WHERE NOT EXISTS (SELECT FROM pg_proc q WHERE q.proname = b.proname AND q.pronamespace = 'pg_catalog'::regnamespace
                                             AND q.proargtypes::oid[] = c.args::oid[]);
    INSERT INTO planted
    SELECT DISTINCT ON (o.oprname, l.t, r.t) 'operator', o.oprname, ARRAY[l.t, r.t]::regtype[], o.oprresult::regtype
    FROM pg_operator o JOIN stand_ins l ON l.typ = o.oprleft JOIN stand_ins r ON r.typ = o.oprright
    WHERE o.oprname = ANY (op_names) AND o.oprnamespace = 'pg_catalog'::regnamespace AND o.oprkind = 'b'
      AND NOT EXISTS (SELECT FROM pg_operator q WHERE q.oprname = o.oprname AND q.oprnamespace = 'pg_catalog'::regnamespace
                                                  AND q.oprleft = l.t AND q.oprright = r.t);
    DELETE FROM planted WHERE ret IS NULL OR (SELECT typtype = 'p' FROM pg_type WHERE oid = ret);
    FOR sig IN SELECT * FROM planted LOOP
        n := n + 1;
        IF sig.kind = 'function' THEN
            EXECUTE format('CREATE FUNCTION public.%I(%s) RETURNS %s LANGUAGE plpgsql AS %L',
                           sig.name, array_to_string(sig.args, ', '), sig.ret, body);
        ELSE
            EXECUTE format('CREATE FUNCTION public.look_alike_%s(%s) RETURNS %s LANGUAGE plpgsql AS %L',
                           n, array_to_string(sig.args, ', '), sig.ret, body);
            EXECUTE format('CREATE OPERATOR public.%s (LEFTARG = %s, RIGHTARG = %s, FUNCTION = public.look_alike_%s)',
                           sig.name, sig.args[1], sig.args[2], n);
        END IF;
    END LOOP;
    CREATE TABLE public.planted AS SELECT * FROM planted;
END
$plant$;
SET search_path = pg_catalog, pg_temp;  -- this session's own queries read nothing planted
-- Among them, the two that took over earlier scripts: the domain's cardinality and the catalog update's =.
SELECT count(*) FILTER (WHERE kind = 'function' AND name = 'cardinality' AND args = '{int4[]}') AS cardinality_int4_array,
       count(*) FILTER (WHERE kind = 'operator' AND name = '=' AND args = '{regproc,regprocedure}') AS eq_regproc_regprocedure,
       count(DISTINCT name) >= 8 AS several_names
FROM public.planted;

-- The superuser takes every path: a new install of each version, updated to the newest.
RESET ROLE;
RESET search_path;
SELECT version AS start, pg_temp.try(format('CREATE EXTENSION kelvarn_range_operators VERSION %L', version)) AS install,
       pg_temp.try('ALTER EXTENSION kelvarn_range_operators UPDATE') AS "update",
       pg_temp.try('DROP EXTENSION kelvarn_range_operators') AS "drop"
FROM pg_available_extension_versions WHERE name = 'kelvarn_range_operators' ORDER BY string_to_array(version, '.')::int[];
SET ROLE regress_attacker;
-- The database owner installs it without being a superuser.
CREATE EXTENSION kelvarn_range_operators;
SELECT pg_catalog.nextval('public.shadow_runs') AS shadow_runs_plus_one,
       (SELECT rolsuper FROM pg_catalog.pg_roles WHERE rolname = 'regress_attacker') AS attacker_is_superuser;
-- A superuser uses the domain under either search path: the check calls nothing of the attacker's.
RESET ROLE;
SET search_path = pg_catalog;
SELECT '{1,5,7,9}'::public.qn_rangearray AS accepted, pg_temp.try('SELECT ''{5,1}''::public.qn_rangearray') AS refused;
SET search_path = public;
SELECT '{-2147483648,0}'::qn_rangearray AS accepted, pg_temp.try('SELECT ''{1,2,3}''::qn_rangearray') AS refused;
SELECT pg_catalog.nextval('public.shadow_runs') AS shadow_runs_plus_two;
RESET search_path;

\c :home
\set ECHO none
\i sql/include/errors.psql
\set ECHO all
DROP DATABASE regress_attacked WITH (FORCE);
-- Every function that takes internal, called as any role can call it: NULL for internal, a forged state for bytea,
-- plain values for the rest. The server refuses every such call: a NULL of type internal (up to 17) or a call that
-- names no function (18, which no longer resolves NULL to internal). Any other outcome is listed.
SET ROLE regress_attacker;
SELECT regexp_replace(pg_temp.run(format('SELECT %s(%s) IS NULL', p.oid::regproc, (
           SELECT string_agg(CASE a.t WHEN 'internal'::regtype THEN 'NULL' WHEN 'bytea'::regtype THEN '''\x0103ffffff7f0000008000''::bytea'
                                      WHEN '"char"'::regtype THEN '''r''::"char"' WHEN 'int4[]'::regtype THEN '''{1,2}''::int4[]'
                                      WHEN 'anyelement'::regtype THEN '1' WHEN 'int4set'::regtype THEN '''{1}''::int4set'
                                      ELSE format('1::%s', a.t) END, ', ' ORDER BY a.i)
           FROM unnest(p.proargtypes::regtype[]) WITH ORDINALITY a(t, i)))),
                      '^(0A000: cannot accept a value of type internal|42883: function .* does not exist)$',
                      'refused by the server') AS outcome, count(*) AS functions
FROM pg_proc p JOIN pg_depend d ON d.classid = 'pg_proc'::regclass AND d.objid = p.oid AND d.deptype = 'e'
JOIN pg_extension e ON e.oid = d.refobjid AND e.extname = 'kelvarn_range_operators'
WHERE 'internal'::regtype = ANY (p.proargtypes::regtype[]) AND p.prokind = 'f'
GROUP BY 1;
RESET ROLE;
DROP ROLE regress_attacker;

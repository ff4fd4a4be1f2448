-- complain if script is sourced in psql, rather than via ALTER EXTENSION
\echo Use "ALTER EXTENSION kelvarn_range_operators UPDATE TO '3.4.0'" to load this file. \quit

-- 3.3.16 to 3.4.0. A new database gets 3.4.0 by running the 3.3.16 script and
-- then this one, so an upgraded database and a new one hold the same objects.
-- Everything here keeps the objects that users' views, indexes and columns
-- depend on: objects are altered in place, never dropped and recreated.

-- aggregates: final functions that only read their state
--
-- The final functions of the four aggregates no longer free their state: the
-- server may finalise one state several times (a hash table kept across rescans
-- of a subquery, grouping sets, a window frame that grows row by row), and a
-- window aggregate goes on adding rows after each final call. They are now
-- READ_ONLY, which also makes the aggregates usable as running window
-- aggregates. PostgreSQL has no ALTER AGGREGATE for this property, and dropping
-- the aggregates would drop the users' views over them, so the catalog row is
-- updated in place (the extension script runs as superuser).

UPDATE pg_catalog.pg_aggregate SET aggfinalmodify = 'r'
WHERE aggfnoid IN ('int4range_op_agg(int4, int4[])'::regprocedure,
                   'int4set_agg(int4, "char")'::regprocedure,
                   'int4set_agg(int4, int4, "char")'::regprocedure,
                   'int4set_agg("char", int4[], "char")'::regprocedure,
                   'int4set_agg_optimized(int4, int4, "char")'::regprocedure,
                   'int4set_agg_optimized(int4, int4, int4, "char")'::regprocedure,
                   'int4set_agg_optimized("char", int4[], int4, "char")'::regprocedure,
                   'agg_keep_single(anyelement)'::regprocedure,
                   'agg_keep_single(anyelement, bool)'::regprocedure);

COMMENT ON FUNCTION qn_int4range_op_finalfn(internal) IS
    'final function of int4range_op_agg: closes the groups still open and returns the range array; only reads the state';
COMMENT ON FUNCTION qn_int4set_agg_finalfn(internal) IS
    'final function of int4set_agg: the set in the output form; only reads the state';
COMMENT ON FUNCTION qn_int4set_agg_optimized_finalfn(internal) IS
    'final function of int4set_agg_optimized: the set in the output form; only reads the state';
COMMENT ON FUNCTION qn_agg_keep_single_finalfn(internal, anyelement) IS
    'final function of agg_keep_single(value): the kept value or NULL; only reads the state';
COMMENT ON FUNCTION qn_agg_keep_single_finalfn(internal, anyelement, bool) IS
    'final function of agg_keep_single(value, policy): the kept value or NULL; only reads the state';
COMMENT ON FUNCTION qn_int4set_agg_deserialfn(bytea, internal) IS
    'deserial function of int4set_agg: a partial state from its bytea form, including one that saw rows without members';

-- GiST: index-only scans
--
-- Both operator classes give the indexed value back from a leaf key ([v; v] for
-- an int4 value, the packed range itself for an int8 column), so a query that
-- needs only the indexed column is answered from the index alone, without
-- visiting the table's pages that the visibility map shows all-visible.

CREATE FUNCTION qn_gist_range_fetch_int4(internal) RETURNS internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gist_range_fetch_int4(internal) IS
    'GiST fetch for int4 columns: the value v of the leaf key [v; v]';

CREATE FUNCTION qn_gist_range_fetch_int8(internal) RETURNS internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gist_range_fetch_int8(internal) IS
    'GiST fetch for packed-range columns: the leaf key is the packed range itself';

ALTER OPERATOR FAMILY qn_gist_int4_ops USING gist ADD
    FUNCTION 9 (int4, int4) qn_gist_range_fetch_int4(internal);
ALTER OPERATOR FAMILY qn_gist_rangepacked_ops USING gist ADD
    FUNCTION 9 (int8, int8) qn_gist_range_fetch_int8(internal);

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
-- updated in place (the extension script runs as superuser). The statement runs
-- with the search path pinned to pg_catalog, so that no object of the target
-- schema can stand in for a built-in one, and names the aggregates by schema.

DO $finalmodify$
DECLARE
    caller_path pg_catalog.text := pg_catalog.current_setting('search_path');
BEGIN
    PERFORM pg_catalog.set_config('search_path', 'pg_catalog, pg_temp', true);
    UPDATE pg_catalog.pg_aggregate SET aggfinalmodify = 'r'
    WHERE aggfnoid::pg_catalog.oid OPERATOR(pg_catalog.=) ANY (ARRAY[
        '@extschema@.int4range_op_agg(pg_catalog.int4, pg_catalog.int4[])',
        '@extschema@.int4set_agg(pg_catalog.int4, pg_catalog."char")',
        '@extschema@.int4set_agg(pg_catalog.int4, pg_catalog.int4, pg_catalog."char")',
        '@extschema@.int4set_agg(pg_catalog."char", pg_catalog.int4[], pg_catalog."char")',
        '@extschema@.int4set_agg_optimized(pg_catalog.int4, pg_catalog.int4, pg_catalog."char")',
        '@extschema@.int4set_agg_optimized(pg_catalog.int4, pg_catalog.int4, pg_catalog.int4, pg_catalog."char")',
        '@extschema@.int4set_agg_optimized(pg_catalog."char", pg_catalog.int4[], pg_catalog.int4, pg_catalog."char")',
        '@extschema@.agg_keep_single(pg_catalog.anyelement)',
        '@extschema@.agg_keep_single(pg_catalog.anyelement, pg_catalog.bool)'
    ]::pg_catalog.regprocedure[]::pg_catalog.oid[]);
    PERFORM pg_catalog.set_config('search_path', caller_path, true);
END
$finalmodify$;

COMMENT ON FUNCTION qn_int4range_op_finalfn(pg_catalog.internal) IS
    'final function of int4range_op_agg: closes the groups still open and returns the range array; only reads the state';
COMMENT ON FUNCTION qn_int4set_agg_finalfn(pg_catalog.internal) IS
    'final function of int4set_agg: the set in the output form; only reads the state';
COMMENT ON FUNCTION qn_int4set_agg_optimized_finalfn(pg_catalog.internal) IS
    'final function of int4set_agg_optimized: the set in the output form; only reads the state';
COMMENT ON FUNCTION qn_agg_keep_single_finalfn(pg_catalog.internal, pg_catalog.anyelement) IS
    'final function of agg_keep_single(value): the kept value or NULL; only reads the state';
COMMENT ON FUNCTION qn_agg_keep_single_finalfn(pg_catalog.internal, pg_catalog.anyelement, pg_catalog.bool) IS
    'final function of agg_keep_single(value, policy): the kept value or NULL; only reads the state';
COMMENT ON FUNCTION qn_int4set_agg_deserialfn(pg_catalog.bytea, pg_catalog.internal) IS
    'deserial function of int4set_agg: a partial state from its bytea form, including one that saw rows without members';

-- core range types: int4range
--
-- PostgreSQL's own int4range in and out of packed ranges and range arrays. A
-- closed range [lower, upper] is the int4range '[lower,upper+1)'; the int4
-- extremes -2147483648 and 2147483647 stand for an unbounded end, both ways.

CREATE FUNCTION qn_rangepacked_from_int4range(pg_catalog.int4range) RETURNS pg_catalog.int8
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_rangepacked_from_int4range(pg_catalog.int4range) IS
    'packed range of a non-empty int4range; an unbounded end becomes -2147483648 or 2147483647';

CREATE FUNCTION qn_rangepacked_to_int4range(pg_catalog.int8) RETURNS pg_catalog.int4range
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_rangepacked_to_int4range(pg_catalog.int8) IS
    'int4range of a packed range; a bound at -2147483648 or 2147483647 becomes an unbounded end';

CREATE FUNCTION qn_rangearray_from_int4ranges(pg_catalog.int4range[]) RETURNS pg_catalog.int4[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_rangearray_from_int4ranges(pg_catalog.int4range[]) IS
    'normalised range array of the int4ranges of an array of any shape and order; NULL elements and empty ranges add nothing';

CREATE FUNCTION qn_rangearray_to_int4ranges(pg_catalog.int4[]) RETURNS pg_catalog.int4range[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_rangearray_to_int4ranges(pg_catalog.int4[]) IS
    'one int4range per pair of the range array, in pair order; a pair with lower > upper gives the empty range';

-- range arrays as rows
--
-- Set-returning functions that make one row per call, in constant memory, and
-- are cancellable, whatever the number of rows. They stream only in the select
-- list: in FROM the server stores every row before it reads the first. Pairs
-- come in array order as they are; normalise the array first for a sorted set
-- without repeats.

CREATE FUNCTION qn_rangearray_unnest(pg_catalog.int4[]) RETURNS TABLE (lower pg_catalog.int4, upper pg_catalog.int4)
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_rangearray_unnest(pg_catalog.int4[]) IS
    'the pairs of a range array as (lower, upper) rows, in array order';

CREATE FUNCTION qn_rangearray_members(pg_catalog.int4[]) RETURNS SETOF pg_catalog.int4
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_rangearray_members(pg_catalog.int4[]) IS
    'every integer of every pair of a range array, pair by pair; pairs with lower > upper add nothing';

-- packed ranges as text

CREATE FUNCTION qn_rangepacked_to_text(pg_catalog.int8) RETURNS pg_catalog.text
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_rangepacked_to_text(pg_catalog.int8) IS
    'packed range as the text [lower,upper], bounds as stored';

CREATE FUNCTION qn_rangepacked_from_text(pg_catalog.text) RETURNS pg_catalog.int8
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_rangepacked_from_text(pg_catalog.text) IS
    'packed range of the text [lower,upper]; upper must not be below lower';

-- normalising range arrays
--
-- Read as plain sets of integers: any order, overlaps and inverted pairs (which
-- hold nothing) are allowed. A normalised input costs one linear pass.

CREATE FUNCTION qn_rangearray_normalise(pg_catalog.int4[]) RETURNS pg_catalog.int4[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_rangearray_normalise(pg_catalog.int4[]) IS
    'the normalised range array of the same integers: sorted, inverted pairs dropped, overlapping and adjacent ranges merged';

CREATE FUNCTION qn_rangearray_is_normalised(pg_catalog.int4[]) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_rangearray_is_normalised(pg_catalog.int4[]) IS
    'true when the range array is ascending, lower <= upper in each pair, and its ranges neither overlap nor touch';

CREATE FUNCTION qn_rangearray_is_empty(pg_catalog.int4[]) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_rangearray_is_empty(pg_catalog.int4[]) IS
    'true when the range array holds no integer; both forms of {} are empty';

CREATE FUNCTION qn_rangearray_equal(pg_catalog.int4[], pg_catalog.int4[]) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_rangearray_equal(pg_catalog.int4[], pg_catalog.int4[]) IS
    'true when the two range arrays hold the same integers, whatever their order, overlaps or form of {}';

-- core range types: int4multirange (PostgreSQL 14 and later)
--
-- int4multirange exists from PostgreSQL 14 on: these functions and casts are
-- created only there, as is their code in the module. pg_upgrade from 13 keeps
-- the extension's objects as they were, without these: there, drop and create
-- the extension again to have them.

DO $multirange$
BEGIN
    IF pg_catalog.current_setting('server_version_num')::pg_catalog.int4 OPERATOR(pg_catalog.<) 140000 THEN
        RETURN;
    END IF;

    EXECUTE $sql$
    CREATE FUNCTION qn_rangearray_from_int4multirange(pg_catalog.int4multirange) RETURNS pg_catalog.int4[]
        AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE $sql$;
    EXECUTE $sql$
    COMMENT ON FUNCTION qn_rangearray_from_int4multirange(pg_catalog.int4multirange) IS
        'range array of an int4multirange; an unbounded end becomes -2147483648 or 2147483647' $sql$;

    EXECUTE $sql$
    CREATE FUNCTION qn_rangearray_to_int4multirange(pg_catalog.int4[]) RETURNS pg_catalog.int4multirange
        AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE $sql$;
    EXECUTE $sql$
    COMMENT ON FUNCTION qn_rangearray_to_int4multirange(pg_catalog.int4[]) IS
        'int4multirange of a range array of any order; pairs with lower > upper add nothing' $sql$;

    EXECUTE $sql$
    CREATE CAST (pg_catalog.int4multirange AS pg_catalog.int4[]) WITH FUNCTION qn_rangearray_from_int4multirange(pg_catalog.int4multirange) $sql$;
    EXECUTE $sql$
    COMMENT ON CAST (pg_catalog.int4multirange AS pg_catalog.int4[]) IS 'the range array of the multirange' $sql$;

    EXECUTE $sql$
    CREATE CAST (pg_catalog.int4[] AS pg_catalog.int4multirange) WITH FUNCTION qn_rangearray_to_int4multirange(pg_catalog.int4[]) $sql$;
    EXECUTE $sql$
    COMMENT ON CAST (pg_catalog.int4[] AS pg_catalog.int4multirange) IS 'the multirange of the range array' $sql$;
END
$multirange$;

-- query planning
--
-- The operators' selectivity comes from the columns' statistics (most common
-- values and histogram), for a constant operand and for joins, instead of fixed
-- fractions. The test functions behind the operators get a support function:
-- the planner answers a call on an indexed column with the GiST index and
-- estimates it as the operator. The tests over range arrays and bitfields cost
-- more than a comparison. The estimators and the support function take
-- internal and cannot be called with user data.

CREATE FUNCTION qn_range_sel(pg_catalog.internal, pg_catalog.oid, pg_catalog.internal, pg_catalog.int4) RETURNS pg_catalog.float8
    AS 'MODULE_PATHNAME' LANGUAGE C STABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_range_sel(pg_catalog.internal, pg_catalog.oid, pg_catalog.internal, pg_catalog.int4) IS
    'restriction selectivity of the membership and overlap operators, from the column''s statistics';

CREATE FUNCTION qn_range_joinsel(pg_catalog.internal, pg_catalog.oid, pg_catalog.internal, pg_catalog.int2, pg_catalog.internal) RETURNS pg_catalog.float8
    AS 'MODULE_PATHNAME' LANGUAGE C STABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_range_joinsel(pg_catalog.internal, pg_catalog.oid, pg_catalog.internal, pg_catalog.int2, pg_catalog.internal) IS
    'join selectivity of the membership and overlap operators, from the statistics of both columns';

CREATE FUNCTION qn_range_support(pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_range_support(pg_catalog.internal) IS
    'planner support of the membership and overlap tests: index conditions and selectivity of their calls';

ALTER OPERATOR <@ (pg_catalog.int4, pg_catalog.int4[]) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);
ALTER OPERATOR <@ (pg_catalog.int4, pg_catalog.bytea) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);
ALTER OPERATOR <@ (pg_catalog.int4, pg_catalog.int8) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);
ALTER OPERATOR @> (pg_catalog.int8, pg_catalog.int4) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);
ALTER OPERATOR && (pg_catalog.int8, pg_catalog.int4[]) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);
ALTER OPERATOR && (pg_catalog.int8, pg_catalog.int8) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);
ALTER OPERATOR <@ (pg_catalog.int8, pg_catalog.int8) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);
ALTER OPERATOR @> (pg_catalog.int8, pg_catalog.int8) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);

ALTER FUNCTION qn_int4_in_rangearray(pg_catalog.int4, pg_catalog.int4[]) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4_in_rangebitfield(pg_catalog.int4, pg_catalog.bytea) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4_in_packedrange(pg_catalog.int4, pg_catalog.int8) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4rangepacked_contains_int4(pg_catalog.int8, pg_catalog.int4) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4rangepacked_contains_int4(pg_catalog.int8, pg_catalog.int4, pg_catalog.int8) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4rangepacked_in_rangearray(pg_catalog.int8, pg_catalog.int4[]) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4rangepacked_in_int4rangepacked(pg_catalog.int8, pg_catalog.int8) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4rangepacked_included_in_int4rangepacked(pg_catalog.int8, pg_catalog.int8) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4rangepacked_contains_int4rangepacked(pg_catalog.int8, pg_catalog.int8) SUPPORT qn_range_support;

ALTER FUNCTION qn_int4_in_rangearray(pg_catalog.int4, pg_catalog.int4[]) COST 5;
ALTER FUNCTION qn_int4range_overlap_rangearray(pg_catalog.int4[], pg_catalog.int4[]) COST 5;
ALTER FUNCTION qn_int4rangepacked_in_rangearray(pg_catalog.int8, pg_catalog.int4[]) COST 5;
ALTER FUNCTION qn_int4_in_rangebitfield(pg_catalog.int4, pg_catalog.bytea) COST 5;
ALTER FUNCTION qn_int4rangepacked_in_rangebitfield(pg_catalog.int8, pg_catalog.bytea) COST 5;
ALTER FUNCTION qn_int4set_overlap_bitfield(pg_catalog."char", pg_catalog.int4[], pg_catalog.bytea) COST 5;
ALTER FUNCTION qn_int4set_included_in_bitfield(pg_catalog."char", pg_catalog.int4[], pg_catalog.bytea) COST 5;

-- GiST: index-only scans
--
-- Both operator classes give the indexed value back from a leaf key ([v; v] for
-- an int4 value, the packed range itself for an int8 column), so a query that
-- needs only the indexed column is answered from the index alone, without
-- visiting the table's pages that the visibility map shows all-visible.

CREATE FUNCTION qn_gist_range_fetch_int4(pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gist_range_fetch_int4(pg_catalog.internal) IS
    'GiST fetch for int4 columns: the value v of the leaf key [v; v]';

CREATE FUNCTION qn_gist_range_fetch_int8(pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gist_range_fetch_int8(pg_catalog.internal) IS
    'GiST fetch for packed-range columns: the leaf key is the packed range itself';

ALTER OPERATOR FAMILY qn_gist_int4_ops USING gist ADD
    FUNCTION 9 (pg_catalog.int4, pg_catalog.int4) qn_gist_range_fetch_int4(pg_catalog.internal);
ALTER OPERATOR FAMILY qn_gist_rangepacked_ops USING gist ADD
    FUNCTION 9 (pg_catalog.int8, pg_catalog.int8) qn_gist_range_fetch_int8(pg_catalog.internal);

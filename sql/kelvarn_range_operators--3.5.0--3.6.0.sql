-- complain if script is sourced in psql, rather than via ALTER EXTENSION
\echo Use "ALTER EXTENSION kelvarn_range_operators UPDATE TO '3.6.0'" to load this file. \quit

-- 3.5.0 to 3.6.0. A new database runs the 3.3.16 script and each update script
-- after it, so an updated database and a new one hold the same objects.
--
-- Every script of the extension names built-in functions, operators and types
-- by pg_catalog and its own objects in expressions by @extschema@, so no object
-- that another role put in the target schema can stand in for them: the
-- extension is trusted, and a role with CREATE on the database may install it.

-- checked range arrays: a constraint that depends on nothing but built-ins
--
-- A database that ran the 3.5.0 script of earlier releases bound the check of
-- qn_rangearray to whatever cardinality, array_ndims and array_position its
-- search path found first, possibly another role's functions. The constraint is
-- made anew, with every name qualified; ADD CONSTRAINT checks the columns of
-- the domain again, which hold only values the old check accepted.

ALTER DOMAIN @extschema@.qn_rangearray DROP CONSTRAINT qn_rangearray_normalised;
ALTER DOMAIN @extschema@.qn_rangearray ADD CONSTRAINT qn_rangearray_normalised CHECK (
    pg_catalog.cardinality(VALUE) OPERATOR(pg_catalog.=) 0
    OR (pg_catalog.array_ndims(VALUE) OPERATOR(pg_catalog.=) 1
        AND pg_catalog.array_position(VALUE, NULL) IS NULL
        AND (pg_catalog.cardinality(VALUE) OPERATOR(pg_catalog.%) 2) OPERATOR(pg_catalog.=) 0
        AND @extschema@.qn_rangearray_is_normalised(VALUE)));

-- ~&& between two range arrays has a commutator of its own
--
-- qn_int4range_is_overlap walks its two lists in different roles, so on lists
-- that are not normalised (inverted pairs) a ~&& b and b ~&& a can differ; ~&&
-- was declared its own commutator, and the planner, trusting that, dropped rows
-- through partial indexes and constraint exclusion. Its commutator is now &&~,
-- which is ~&& with the operands swapped: `a ~&& column` still becomes an index
-- condition, `column &&~ a`, rechecked with the operands in their own order.
-- PostgreSQL before 17 cannot change a commutator with ALTER OPERATOR, and
-- dropping ~&& would drop the operator class and the users' indexes, so its
-- catalog row is changed in place, under a pinned search path.

CREATE FUNCTION qn_int4range_is_overlap_commuted(pg_catalog.int4[], pg_catalog.int4[]) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4range_is_overlap_commuted(pg_catalog.int4[], pg_catalog.int4[]) IS
    'qn_int4range_is_overlap with the arguments swapped: true when the second range array shares a member with the first';

DO $commutator$
DECLARE
    caller_path pg_catalog.text := pg_catalog.current_setting('search_path');
BEGIN
    PERFORM pg_catalog.set_config('search_path', 'pg_catalog, pg_temp', true);
    UPDATE pg_catalog.pg_operator SET oprcom = 0
    WHERE oid OPERATOR(pg_catalog.=)
          '@extschema@.~&&(pg_catalog.int4[], pg_catalog.int4[])'::pg_catalog.regoperator::pg_catalog.oid;
    PERFORM pg_catalog.set_config('search_path', caller_path, true);
END
$commutator$;

CREATE OPERATOR &&~ (
    LEFTARG = pg_catalog.int4[], RIGHTARG = pg_catalog.int4[], FUNCTION = qn_int4range_is_overlap_commuted,
    COMMUTATOR = ~&&, RESTRICT = qn_range_sel, JOIN = qn_range_joinsel
);
COMMENT ON OPERATOR &&~ (pg_catalog.int4[], pg_catalog.int4[]) IS
    'a &&~ b is b ~&& a: the commutator of ~&&, so that `a ~&& column` can use a GIN index';

ALTER OPERATOR FAMILY qn_gin_rangearray_ops USING gin ADD
    OPERATOR 6 &&~ (pg_catalog.int4[], pg_catalog.int4[]);

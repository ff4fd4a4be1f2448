-- complain if script is sourced in psql, rather than via ALTER EXTENSION
\echo Use "ALTER EXTENSION kelvarn_range_operators UPDATE TO '3.4.0'" to load this file. \quit

-- 3.3.16 to 3.4.0. A new database gets 3.4.0 by running the 3.3.16 script and
-- then this one, so an upgraded database and a new one hold the same objects.
-- Everything here keeps the objects that users' views, indexes and columns
-- depend on: objects are altered in place, never dropped and recreated.

-- query planning
--
-- The operators' selectivity comes from the columns' statistics (most common
-- values and histogram), for a constant operand and for joins, instead of fixed
-- fractions. The test functions behind the operators get a support function:
-- the planner answers a call on an indexed column with the GiST index and
-- estimates it as the operator. The tests over range arrays and bitfields cost
-- more than a comparison. The estimators and the support function take
-- internal and cannot be called with user data.

CREATE FUNCTION qn_range_sel(internal, oid, internal, int4) RETURNS float8
    AS 'MODULE_PATHNAME' LANGUAGE C STABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_range_sel(internal, oid, internal, int4) IS
    'restriction selectivity of the membership and overlap operators, from the column''s statistics';

CREATE FUNCTION qn_range_joinsel(internal, oid, internal, int2, internal) RETURNS float8
    AS 'MODULE_PATHNAME' LANGUAGE C STABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_range_joinsel(internal, oid, internal, int2, internal) IS
    'join selectivity of the membership and overlap operators, from the statistics of both columns';

CREATE FUNCTION qn_range_support(internal) RETURNS internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_range_support(internal) IS
    'planner support of the membership and overlap tests: index conditions and selectivity of their calls';

ALTER OPERATOR <@ (int4, int4[]) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);
ALTER OPERATOR <@ (int4, bytea) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);
ALTER OPERATOR <@ (int4, int8) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);
ALTER OPERATOR @> (int8, int4) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);
ALTER OPERATOR && (int8, int4[]) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);
ALTER OPERATOR && (int8, int8) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);
ALTER OPERATOR <@ (int8, int8) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);
ALTER OPERATOR @> (int8, int8) SET (RESTRICT = qn_range_sel, JOIN = qn_range_joinsel);

ALTER FUNCTION qn_int4_in_rangearray(int4, int4[]) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4_in_rangebitfield(int4, bytea) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4_in_packedrange(int4, int8) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4rangepacked_contains_int4(int8, int4) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4rangepacked_contains_int4(int8, int4, int8) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4rangepacked_in_rangearray(int8, int4[]) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4rangepacked_in_int4rangepacked(int8, int8) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4rangepacked_included_in_int4rangepacked(int8, int8) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4rangepacked_contains_int4rangepacked(int8, int8) SUPPORT qn_range_support;

ALTER FUNCTION qn_int4_in_rangearray(int4, int4[]) COST 5;
ALTER FUNCTION qn_int4range_overlap_rangearray(int4[], int4[]) COST 5;
ALTER FUNCTION qn_int4rangepacked_in_rangearray(int8, int4[]) COST 5;
ALTER FUNCTION qn_int4_in_rangebitfield(int4, bytea) COST 5;
ALTER FUNCTION qn_int4rangepacked_in_rangebitfield(int8, bytea) COST 5;
ALTER FUNCTION qn_int4set_overlap_bitfield("char", int4[], bytea) COST 5;
ALTER FUNCTION qn_int4set_included_in_bitfield("char", int4[], bytea) COST 5;

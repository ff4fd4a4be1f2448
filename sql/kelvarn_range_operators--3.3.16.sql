-- complain if script is sourced in psql, rather than via CREATE EXTENSION
\echo Use "CREATE EXTENSION kelvarn_range_operators" to load this file. \quit

-- range array set algebra
--
-- A range array is an int4[] of [lower, upper] pairs, ascending, disjoint and
-- non-adjacent. These functions read their own null flags (they are not STRICT):
-- union with one NULL side returns the other side as it is, exclusion with a NULL
-- right side returns the left side; every other NULL gives NULL.

CREATE FUNCTION qn_int4range_union(pg_catalog.int4[], pg_catalog.int4[]) RETURNS pg_catalog.int4[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4range_union(pg_catalog.int4[], pg_catalog.int4[]) IS
    'union of two range arrays; NULL only when both are NULL, otherwise a NULL side yields the other side unchanged';

CREATE FUNCTION qn_int4range_intersection(pg_catalog.int4[], pg_catalog.int4[]) RETURNS pg_catalog.int4[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4range_intersection(pg_catalog.int4[], pg_catalog.int4[]) IS
    'intersection of two range arrays; NULL when either is NULL';

CREATE FUNCTION qn_int4range_exclusion(pg_catalog.int4[], pg_catalog.int4[]) RETURNS pg_catalog.int4[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4range_exclusion(pg_catalog.int4[], pg_catalog.int4[]) IS
    'members of the first range array not in the second; NULL when the first is NULL, the first unchanged when the second is NULL';

CREATE FUNCTION qn_int4range_is_overlap(pg_catalog.int4[], pg_catalog.int4[]) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4range_is_overlap(pg_catalog.int4[], pg_catalog.int4[]) IS
    'true when the two range arrays share a member; NULL when either is NULL';

CREATE FUNCTION qn_int4range_is_strictly_include(pg_catalog.int4[], pg_catalog.int4[]) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4range_is_strictly_include(pg_catalog.int4[], pg_catalog.int4[]) IS
    'true when the first range array is a non-empty subset of the second; NULL when either is NULL';

-- range expression aggregate
--
-- int4range_op_agg(word, operand ORDER BY ...) evaluates a bracketed set
-- expression over range arrays, one operand per row, in the order the call's
-- ORDER BY gives. The operation word: bits 0-1 the operation joining the operand
-- to what came before (1 union, 2 intersection, 3 exclusion), bits 2-8 the number
-- of groups closed before it, bits 9-15 the number of groups opened before it.
-- The support functions take internal and cannot be called with user data.

CREATE FUNCTION qn_int4range_op_transfn(pg_catalog.internal, pg_catalog.int4, pg_catalog.int4[]) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4range_op_transfn(pg_catalog.internal, pg_catalog.int4, pg_catalog.int4[]) IS
    'transition of int4range_op_agg: applies one operand; a NULL word is an error, a NULL operand skips the row';

CREATE FUNCTION qn_int4range_op_finalfn(pg_catalog.internal) RETURNS pg_catalog.int4[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4range_op_finalfn(pg_catalog.internal) IS
    'final function of int4range_op_agg: closes open groups and returns the range array; consumes the state';

CREATE AGGREGATE int4range_op_agg(pg_catalog.int4, pg_catalog.int4[]) (
    SFUNC = qn_int4range_op_transfn,
    STYPE = pg_catalog.internal,
    FINALFUNC = qn_int4range_op_finalfn,
    FINALFUNC_MODIFY = READ_WRITE,
    PARALLEL = SAFE
);
COMMENT ON AGGREGATE int4range_op_agg(pg_catalog.int4, pg_catalog.int4[]) IS
    'range array of a bracketed set expression fed one (operation word, operand) row at a time; give the row order with ORDER BY';

-- int4set_agg
--
-- Gathers integers, bound pairs or int4[] sets from many rows into one set,
-- returned as a range array ('r'), a scalar set ('s') or a mix array ('m'). The
-- first row fixes the forms. Runs in parallel: partial states travel as bytea.

CREATE FUNCTION qn_int4set_agg_transfn_A(pg_catalog.internal, pg_catalog.int4, pg_catalog."char") RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME', 'qn_int4set_agg_transfn_A' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_agg_transfn_A(pg_catalog.internal, pg_catalog.int4, pg_catalog."char") IS
    'transition of int4set_agg(value, output form): adds one integer; NULL values are skipped';

CREATE FUNCTION qn_int4set_agg_transfn_A(pg_catalog.internal, pg_catalog.int4, pg_catalog.int4, pg_catalog."char") RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME', 'qn_int4set_agg_transfn_A' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_agg_transfn_A(pg_catalog.internal, pg_catalog.int4, pg_catalog.int4, pg_catalog."char") IS
    'transition of int4set_agg(lower, upper, output form): adds one range; rows with a NULL bound are skipped';

CREATE FUNCTION qn_int4set_agg_transfn_B(pg_catalog.internal, pg_catalog."char", pg_catalog.int4[], pg_catalog."char") RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME', 'qn_int4set_agg_transfn_B' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_agg_transfn_B(pg_catalog.internal, pg_catalog."char", pg_catalog.int4[], pg_catalog."char") IS
    'transition of int4set_agg(input form, set, output form): adds every member of an int4[] set';

CREATE FUNCTION qn_int4set_agg_finalfn(pg_catalog.internal) RETURNS pg_catalog.int4[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_agg_finalfn(pg_catalog.internal) IS
    'final function of int4set_agg: the set in the output form; consumes the state';

CREATE FUNCTION qn_int4set_agg_combinefn(pg_catalog.internal, pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_agg_combinefn(pg_catalog.internal, pg_catalog.internal) IS
    'combine function of int4set_agg: a new state holding the union of two partial states';

CREATE FUNCTION qn_int4set_agg_serialfn(pg_catalog.internal) RETURNS pg_catalog.bytea
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_agg_serialfn(pg_catalog.internal) IS
    'serial function of int4set_agg: the forms and ranges of a partial state as bytea';

CREATE FUNCTION qn_int4set_agg_deserialfn(pg_catalog.bytea, pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_agg_deserialfn(pg_catalog.bytea, pg_catalog.internal) IS
    'deserial function of int4set_agg: a partial state from its bytea form';

CREATE AGGREGATE int4set_agg(pg_catalog.int4, pg_catalog."char") (
    SFUNC = qn_int4set_agg_transfn_A,
    STYPE = pg_catalog.internal,
    FINALFUNC = qn_int4set_agg_finalfn,
    FINALFUNC_MODIFY = READ_WRITE,
    COMBINEFUNC = qn_int4set_agg_combinefn,
    SERIALFUNC = qn_int4set_agg_serialfn,
    DESERIALFUNC = qn_int4set_agg_deserialfn,
    PARALLEL = SAFE
);
COMMENT ON AGGREGATE int4set_agg(pg_catalog.int4, pg_catalog."char") IS
    'set of the integers of a column, as a range array (''r''), scalar set (''s'') or mix array (''m'')';

CREATE AGGREGATE int4set_agg(pg_catalog.int4, pg_catalog.int4, pg_catalog."char") (
    SFUNC = qn_int4set_agg_transfn_A,
    STYPE = pg_catalog.internal,
    FINALFUNC = qn_int4set_agg_finalfn,
    FINALFUNC_MODIFY = READ_WRITE,
    COMBINEFUNC = qn_int4set_agg_combinefn,
    SERIALFUNC = qn_int4set_agg_serialfn,
    DESERIALFUNC = qn_int4set_agg_deserialfn,
    PARALLEL = SAFE
);
COMMENT ON AGGREGATE int4set_agg(pg_catalog.int4, pg_catalog.int4, pg_catalog."char") IS
    'set of the ranges [lower, upper] of two columns, as a range array, scalar set or mix array';

CREATE AGGREGATE int4set_agg(pg_catalog."char", pg_catalog.int4[], pg_catalog."char") (
    SFUNC = qn_int4set_agg_transfn_B,
    STYPE = pg_catalog.internal,
    FINALFUNC = qn_int4set_agg_finalfn,
    FINALFUNC_MODIFY = READ_WRITE,
    COMBINEFUNC = qn_int4set_agg_combinefn,
    SERIALFUNC = qn_int4set_agg_serialfn,
    DESERIALFUNC = qn_int4set_agg_deserialfn,
    PARALLEL = SAFE
);
COMMENT ON AGGREGATE int4set_agg(pg_catalog."char", pg_catalog.int4[], pg_catalog."char") IS
    'union of int4[] sets given in one input form (''r'', ''s'', ''m''), as a range array, scalar set or mix array';

-- int4set_agg_optimized
--
-- int4set_agg for sets of small non-negative integers: the state is one bit per
-- value from 0 to 'maxinput', rounded up to the end of its byte (10 accepts 0 to
-- 15), fixed by the first row like the forms. Runs in parallel. The deserial
-- function is STRICT: a worker that saw no row sends no state, so the leader's
-- result is the serial one (the empty array when no row came at all).

CREATE FUNCTION qn_int4set_agg_optimized_transfn_A(pg_catalog.internal, pg_catalog.int4, pg_catalog.int4, pg_catalog."char") RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME', 'qn_int4set_agg_optimized_transfn_A' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_agg_optimized_transfn_A(pg_catalog.internal, pg_catalog.int4, pg_catalog.int4, pg_catalog."char") IS
    'transition of int4set_agg_optimized(value, maxinput, output form): sets one bit; NULL values are skipped';

CREATE FUNCTION qn_int4set_agg_optimized_transfn_A(pg_catalog.internal, pg_catalog.int4, pg_catalog.int4, pg_catalog.int4, pg_catalog."char") RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME', 'qn_int4set_agg_optimized_transfn_A' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_agg_optimized_transfn_A(pg_catalog.internal, pg_catalog.int4, pg_catalog.int4, pg_catalog.int4, pg_catalog."char") IS
    'transition of int4set_agg_optimized(lower, upper, maxinput, output form): sets the bits of one range; rows with a NULL bound and inverted ranges are skipped';

CREATE FUNCTION qn_int4set_agg_optimized_transfn_B(pg_catalog.internal, pg_catalog."char", pg_catalog.int4[], pg_catalog.int4, pg_catalog."char") RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME', 'qn_int4set_agg_optimized_transfn_B' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_agg_optimized_transfn_B(pg_catalog.internal, pg_catalog."char", pg_catalog.int4[], pg_catalog.int4, pg_catalog."char") IS
    'transition of int4set_agg_optimized(input form, set, maxinput, output form): sets the bits of every member of an int4[] set';

CREATE FUNCTION qn_int4set_agg_optimized_finalfn(pg_catalog.internal) RETURNS pg_catalog.int4[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_agg_optimized_finalfn(pg_catalog.internal) IS
    'final function of int4set_agg_optimized: the set in the output form; consumes the state';

CREATE FUNCTION qn_int4set_agg_optimized_combinefn(pg_catalog.internal, pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_agg_optimized_combinefn(pg_catalog.internal, pg_catalog.internal) IS
    'combine function of int4set_agg_optimized: a new state holding the bits of two partial states';

CREATE FUNCTION qn_int4set_agg_optimized_serialfn(pg_catalog.internal) RETURNS pg_catalog.bytea
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_agg_optimized_serialfn(pg_catalog.internal) IS
    'serial function of int4set_agg_optimized: the forms and bits of a partial state as bytea';

CREATE FUNCTION qn_int4set_agg_optimized_deserialfn(pg_catalog.bytea, pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_agg_optimized_deserialfn(pg_catalog.bytea, pg_catalog.internal) IS
    'deserial function of int4set_agg_optimized: a partial state from its bytea form';

CREATE AGGREGATE int4set_agg_optimized(pg_catalog.int4, pg_catalog.int4, pg_catalog."char") (
    SFUNC = qn_int4set_agg_optimized_transfn_A,
    STYPE = pg_catalog.internal,
    FINALFUNC = qn_int4set_agg_optimized_finalfn,
    FINALFUNC_MODIFY = READ_WRITE,
    COMBINEFUNC = qn_int4set_agg_optimized_combinefn,
    SERIALFUNC = qn_int4set_agg_optimized_serialfn,
    DESERIALFUNC = qn_int4set_agg_optimized_deserialfn,
    PARALLEL = SAFE
);
COMMENT ON AGGREGATE int4set_agg_optimized(pg_catalog.int4, pg_catalog.int4, pg_catalog."char") IS
    'set of the integers of a column, all within [0, maxinput], as a range array (''r''), scalar set (''s'') or mix array (''m'')';

CREATE AGGREGATE int4set_agg_optimized(pg_catalog.int4, pg_catalog.int4, pg_catalog.int4, pg_catalog."char") (
    SFUNC = qn_int4set_agg_optimized_transfn_A,
    STYPE = pg_catalog.internal,
    FINALFUNC = qn_int4set_agg_optimized_finalfn,
    FINALFUNC_MODIFY = READ_WRITE,
    COMBINEFUNC = qn_int4set_agg_optimized_combinefn,
    SERIALFUNC = qn_int4set_agg_optimized_serialfn,
    DESERIALFUNC = qn_int4set_agg_optimized_deserialfn,
    PARALLEL = SAFE
);
COMMENT ON AGGREGATE int4set_agg_optimized(pg_catalog.int4, pg_catalog.int4, pg_catalog.int4, pg_catalog."char") IS
    'set of the ranges [lower, upper] of two columns, all within [0, maxinput], as a range array, scalar set or mix array';

CREATE AGGREGATE int4set_agg_optimized(pg_catalog."char", pg_catalog.int4[], pg_catalog.int4, pg_catalog."char") (
    SFUNC = qn_int4set_agg_optimized_transfn_B,
    STYPE = pg_catalog.internal,
    FINALFUNC = qn_int4set_agg_optimized_finalfn,
    FINALFUNC_MODIFY = READ_WRITE,
    COMBINEFUNC = qn_int4set_agg_optimized_combinefn,
    SERIALFUNC = qn_int4set_agg_optimized_serialfn,
    DESERIALFUNC = qn_int4set_agg_optimized_deserialfn,
    PARALLEL = SAFE
);
COMMENT ON AGGREGATE int4set_agg_optimized(pg_catalog."char", pg_catalog.int4[], pg_catalog.int4, pg_catalog."char") IS
    'union of int4[] sets given in one input form (''r'', ''s'', ''m''), all within [0, maxinput], as a range array, scalar set or mix array';

-- agg_keep_single
--
-- The single value of a column within each group, with the column's own type
-- (bool, int2, int4, int8, float4, float8, bytea or text). With the policy on
-- (the default) every row must carry the same value, NULL-ness included; with it
-- off the first row's value is kept. The policy is not carried between parallel
-- workers: under a parallel plan the first partial value is kept unchecked. The
-- transition functions read their null flags and are not STRICT; the final
-- function takes the aggregate's arguments (as NULLs) only to resolve its result
-- type. The deserial function is STRICT: a worker that saw no row sends nothing.

CREATE FUNCTION qn_agg_keep_single_transfn(pg_catalog.internal, pg_catalog.anyelement) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME', 'qn_agg_keep_single_transfn' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_agg_keep_single_transfn(pg_catalog.internal, pg_catalog.anyelement) IS
    'transition of agg_keep_single(value): keeps the first value, refuses any other';

CREATE FUNCTION qn_agg_keep_single_transfn(pg_catalog.internal, pg_catalog.anyelement, pg_catalog.bool) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME', 'qn_agg_keep_single_transfn' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_agg_keep_single_transfn(pg_catalog.internal, pg_catalog.anyelement, pg_catalog.bool) IS
    'transition of agg_keep_single(value, policy): keeps the first value; with the policy on, refuses any other';

CREATE FUNCTION qn_agg_keep_single_finalfn(pg_catalog.internal, pg_catalog.anyelement) RETURNS pg_catalog.anyelement
    AS 'MODULE_PATHNAME', 'qn_agg_keep_single_finalfn' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_agg_keep_single_finalfn(pg_catalog.internal, pg_catalog.anyelement) IS
    'final function of agg_keep_single(value): the kept value or NULL; consumes the state';

CREATE FUNCTION qn_agg_keep_single_finalfn(pg_catalog.internal, pg_catalog.anyelement, pg_catalog.bool) RETURNS pg_catalog.anyelement
    AS 'MODULE_PATHNAME', 'qn_agg_keep_single_finalfn' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_agg_keep_single_finalfn(pg_catalog.internal, pg_catalog.anyelement, pg_catalog.bool) IS
    'final function of agg_keep_single(value, policy): the kept value or NULL; consumes the state';

CREATE FUNCTION qn_agg_keep_single_combinefn(pg_catalog.internal, pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_agg_keep_single_combinefn(pg_catalog.internal, pg_catalog.internal) IS
    'combine function of agg_keep_single: a new state merging two partial states by the transition rules';

CREATE FUNCTION qn_agg_keep_single_serialfn(pg_catalog.internal) RETURNS pg_catalog.bytea
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_agg_keep_single_serialfn(pg_catalog.internal) IS
    'serial function of agg_keep_single: the type and value of a partial state as bytea, without the policy';

CREATE FUNCTION qn_agg_keep_single_deserialfn(pg_catalog.bytea, pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_agg_keep_single_deserialfn(pg_catalog.bytea, pg_catalog.internal) IS
    'deserial function of agg_keep_single: a partial state, policy off, from its bytea form';

CREATE AGGREGATE agg_keep_single(pg_catalog.anyelement) (
    SFUNC = qn_agg_keep_single_transfn,
    STYPE = pg_catalog.internal,
    FINALFUNC = qn_agg_keep_single_finalfn,
    FINALFUNC_EXTRA,
    FINALFUNC_MODIFY = READ_WRITE,
    COMBINEFUNC = qn_agg_keep_single_combinefn,
    SERIALFUNC = qn_agg_keep_single_serialfn,
    DESERIALFUNC = qn_agg_keep_single_deserialfn,
    PARALLEL = SAFE
);
COMMENT ON AGGREGATE agg_keep_single(pg_catalog.anyelement) IS
    'the single value of a column in each group; an error when two rows differ (NULL included)';

CREATE AGGREGATE agg_keep_single(pg_catalog.anyelement, pg_catalog.bool) (
    SFUNC = qn_agg_keep_single_transfn,
    STYPE = pg_catalog.internal,
    FINALFUNC = qn_agg_keep_single_finalfn,
    FINALFUNC_EXTRA,
    FINALFUNC_MODIFY = READ_WRITE,
    COMBINEFUNC = qn_agg_keep_single_combinefn,
    SERIALFUNC = qn_agg_keep_single_serialfn,
    DESERIALFUNC = qn_agg_keep_single_deserialfn,
    PARALLEL = SAFE
);
COMMENT ON AGGREGATE agg_keep_single(pg_catalog.anyelement, pg_catalog.bool) IS
    'the first value of a column in each group; with the policy true, an error when two rows differ (NULL included)';

-- packed ranges
--
-- A packed range is one range [lower, upper] in an int8: lower in the low 32 bits,
-- upper in the high 32 bits, both two's complement.

CREATE FUNCTION qn_range_pack(pg_catalog.int4[]) RETURNS pg_catalog.int8
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_range_pack(pg_catalog.int4[]) IS
    'packs the range {lower, upper} into an int8; the array must be a one-dimensional int4[] of two elements';

CREATE FUNCTION qn_range_pack(pg_catalog.int4, pg_catalog.int4) RETURNS pg_catalog.int8
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_range_pack(pg_catalog.int4, pg_catalog.int4) IS
    'packs the range [lower, upper] into an int8; upper must not be below lower';

CREATE FUNCTION qn_rangepacked_lower(pg_catalog.int8) RETURNS pg_catalog.int4
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_rangepacked_lower(pg_catalog.int8) IS
    'lower bound of a packed range (its low 32 bits)';

CREATE FUNCTION qn_rangepacked_upper(pg_catalog.int8) RETURNS pg_catalog.int4
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_rangepacked_upper(pg_catalog.int8) IS
    'upper bound of a packed range (its high 32 bits)';

-- membership and overlap: range arrays and packed ranges
--
-- "in" between two ranges, or a range and a range array, means sharing a member;
-- inclusion is spelled "included_in" and "contains". Range arrays that are not
-- one-dimensional or hold NULLs make the tests false.

CREATE FUNCTION qn_int4_in_rangearray(pg_catalog.int4, pg_catalog.int4[]) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4_in_rangearray(pg_catalog.int4, pg_catalog.int4[]) IS
    'true when the value lies in a range of the range array (binary search)';

CREATE FUNCTION qn_int4range_overlap_rangearray(pg_catalog.int4[], pg_catalog.int4[]) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4range_overlap_rangearray(pg_catalog.int4[], pg_catalog.int4[]) IS
    'true when the two range arrays share a member';

CREATE FUNCTION qn_int4rangepacked_in_rangearray(pg_catalog.int8, pg_catalog.int4[]) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4rangepacked_in_rangearray(pg_catalog.int8, pg_catalog.int4[]) IS
    'true when the packed range shares a member with the range array';

CREATE FUNCTION qn_int4rangepacked_in_int4rangepacked(pg_catalog.int8, pg_catalog.int8) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4rangepacked_in_int4rangepacked(pg_catalog.int8, pg_catalog.int8) IS
    'true when the two packed ranges share a member';

CREATE FUNCTION qn_int4rangepacked_included_in_int4rangepacked(pg_catalog.int8, pg_catalog.int8) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4rangepacked_included_in_int4rangepacked(pg_catalog.int8, pg_catalog.int8) IS
    'true when the first packed range lies within the second';

CREATE FUNCTION qn_int4rangepacked_contains_int4rangepacked(pg_catalog.int8, pg_catalog.int8) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4rangepacked_contains_int4rangepacked(pg_catalog.int8, pg_catalog.int8) IS
    'true when the second packed range lies within the first';

CREATE FUNCTION qn_int4_in_packedrange(pg_catalog.int4, pg_catalog.int8) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4_in_packedrange(pg_catalog.int4, pg_catalog.int8) IS
    'true when the value lies in the packed range';

CREATE FUNCTION qn_int4rangepacked_contains_int4(pg_catalog.int8, pg_catalog.int4, pg_catalog.int8) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4rangepacked_contains_int4(pg_catalog.int8, pg_catalog.int4, pg_catalog.int8) IS
    'true when the value (second argument) lies in the packed range (third); the first argument is not read';

-- bitfields
--
-- A bitfield is a bytea: min and max (int4 each), then one bit per integer of
-- [min, max] in whole 64-bit words, most significant bit first.

CREATE FUNCTION qn_int4set2bitfield_int4(pg_catalog."char", pg_catalog.int4[]) RETURNS pg_catalog.bytea
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set2bitfield_int4(pg_catalog."char", pg_catalog.int4[]) IS
    'bitfield of a set given as a range array (''r''), scalar set (''s'') or mix array (''m''), spanning its first to its last value; NULL for a NULL argument';

CREATE FUNCTION qn_int4_in_rangebitfield(pg_catalog.int4, pg_catalog.bytea) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4_in_rangebitfield(pg_catalog.int4, pg_catalog.bytea) IS
    'true when the value''s bit is set in the bitfield';

CREATE FUNCTION qn_int4rangepacked_in_rangebitfield(pg_catalog.int8, pg_catalog.bytea) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4rangepacked_in_rangebitfield(pg_catalog.int8, pg_catalog.bytea) IS
    'true when some value of the packed range has its bit set in the bitfield';

CREATE FUNCTION qn_int4set_overlap_bitfield(pg_catalog."char", pg_catalog.int4[], pg_catalog.bytea) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_overlap_bitfield(pg_catalog."char", pg_catalog.int4[], pg_catalog.bytea) IS
    'true when some member of the set (''r'', ''s'' or ''m'') has its bit set in the bitfield';

CREATE FUNCTION qn_int4set_included_in_bitfield(pg_catalog."char", pg_catalog.int4[], pg_catalog.bytea) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4set_included_in_bitfield(pg_catalog."char", pg_catalog.int4[], pg_catalog.bytea) IS
    'true when every member of the set (''r'', ''s'' or ''m'') lies in the bitfield, runs by the bitfield inclusion rule';

-- conversions between set forms
--
-- A set of integers travels as an int4[] in one of three forms, named by a
-- letter: 'r' range array, 's' scalar set (ascending members), 'm' mix array (a
-- count word, then scalars and ranges whose lower bound has its sign bit set).
-- These functions read their own null flags: a NULL argument gives NULL.

CREATE FUNCTION qn_int4setconv_int4(pg_catalog."char", pg_catalog.int4[], pg_catalog."char") RETURNS pg_catalog.int4[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4setconv_int4(pg_catalog."char", pg_catalog.int4[], pg_catalog."char") IS
    'the set given in the first form (''r'', ''s'' or ''m'') converted to the second; a form to itself is refused; NULL for a NULL input form or set, a NULL output form is an error';

CREATE FUNCTION qn_sort_int4(pg_catalog.int4[]) RETURNS pg_catalog.int4[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_sort_int4(pg_catalog.int4[]) IS
    'the values in ascending order, duplicates kept; NULL for NULL';

CREATE FUNCTION qn_count_scalar_in_int4set(pg_catalog."char", pg_catalog.int4[]) RETURNS pg_catalog.int4
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_count_scalar_in_int4set(pg_catalog."char", pg_catalog.int4[]) IS
    'number of integers of a set (''r'', ''s'' or ''m'') without expanding it: pair widths summed, element count, or the mix count word; NULL for a NULL argument or an array that is not int4[]';

-- bytea decoders
--
-- A bytea of 4-byte words in the server's byte order, expanded into an array.

CREATE FUNCTION qn_bytea2floatarray(pg_catalog.bytea) RETURNS pg_catalog.float4[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_bytea2floatarray(pg_catalog.bytea) IS
    'the bytea read as float4 values, bit for bit; NULL for NULL';

CREATE FUNCTION qn_bytea2mix2rangearray(pg_catalog.bytea) RETURNS pg_catalog.int4[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_bytea2mix2rangearray(pg_catalog.bytea) IS
    'the bytea read as a mix array, as a range array with one range per item (not sorted or merged); NULL for NULL';

-- operators
--
-- The tests above as operators, for queries and GiST indexes. "<@" reads "lies
-- in", "&&" "shares a member with", "@>" "contains". The right operand of an
-- int4 "<@" can be a range array, a bitfield or a packed range: give untyped
-- literals a cast.

CREATE FUNCTION qn_int4rangepacked_contains_int4(pg_catalog.int8, pg_catalog.int4) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4rangepacked_contains_int4(pg_catalog.int8, pg_catalog.int4) IS
    'true when the value lies in the packed range (the function behind int8 @> int4)';

CREATE OPERATOR <@ (
    LEFTARG = pg_catalog.int4, RIGHTARG = pg_catalog.int4[], FUNCTION = qn_int4_in_rangearray,
    RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
COMMENT ON OPERATOR <@ (pg_catalog.int4, pg_catalog.int4[]) IS 'value lies in the range array';

CREATE OPERATOR <@ (
    LEFTARG = pg_catalog.int4, RIGHTARG = pg_catalog.bytea, FUNCTION = qn_int4_in_rangebitfield,
    RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
COMMENT ON OPERATOR <@ (pg_catalog.int4, pg_catalog.bytea) IS 'value lies in the bitfield';

CREATE OPERATOR <@ (
    LEFTARG = pg_catalog.int4, RIGHTARG = pg_catalog.int8, FUNCTION = qn_int4_in_packedrange,
    COMMUTATOR = @>, RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
COMMENT ON OPERATOR <@ (pg_catalog.int4, pg_catalog.int8) IS 'value lies in the packed range';

CREATE OPERATOR @> (
    LEFTARG = pg_catalog.int8, RIGHTARG = pg_catalog.int4, FUNCTION = qn_int4rangepacked_contains_int4,
    COMMUTATOR = <@, RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
COMMENT ON OPERATOR @> (pg_catalog.int8, pg_catalog.int4) IS 'packed range contains the value';

CREATE OPERATOR && (
    LEFTARG = pg_catalog.int8, RIGHTARG = pg_catalog.int4[], FUNCTION = qn_int4rangepacked_in_rangearray,
    RESTRICT = pg_catalog.areasel, JOIN = pg_catalog.areajoinsel
);
COMMENT ON OPERATOR && (pg_catalog.int8, pg_catalog.int4[]) IS 'packed range shares a member with the range array';

CREATE OPERATOR && (
    LEFTARG = pg_catalog.int8, RIGHTARG = pg_catalog.int8, FUNCTION = qn_int4rangepacked_in_int4rangepacked,
    COMMUTATOR = &&, RESTRICT = pg_catalog.areasel, JOIN = pg_catalog.areajoinsel
);
COMMENT ON OPERATOR && (pg_catalog.int8, pg_catalog.int8) IS 'packed ranges share a member';

CREATE OPERATOR <@ (
    LEFTARG = pg_catalog.int8, RIGHTARG = pg_catalog.int8, FUNCTION = qn_int4rangepacked_included_in_int4rangepacked,
    COMMUTATOR = @>, RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
COMMENT ON OPERATOR <@ (pg_catalog.int8, pg_catalog.int8) IS 'packed range lies within the other';

CREATE OPERATOR @> (
    LEFTARG = pg_catalog.int8, RIGHTARG = pg_catalog.int8, FUNCTION = qn_int4rangepacked_contains_int4rangepacked,
    COMMUTATOR = <@, RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
COMMENT ON OPERATOR @> (pg_catalog.int8, pg_catalog.int8) IS 'packed range contains the other';

-- GiST
--
-- Two operator classes with one kind of key, a packed range: qn_gist_int4_ops
-- for int4 columns, qn_gist_rangepacked_ops for packed-range int8 columns.
-- Neither is the default (btree_gist provides the defaults for int4 and int8):
-- name them in CREATE INDEX. The support functions take internal and cannot be
-- called with user data.

CREATE FUNCTION qn_gist_range_consistent(pg_catalog.internal, pg_catalog.int4, pg_catalog.int2, pg_catalog.oid, pg_catalog.internal) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gist_range_consistent(pg_catalog.internal, pg_catalog.int4, pg_catalog.int2, pg_catalog.oid, pg_catalog.internal) IS
    'GiST consistent function of qn_gist_int4_ops';

CREATE FUNCTION qn_gist_range_consistent(pg_catalog.internal, pg_catalog.int8, pg_catalog.int2, pg_catalog.oid, pg_catalog.internal) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gist_range_consistent(pg_catalog.internal, pg_catalog.int8, pg_catalog.int2, pg_catalog.oid, pg_catalog.internal) IS
    'GiST consistent function of qn_gist_rangepacked_ops';

CREATE FUNCTION qn_gist_range_union(pg_catalog.internal, pg_catalog.internal) RETURNS pg_catalog.int8
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gist_range_union(pg_catalog.internal, pg_catalog.internal) IS
    'GiST union: the packed range covering all keys';

CREATE FUNCTION qn_gist_range_compress_int4(pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gist_range_compress_int4(pg_catalog.internal) IS
    'GiST compress for int4 columns: the value v becomes the key [v; v]';

CREATE FUNCTION qn_gist_range_compress_int8(pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gist_range_compress_int8(pg_catalog.internal) IS
    'GiST compress for packed-range columns: refuses a range whose upper bound is below its lower';

CREATE FUNCTION qn_gist_range_decompress(pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gist_range_decompress(pg_catalog.internal) IS
    'GiST decompress: keys are stored as they are used';

CREATE FUNCTION qn_gist_range_penalty(pg_catalog.internal, pg_catalog.internal, pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gist_range_penalty(pg_catalog.internal, pg_catalog.internal, pg_catalog.internal) IS
    'GiST penalty: the growth of the existing key, with a fraction preferring the tightest cover';

CREATE FUNCTION qn_gist_range_picksplit(pg_catalog.internal, pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gist_range_picksplit(pg_catalog.internal, pg_catalog.internal) IS
    'GiST picksplit: a two-ended sweep by lower and by upper bound';

CREATE FUNCTION qn_gist_range_same(pg_catalog.int8, pg_catalog.int8, pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gist_range_same(pg_catalog.int8, pg_catalog.int8, pg_catalog.internal) IS
    'GiST same: the keys are equal';

CREATE OPERATOR CLASS qn_gist_int4_ops FOR TYPE pg_catalog.int4 USING gist AS
    OPERATOR 1 <@ (pg_catalog.int4, pg_catalog.int4[]),
    OPERATOR 2 <@ (pg_catalog.int4, pg_catalog.bytea),
    OPERATOR 3 <@ (pg_catalog.int4, pg_catalog.int8),
    FUNCTION 1 qn_gist_range_consistent(pg_catalog.internal, pg_catalog.int4, pg_catalog.int2, pg_catalog.oid, pg_catalog.internal),
    FUNCTION 2 qn_gist_range_union(pg_catalog.internal, pg_catalog.internal),
    FUNCTION 3 qn_gist_range_compress_int4(pg_catalog.internal),
    FUNCTION 4 qn_gist_range_decompress(pg_catalog.internal),
    FUNCTION 5 qn_gist_range_penalty(pg_catalog.internal, pg_catalog.internal, pg_catalog.internal),
    FUNCTION 6 qn_gist_range_picksplit(pg_catalog.internal, pg_catalog.internal),
    FUNCTION 7 qn_gist_range_same(pg_catalog.int8, pg_catalog.int8, pg_catalog.internal),
    STORAGE pg_catalog.int8;
COMMENT ON OPERATOR CLASS qn_gist_int4_ops USING gist IS
    'int4 values lying in a range array, a bitfield or a packed range';

CREATE OPERATOR CLASS qn_gist_rangepacked_ops FOR TYPE pg_catalog.int8 USING gist AS
    OPERATOR 11 && (pg_catalog.int8, pg_catalog.int4[]),
    OPERATOR 13 && (pg_catalog.int8, pg_catalog.int8),
    OPERATOR 14 <@ (pg_catalog.int8, pg_catalog.int8),
    OPERATOR 15 @> (pg_catalog.int8, pg_catalog.int8),
    OPERATOR 16 @> (pg_catalog.int8, pg_catalog.int4),
    FUNCTION 1 qn_gist_range_consistent(pg_catalog.internal, pg_catalog.int8, pg_catalog.int2, pg_catalog.oid, pg_catalog.internal),
    FUNCTION 2 qn_gist_range_union(pg_catalog.internal, pg_catalog.internal),
    FUNCTION 3 qn_gist_range_compress_int8(pg_catalog.internal),
    FUNCTION 4 qn_gist_range_decompress(pg_catalog.internal),
    FUNCTION 5 qn_gist_range_penalty(pg_catalog.internal, pg_catalog.internal, pg_catalog.internal),
    FUNCTION 6 qn_gist_range_picksplit(pg_catalog.internal, pg_catalog.internal),
    FUNCTION 7 qn_gist_range_same(pg_catalog.int8, pg_catalog.int8, pg_catalog.internal),
    STORAGE pg_catalog.int8;
COMMENT ON OPERATOR CLASS qn_gist_rangepacked_ops USING gist IS
    'packed ranges overlapping a range array or a packed range, contained in or containing one, or containing a value';

-- complain if script is sourced in psql, rather than via ALTER EXTENSION
\echo Use "ALTER EXTENSION kelvarn_range_operators UPDATE TO '3.5.0'" to load this file. \quit

-- 3.4.0 to 3.5.0. A new database runs the 3.3.16 script and each update script
-- after it, so an updated database and a new one hold the same objects.

-- checked range arrays
--
-- The operators and functions read a range array as it is stored and trust it
-- to be normalised: a column of unsorted or overlapping pairs answers wrongly
-- without a word. A column, a variable or a cast of type qn_rangearray refuses
-- such a value. The domain is an int4[] everywhere else: every function,
-- operator, aggregate, operator class and estimator takes it as one.

CREATE DOMAIN qn_rangearray AS pg_catalog.int4[]
    CONSTRAINT qn_rangearray_normalised CHECK (
        pg_catalog.cardinality(VALUE) OPERATOR(pg_catalog.=) 0
        OR (pg_catalog.array_ndims(VALUE) OPERATOR(pg_catalog.=) 1
            AND pg_catalog.array_position(VALUE, NULL) IS NULL
            AND (pg_catalog.cardinality(VALUE) OPERATOR(pg_catalog.%) 2) OPERATOR(pg_catalog.=) 0
            AND @extschema@.qn_rangearray_is_normalised(VALUE)));
COMMENT ON DOMAIN qn_rangearray IS
    'a normalised range array: one dimension, no NULL, pairs [lower, upper] ascending, apart and not inverted';

-- counting members
--
-- qn_count_scalar_in_int4set('r', a) returns an int4 and wraps: the whole int4
-- range counts 0. This count is an int8 and reads the array as a plain set.

CREATE FUNCTION qn_rangearray_count(pg_catalog.int4[]) RETURNS pg_catalog.int8
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_rangearray_count(pg_catalog.int4[]) IS
    'the number of integers the range array holds, as int8: overlaps counted once, inverted pairs as nothing';

COMMENT ON FUNCTION qn_count_scalar_in_int4set(pg_catalog."char", pg_catalog.int4[]) IS
    'number of integers of a set (''r'', ''s'' or ''m'') without expanding it: pair widths summed, element count, or the mix count word, as int4, which wraps (the whole int4 range counts 0; qn_rangearray_count does not wrap); NULL for a NULL argument or an array that is not int4[]';

-- finding rows by member: GIN over range-array columns
--
-- qn_gin_rangearray_ops indexes a column of range arrays by the blocks of the
-- int4 line its ranges lie in, at the resolution of each range's length, down
-- to blocks of finest_block values (an option of the index, 64 unless given). It
-- answers which rows' sets hold a value, meet a range array or a packed range,
-- contain a range array or lie in one; every row it finds is rechecked, so it
-- answers as a sequential scan does. Its operators take the column on their
-- left. Core's @>, <@ and && on arrays compare elements and keep their meaning:
-- these are named ~@>, ~<@ and ~&&, and are the commutators of the forms with
-- the column on the right (`v <@ column` uses the index as `column ~@> v`).
-- The test functions (qn_int4_in_rangearray, qn_int4rangepacked_in_rangearray,
-- qn_int4range_is_overlap, qn_int4range_is_strictly_include) use it too.

CREATE FUNCTION qn_rangearray_contains_int4(pg_catalog.int4[], pg_catalog.int4) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 5;
COMMENT ON FUNCTION qn_rangearray_contains_int4(pg_catalog.int4[], pg_catalog.int4) IS
    'true when the value lies in the range array (qn_int4_in_rangearray with the array first)';

CREATE FUNCTION qn_rangearray_overlaps_rangepacked(pg_catalog.int4[], pg_catalog.int8) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 5;
COMMENT ON FUNCTION qn_rangearray_overlaps_rangepacked(pg_catalog.int4[], pg_catalog.int8) IS
    'true when the range array shares a member with the packed range (qn_int4rangepacked_in_rangearray with the array first)';

CREATE FUNCTION qn_int4range_contains(pg_catalog.int4[], pg_catalog.int4[]) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4range_contains(pg_catalog.int4[], pg_catalog.int4[]) IS
    'true when every range of the second array lies inside one range of the first (qn_int4range_is_strictly_include with the arguments swapped); NULL when either is NULL';

CREATE OPERATOR ~@> (
    LEFTARG = pg_catalog.int4[], RIGHTARG = pg_catalog.int4, FUNCTION = qn_rangearray_contains_int4,
    COMMUTATOR = <@, RESTRICT = qn_range_sel, JOIN = qn_range_joinsel
);
COMMENT ON OPERATOR ~@> (pg_catalog.int4[], pg_catalog.int4) IS 'range array holds the value';

CREATE OPERATOR ~&& (
    LEFTARG = pg_catalog.int4[], RIGHTARG = pg_catalog.int8, FUNCTION = qn_rangearray_overlaps_rangepacked,
    COMMUTATOR = &&, RESTRICT = qn_range_sel, JOIN = qn_range_joinsel
);
COMMENT ON OPERATOR ~&& (pg_catalog.int4[], pg_catalog.int8) IS 'range array shares a member with the packed range';

CREATE OPERATOR ~&& (
    LEFTARG = pg_catalog.int4[], RIGHTARG = pg_catalog.int4[], FUNCTION = qn_int4range_is_overlap,
    COMMUTATOR = ~&&, RESTRICT = qn_range_sel, JOIN = qn_range_joinsel
);
COMMENT ON OPERATOR ~&& (pg_catalog.int4[], pg_catalog.int4[]) IS 'range arrays share a member';

CREATE OPERATOR ~@> (
    LEFTARG = pg_catalog.int4[], RIGHTARG = pg_catalog.int4[], FUNCTION = qn_int4range_contains,
    COMMUTATOR = ~<@, RESTRICT = qn_range_sel, JOIN = qn_range_joinsel
);
COMMENT ON OPERATOR ~@> (pg_catalog.int4[], pg_catalog.int4[]) IS 'range array contains every range of the other, which is not empty';

CREATE OPERATOR ~<@ (
    LEFTARG = pg_catalog.int4[], RIGHTARG = pg_catalog.int4[], FUNCTION = qn_int4range_is_strictly_include,
    COMMUTATOR = ~@>, RESTRICT = qn_range_sel, JOIN = qn_range_joinsel
);
COMMENT ON OPERATOR ~<@ (pg_catalog.int4[], pg_catalog.int4[]) IS 'every range of the range array, which is not empty, lies inside one range of the other';

ALTER FUNCTION qn_rangearray_contains_int4(pg_catalog.int4[], pg_catalog.int4) SUPPORT qn_range_support;
ALTER FUNCTION qn_rangearray_overlaps_rangepacked(pg_catalog.int4[], pg_catalog.int8) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4range_contains(pg_catalog.int4[], pg_catalog.int4[]) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4range_is_overlap(pg_catalog.int4[], pg_catalog.int4[]) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4range_is_strictly_include(pg_catalog.int4[], pg_catalog.int4[]) SUPPORT qn_range_support;

CREATE FUNCTION qn_gin_rangearray_extractvalue(pg_catalog.int4[], pg_catalog.internal, pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gin_rangearray_extractvalue(pg_catalog.int4[], pg_catalog.internal, pg_catalog.internal) IS
    'GIN extractValue of qn_gin_rangearray_ops: the blocks the stored ranges lie in';

CREATE FUNCTION qn_gin_rangearray_extractquery(pg_catalog.int4[], pg_catalog.internal, pg_catalog.int2, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gin_rangearray_extractquery(pg_catalog.int4[], pg_catalog.internal, pg_catalog.int2, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal) IS
    'GIN extractQuery of qn_gin_rangearray_ops: the blocks a value, range array or packed range lies in';

CREATE FUNCTION qn_gin_rangearray_consistent(pg_catalog.internal, pg_catalog.int2, pg_catalog.int4[], pg_catalog.int4, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gin_rangearray_consistent(pg_catalog.internal, pg_catalog.int2, pg_catalog.int4[], pg_catalog.int4, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal) IS
    'GIN consistent of qn_gin_rangearray_ops: the row may pass, to be rechecked';

CREATE FUNCTION qn_gin_rangearray_triconsistent(pg_catalog.internal, pg_catalog.int2, pg_catalog.int4[], pg_catalog.int4, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal) RETURNS pg_catalog."char"
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gin_rangearray_triconsistent(pg_catalog.internal, pg_catalog.int2, pg_catalog.int4[], pg_catalog.int4, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal) IS
    'GIN triConsistent of qn_gin_rangearray_ops: maybe (rechecked) or false';

CREATE FUNCTION qn_gin_rangearray_comparepartial(pg_catalog.int8, pg_catalog.int8, pg_catalog.int2, pg_catalog.internal) RETURNS pg_catalog.int4
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gin_rangearray_comparepartial(pg_catalog.int8, pg_catalog.int8, pg_catalog.int2, pg_catalog.internal) IS
    'GIN comparePartial of qn_gin_rangearray_ops: the key lies in the run of blocks a query range spans';

CREATE FUNCTION qn_gin_rangearray_options(pg_catalog.internal) RETURNS pg_catalog.void
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION qn_gin_rangearray_options(pg_catalog.internal) IS
    'GIN options of qn_gin_rangearray_ops: finest_block, the finest block of values a key stands for (default 64)';

CREATE OPERATOR CLASS qn_gin_rangearray_ops FOR TYPE pg_catalog.int4[] USING gin AS
    OPERATOR 1 ~@> (pg_catalog.int4[], pg_catalog.int4),
    OPERATOR 2 ~&& (pg_catalog.int4[], pg_catalog.int4[]),
    OPERATOR 3 ~@> (pg_catalog.int4[], pg_catalog.int4[]),
    OPERATOR 4 ~<@ (pg_catalog.int4[], pg_catalog.int4[]),
    OPERATOR 5 ~&& (pg_catalog.int4[], pg_catalog.int8),
    FUNCTION 1 pg_catalog.btint8cmp(pg_catalog.int8, pg_catalog.int8),
    FUNCTION 2 qn_gin_rangearray_extractvalue(pg_catalog.int4[], pg_catalog.internal, pg_catalog.internal),
    FUNCTION 3 qn_gin_rangearray_extractquery(pg_catalog.int4[], pg_catalog.internal, pg_catalog.int2, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal),
    FUNCTION 4 qn_gin_rangearray_consistent(pg_catalog.internal, pg_catalog.int2, pg_catalog.int4[], pg_catalog.int4, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal),
    FUNCTION 5 qn_gin_rangearray_comparepartial(pg_catalog.int8, pg_catalog.int8, pg_catalog.int2, pg_catalog.internal),
    FUNCTION 6 qn_gin_rangearray_triconsistent(pg_catalog.internal, pg_catalog.int2, pg_catalog.int4[], pg_catalog.int4, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal),
    FUNCTION 7 qn_gin_rangearray_options(pg_catalog.internal),
    STORAGE pg_catalog.int8;
COMMENT ON OPERATOR CLASS qn_gin_rangearray_ops USING gin IS
    'range-array columns holding a value, meeting a range array or a packed range, containing a range array or lying in one';

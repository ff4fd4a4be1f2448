-- complain if script is sourced in psql, rather than via ALTER EXTENSION
\echo Use "ALTER EXTENSION kelvarn_range_operators UPDATE TO '3.8.0'" to load this file. \quit

-- 3.7.0 to 3.8.0: int4set in queries. A new database runs the 3.3.16 script
-- and each update script after it, so an updated database and a new one hold
-- the same objects. Built-in names are qualified with pg_catalog, the
-- extension's own objects in expressions with @extschema@.

-- int4set: finding rows by member, GIN
--
-- int4set_gin_ops, the default GIN operator class of int4set, keys a stored set
-- as qn_gin_rangearray_ops keys a range array of the same ranges (blocks of the
-- int4 line at the resolution of each range's length, down to finest_block
-- values; a set of more than 1,024 ranges by a covering of them), and shares
-- its consistent, triConsistent, comparePartial and options functions: only
-- reading the stored set and the query differs. An empty set has a key of its
-- own, which `<@` looks for. Every row found is rechecked by the operator, so
-- the index answers as a sequential scan does. `42 <@ column` and
-- `'{...}' <@ column` are the commutators of `column @> ...` and use it too.

CREATE FUNCTION int4set_gin_extractvalue(int4set, pg_catalog.internal, pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME', 'qn_gin_int4set_extractvalue' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION int4set_gin_extractvalue(int4set, pg_catalog.internal, pg_catalog.internal) IS
    'GIN extractValue of int4set_gin_ops: the blocks the stored ranges lie in, or the empty set''s key';

CREATE FUNCTION int4set_gin_extractquery(int4set, pg_catalog.internal, pg_catalog.int2, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME', 'qn_gin_int4set_extractquery' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION int4set_gin_extractquery(int4set, pg_catalog.internal, pg_catalog.int2, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal) IS
    'GIN extractQuery of int4set_gin_ops: the blocks a value, an int4set or an int4range lies in';

CREATE FUNCTION int4set_gin_consistent(pg_catalog.internal, pg_catalog.int2, int4set, pg_catalog.int4, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_gin_rangearray_consistent' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION int4set_gin_consistent(pg_catalog.internal, pg_catalog.int2, int4set, pg_catalog.int4, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal) IS
    'GIN consistent of int4set_gin_ops: the row may pass, to be rechecked';

CREATE FUNCTION int4set_gin_triconsistent(pg_catalog.internal, pg_catalog.int2, int4set, pg_catalog.int4, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal) RETURNS pg_catalog."char"
    AS 'MODULE_PATHNAME', 'qn_gin_rangearray_triconsistent' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION int4set_gin_triconsistent(pg_catalog.internal, pg_catalog.int2, int4set, pg_catalog.int4, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal) IS
    'GIN triConsistent of int4set_gin_ops: maybe (rechecked) or false';

CREATE OPERATOR CLASS int4set_gin_ops DEFAULT FOR TYPE int4set USING gin AS
    OPERATOR 1 @> (int4set, pg_catalog.int4),
    OPERATOR 2 && (int4set, int4set),
    OPERATOR 3 @> (int4set, int4set),
    OPERATOR 4 <@ (int4set, int4set),
    OPERATOR 7 && (int4set, pg_catalog.int4range),
    OPERATOR 8 @> (int4set, pg_catalog.int4range),
    OPERATOR 9 <@ (int4set, pg_catalog.int4range),
    FUNCTION 1 pg_catalog.btint8cmp(pg_catalog.int8, pg_catalog.int8),
    FUNCTION 2 int4set_gin_extractvalue(int4set, pg_catalog.internal, pg_catalog.internal),
    FUNCTION 3 int4set_gin_extractquery(int4set, pg_catalog.internal, pg_catalog.int2, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal),
    FUNCTION 4 int4set_gin_consistent(pg_catalog.internal, pg_catalog.int2, int4set, pg_catalog.int4, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal),
    FUNCTION 5 qn_gin_rangearray_comparepartial(pg_catalog.int8, pg_catalog.int8, pg_catalog.int2, pg_catalog.internal),
    FUNCTION 6 int4set_gin_triconsistent(pg_catalog.internal, pg_catalog.int2, int4set, pg_catalog.int4, pg_catalog.internal, pg_catalog.internal, pg_catalog.internal),
    FUNCTION 7 qn_gin_rangearray_options(pg_catalog.internal),
    STORAGE pg_catalog.int8;
COMMENT ON OPERATOR CLASS int4set_gin_ops USING gin IS
    'int4set columns holding a value, meeting, containing or lying in an int4set or an int4range';

-- int4 columns lying in an int4set, GiST
--
-- qn_gist_int4_ops answers `column <@ set` for an int4set as it does for a
-- range array: a leaf holds the value itself and is tested exactly, an inner
-- key passes when some member of the set lies in its span.

ALTER OPERATOR FAMILY qn_gist_int4_ops USING gist ADD
    OPERATOR 4 <@ (pg_catalog.int4, int4set);

-- int4set: function forms as index conditions, costs of reading stored sets
--
-- The functions of the containment and overlap operators, called as functions,
-- become their operator's index condition where the column is indexed (either
-- side where the operator has a commutator), and are estimated as their
-- operator is. qn_range_support also prices a call that reads a stored set:
-- one whose set argument comes from a column pays for reading the column's
-- out-of-line (TOAST) pages besides the function's own cost, so that a
-- sequential scan over large sets is no longer taken for cheaper than an index
-- that reads a few of them. &&~ gets the same support as the other range-array
-- tests.

ALTER FUNCTION int4set_contains(int4set, pg_catalog.int4) SUPPORT qn_range_support;
ALTER FUNCTION int4set_contained(pg_catalog.int4, int4set) SUPPORT qn_range_support;
ALTER FUNCTION int4set_contains(int4set, int4set) SUPPORT qn_range_support;
ALTER FUNCTION int4set_contained(int4set, int4set) SUPPORT qn_range_support;
ALTER FUNCTION int4set_overlaps(int4set, int4set) SUPPORT qn_range_support;
ALTER FUNCTION int4set_contains(int4set, pg_catalog.int4range) SUPPORT qn_range_support;
ALTER FUNCTION int4set_contained(int4set, pg_catalog.int4range) SUPPORT qn_range_support;
ALTER FUNCTION int4set_overlaps(int4set, pg_catalog.int4range) SUPPORT qn_range_support;
ALTER FUNCTION qn_int4range_is_overlap_commuted(pg_catalog.int4[], pg_catalog.int4[]) SUPPORT qn_range_support;

-- int4set: statistics and estimates
--
-- ANALYZE keeps, next to the statistics of whole values that = and < read, the
-- column's runs (their positions and widths by width class), the runs per row,
-- the least and greatest members and the most common members; the containment,
-- overlap and position operators estimate from them, and joins by && between
-- two set columns and by membership of an int4 column's value.

CREATE FUNCTION int4set_typanalyze(pg_catalog.internal) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_typanalyze' LANGUAGE C STABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_sel(pg_catalog.internal, pg_catalog.oid, pg_catalog.internal, pg_catalog.int4)
    RETURNS pg_catalog.float8
    AS 'MODULE_PATHNAME', 'qn_int4set_sel' LANGUAGE C STABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_joinsel(pg_catalog.internal, pg_catalog.oid, pg_catalog.internal, pg_catalog.int2, pg_catalog.internal)
    RETURNS pg_catalog.float8
    AS 'MODULE_PATHNAME', 'qn_int4set_joinsel' LANGUAGE C STABLE STRICT PARALLEL SAFE;

COMMENT ON FUNCTION int4set_typanalyze(pg_catalog.internal) IS
    'ANALYZE of int4set columns: statistics of whole values, then of runs, extremes and most common members';
COMMENT ON FUNCTION int4set_sel(pg_catalog.internal, pg_catalog.oid, pg_catalog.internal, pg_catalog.int4) IS
    'restriction selectivity of the int4set containment, overlap and position operators, from the column''s statistics';
COMMENT ON FUNCTION int4set_joinsel(pg_catalog.internal, pg_catalog.oid, pg_catalog.internal, pg_catalog.int2, pg_catalog.internal) IS
    'join selectivity of int4set && int4set and of int4set membership of an int4 column, from both columns'' statistics';

ALTER TYPE int4set SET (ANALYZE = int4set_typanalyze);

ALTER OPERATOR @> (int4set, int4set) SET (RESTRICT = int4set_sel);
ALTER OPERATOR <@ (int4set, int4set) SET (RESTRICT = int4set_sel);
ALTER OPERATOR && (int4set, int4set) SET (RESTRICT = int4set_sel, JOIN = int4set_joinsel);
ALTER OPERATOR @> (int4set, pg_catalog.int4) SET (RESTRICT = int4set_sel, JOIN = int4set_joinsel);
ALTER OPERATOR <@ (pg_catalog.int4, int4set) SET (RESTRICT = int4set_sel, JOIN = int4set_joinsel);
ALTER OPERATOR @> (int4set, pg_catalog.int4range) SET (RESTRICT = int4set_sel);
ALTER OPERATOR <@ (int4set, pg_catalog.int4range) SET (RESTRICT = int4set_sel);
ALTER OPERATOR && (int4set, pg_catalog.int4range) SET (RESTRICT = int4set_sel);
ALTER OPERATOR << (int4set, int4set) SET (RESTRICT = int4set_sel);
ALTER OPERATOR >> (int4set, int4set) SET (RESTRICT = int4set_sel);
ALTER OPERATOR &< (int4set, int4set) SET (RESTRICT = int4set_sel);
ALTER OPERATOR &> (int4set, int4set) SET (RESTRICT = int4set_sel);
ALTER OPERATOR -|- (int4set, int4set) SET (RESTRICT = int4set_sel);

-- int4set aggregates: partial states read in place
--
-- The deserialise function takes the bytes a serialise function made (only the
-- executor holds its internal argument) as they are: the set is neither
-- checked again nor copied before the combine function merges it.

COMMENT ON FUNCTION @extschema@.qn_int4set_aggregate_deserialfn(pg_catalog.bytea, pg_catalog.internal) IS
    'deserialise function of the int4set aggregates: reads a serialise function''s bytes in place';

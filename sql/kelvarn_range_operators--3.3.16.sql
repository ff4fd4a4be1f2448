-- complain if script is sourced in psql, rather than via CREATE EXTENSION
\echo Use "CREATE EXTENSION kelvarn_range_operators" to load this file. \quit

-- range array set algebra
--
-- A range array is an int4[] of [lower, upper] pairs, ascending, disjoint and
-- non-adjacent. These functions read their own null flags (they are not STRICT):
-- union with one NULL side returns the other side as it is, exclusion with a NULL
-- right side returns the left side; every other NULL gives NULL.

CREATE FUNCTION qn_int4range_union(int4[], int4[]) RETURNS int4[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4range_union(int4[], int4[]) IS
    'union of two range arrays; NULL only when both are NULL, otherwise a NULL side yields the other side unchanged';

CREATE FUNCTION qn_int4range_intersection(int4[], int4[]) RETURNS int4[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4range_intersection(int4[], int4[]) IS
    'intersection of two range arrays; NULL when either is NULL';

CREATE FUNCTION qn_int4range_exclusion(int4[], int4[]) RETURNS int4[]
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4range_exclusion(int4[], int4[]) IS
    'members of the first range array not in the second; NULL when the first is NULL, the first unchanged when the second is NULL';

CREATE FUNCTION qn_int4range_is_overlap(int4[], int4[]) RETURNS bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4range_is_overlap(int4[], int4[]) IS
    'true when the two range arrays share a member; NULL when either is NULL';

CREATE FUNCTION qn_int4range_is_strictly_include(int4[], int4[]) RETURNS bool
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION qn_int4range_is_strictly_include(int4[], int4[]) IS
    'true when the first range array is a non-empty subset of the second; NULL when either is NULL';

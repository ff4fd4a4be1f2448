-- complain if script is sourced in psql, rather than via ALTER EXTENSION
\echo Use "ALTER EXTENSION kelvarn_range_operators UPDATE TO '3.7.0'" to load this file. \quit

-- 3.6.0 to 3.7.0: the int4set type. A new database runs the 3.3.16 script and
-- each update script after it, so an updated database and a new one hold the
-- same objects. Built-in names are qualified with pg_catalog, the extension's
-- own objects in expressions with @extschema@.

-- int4set: the type and its text and binary forms
--
-- A set of int4 values, always normalised, stored compressed by chunks of
-- 65,536 values (arrays of members, runs or bitmaps) or as a list of ranges,
-- whichever is smaller. The stored bytes are unaligned and read in place;
-- values over 2 kB are compressed and moved out of line as usual (STORAGE
-- extended), which pays on sets of regular runs and costs nothing on the rest
-- (PostgreSQL keeps a value uncompressed when compression does not save a
-- quarter of it).

CREATE TYPE int4set;

CREATE FUNCTION int4set_in(pg_catalog.cstring) RETURNS int4set
    AS 'MODULE_PATHNAME', 'qn_int4set_in' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_out(int4set) RETURNS pg_catalog.cstring
    AS 'MODULE_PATHNAME', 'qn_int4set_out' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_recv(pg_catalog.internal) RETURNS int4set
    AS 'MODULE_PATHNAME', 'qn_int4set_recv' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_send(int4set) RETURNS pg_catalog.bytea
    AS 'MODULE_PATHNAME', 'qn_int4set_send' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;

CREATE TYPE int4set (
    INPUT = int4set_in, OUTPUT = int4set_out, RECEIVE = int4set_recv, SEND = int4set_send,
    INTERNALLENGTH = VARIABLE, ALIGNMENT = int4, STORAGE = extended
);

COMMENT ON TYPE int4set IS
    'set of int4 values, normalised, written {-10..-5,3,7..9}; compact on runs, lone members and dense members alike';
COMMENT ON FUNCTION int4set_in(pg_catalog.cstring) IS
    'int4set of its text: members and ranges a..b in any order, overlapping or repeated';
COMMENT ON FUNCTION int4set_out(int4set) IS 'canonical text of an int4set: maximal ranges ascending';
COMMENT ON FUNCTION int4set_recv(pg_catalog.internal) IS 'int4set of its binary form, every byte validated';
COMMENT ON FUNCTION int4set_send(int4set) IS 'binary form of an int4set: its stored bytes';

-- int4set: union, intersection, difference

CREATE FUNCTION int4set_union(int4set, int4set) RETURNS int4set
    AS 'MODULE_PATHNAME', 'qn_int4set_union' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_intersection(int4set, int4set) RETURNS int4set
    AS 'MODULE_PATHNAME', 'qn_int4set_intersection' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_difference(int4set, int4set) RETURNS int4set
    AS 'MODULE_PATHNAME', 'qn_int4set_difference' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;

CREATE OPERATOR + (LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_union, COMMUTATOR = +);
CREATE OPERATOR * (LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_intersection, COMMUTATOR = *);
CREATE OPERATOR - (LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_difference);

COMMENT ON FUNCTION int4set_union(int4set, int4set) IS 'members of either set';
COMMENT ON FUNCTION int4set_intersection(int4set, int4set) IS 'members of both sets';
COMMENT ON FUNCTION int4set_difference(int4set, int4set) IS 'members of the first set that are not in the second';
COMMENT ON OPERATOR + (int4set, int4set) IS 'union';
COMMENT ON OPERATOR * (int4set, int4set) IS 'intersection';
COMMENT ON OPERATOR - (int4set, int4set) IS 'difference';

-- int4set: containment and overlap
--
-- Between two sets, a set and a value, a set and an int4range. `42 <@ column`
-- is the commutator of `column @> 42`, so both are the same condition to the
-- planner. No operator here has an int4range on its left: `range <@ '...'`
-- would resolve to it and read the literal as an int4set.

CREATE FUNCTION int4set_contains(int4set, int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_contains' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_contained(int4set, int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_contained' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_overlaps(int4set, int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_overlaps' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_contains(int4set, pg_catalog.int4) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_contains_int4' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_contained(pg_catalog.int4, int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_int4_contained' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_contains(int4set, pg_catalog.int4range) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_contains_range' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_contained(int4set, pg_catalog.int4range) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_within_range' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_overlaps(int4set, pg_catalog.int4range) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_overlaps_range' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;

CREATE OPERATOR @> (
    LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_contains, COMMUTATOR = <@,
    RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
CREATE OPERATOR <@ (
    LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_contained, COMMUTATOR = @>,
    RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
CREATE OPERATOR && (
    LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_overlaps, COMMUTATOR = &&,
    RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
CREATE OPERATOR @> (
    LEFTARG = int4set, RIGHTARG = pg_catalog.int4, FUNCTION = int4set_contains, COMMUTATOR = <@,
    RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
CREATE OPERATOR <@ (
    LEFTARG = pg_catalog.int4, RIGHTARG = int4set, FUNCTION = int4set_contained, COMMUTATOR = @>,
    RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
CREATE OPERATOR @> (
    LEFTARG = int4set, RIGHTARG = pg_catalog.int4range, FUNCTION = int4set_contains,
    RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
CREATE OPERATOR <@ (
    LEFTARG = int4set, RIGHTARG = pg_catalog.int4range, FUNCTION = int4set_contained,
    RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
CREATE OPERATOR && (
    LEFTARG = int4set, RIGHTARG = pg_catalog.int4range, FUNCTION = int4set_overlaps,
    RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);

COMMENT ON FUNCTION int4set_contains(int4set, int4set) IS 'every member of the second set is in the first';
COMMENT ON FUNCTION int4set_contained(int4set, int4set) IS 'every member of the first set is in the second';
COMMENT ON FUNCTION int4set_overlaps(int4set, int4set) IS 'the sets share a member';
COMMENT ON FUNCTION int4set_contains(int4set, pg_catalog.int4) IS 'the value is a member of the set';
COMMENT ON FUNCTION int4set_contained(pg_catalog.int4, int4set) IS 'the value is a member of the set';
COMMENT ON FUNCTION int4set_contains(int4set, pg_catalog.int4range) IS
    'every integer of the range is a member (true for the empty range)';
COMMENT ON FUNCTION int4set_contained(int4set, pg_catalog.int4range) IS
    'every member lies in the range (true for the empty set)';
COMMENT ON FUNCTION int4set_overlaps(int4set, pg_catalog.int4range) IS 'some member lies in the range';
COMMENT ON OPERATOR @> (int4set, int4set) IS 'contains';
COMMENT ON OPERATOR <@ (int4set, int4set) IS 'is contained by';
COMMENT ON OPERATOR && (int4set, int4set) IS 'overlaps';
COMMENT ON OPERATOR @> (int4set, pg_catalog.int4) IS 'contains the value';
COMMENT ON OPERATOR <@ (pg_catalog.int4, int4set) IS 'the value is a member';
COMMENT ON OPERATOR @> (int4set, pg_catalog.int4range) IS 'contains every integer of the range';
COMMENT ON OPERATOR <@ (int4set, pg_catalog.int4range) IS 'every member lies in the range';
COMMENT ON OPERATOR && (int4set, pg_catalog.int4range) IS 'some member lies in the range';

-- int4set: position (by the least and greatest members; an empty set answers false)

CREATE FUNCTION int4set_left(int4set, int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_left' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_right(int4set, int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_right' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_not_right(int4set, int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_not_right' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_not_left(int4set, int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_not_left' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_adjacent(int4set, int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_adjacent' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;

CREATE OPERATOR << (
    LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_left, COMMUTATOR = >>,
    RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
CREATE OPERATOR >> (
    LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_right, COMMUTATOR = <<,
    RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
CREATE OPERATOR &< (
    LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_not_right,
    RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
CREATE OPERATOR &> (
    LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_not_left,
    RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);
CREATE OPERATOR -|- (
    LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_adjacent, COMMUTATOR = -|-,
    RESTRICT = pg_catalog.contsel, JOIN = pg_catalog.contjoinsel
);

COMMENT ON FUNCTION int4set_left(int4set, int4set) IS 'every member of the first set is below every member of the second';
COMMENT ON FUNCTION int4set_right(int4set, int4set) IS 'every member of the first set is above every member of the second';
COMMENT ON FUNCTION int4set_not_right(int4set, int4set) IS 'the first set reaches no higher than the second';
COMMENT ON FUNCTION int4set_not_left(int4set, int4set) IS 'the first set reaches no lower than the second';
COMMENT ON FUNCTION int4set_adjacent(int4set, int4set) IS
    'the greatest member of one set is one below the least member of the other';
COMMENT ON OPERATOR << (int4set, int4set) IS 'is strictly left of';
COMMENT ON OPERATOR >> (int4set, int4set) IS 'is strictly right of';
COMMENT ON OPERATOR &< (int4set, int4set) IS 'does not extend to the right of';
COMMENT ON OPERATOR &> (int4set, int4set) IS 'does not extend to the left of';
COMMENT ON OPERATOR -|- (int4set, int4set) IS 'is adjacent to';

-- int4set: equality, order and hash
--
-- Equal sets have equal stored bytes. The order compares the ascending member
-- sequences, the first member that differs deciding and a set that begins
-- another coming first: {} < {1} < {1,2} < {1,3} < {2}.

CREATE FUNCTION int4set_eq(int4set, int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_eq' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE LEAKPROOF;
CREATE FUNCTION int4set_ne(int4set, int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_ne' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE LEAKPROOF;
CREATE FUNCTION int4set_lt(int4set, int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_lt' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_le(int4set, int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_le' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_gt(int4set, int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_gt' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_ge(int4set, int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_ge' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_cmp(int4set, int4set) RETURNS pg_catalog.int4
    AS 'MODULE_PATHNAME', 'qn_int4set_cmp' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_hash(int4set) RETURNS pg_catalog.int4
    AS 'MODULE_PATHNAME', 'qn_int4set_hash' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_hash_extended(int4set, pg_catalog.int8) RETURNS pg_catalog.int8
    AS 'MODULE_PATHNAME', 'qn_int4set_hash_extended' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;

CREATE OPERATOR = (
    LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_eq, COMMUTATOR = =, NEGATOR = <>,
    RESTRICT = pg_catalog.eqsel, JOIN = pg_catalog.eqjoinsel, HASHES, MERGES
);
CREATE OPERATOR <> (
    LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_ne, COMMUTATOR = <>, NEGATOR = =,
    RESTRICT = pg_catalog.neqsel, JOIN = pg_catalog.neqjoinsel
);
CREATE OPERATOR < (
    LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_lt, COMMUTATOR = >, NEGATOR = >=,
    RESTRICT = pg_catalog.scalarltsel, JOIN = pg_catalog.scalarltjoinsel
);
CREATE OPERATOR <= (
    LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_le, COMMUTATOR = >=, NEGATOR = >,
    RESTRICT = pg_catalog.scalarlesel, JOIN = pg_catalog.scalarlejoinsel
);
CREATE OPERATOR > (
    LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_gt, COMMUTATOR = <, NEGATOR = <=,
    RESTRICT = pg_catalog.scalargtsel, JOIN = pg_catalog.scalargtjoinsel
);
CREATE OPERATOR >= (
    LEFTARG = int4set, RIGHTARG = int4set, FUNCTION = int4set_ge, COMMUTATOR = <=, NEGATOR = <,
    RESTRICT = pg_catalog.scalargesel, JOIN = pg_catalog.scalargejoinsel
);

CREATE OPERATOR CLASS int4set_btree_ops DEFAULT FOR TYPE int4set USING btree AS
    OPERATOR 1 <, OPERATOR 2 <=, OPERATOR 3 =, OPERATOR 4 >=, OPERATOR 5 >,
    FUNCTION 1 int4set_cmp(int4set, int4set);
CREATE OPERATOR CLASS int4set_hash_ops DEFAULT FOR TYPE int4set USING hash AS
    OPERATOR 1 =,
    FUNCTION 1 int4set_hash(int4set),
    FUNCTION 2 int4set_hash_extended(int4set, pg_catalog.int8);

COMMENT ON FUNCTION int4set_eq(int4set, int4set) IS 'the sets have the same members';
COMMENT ON FUNCTION int4set_ne(int4set, int4set) IS 'the sets differ';
COMMENT ON FUNCTION int4set_lt(int4set, int4set) IS 'the first set sorts before the second (by member sequence)';
COMMENT ON FUNCTION int4set_le(int4set, int4set) IS 'the first set sorts before the second or equals it';
COMMENT ON FUNCTION int4set_gt(int4set, int4set) IS 'the first set sorts after the second (by member sequence)';
COMMENT ON FUNCTION int4set_ge(int4set, int4set) IS 'the first set sorts after the second or equals it';
COMMENT ON FUNCTION int4set_cmp(int4set, int4set) IS
    'order of two sets by their ascending member sequences: -1, 0 or 1';
COMMENT ON FUNCTION int4set_hash(int4set) IS 'hash of an int4set';
COMMENT ON FUNCTION int4set_hash_extended(int4set, pg_catalog.int8) IS 'hash of an int4set with a seed';
COMMENT ON OPERATOR = (int4set, int4set) IS 'equal';
COMMENT ON OPERATOR <> (int4set, int4set) IS 'not equal';
COMMENT ON OPERATOR < (int4set, int4set) IS 'sorts before';
COMMENT ON OPERATOR <= (int4set, int4set) IS 'sorts before or equal';
COMMENT ON OPERATOR > (int4set, int4set) IS 'sorts after';
COMMENT ON OPERATOR >= (int4set, int4set) IS 'sorts after or equal';
COMMENT ON OPERATOR CLASS int4set_btree_ops USING btree IS 'order of int4sets by member sequence';
COMMENT ON OPERATOR CLASS int4set_hash_ops USING hash IS 'hash of int4sets';

-- int4set: functions

CREATE FUNCTION cardinality(int4set) RETURNS pg_catalog.int8
    AS 'MODULE_PATHNAME', 'qn_int4set_cardinality' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION isempty(int4set) RETURNS pg_catalog.bool
    AS 'MODULE_PATHNAME', 'qn_int4set_is_empty' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION min_member(int4set) RETURNS pg_catalog.int4
    AS 'MODULE_PATHNAME', 'qn_int4set_min' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION max_member(int4set) RETURNS pg_catalog.int4
    AS 'MODULE_PATHNAME', 'qn_int4set_max' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION members(int4set) RETURNS SETOF pg_catalog.int4
    AS 'MODULE_PATHNAME', 'qn_int4set_members' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE ROWS 1000;
CREATE FUNCTION ranges(int4set, OUT first pg_catalog.int4, OUT last pg_catalog.int4) RETURNS SETOF record
    AS 'MODULE_PATHNAME', 'qn_int4set_ranges' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE ROWS 100;

COMMENT ON FUNCTION cardinality(int4set) IS 'number of members, up to 4294967296 (read from the stored value)';
COMMENT ON FUNCTION isempty(int4set) IS 'the set has no member';
COMMENT ON FUNCTION min_member(int4set) IS 'least member; NULL for the empty set';
COMMENT ON FUNCTION max_member(int4set) IS 'greatest member; NULL for the empty set';
COMMENT ON FUNCTION members(int4set) IS 'members ascending, one row each';
COMMENT ON FUNCTION ranges(int4set) IS 'maximal ranges ascending as (first, last) rows, both included';

-- int4set: casts and conversions
--
-- From and to int4[] range arrays ('r': pairs of lower and upper, both
-- included) and sets of scalars ('s'), int4range and int4multirange. A set
-- reaching 2147483647 becomes a range without an upper bound, as int4range
-- cannot hold 2147483648.

CREATE FUNCTION int4set(pg_catalog.int4[]) RETURNS int4set
    AS 'MODULE_PATHNAME', 'qn_int4set_from_array' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set(pg_catalog.int4[], form pg_catalog."char") RETURNS int4set
    AS 'MODULE_PATHNAME', 'qn_int4set_from_array' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_to_array(int4set) RETURNS pg_catalog.int4[]
    AS 'MODULE_PATHNAME', 'qn_int4set_to_array' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_to_array(int4set, form pg_catalog."char") RETURNS pg_catalog.int4[]
    AS 'MODULE_PATHNAME', 'qn_int4set_to_array' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set(pg_catalog.int4range) RETURNS int4set
    AS 'MODULE_PATHNAME', 'qn_int4set_from_range' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION int4set_to_int4range(int4set) RETURNS pg_catalog.int4range
    AS 'MODULE_PATHNAME', 'qn_int4set_to_range' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;

CREATE CAST (pg_catalog.int4[] AS int4set) WITH FUNCTION int4set(pg_catalog.int4[]);
CREATE CAST (int4set AS pg_catalog.int4[]) WITH FUNCTION int4set_to_array(int4set) AS ASSIGNMENT;
CREATE CAST (pg_catalog.int4range AS int4set) WITH FUNCTION int4set(pg_catalog.int4range);
CREATE CAST (int4set AS pg_catalog.int4range) WITH FUNCTION int4set_to_int4range(int4set);

COMMENT ON FUNCTION int4set(pg_catalog.int4[]) IS
    'int4set of a range array: pairs in any order, overlapping or repeated; a pair with lower > upper is refused';
COMMENT ON FUNCTION int4set(pg_catalog.int4[], pg_catalog."char") IS
    'int4set of an int4[] in form ''r'' (range array) or ''s'' (members in any order)';
COMMENT ON FUNCTION int4set_to_array(int4set) IS 'the normalised range array of an int4set';
COMMENT ON FUNCTION int4set_to_array(int4set, pg_catalog."char") IS
    'an int4set as an int4[] in form ''r'' (normalised range array) or ''s'' (members ascending)';
COMMENT ON FUNCTION int4set(pg_catalog.int4range) IS 'int4set of the integers of an int4range';
COMMENT ON FUNCTION int4set_to_int4range(int4set) IS 'int4range of an int4set that is empty or one range';
COMMENT ON CAST (pg_catalog.int4[] AS int4set) IS 'the set of a range array';
COMMENT ON CAST (int4set AS pg_catalog.int4[]) IS 'the normalised range array of the set';
COMMENT ON CAST (pg_catalog.int4range AS int4set) IS 'the set of the integers of the range';
COMMENT ON CAST (int4set AS pg_catalog.int4range) IS 'the range of a set that is empty or one range';

DO $multirange$
BEGIN
    IF pg_catalog.to_regtype('pg_catalog.int4multirange') IS NULL THEN
        RETURN;
    END IF;
    EXECUTE $sql$
    CREATE FUNCTION int4set(pg_catalog.int4multirange) RETURNS @extschema@.int4set
        AS 'MODULE_PATHNAME', 'qn_int4set_from_multirange' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE $sql$;
    EXECUTE $sql$
    CREATE FUNCTION int4set_to_int4multirange(@extschema@.int4set) RETURNS pg_catalog.int4multirange
        AS 'MODULE_PATHNAME', 'qn_int4set_to_multirange' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE $sql$;
    EXECUTE $sql$
    CREATE CAST (pg_catalog.int4multirange AS @extschema@.int4set)
        WITH FUNCTION @extschema@.int4set(pg_catalog.int4multirange) $sql$;
    EXECUTE $sql$
    CREATE CAST (@extschema@.int4set AS pg_catalog.int4multirange)
        WITH FUNCTION @extschema@.int4set_to_int4multirange(@extschema@.int4set) $sql$;
    EXECUTE $sql$
    COMMENT ON FUNCTION @extschema@.int4set(pg_catalog.int4multirange) IS 'int4set of an int4multirange' $sql$;
    EXECUTE $sql$
    COMMENT ON FUNCTION @extschema@.int4set_to_int4multirange(@extschema@.int4set) IS
        'int4multirange of an int4set' $sql$;
    EXECUTE $sql$
    COMMENT ON CAST (pg_catalog.int4multirange AS @extschema@.int4set) IS 'the set of the multirange' $sql$;
    EXECUTE $sql$
    COMMENT ON CAST (@extschema@.int4set AS pg_catalog.int4multirange) IS 'the multirange of the set' $sql$;
END
$multirange$;

-- int4set: aggregates
--
-- The set of an int4 column, and the union and the intersection of an int4set
-- column; NULL rows add nothing, and no row gives NULL. Parallel: partial
-- states travel as the set's own stored form, and a combine merges into its
-- first state. The final function only reads the state.

CREATE FUNCTION qn_int4set_build_transfn(pg_catalog.internal, pg_catalog.int4) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
CREATE FUNCTION qn_int4set_union_transfn(pg_catalog.internal, int4set) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
CREATE FUNCTION qn_int4set_intersect_transfn(pg_catalog.internal, int4set) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
CREATE FUNCTION qn_int4set_aggregate_finalfn(pg_catalog.internal) RETURNS int4set
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
CREATE FUNCTION qn_int4set_aggregate_combinefn(pg_catalog.internal, pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE PARALLEL SAFE;
CREATE FUNCTION qn_int4set_aggregate_serialfn(pg_catalog.internal) RETURNS pg_catalog.bytea
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION qn_int4set_aggregate_deserialfn(pg_catalog.bytea, pg_catalog.internal) RETURNS pg_catalog.internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;

CREATE AGGREGATE int4set_build_agg(pg_catalog.int4) (
    SFUNC = qn_int4set_build_transfn, STYPE = pg_catalog.internal,
    FINALFUNC = qn_int4set_aggregate_finalfn, FINALFUNC_MODIFY = READ_ONLY,
    COMBINEFUNC = qn_int4set_aggregate_combinefn,
    SERIALFUNC = qn_int4set_aggregate_serialfn, DESERIALFUNC = qn_int4set_aggregate_deserialfn,
    PARALLEL = SAFE
);
CREATE AGGREGATE int4set_union_agg(int4set) (
    SFUNC = qn_int4set_union_transfn, STYPE = pg_catalog.internal,
    FINALFUNC = qn_int4set_aggregate_finalfn, FINALFUNC_MODIFY = READ_ONLY,
    COMBINEFUNC = qn_int4set_aggregate_combinefn,
    SERIALFUNC = qn_int4set_aggregate_serialfn, DESERIALFUNC = qn_int4set_aggregate_deserialfn,
    PARALLEL = SAFE
);
CREATE AGGREGATE int4set_intersect_agg(int4set) (
    SFUNC = qn_int4set_intersect_transfn, STYPE = pg_catalog.internal,
    FINALFUNC = qn_int4set_aggregate_finalfn, FINALFUNC_MODIFY = READ_ONLY,
    COMBINEFUNC = qn_int4set_aggregate_combinefn,
    SERIALFUNC = qn_int4set_aggregate_serialfn, DESERIALFUNC = qn_int4set_aggregate_deserialfn,
    PARALLEL = SAFE
);

COMMENT ON FUNCTION qn_int4set_build_transfn(pg_catalog.internal, pg_catalog.int4) IS
    'transition of int4set_build_agg: adds a value';
COMMENT ON FUNCTION qn_int4set_union_transfn(pg_catalog.internal, int4set) IS
    'transition of int4set_union_agg: adds a set';
COMMENT ON FUNCTION qn_int4set_intersect_transfn(pg_catalog.internal, int4set) IS
    'transition of int4set_intersect_agg: intersects with a set';
COMMENT ON FUNCTION qn_int4set_aggregate_finalfn(pg_catalog.internal) IS
    'final function of the int4set aggregates: the set, the state left as it is';
COMMENT ON FUNCTION qn_int4set_aggregate_combinefn(pg_catalog.internal, pg_catalog.internal) IS
    'combine function of the int4set aggregates: merges the second state into the first';
COMMENT ON FUNCTION qn_int4set_aggregate_serialfn(pg_catalog.internal) IS
    'serialise function of the int4set aggregates: a flags byte and the set''s stored form';
COMMENT ON FUNCTION qn_int4set_aggregate_deserialfn(pg_catalog.bytea, pg_catalog.internal) IS
    'deserialise function of the int4set aggregates, every byte checked';
COMMENT ON AGGREGATE int4set_build_agg(pg_catalog.int4) IS 'the set of the values of a column';
COMMENT ON AGGREGATE int4set_union_agg(int4set) IS 'the union of the sets of a column';
COMMENT ON AGGREGATE int4set_intersect_agg(int4set) IS 'the intersection of the sets of a column';

-- complain if script is sourced in psql, rather than via ALTER EXTENSION
\echo Use "ALTER EXTENSION kelvarn_range_operators UPDATE TO '3.8.0'" to load this file. \quit

-- 3.7.0 to 3.8.0: int4set in queries. A new database runs the 3.3.16 script
-- and each update script after it, so an updated database and a new one hold
-- the same objects. Built-in names are qualified with pg_catalog, the
-- extension's own objects in expressions with @extschema@.

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

-- complain if script is sourced in psql, rather than via ALTER EXTENSION
\echo Use "ALTER EXTENSION kelvarn_range_operators UPDATE TO '3.8.0'" to load this file. \quit

-- 3.7.0 to 3.8.0: int4set in queries. A new database runs the 3.3.16 script
-- and each update script after it, so an updated database and a new one hold
-- the same objects. Built-in names are qualified with pg_catalog, the
-- extension's own objects in expressions with @extschema@.

-- int4set aggregates: partial states read in place
--
-- The deserialise function takes the bytes a serialise function made (only the
-- executor holds its internal argument) as they are: the set is neither
-- checked again nor copied before the combine function merges it.

COMMENT ON FUNCTION @extschema@.qn_int4set_aggregate_deserialfn(pg_catalog.bytea, pg_catalog.internal) IS
    'deserialise function of the int4set aggregates: reads a serialise function''s bytes in place';

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

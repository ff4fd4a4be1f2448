-- complain if script is sourced in psql, rather than via ALTER EXTENSION
\echo Use "ALTER EXTENSION kelvarn_range_operators UPDATE TO '3.4.0'" to load this file. \quit

-- 3.3.16 to 3.4.0. A new database gets 3.4.0 by running the 3.3.16 script and
-- then this one, so an upgraded database and a new one hold the same objects.
-- Everything here keeps the objects that users' views, indexes and columns
-- depend on: objects are altered in place, never dropped and recreated.

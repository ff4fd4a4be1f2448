-- A range array of 4,000,000 ranges to int4multirange, sorted and shuffled:
-- time, the backend's peak memory growth against the result's size, and how
-- soon a statement_timeout stops it. Each statement runs in a fresh connection.
\timing off
SET jit = off;
CREATE FUNCTION peak_kb() RETURNS int8 LANGUAGE sql AS $$
    SELECT (regexp_match(pg_read_file('/proc/' || pg_backend_pid() || '/status'), 'VmHWM:\s+(\d+) kB'))[1]::int8
$$;
CREATE TABLE inputs AS
SELECT ARRAY(SELECT x FROM generate_series(0, 15999999, 4) s, LATERAL (VALUES (s), (s + 1)) p(x)) AS sorted,
       ARRAY(SELECT x FROM (SELECT s FROM generate_series(0, 15999999, 4) s ORDER BY hashint4(s)) q,
                           LATERAL (VALUES (s), (s + 1)) p(x)) AS shuffled;
ALTER TABLE inputs ALTER sorted SET STORAGE EXTERNAL, ALTER shuffled SET STORAGE EXTERNAL;
SELECT pg_size_pretty(pg_column_size(qn_rangearray_to_int4multirange(sorted))::int8) AS result_size,
       pg_column_size(qn_rangearray_to_int4multirange(sorted)) / 1024 AS result_kb,
       cardinality(sorted) / 2 AS ranges FROM inputs;
\set column sorted
\ir include/multirange_peak.psql
\set column shuffled
\ir include/multirange_peak.psql
DROP TABLE inputs;
DROP FUNCTION peak_kb();

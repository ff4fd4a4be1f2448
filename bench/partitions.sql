-- Peak memory of the set aggregates over a hash-partitioned table of 640,000
-- rows (one group, values over +-1e9), with 16, 64 and 256 partitions, with
-- and without partition-wise aggregation: each statement runs serially in a
-- fresh connection (include/partition_peak.psql), and the figure is the growth
-- of the backend's peak resident set over it.
\timing off
SET jit = off;
CREATE FUNCTION peak_kb() RETURNS int8 LANGUAGE sql AS $$
    SELECT (regexp_match(pg_read_file('/proc/' || pg_backend_pid() || '/status'), 'VmHWM:\s+(\d+) kB'))[1]::int8
$$;
CREATE TABLE results (partitions int, partition_wise bool, statement text, ms numeric, peak_growth_kb int8);
CREATE PROCEDURE make_parted(n int) LANGUAGE plpgsql AS $$
BEGIN
    DROP TABLE IF EXISTS parted;
    CREATE TABLE parted (v int4) PARTITION BY HASH (v);
    FOR i IN 0..n - 1 LOOP
        EXECUTE format('CREATE TABLE parted_%s PARTITION OF parted FOR VALUES WITH (MODULUS %s, REMAINDER %s)', i, n, i);
    END LOOP;
    INSERT INTO parted SELECT hashint4(g) % 1000000000 FROM generate_series(1, 640000) g;
END $$;

\set parts 16
\ir include/partition_parts.psql
\set parts 64
\ir include/partition_parts.psql
\set parts 256
\ir include/partition_parts.psql

SELECT statement, partitions, p.ms AS pw_ms, p.peak_growth_kb AS pw_peak_kb, s.ms AS plain_ms,
       s.peak_growth_kb AS plain_peak_kb, round(p.peak_growth_kb::numeric / greatest(s.peak_growth_kb, 1), 2) AS pw_vs_plain
FROM results p JOIN results s USING (partitions, statement)
WHERE p.partition_wise AND NOT s.partition_wise
ORDER BY statement, partitions;
DROP TABLE results, parted;
DROP PROCEDURE make_parted(int);
DROP FUNCTION peak_kb();

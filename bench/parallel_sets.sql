-- Building sets from 10,000,000 rows, serial and with 2 and 6 parallel workers
-- forced: int4set_agg (range arrays) and int4set_build_agg (int4set), for the
-- two shapes of set: values spread over +-1e9 (a set about as large as its
-- rows: each partial set is large, and so is what workers send and the leader
-- unites) and values in [0, 2^20) (a set much smaller than its rows). Medians
-- of 3; the ratio is to the serial plan of the same statement. count(v) shows
-- what the parallel machinery itself costs on this machine. Against
-- pg_roaringbitmap's aggregates: bench/int4set_aggregates.sql.
\timing off
SET jit = off;
CREATE TABLE ten_million AS
SELECT (hashint4(g) % 1000000000) AS spread, hashint4(g) & 1048575 AS small
FROM generate_series(0, 9999999) g ORDER BY random();
VACUUM ANALYZE ten_million;
-- The planner would give a table of this size fewer workers than asked for.
ALTER TABLE ten_million SET (parallel_workers = 6);
\ir include/median_ms.psql
SELECT statement, workers, m.median AS median_ms, m.fastest || '-' || m.slowest AS range_ms, m.launched,
       round(m.median / first_value(m.median) OVER (PARTITION BY statement ORDER BY workers), 2) AS vs_serial
FROM (VALUES ('int4set_agg(spread, ''r'')'), ('int4set_agg(small, ''r'')'),
             ('int4set_build_agg(spread)'), ('int4set_build_agg(small)'), ('count(spread)')) s(statement),
     (VALUES (0), (2), (6)) w(workers),
     LATERAL pg_temp.median_ms(format('SELECT %s FROM ten_million', statement), workers, 3) m
ORDER BY statement DESC, workers;
DROP TABLE ten_million;

-- postgres_fdw over two shard databases declaring the extension shippable: answers equal one local table's.
SELECT current_database() AS coordinator, current_user AS superuser,
       current_setting('unix_socket_directories') AS socket_dir, current_setting('port') AS port \gset
SET client_min_messages = warning;
DROP DATABASE IF EXISTS scale_out_shard_1 WITH (FORCE);
DROP DATABASE IF EXISTS scale_out_shard_2 WITH (FORCE);
CREATE DATABASE scale_out_shard_1 TEMPLATE template0;
\c scale_out_shard_1
CREATE EXTENSION kelvarn_range_operators;
CREATE TABLE visits (tenant int4, v int4, slot int8, s int4set);
\c :coordinator
CREATE DATABASE scale_out_shard_2 TEMPLATE scale_out_shard_1;

CREATE EXTENSION postgres_fdw;
CREATE SERVER shard_1 FOREIGN DATA WRAPPER postgres_fdw
    OPTIONS (host :'socket_dir', port :'port', dbname 'scale_out_shard_1', extensions 'kelvarn_range_operators');
CREATE SERVER shard_2 FOREIGN DATA WRAPPER postgres_fdw
    OPTIONS (host :'socket_dir', port :'port', dbname 'scale_out_shard_2', extensions 'kelvarn_range_operators');
CREATE USER MAPPING FOR CURRENT_USER SERVER shard_1 OPTIONS (user :'superuser');
CREATE USER MAPPING FOR CURRENT_USER SERVER shard_2 OPTIONS (user :'superuser');
CREATE TABLE visits (tenant int4, v int4, slot int8, s int4set) PARTITION BY RANGE (tenant);
CREATE FOREIGN TABLE visits_1 PARTITION OF visits FOR VALUES FROM (0) TO (50) SERVER shard_1 OPTIONS (table_name 'visits');
CREATE FOREIGN TABLE visits_2 PARTITION OF visits FOR VALUES FROM (50) TO (100) SERVER shard_2 OPTIONS (table_name 'visits');

-- The same rows in one local table and, through the coordinator, on the shards.
-- s: a run at a random place and one at tenant * 1000 that every set of the
-- tenant holds (so that intersections are not empty); NULL in one row of 41.
CREATE TABLE visits_local AS
SELECT g % 100 AS tenant, abs(hashint4(g)) % 100000 AS v, qn_range_pack(lo, lo + g % 50) AS slot,
       CASE WHEN g % 41 <> 0 THEN int4set(ARRAY[lo, lo + g % 50, g % 100 * 1000, g % 100 * 1000 + g % 13]) END AS s
FROM (SELECT g, abs(hashint4(g + 1)) % 100000 AS lo FROM generate_series(1, 4000) g) s;
INSERT INTO visits SELECT * FROM visits_local;
-- What the rows of the first shard are locally, for queries of its foreign table.
CREATE VIEW visits_local_1 AS SELECT * FROM visits_local WHERE tenant < 50;
SELECT (SELECT count(*) FROM visits_1) AS shard_1_rows, (SELECT count(*) FROM visits_2) AS shard_2_rows;

-- sharded(query): the shards' remote SQL, the rows, whether they equal the query's over visits_local.
-- postgres_fdw of PostgreSQL 13 writes an int4set constant beside an int4set
-- with a cast that 15 and 18 leave out (the remote resolves it the same): left
-- out here, so that every major shows the same text.
CREATE FUNCTION pg_temp.sharded(query text, OUT scans int, OUT remote_sql text, OUT rows bigint, OUT same bool)
LANGUAGE plpgsql AS $$
DECLARE line text; sqls text[] := '{}'; sharded text[]; local text[];
BEGIN
    FOR line IN EXECUTE 'EXPLAIN (VERBOSE, COSTS OFF) ' || query LOOP
        IF line ~ '^\s*Remote SQL: ' THEN
            sqls := sqls || regexp_replace(regexp_replace(line, '^\s*Remote SQL: ', ''), '''::public\.int4set\M', '''', 'g');
        END IF;
    END LOOP;
    scans := cardinality(sqls);
    remote_sql := (SELECT string_agg(DISTINCT x, ' / ') FROM unnest(sqls) x);
    EXECUTE format('SELECT array_agg(t::text ORDER BY t::text) FROM (%s) t', query) INTO sharded;
    EXECUTE format('SELECT array_agg(t::text ORDER BY t::text) FROM (%s) t', replace(query, 'FROM visits', 'FROM visits_local'))
        INTO local;
    rows := cardinality(sharded);
    same := sharded IS NOT DISTINCT FROM local;
END $$;

-- Membership tests and int4set_agg by tenant run on the shards; other aggregates get rows.
SET enable_partitionwise_aggregate = on;
SELECT name, r.* FROM (VALUES
    ('operator', 'SELECT tenant, v FROM visits WHERE v <@ ''{100,2000,50000,52000}''::int4[]'),
    ('function', 'SELECT tenant, v FROM visits WHERE qn_int4_in_rangearray(v, ''{100,2000,50000,52000}'')'),
    ('packed', 'SELECT tenant, slot FROM visits WHERE slot && qn_range_pack(1000, 1500) OR slot @> 99999'),
    ('per tenant', 'SELECT tenant, int4set_agg(v, ''r'') AS s FROM visits GROUP BY tenant'),
    ('global', 'SELECT int4set_agg(''r'', s, ''r'') FROM (SELECT tenant, int4set_agg(v, ''r'') AS s FROM visits GROUP BY tenant) t'),
    ('not by tenant', 'SELECT int4set_agg(v, ''r'') FROM visits')) q(name, query),
LATERAL pg_temp.sharded(query) r;

-- int4set operators and functions in conditions run on the shards, and its
-- aggregates wherever a group lies on one shard: by tenant (partition-wise), or
-- grouped by anything over one shard's foreign table. Over all tenants the
-- shards send rows: they cannot run partial aggregates.
SELECT name, r.* FROM (VALUES
    ('contains value', 'SELECT tenant, v, s FROM visits WHERE s @> 50000'),
    ('value contained', 'SELECT tenant, v, s FROM visits WHERE v <@ s'),
    ('overlaps', 'SELECT tenant, s FROM visits WHERE s && ''{1000..1100,70000}'''),
    ('contained', 'SELECT tenant, s FROM visits WHERE s <@ ''{0..30000}'''),
    ('union', 'SELECT tenant, s FROM visits WHERE s + ''{2000..2005}'' = s'),
    ('intersection', 'SELECT tenant, s FROM visits WHERE cardinality(s * ''{10000..20000}'') > 30'),
    ('difference', 'SELECT tenant, s FROM visits WHERE isempty(s - ''{0..49999}'')'),
    ('functions', 'SELECT tenant, v FROM visits WHERE min_member(s) < 500 OR max_member(s) - min_member(s) < 20'),
    ('per tenant', 'SELECT tenant, int4set_build_agg(v), int4set_union_agg(s), int4set_intersect_agg(s) FROM visits GROUP BY tenant'),
    ('of expressions', 'SELECT tenant, int4set_union_agg(s - ''{0..49999}''), int4set_build_agg(v % 1000) FROM visits WHERE s && ''{40000..60000}'' GROUP BY tenant'),
    ('one shard', 'SELECT v % 3 AS k, int4set_build_agg(v), int4set_union_agg(s), int4set_intersect_agg(s) FROM visits_1 GROUP BY 1'),
    ('all tenants', 'SELECT int4set_build_agg(v), int4set_union_agg(s), int4set_intersect_agg(s) FROM visits')) q(name, query),
LATERAL pg_temp.sharded(query) r;

-- Without partition-wise aggregation the coordinator groups the shards' rows.
SET enable_partitionwise_aggregate = off;
SELECT r.* FROM pg_temp.sharded('SELECT tenant, int4set_build_agg(v), int4set_intersect_agg(s) FROM visits GROUP BY tenant') r;

\c :coordinator
SET client_min_messages = warning;
DROP TABLE visits;
DROP EXTENSION postgres_fdw CASCADE;
DROP DATABASE scale_out_shard_1 WITH (FORCE);
DROP DATABASE scale_out_shard_2 WITH (FORCE);

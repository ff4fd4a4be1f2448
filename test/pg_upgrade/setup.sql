-- The extension in use on the old major: stored range arrays, packed ranges and
-- bitfields, both GiST operator classes, a view and a materialized view over the
-- aggregates, a partitioned table.
CREATE EXTENSION kelvarn_range_operators;
CREATE TABLE sets (id int4 PRIMARY KEY, r int4[], p int8, b bytea, v int4);
INSERT INTO sets
SELECT i, qn_rangearray_normalise(ARRAY[i * 10, i * 10 + 5, i * 7, i * 7 + 2]), qn_range_pack(i, i + i % 50),
       qn_int4set2bitfield_int4('r', ARRAY[i, i + 3 + i % 40]), (i * 37) % 5000
FROM generate_series(1, 5000) i;
CREATE INDEX sets_v ON sets USING gist (v qn_gist_int4_ops);
ALTER TABLE sets ADD s int4set;
UPDATE sets SET s = r::int4set + int4set(ARRAY[v, -v], 's');
CREATE INDEX sets_s ON sets (s);
CREATE INDEX sets_p ON sets USING gist (p qn_gist_rangepacked_ops);
CREATE VIEW whole_set AS
SELECT int4set_agg(v, 'r') AS s, int4set_agg_optimized(v, 5000, 'm') AS o, int4set_agg('r', r, 's') AS u FROM sets;
CREATE MATERIALIZED VIEW groups AS
SELECT id % 10 AS g, int4set_agg('r', r, 'r') AS u, agg_keep_single(id % 10) AS k FROM sets GROUP BY 1;
CREATE TABLE parted (id int4, v int4) PARTITION BY HASH (id);
CREATE TABLE parted_0 PARTITION OF parted FOR VALUES WITH (MODULUS 3, REMAINDER 0);
CREATE TABLE parted_1 PARTITION OF parted FOR VALUES WITH (MODULUS 3, REMAINDER 1);
CREATE TABLE parted_2 PARTITION OF parted FOR VALUES WITH (MODULUS 3, REMAINDER 2);
INSERT INTO parted SELECT id, v FROM sets;
ANALYZE;

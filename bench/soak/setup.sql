-- Tables of the soak run (scripts/soak.sh): rows with an int4 value (half of them
-- within a million of zero, where the ranges lie), a bound pair,
-- a small range array and a packed range, GiST-indexed on the value and the packed
-- range; derived from hashint4 so every run starts alike.
CREATE TABLE soak_rows (
    id bigserial PRIMARY KEY,
    grp int NOT NULL,
    v int4 NOT NULL,
    lo int4 NOT NULL,
    hi int4 NOT NULL,
    arr int4[] NOT NULL,
    pr int8 NOT NULL);
INSERT INTO soak_rows (grp, v, lo, hi, arr, pr)
SELECT i % 50, CASE WHEN i % 2 = 0 THEN h ELSE h % 1000000 END, l, l + w, ARRAY[l, l + w, l + w + 2 + w % 7, l + w + 20], qn_range_pack(l, l + w)
FROM (SELECT i, hashint4(i) AS h, hashint4(i + 1000000) % 1000000 AS l, abs(hashint4(i + 2000000) % 5000) AS w
      FROM generate_series(1, 20000) i) s;
CREATE INDEX soak_rows_v ON soak_rows USING gist (v qn_gist_int4_ops);
CREATE INDEX soak_rows_pr ON soak_rows USING gist (pr qn_gist_rangepacked_ops);
ANALYZE soak_rows;

-- Queries for the index checks after the run: a range array, a bitfield, a packed
-- range and a value each.
CREATE TABLE soak_queries AS
SELECT q AS qid,
       ARRAY[l, l + 3000, l + 10000, l + 60000] AS arr,
       qn_int4set2bitfield_int4('r', ARRAY[l, l + 40, l + 500, l + 900]) AS bf,
       qn_range_pack(l, l + abs(hashint4(q + 7) % 200000)) AS pr,
       hashint4(q + 11) % 1000000 AS val
FROM (SELECT q, hashint4(q + 3) % 1000000 AS l FROM generate_series(1, 40) q) s;

-- Range arrays next to PostgreSQL's forms, on 1,000,000 ranges: normalising
-- input that is sorted, two sorted arrays one after the other, and shuffled;
-- int4range[] in and out; members and rows streamed; packed ranges as text.
\timing off
CREATE TEMP TABLE inputs AS
SELECT ARRAY(SELECT x FROM generate_series(0, 3999999, 4) s, LATERAL (VALUES (s), (s + 1)) p(x)) AS sorted,
       ARRAY(SELECT x FROM (SELECT s FROM generate_series(0, 3999999, 8) s UNION ALL SELECT s FROM generate_series(4, 3999999, 8) s) q,
                           LATERAL (VALUES (s), (s + 1)) p(x)) AS two_runs,
       ARRAY(SELECT x FROM (SELECT s FROM generate_series(0, 3999999, 4) s ORDER BY hashint4(s)) q,
                           LATERAL (VALUES (s), (s + 1)) p(x)) AS shuffled;
CREATE TEMP TABLE ranges AS SELECT array_agg(int4range(s, s + 2) ORDER BY hashint4(s)) AS r FROM generate_series(0, 3999999, 4) s;
SELECT cardinality(sorted) / 2 AS ranges, cardinality(two_runs) / 2 AS two_runs, cardinality(shuffled) / 2 AS shuffled,
       (SELECT cardinality(r) FROM ranges) AS int4ranges
FROM inputs;
SELECT cardinality(sorted) + cardinality(two_runs) + cardinality(shuffled) AS warm_up FROM inputs;
\timing on
-- Normalising: one linear check when already normalised, O(n log k) for k sorted runs.
SELECT qn_rangearray_is_normalised(sorted) AS sorted_is_normalised FROM inputs;
SELECT cardinality(qn_rangearray_normalise(sorted)) AS sorted FROM inputs;
SELECT cardinality(qn_rangearray_normalise(two_runs)) AS two_runs FROM inputs;
SELECT cardinality(qn_rangearray_normalise(shuffled)) AS shuffled FROM inputs;
-- The same through the aggregate, for scale.
SELECT cardinality(int4set_agg('r', shuffled, 'r')) AS shuffled_by_int4set_agg FROM inputs;
SELECT qn_rangearray_equal(sorted, shuffled) AS sorted_equals_shuffled FROM inputs;
-- int4range[] in and out.
SELECT cardinality(qn_rangearray_from_int4ranges(r)) AS from_int4ranges FROM ranges;
SELECT cardinality(qn_rangearray_to_int4ranges(sorted)) AS to_int4ranges FROM inputs;
-- Rows and members, streamed.
SELECT count(*) AS pairs FROM inputs, qn_rangearray_unnest(sorted);
SELECT count(*) AS members FROM (SELECT qn_rangearray_members(sorted) FROM inputs) m;
SELECT count(*) AS members_of_10m FROM (SELECT qn_rangearray_members('{1,10000000}')) m;
-- Packed ranges as text and back.
SELECT count(qn_rangepacked_from_text(qn_rangepacked_to_text(qn_range_pack(s, s + 9)))) AS text_round_trips
FROM generate_series(1, 1000000) s;

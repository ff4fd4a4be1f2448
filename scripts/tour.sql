-- A short tour of kelvarn_range_operators.
\set VERBOSITY default
CREATE EXTENSION kelvarn_range_operators;
SELECT extversion FROM pg_extension WHERE extname = 'kelvarn_range_operators';

-- int4set: a set of int4 values, written as members and ranges a..b, normalised.
SELECT '{443, 80, 8000..8999, 22, 81}'::int4set AS ports;
SELECT s + '{9090}' AS plus, s * '{1..100}' AS times, s - '{22}' AS minus, cardinality(s), s @> 8080 AS has_8080,
       s && '{8443,9000}' AS meets, s <@ int4range(1, 10000) AS within
FROM (SELECT '{22,80..81,443,8000..8999}'::int4set AS s) AS t;
SELECT int4set_build_agg(v) AS built, int4set_union_agg(int4set(ARRAY[v, v + 1])) AS united
FROM generate_series(1, 9, 3) AS v;
-- Malformed text is refused with the position where it goes wrong.
SELECT '{1..5, 7..}'::int4set;

-- Range arrays: int4[] of [lower, upper] pairs, ascending and disjoint.
SELECT qn_int4range_union('{1,3,10,12}', '{4,6,13,20}') AS "union";
SELECT qn_int4range_intersection('{1,10}', '{3,4,6,7}') AS intersection;
SELECT qn_int4range_exclusion('{1,10}', '{3,4,6,7}') AS exclusion;
SELECT qn_int4range_is_overlap('{1,3}', '{4,6}') AS adjacent_overlap,
       qn_int4range_is_overlap('{1,3}', '{3,6}') AS shared_overlap;
SELECT qn_int4range_is_strictly_include('{2,3,7,8}', '{1,5,7,9}') AS included;

-- NULL rules: union keeps the other side, exclusion keeps the left side.
SELECT qn_int4range_union(NULL, '{4,6,1,2}') AS union_with_null,
       qn_int4range_exclusion('{1,3}', NULL) AS minus_null,
       qn_int4range_intersection('{1,3}', NULL) AS intersect_null;

-- The empty set is a one-dimensional array of length 0.
SELECT r, array_ndims(r) AS ndims, cardinality(r) AS length, pg_column_size(r) AS bytes
FROM (SELECT qn_int4range_intersection('{1,4}', '{5,9}') AS r) AS empty;

-- Odd-length range arrays are refused.
SELECT qn_int4range_union('{1,2,3}', '{}');

-- int4set_agg: integers, bounds or whole sets from many rows into one set.
SELECT int4set_agg(v, 'r') AS range_array, int4set_agg(v, 's') AS scalar_set, int4set_agg(v, 'm') AS mix_array
FROM (VALUES (5), (3), (4), (10), (NULL)) AS t(v);
SELECT int4set_agg(lo, hi, 'r') AS from_bounds FROM (VALUES (1, 3), (10, 20), (4, 5)) AS t(lo, hi);
SELECT int4set_agg('s', a, 'r') AS from_sets FROM (VALUES ('{1,2,9}'::int4[]), ('{3,10}')) AS t(a);

-- int4range_op_agg: A ∩ (B ∪ C) \ D, one operand per row, in ORDER BY order.
-- Operation word: op (1 union, 2 intersection, 3 exclusion) | (closes << 2) | (opens << 9).
SELECT int4range_op_agg(word, operand ORDER BY step) AS result
FROM (VALUES (1, 1,            '{1,100}'::int4[]),   -- A
             (2, 2 | (1 << 9), '{10,20}'),           -- ∩ ( B
             (3, 1,            '{30,40}'),           -- ∪ C
             (4, 3 | (1 << 2), '{15,35}')            -- ) \ D
     ) AS expression(step, word, operand);

-- Packed ranges: one range in an int8, lower in the low 32 bits.
SELECT qn_range_pack(-10, -1) AS packed, qn_rangepacked_lower(qn_range_pack(-10, -1)) AS lower,
       qn_rangepacked_upper(qn_range_pack(-10, -1)) AS upper;
SELECT qn_int4_in_packedrange(-5, qn_range_pack(-10, -1)) AS value_in,
       qn_int4rangepacked_in_int4rangepacked(qn_range_pack(1, 5), qn_range_pack(5, 9)) AS overlap,
       qn_int4rangepacked_included_in_int4rangepacked(qn_range_pack(2, 3), qn_range_pack(1, 9)) AS included,
       qn_int4rangepacked_in_rangearray(qn_range_pack(6, 6), '{1,5,7,9}') AS packed_in_range_array,
       qn_int4_in_rangearray(8, '{1,5,7,9}') AS value_in_range_array;

-- Bitfields: min, max, then one bit per value, most significant bit first.
SELECT qn_int4set2bitfield_int4('r', '{3,5,9,9}') AS from_ranges,
       qn_int4set2bitfield_int4('s', '{3,4,5,9}') AS from_values;
SELECT v, qn_int4_in_rangebitfield(v, qn_int4set2bitfield_int4('r', '{3,5,9,9}')) AS member
FROM generate_series(2, 10) AS v;
SELECT qn_int4set_overlap_bitfield('s', '{6,9}', qn_int4set2bitfield_int4('r', '{3,5,9,9}')) AS overlap,
       qn_int4set_included_in_bitfield('s', '{4,9}', qn_int4set2bitfield_int4('r', '{3,5,9,9}')) AS included;

-- Conversions between the forms, and counting without expanding.
SELECT qn_int4setconv_int4('s', '{1,2,3,7}', 'r') AS s_to_r, qn_int4setconv_int4('r', '{1,3,7,7}', 'm') AS r_to_m,
       qn_int4setconv_int4('m', '{4,-2147483647,3,7}', 's') AS m_to_s,
       qn_count_scalar_in_int4set('r', '{1,3,7,7}') AS members, qn_sort_int4('{5,1,3,1}') AS sorted;
SELECT qn_bytea2mix2rangearray(int4send(0) || '\x07000080' || '\x09000000') AS mix_bytes_to_ranges,
       qn_bytea2floatarray('\x0000803f0000c0ff') AS float_bytes;

-- int4set_agg_optimized: small non-negative sets kept as bits up to maxinput.
SELECT int4set_agg_optimized(v, 100, 's') AS s, int4set_agg_optimized(v, 100, 'r') AS r,
       int4set_agg_optimized(v, 100, 'm') AS m
FROM (VALUES (1), (2), (3), (7)) AS t(v);

-- agg_keep_single: the one value per group, checked.
SELECT grp, agg_keep_single(label) AS label, count(*)
FROM (VALUES (1, 'one'), (1, 'one'), (2, 'two')) AS t(grp, label) GROUP BY grp ORDER BY grp;
SELECT agg_keep_single(v) FROM (VALUES (1), (2)) AS t(v);

-- GiST: packed-range and int4 columns indexed with the module's operator classes.
CREATE TEMP TABLE bookings AS
SELECT i AS id, qn_range_pack(i * 10, i * 10 + (i % 7)) AS slot, i * 3 AS room FROM generate_series(1, 100000) AS i;
CREATE INDEX bookings_slot ON bookings USING gist (slot qn_gist_rangepacked_ops);
CREATE INDEX bookings_room ON bookings USING gist (room qn_gist_int4_ops);
ANALYZE bookings;
EXPLAIN (COSTS OFF) SELECT id FROM bookings WHERE slot && qn_range_pack(1000, 1025);
SELECT id, qn_rangepacked_lower(slot) AS lower, qn_rangepacked_upper(slot) AS upper
FROM bookings WHERE slot && qn_range_pack(1000, 1025) ORDER BY id;
EXPLAIN (COSTS OFF) SELECT id FROM bookings WHERE room <@ '{300,306,900,901}'::int4[];
SELECT id, room FROM bookings WHERE room <@ '{300,306,900,901}'::int4[] ORDER BY id;

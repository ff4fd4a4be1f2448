-- Bitfields: layout, the reader's checks, refused input, known answers of every bitfield test.
\i sql/include/errors.psql

-- Layout: min, max, then whole 64-bit words of bits, most significant bit first.
SELECT f, a, bf, octet_length(bf) + 4 AS bytes
FROM (VALUES ('r'::"char", '{3,5,9,9}'::int4[]), ('s', '{0,63,64}'), ('s', '{5}'), ('s', '{-3,-1}'),
             ('m', '{7,-2147483646,4,9,20}'), ('r', '{}'), ('s', '{}'), ('m', '{}'), ('m', '{5}'),
             ('s', '{{1,2}}'), ('r', '{1,NULL}'), ('m', '{0,3,-2147483644,70}')) t(f, a),
     LATERAL (SELECT qn_int4set2bitfield_int4(f, a) AS bf) b;
SELECT qn_int4set2bitfield_int4(NULL, '{1}') IS NULL AS null_form, qn_int4set2bitfield_int4('s', NULL) IS NULL AS null_set;

-- Refused: odd range arrays, bad letters, input putting a member outside [first, last].
SELECT f, a, pg_temp.try(format('SELECT qn_int4set2bitfield_int4(%L, %L)', f, a)) AS outcome
FROM (VALUES ('r', '{1,2,3}'), ('x', '{1}'), ('S', '{1}'), ('s', '{1,5,3}'), ('s', '{5,1}'), ('r', '{1,4,3,2,6,9}'),
             ('r', '{5,2}'), ('m', '{3,1,-2147483646}'), ('m', '{3,5,1}'), ('r', '{-2147483648,2147483647}')) t(f, a);

-- The reader: empty bitfields of 13 and 20 bytes are empty; short ones or wrong bit lengths are refused.
\i sql/include/words.psql
CREATE TEMP TABLE handmade AS
SELECT name, pg_temp.le(ARRAY[min, max]) || bits AS bf
FROM (VALUES ('empty 13', 0, -1, '\x00'::bytea), ('empty 20', 0, -1, '\x0000000000000000'),
             ('11 bytes', 0, -1, '\x'), ('min 0 max 0 in 13', 0, 0, '\x80'),
             ('claims 65 values, holds 8 bytes', 0, 64, '\xffffffffffffffff'),
             ('holds 16 bytes for 8 values', 0, 7, '\xff000000000000000000000000000000'),
             ('full int4 span', -2147483648, 2147483647, '\xff')) t(name, min, max, bits);
UPDATE handmade SET bf = substring(bf FROM 1 FOR 7) WHERE name = '11 bytes';
SELECT name, octet_length(bf) + 4 AS bytes,
       pg_temp.try(format('SELECT qn_int4_in_rangebitfield(0, %L)', bf)) AS value_in,
       pg_temp.try(format('SELECT qn_int4rangepacked_in_rangebitfield(qn_range_pack(0, 5), %L)', bf)) AS packed_in,
       pg_temp.try(format('SELECT qn_int4set_overlap_bitfield(''s'', ''{0}'', %L)', bf)) AS set_overlap,
       pg_temp.try(format('SELECT qn_int4set_included_in_bitfield(''s'', ''{0}'', %L)', bf)) AS set_included
FROM handmade ORDER BY name;
SELECT name, qn_int4_in_rangebitfield(0, bf) AS value_in, qn_int4set_included_in_bitfield('s', '{0}', bf) AS included
FROM handmade WHERE name LIKE 'empty%' OR name LIKE 'full%' ORDER BY name;

-- Known answers over min 10, max 20 with bits 10, 12 and 20 set.
SELECT v, qn_int4_in_rangebitfield(v, qn_int4set2bitfield_int4('s', '{10,12,20}')) AS member
FROM unnest('{9,10,11,12,20,21}'::int4[]) v;
SELECT qn_int4set_overlap_bitfield('r', '{0,5,30,40}', bf) AS pairs_outside, qn_int4set_overlap_bitfield('r', '{0,12}', bf) AS clipped_pair,
       qn_int4set_overlap_bitfield('r', '{0,9}', bf) AS below, qn_int4set_included_in_bitfield('s', '{}', bf) AS empty_set,
       qn_int4set_included_in_bitfield('s', '{{10}}', bf) AS two_dims, qn_int4set_overlap_bitfield('m', '{0}', bf) AS count_word_only,
       qn_int4rangepacked_in_rangebitfield(qn_range_pack(13, 19), bf) AS gap,
       qn_int4rangepacked_in_rangebitfield(-4294967296 + 5, qn_int4set2bitfield_int4('s', '{0,5}')) AS inverted_packed,
       qn_int4set_overlap_bitfield('r', '{13,18}', qn_int4set2bitfield_int4('s', '{10,18}')) AS run_meets_first_bit_of_last_byte
FROM (SELECT qn_int4set2bitfield_int4('s', '{10,12,20}') AS bf) b;
SELECT pg_temp.try($$SELECT qn_int4set_overlap_bitfield('r', '{10,11,12}', qn_int4set2bitfield_int4('s', '{10,12}'))$$) AS odd,
       pg_temp.try($$SELECT qn_int4set_overlap_bitfield('m', '{3,11,-2147483636}', qn_int4set2bitfield_int4('s', '{10,12}'))$$) AS mix_opener_last_lies_below,
       pg_temp.try($$SELECT qn_int4set_overlap_bitfield('q', '{10}', qn_int4set2bitfield_int4('s', '{10,12}'))$$) AS bad_letter;

-- Inclusion of runs: whole bytes from a byte boundary; never from inside a byte or outside the span.
SELECT qn_int4set_included_in_bitfield('r', '{100,115}', bf) AS aligned_two_bytes,
       qn_int4set_included_in_bitfield('r', '{102,112}', bf) AS unaligned_two_bytes,
       qn_int4set_included_in_bitfield('r', '{102,106}', bf) AS within_one_byte,
       qn_int4set_included_in_bitfield('r', '{100,110}', bf) AS aligned_ending_mid_byte,
       qn_int4set_included_in_bitfield('s', '{102,112}', bf) AS as_values,
       qn_int4set_included_in_bitfield('r', '{96,115}', bf) AS from_below_min,
       qn_int4set_included_in_bitfield('r', '{116,140}', bf) AS past_max
FROM (SELECT qn_int4set2bitfield_int4('r', '{100,131}') AS bf) b;

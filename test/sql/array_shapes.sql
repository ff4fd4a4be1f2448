-- Every reader takes an array with a null bitmap but no NULL (a slice) as the plain array; no result grows past
-- 134,217,727 elements, and a mix array's expansion is counted before allocating.
\i sql/include/errors.psql

CREATE TEMP TABLE shapes AS
SELECT ('{NULL,1,5}'::int4[])[2:3] AS slice, '{1,5}'::int4[] AS plain,
       ('{NULL,2,3,7,9}'::int4[])[2:5] AS slice4, '{2,3,7,9}'::int4[] AS plain4;
SELECT slice = plain AS equal, array_ndims(slice) AS ndims, pg_column_size(slice) > pg_column_size(plain) AS has_bitmap
FROM shapes;

-- f(slice) and f(plain), for every reader of int4[] arguments.
CREATE FUNCTION pg_temp.readers(a int4[], b int4[]) RETURNS TABLE (reader text, answer text) LANGUAGE sql AS $$
    VALUES ('<@ int4[]', (3 <@ a)::text),
           ('union', qn_int4range_union(a, '{10,12}')::text),
           ('intersection', qn_int4range_intersection(b, a)::text),
           ('exclusion', qn_int4range_exclusion(b, a)::text),
           ('is_overlap', qn_int4range_is_overlap(a, '{5,6}')::text),
           ('is_strictly_include', qn_int4range_is_strictly_include(a, '{0,9}')::text),
           ('overlap_rangearray', qn_int4range_overlap_rangearray(b, a)::text),
           ('packed && int4[]', (qn_range_pack(4, 4) && a)::text),
           ('range_pack', qn_range_pack(a)::text),
           ('setconv r to s', qn_int4setconv_int4('r', b, 's')::text),
           ('setconv s to m', qn_int4setconv_int4('s', b, 'm')::text),
           ('set2bitfield', qn_int4set2bitfield_int4('r', b)::text),
           ('set overlap bitfield', qn_int4set_overlap_bitfield('s', a, qn_int4set2bitfield_int4('s', '{5}'))::text),
           ('sort', qn_sort_int4(b)::text),
           ('count', qn_count_scalar_in_int4set('r', b)::text),
           ('int4set_agg', (SELECT int4set_agg('r', x, 'r') FROM (VALUES (a), (b)) t(x))::text),
           ('int4set_agg_optimized', (SELECT int4set_agg_optimized('s', x, 20, 's') FROM (VALUES (a), (b)) t(x))::text),
           ('int4range_op_agg', (SELECT int4range_op_agg(1, x) FROM (VALUES (a), (b)) t(x))::text)
$$;
SELECT p.reader, p.answer AS plain_answer, s.answer = p.answer AS slice_same
FROM shapes, pg_temp.readers(plain, plain4) WITH ORDINALITY p
JOIN pg_temp.readers(slice, slice4) WITH ORDINALITY s USING (ordinality)
ORDER BY ordinality;

-- Results beyond the largest array are refused before they are built.
SELECT pg_temp.try($$SELECT qn_int4setconv_int4('r', '{1,140000000}', 's')$$) AS range_array_to_set,
       pg_temp.try($$SELECT int4set_agg(v, v + 134217727, 's') FROM (VALUES (0)) t(v)$$) AS int4set_agg_set,
       pg_temp.try($$SELECT int4set_agg_optimized(v, v + 140000000, 200000000, 's') FROM (VALUES (0)) t(v)$$)
           AS optimized_set,
       pg_temp.try($$SELECT qn_int4setconv_int4('m', ARRAY[140000000, -2147483648, 139999999], 's')$$) AS mix_to_set;
-- A count word the items do not fill is refused after one pass over the items.
SELECT pg_temp.try($$SELECT qn_int4setconv_int4('m', '{268435449}', 's')$$) AS count_without_items,
       pg_temp.try($$SELECT qn_int4setconv_int4('m', '{268435449,5,-2147483638,20}', 's')$$) AS count_beyond_items;

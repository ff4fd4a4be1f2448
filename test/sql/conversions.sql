-- Conversions between the set forms, sorting and counting sets, the bytea decoders; every empty result's shape.
\i sql/include/errors.psql

-- Every pair of forms and its refusals; 'm' to 's' must fill exactly the count word (duplicates do not expand back).
SELECT f, a, t, pg_temp.run(format('SELECT qn_int4setconv_int4(%L, %L, %L)', f, a, t)) AS result
FROM (VALUES ('s'::"char", '{1,2,3,5,5,6}'::int4[], 'r'::"char"), ('s', '{}', 'r'), ('s', '{-2147483648,2147483647}', 'r'),
             ('s', '{3,1}', 'r'), ('s', '{1,2,2,5}', 'm'), ('s', '{}', 'm'), ('s', '{3,1}', 'm'),
             ('r', '{5,3,7,8}', 's'), ('r', '{1,4,3,5}', 's'), ('r', '{2147483645,2147483647}', 's'),
             ('r', '{1,2,3}', 's'), ('r', '{0,2147483647}', 's'),
             ('r', '{1,5,7,7,9,8}', 'm'), ('r', '{}', 'm'), ('r', '{1,2,3}', 'm'),
             ('m', '{0,5,-2147483641,9,-2147483647,2}', 'r'), ('m', '{0,-2147483641}', 'r'), ('m', '{0}', 'r'),
             ('m', '{4,5,-2147483641,9}', 's'), ('m', '{3,-3,2147483647}', 's'), ('m', '{}', 's'), ('m', '{0}', 's'),
             ('m', '{5,5,-2147483641,9}', 's'), ('m', '{3,5,-2147483641,9}', 's'), ('m', '{4,-2147483647,2,5}', 's'),
             ('m', '{1,5,6,-2147483641}', 's'), ('m', '{8,-2147483645,-2147483643}', 's'), ('m', '{8,-2147483639,7}', 's'),
             ('m', '{2147483647,5}', 's'), ('m', '{-1,5}', 's'),
             ('s', '{{1,2},{3,4}}', 'r'), ('r', '{1,NULL}', 's'), ('m', '{{2,3}}', 's'),
             ('s', '{1}', 's'), ('r', '{}', 'r'), ('m', '{}', 'm'), ('x', '{1}', 'r'), ('s', '{1}', 'R'),
             (NULL, '{1}', 'r'), ('s', NULL, 'r'), ('s', '{1}', NULL), (NULL, NULL, NULL)) c(f, a, t);

-- Every empty result (functions, aggregates over no or NULL rows) is one-dimensional, never NULL nor zero-dimensional.
SELECT e IS NULL AS is_null, array_dims(e) AS dims, count(*) AS results
FROM (VALUES (qn_int4setconv_int4('s', '{}', 'r')), (qn_int4setconv_int4('s', '{}', 'm')), (qn_int4setconv_int4('r', '{5,4}', 's')),
             (qn_int4setconv_int4('m', '{}', 's')), (qn_int4setconv_int4('m', '{0}', 'r')), (qn_sort_int4('{}')),
             (qn_bytea2mix2rangearray('\x')), (qn_rangearray_from_int4ranges('{empty}')), (qn_rangearray_from_int4ranges('{}')),
             (qn_rangearray_normalise('{5,3}')), (qn_rangearray_normalise('{}')), (qn_int4range_intersection('{1,4}', '{5,9}')),
             (qn_int4range_union('{}', '{}')),
             (qn_int4range_exclusion('{1,3}', '{0,9}')), ((SELECT int4set_agg(v, 'r') FROM (VALUES (1)) t(v) WHERE false)),
             ((SELECT int4set_agg(v, 's') FROM (VALUES (NULL::int4)) t(v))), ((SELECT int4set_agg(v, 'm') FROM (VALUES (NULL::int4)) t(v))),
             ((SELECT int4set_agg_optimized(v, 10, 'r') FROM (VALUES (1)) t(v) WHERE false)),
             ((SELECT int4range_op_agg(1, a) FROM (VALUES (NULL::int4[])) t(a) WHERE false)),
             ((SELECT int4range_op_agg(1, a) FROM (VALUES (NULL::int4[])) t(a)))) t(e) GROUP BY 1, 2;

-- Sorting and counting.
SELECT a, qn_sort_int4(a) AS sorted, qn_count_scalar_in_int4set('s', a) AS s_count
FROM (VALUES ('{3,1,2,1}'::int4[]), ('{2147483647,-2147483648,0}'), ('{}'), ('{{3,1},{2,0}}'), ('{1,NULL}'), (NULL)) t(a);
SELECT f, a, pg_temp.run(format('SELECT qn_count_scalar_in_int4set(%L, %L)', f, a)) AS count
FROM (VALUES ('r', '{1,5,10,10}'), ('r', '{1,5,7}'), ('r', '{5,3}'), ('r', '{-2147483648,2147483647}'), ('r', '{{1,5}}'),
             ('m', '{77,1}'), ('m', '{}'), ('s', '{4,4,9}'), ('x', '{1}'), (NULL, '{1}'), ('s', NULL)) t(f, a);

-- Bytea decoders.
\i sql/include/words.psql
SELECT qn_bytea2floatarray('\x0000803f000000c0') AS two, array_dims(qn_bytea2floatarray('\x')) AS empty_dims,
       qn_bytea2floatarray(NULL) IS NULL AS null_float, qn_bytea2mix2rangearray(NULL) IS NULL AS null_mix,
       pg_temp.try($$SELECT qn_bytea2floatarray('\x000000000000')$$) AS six_bytes,
       pg_temp.try($$SELECT qn_bytea2mix2rangearray('\x00000000050000000600')$$) AS ten_bytes;
SELECT a, pg_temp.run(format('SELECT qn_bytea2mix2rangearray(%L)', pg_temp.le(a))) AS ranges
FROM (VALUES ('{}'::int4[]), ('{1}'), ('{0,5,-2147483641,9}'), ('{123,6,6}'), ('{0,-2147483641}'),
             ('{0,-2147483645,-2147483643}'), ('{0,-2147483639,7}')) t(a);

-- Floats: each element's bits, written back in the server's order, are the input.
SELECT b, (SELECT string_agg(regexp_replace(encode(float4send(f), 'hex'), '(..)(..)(..)(..)', '\4\3\2\1'), '' ORDER BY o)
           FROM unnest(qn_bytea2floatarray(b)) WITH ORDINALITY u(f, o)) = encode(b, 'hex') AS bit_for_bit
FROM (VALUES ('\x0000c07f0100807fffffffff'::bytea), ('\x01000000ffff7fff00000080')) t(b);

-- Packed ranges as text "[lower,upper]" and back: known answers, and what the parser accepts and refuses.
\i sql/include/errors.psql

SELECT p, qn_rangepacked_to_text(p) AS text
FROM (VALUES (qn_range_pack(3, 5)), (qn_range_pack(-10, -1)), (qn_range_pack(-2147483648, 2147483647)),
             (qn_range_pack(0, 0)), (-4294967296)) t(p);

-- Blanks around the brackets, the comma and the bounds, and signs, are accepted; anything else is a syntax error
-- (22P02), a bound outside int4 is out of range (22003), upper below lower is an invalid range (22023).
SELECT t, pg_temp.run(format('SELECT qn_rangepacked_to_text(qn_rangepacked_from_text(%L))', t)) AS parsed
FROM (VALUES ('[3,5]'), (' [ -5 , +7 ] '), (E'\t[1,1]\n'), ('[-2147483648,2147483647]'), ('[007,8]'),
             ('[1,2'), ('1,2]'), ('[1;2]'), ('[1,2)'), ('[,2]'), ('[1,2]x'), ('[1,2,3]'), ('[+,2]'), ('[1 2,3]'), (''),
             ('[1,2147483648]'), ('[-2147483649,0]'), ('[99999999999999999999,0]'), ('[1,x99999999999]'),
             ('[5,4]')) v(t);


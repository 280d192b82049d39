// JSON after RFC 8259. A row is a text, sent as a whole message by WebSocket and POST, as a value in the parameter of a PUT,
// and as a value in a JSON-RPC message. What the grammar leaves open may be accepted or refused, but is always answered.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { connect, post, request, sanitized, sharedHost, volume, within } from './host_support.mjs';
import { seconds } from './wire_support.mjs';

const host = sharedHost();

const bytes = (...list) => Buffer.concat(list.map((part) => (typeof part === 'number' ? Buffer.from([part]) : Buffer.from(part))));
const parameter = (text) => bytes('{"REQUEST":"NOTHING","VALUE":', text, '}');
const message = (text) => bytes(`{"jsonrpc":"2.0","id":"in","method":"set","params":{"uri":"${volume}","parameter":`, parameter(text), '}}');

const deep = (depth) => '['.repeat(depth) + ']'.repeat(depth);
// The grammar's own words: what it makes is accepted.
const yes = {
  'null': 'null', 'true': 'true', 'false': 'false',
  'zero': '0', 'minus zero': '-0', 'one': '1', 'minus one': '-1', 'many digits': '1234567890', 'a fraction': '0.5', 'a negative fraction': '-0.5',
  'zeros behind the point': '1.000', 'zeros right behind the point': '0.001', 'an exponent': '1e5', 'an upper-case exponent': '1E5', 'a positive exponent': '1e+5',
  'a negative exponent': '1E-5', 'zero with an exponent': '0e0', 'minus zero with all': '-0.0e-0', 'a fraction with an exponent': '12.75e2', 'zeros before the exponent': '1e005',
  'beyond 32 bits': '4294967296', 'beyond 53 bits': '9007199254740993', 'beyond 63 bits': '9223372036854775808', 'the greatest of 64 bits': '18446744073709551615',
  'the greatest double': '1.7976931348623157e308', 'thirty digits behind the point': `0.${'1234567890'.repeat(3)}`,
  'an empty string': '""', 'a letter': '"a"', 'a blank': '" "', 'an escaped quotation mark': '"\\""', 'an escaped backslash': '"\\\\"', 'an escaped slash': '"\\/"', 'a bare slash': '"/"',
  'the short escapes': '"\\b\\f\\n\\r\\t"', 'an escaped letter': '"\\u0041"', 'hexadecimal digits of both cases': '"\\uabCD\\uEfFf"', 'an escaped pair of surrogates': '"\\uD83D\\uDE00"',
  'an escaped pair in lower case': '"\\ud83d\\ude00"', 'an escaped control character': '"\\u0001\\u001f"', 'an escaped U+FFFF': '"\\uffff"', 'an escaped backslash before u': '"\\\\u0000"',
  'an escaped backslash before u, no digits': '"\\\\uzzzz"', 'DEL': '"\x7f"', 'an umlaut': '"ä"', 'a euro sign': '"€"', 'a face': '"\u{1f600}"', 'U+0080': '"\u0080"', 'line and paragraph separators': '"\u2028\u2029"',
  'U+FFFF': '"\uffff"', 'U+10FFFF': '"\u{10ffff}"', 'a byte order mark in a string': '"\ufeff"', 'brackets in a string': '"[{]},:"', 'a comment in a string': '"/* // */"', 'an apostrophe': '"\'"', 'a number in a string': '"01"',
  'a long string': `"${'x'.repeat(100_000)}"`, 'a string of escapes': `"${'\\u00e4'.repeat(10_000)}"`, 'a combining character': '"a\u0301"',
  'an empty array': '[]', 'a blank in an array': '[ ]', 'an array of one': '[1]', 'an array of two': '[1,2]', 'an array of arrays': '[[],[[]]]', 'an array of every kind': '[null,true,false,1,"a",{},[]]', 'a thousand elements': `[${Array(1000).fill(0)}]`, 'fifty deep': deep(50),
  'an empty object': '{}', 'a blank in an object': '{ }', 'a member': '{"a":1}', 'two members': '{"a":1,"b":2}', 'an empty key': '{"":1}', 'an escaped key': '{"\\u0061\\n":1}', 'a key beyond ASCII': '{"ä":1}', 'an object in an object': '{"a":{"b":{}}}',
  'an object in an array': '[{"a":[{}]}]', 'keys that differ in case': '{"a":1,"A":2}', 'a key of blanks': '{"  ":1}', 'a key like a literal': '{"null":null}', 'a thousand members': `{${Array.from({ length: 1000 }, (_, i) => `"k${i}":${i}`)}}`,
  'a blank before': ' 1', 'a blank behind': '1 ', 'every white space around': ' \t\r\n1 \t\r\n', 'white space everywhere': ' { "a" : [ 1 , 2 ] ,\r\n\t"b" : { } } ', 'line feeds before a string': '\n\n"a"', 'ten thousand blanks': ' '.repeat(10_000) + '1',
};
const no = {
  'nothing': '', 'a blank alone': ' ', 'white space alone': '\r\n\t ',
  'nul': 'nul', 'nulll': 'nulll', 'Null': 'Null', 'NULL': 'NULL', 'tru': 'tru', 'True': 'True', 'TRUE': 'TRUE', 'truefalse': 'truefalse', 'fals': 'fals', 'FALSE': 'FALSE', 'undefined': 'undefined', 'NaN': 'NaN', '-NaN': '-NaN',
  'Infinity': 'Infinity', '-Infinity': '-Infinity', 'inf': 'inf', 'None': 'None', 'yes': 'yes', 'a word': 'abc', 'a literal with a blank': 'tr ue',
  'a plus sign': '+1', 'a zero before': '01', 'a negative zero before': '-01', 'two zeros': '00', 'zeros before a fraction': '00.5', 'a point behind': '1.', 'a point before': '.5', 'a negative point before': '-.5', 'a point before an exponent': '1.e5', 'an exponent of nothing': '1e', 'an exponent of a plus': '1e+',
  'an exponent of a minus': '1E-', 'a fraction with an exponent of nothing': '1.5e', 'two exponents': '1e5e5', 'a fraction as exponent': '1e1.5', 'an exponent alone': 'e5', 'two signs': '--1', 'a blank behind the sign': '- 1', 'a sign alone': '-', 'a plus alone': '+', 'a point alone': '.', 'two points': '1.2.3',
  'hexadecimal': '0x1F', 'binary': '0b1', 'octal': '0o7', 'an underline in a number': '1_000', 'a decimal comma': '1,5', 'a letter behind a number': '1a', 'a suffix': '1L', 'two numbers': '1 2', 'a blank in a number': '1 .5', 'digits of another script': '\u0661', 'a fraction sign': '\u00bd', 'full-width digits': '\uff11', 'a minus sign of typography': '\u22121',
  'a quotation mark alone': '"', 'a string without an end': '"abc', 'a string without a beginning': 'abc"', 'apostrophes': "'a'", 'a quotation mark and an apostrophe': '"a\'', 'quotation marks of typography': '\u201ca\u201d', 'backticks': '`a`', 'a raw line feed': '"a\nb"', 'a raw carriage return': '"a\rb"', 'a raw tab': '"a\tb"',
  'a raw NUL': '"a\0b"', 'a raw U+0001': '"\x01"', 'a raw backspace': '"\b"', 'a raw escape': '"\x1b"', 'a raw U+001F': '"\x1f"', 'the escape x': '"\\x41"', 'the escape a': '"\\a"', 'the escape v': '"\\v"', 'the escape 0': '"\\0"', 'an escaped apostrophe': '"\\\'"', 'the escape U': '"\\U0041"', 'an escaped line feed': '"\\\n"',
  'an escaped umlaut': '"\\ä"', 'no digits behind u': '"\\u"', 'one digit behind u': '"\\u1"', 'three digits behind u': '"\\u004"', 'a letter among the digits': '"\\u00g1"', 'a blank among the digits': '"\\u 041"', 'a sign among the digits': '"\\u+041"', 'braces behind u': '"\\u{41}"', 'an escape at the end': '"\\"', 'an escape before the end': '"a\\',
  'half of a second surrogate': '"\\ud83d\\u"', 'two strings': '"a" "b"', 'a sum of strings': '"a"+"b"', 'an opening string inside': '"a"b"',
  'an opening bracket': '[', 'a closing bracket': ']', 'an array without an end': '[1', 'an array without an end behind a comma': '[1,', 'an array of a comma': '[,]', 'a comma behind the last element': '[1,]', 'a comma before the first element': '[,1]', 'two commas': '[1,,2]', 'no comma': '[1 2]', 'a semicolon': '[1;2]',
  'a bracket and a brace': '[1}', 'parentheses': '(1)', 'two closing brackets': '[1]]', 'two arrays': '[1][2]', 'an array in an array without an end': '[[1]', 'a colon in an array': '[1:2]', 'no comma between strings': '["a""b"]', 'a range': '[1...3]', 'a thousand opening brackets': '['.repeat(1000), 'an opening bracket in a string without an end': '["[]',
  'an opening brace': '{', 'a closing brace': '}', 'a key alone': '{"a"}', 'a key without an end': '{"a', 'a key and a colon': '{"a":', 'no value': '{"a":}', 'an object without an end': '{"a":1', 'a comma behind the last member': '{"a":1,}', 'an object of a comma': '{,}', 'a comma before the first member': '{,"a":1}', 'two commas between members': '{"a":1,,"b":2}',
  'no colon': '{"a" 1}', 'two colons': '{"a"::1}', 'no comma between members': '{"a":1 "b":2}', 'a semicolon between members': '{"a":1;"b":2}', 'an equals sign': '{"a"=1}', 'an arrow': '{"a"=>1}', 'a bare key': '{a:1}', 'a key in apostrophes': "{'a':1}", 'a number as key': '{1:1}', 'null as key': '{null:1}', 'an array as key': '{[]:1}', 'a colon before the key': '{:1}',
  'two values': '{"a":1:2}', 'a brace and a bracket': '{"a":1]', 'two closing braces': '{"a":1}}', 'a value without a key': '{1}', 'two keys': '{"a","b"}', 'a thousand opening braces': '{"a":'.repeat(1000), 'a key with a raw line feed': '{"a\nb":1}', 'a key with a bad escape': '{"\\q":1}',
  'a comment behind': '1 // a', 'a comment before': '// a\n1', 'a block comment before': '/* a */ 1', 'a block comment inside': '[1/* a */]', 'a comment of a hash': '# a\n1', 'a comment of XML': '<!-- a -->1',
  'a form feed before': '\f1', 'a vertical tab before': '\v1', 'a backspace before': '\b1', 'a no-break space before': '\u00a01', 'an em space before': '\u20031', 'a line separator before': '\u20281', 'a next line before': '\u00851', 'a zero-width space before': '\u200b1', 'a byte order mark in an array': '[\ufeff1]', 'a byte order mark behind': '1\ufeff', 'a NUL behind': '1\0', 'a NUL before': '\x001', 'a NUL in an array': '[\0]', 'an end of file behind': '1\x1a', 'an escape behind': '1\x1b',
  'two objects': '{} {}', 'two literals': 'null null', 'two lines': '1\n2', 'a letter behind an object': '{}x', 'a comma behind': 'true,', 'a comma before': ',true', 'a comma alone': ',', 'a colon alone': ':', 'a member alone': '"a":1', 'XML': '<a/>', 'YAML': '- a', 'a header of YAML': '---\na: 1', 'an assignment': 'a=1', 'a function': 'function(){}', 'a regular expression': '/a/', 'a template': '${1}',
  'UTF-16': Buffer.from('{"a":1}', 'utf16le'), 'UTF-32': bytes(0x31, 0, 0, 0),
};
// Texts that no message can be, but whose brackets fit where they are a part.
const inside = {
  'a value and another member': '1,"b":2',
  'an object and another member': '{"a":1},"c":{"d":2}',
  'a string and another member': '"a","b":"c"',
};
const either = {
  'a positive number that is too great': '1e400', 'a negative number that is too great': '-1e400', 'a number that is too small': '1e-400', 'the smallest number': '5e-324', 'a number with a huge exponent': '1e99999999999', 'a number with a huge negative exponent': '-1e-99999999999', 'a hundred digits': '1'.repeat(100), 'a thousand digits': '9'.repeat(1000),
  'ten thousand digits behind the point': `0.${'3'.repeat(10_000)}`, 'twenty digits': '18446744073709551616', 'an exponent of a thousand zeros': `1e${'0'.repeat(1000)}1`,
  'equal keys': '{"a":1,"a":2}', 'equal keys with equal values': '{"a":1,"a":1}', 'keys that are equal when unescaped': '{"a":1,"\\u0061":2}', 'a hundred equal keys': `{${Array(100).fill('"a":1')}}`,
  'a high surrogate alone': '"\\ud800"', 'a low surrogate alone': '"\\udc00"', 'two high surrogates': '"\\ud800\\ud800"', 'surrogates the wrong way round': '"\\ude00\\ud83d"', 'a high surrogate and a letter': '"\\ud800a"', 'a high surrogate and an escaped letter': '"\\ud800\\u0041"', 'a high surrogate and a line feed': '"\\ud800\\n"', 'a surrogate in a key': '{"\\ud800":1}', 'escaped noncharacters': '"\\ufdd0\\ufffe"',
};
const invalid = {
  'a byte of Latin-1': bytes('"', 0xe9, '"'), 'a continuation byte': bytes('"', 0x80, '"'), 'an overlong slash': bytes('"', 0xc0, 0xaf, '"'), 'an overlong NUL': bytes('"', 0xc0, 0x80, '"'), 'a surrogate': bytes('"', 0xed, 0xa0, 0x80, '"'), 'a pair of surrogates': bytes('"', 0xed, 0xa0, 0xbd, 0xed, 0xb8, 0x80, '"'), 'beyond U+10FFFF': bytes('"', 0xf4, 0x90, 0x80, 0x80, '"'),
  'FF': bytes('"', 0xff, '"'), 'FE': bytes('"', 0xfe, '"'), 'a sequence that the quotation mark cuts': bytes('"', 0xe2, 0x82, '"'), 'a sequence that a letter cuts': bytes('"', 0xc3, 'a"'), 'a key': bytes('{"', 0xe9, '":1}'), 'a byte before the value': bytes(0xff, '1'), 'a byte behind the value': bytes('1', 0xff), 'a byte alone': bytes(0xa4), 'a byte in an array': bytes('[', 0xe9, ']'),
  'UTF-16 with a mark': bytes(0xff, 0xfe, 0x31, 0x00), 'overlong white space': bytes(0xc0, 0xa0, '1'), 'an overlong quotation mark': bytes('"a', 0xc0, 0xa2),
};
const withNul = {
  'a NUL': '"\\u0000"', 'a NUL between letters': '"a\\u0000b"', 'a NUL behind an escaped backslash': '"\\\\\\u0000"', 'a NUL in a key': '{"a\\u0000":1}', 'a NUL in an array': '["a",["\\u0000"]]', 'a NUL in an object': '{"a":{"b":"\\u0000"}}', 'a NUL behind a face': '"\\ud83d\\ude00\\u0000"', 'a key that is a NUL': '{"\\u0000":1}',
};

// What a JSON-RPC reply, or the first of several, says: its error's code, or undefined.
const codeOf = (text) => [JSON.parse(text)].flat()[0].error?.code;

async function asWhole(t, text, judge) {
  const client = await connect(t, host);
  client.socket.send(text, { binary: false });
  judge(codeOf(await client.text()), 'a WebSocket message');
  judge(codeOf((await post(host, text)).text), 'a POST');
}
async function asMember(t, text, judge) {
  const client = await connect(t, host);
  client.socket.send(message(text), { binary: false });
  judge(codeOf(await client.text()), 'a part of a WebSocket message');
  judge(codeOf((await post(host, message(text))).text), 'a part of a POST');
}
const put = async (text) => (await request(host, 'PUT', volume, { body: parameter(text) })).status;

const accepted = (code, where) => assert.notEqual(code, -32700, where);
const refused = (code, where) => assert.equal(code, -32700, where);

for (const [name, text] of Object.entries(yes))
  test(`accepted: ${name}`, async (t) => {
    await asWhole(t, text, accepted);
    await asMember(t, text, (code, where) => assert.equal(code, undefined, where));
    assert.equal(await put(text), 422); // the word NOTHING is none that the handler knows
  });
for (const [name, text] of Object.entries(no))
  test(`refused: ${name}`, async (t) => {
    await asWhole(t, text, refused);
    await asMember(t, text, refused);
    assert.equal(await put(text), 400);
  });
for (const [name, text] of Object.entries(inside))
  test(`refused as a message, accepted as a part: ${name}`, async (t) => {
    await asWhole(t, text, refused);
    await asMember(t, text, (code, where) => assert.equal(code, undefined, where));
    assert.equal(await put(text), 422);
  });
for (const [name, text] of Object.entries(either))
  test(`answered, either way: ${name}`, async (t) => {
    const answered = (code, where) => assert.ok(code === undefined || (Number.isInteger(code) && code < 0), `${where}: ${code}`);
    await asWhole(t, text, answered);
    await asMember(t, text, answered);
    assert.ok([200, 400, 422].includes(await put(text)));
  });
test('answered, either way: a byte order mark', async (t) => {
  const client = await connect(t, host);
  client.send('\ufeff{"jsonrpc":"2.0","id":"mark","method":"list"}');
  const { id, result, error } = JSON.parse(await client.text());
  assert.ok((id === 'mark' && result) || error?.code === -32700, JSON.stringify(error));
  await asMember(t, '\ufeff1', refused);
  assert.equal(await put('\ufeff1'), 400);
});
for (const [name, text] of Object.entries(invalid))
  test(`no UTF-8: ${name}`, async (t) => {
    for (const sent of [text, message(text)]) {
      const client = await connect(t, host);
      client.socket.send(sent, { binary: false });
      assert.equal(await within(client.closed(), 'end of the connection', seconds), 1007);
      const answer = await post(host, sent);
      assert.ok(answer.status === 400 || answer.json.error.code === -32700, answer.text);
    }
    assert.equal(await put(text), 400);
  });
for (const [name, text] of Object.entries(withNul))
  test(`U+0000 is no text for the plugin: ${name}`, async (t) => {
    await asWhole(t, text, accepted);
    await asMember(t, text, (code, where) => assert.equal(code, -32602, where));
    assert.equal(await put(text), 400);
    assert.equal((await request(host, 'GET', `${volume}?parameter=${encodeURIComponent(parameter(text).toString())}`)).status, 400);
  });

test('U+0000 in the words of a command', async (t) => {
  const client = await connect(t, host);
  for (const words of [['vol\u0000ume'], ['volume', '\u0000'], ['config', 'g_gui_lang__gui_language', 'deu\u0000x']]) assert.equal((await client.fail('tv', { words })).code, -32602);
});

test('every raw control character in a string is refused', async (t) => {
  for (let code = 0; code < 0x20; ++code) {
    await asWhole(t, `"${String.fromCharCode(code)}"`, refused);
    assert.equal(await put(`{"${String.fromCharCode(code)}":1}`), 400);
  }
});

test('every letter behind a backslash but eight is refused', async (t) => {
  const client = await connect(t, host);
  for (let code = 0x20; code < 0x7f; ++code) {
    const letter = String.fromCharCode(code);
    client.send(`"\\${letter}"`);
    (['"', '\\', '/', 'b', 'f', 'n', 'r', 't'].includes(letter) ? accepted : refused)(codeOf(await client.text()), letter);
  }
});

test('a text is refused wherever it is cut', async (t) => {
  const client = await connect(t, host);
  const whole = '{"a":[1.5e-3,"b\\u00e4\\n",{"c":null}],"d":true}';
  for (let length = 1; length < whole.length; ++length) {
    client.send(whole.slice(0, length));
    refused(codeOf(await client.text()), whole.slice(0, length));
  }
});

const objects = (depth) => '{"a":'.repeat(depth) + '1' + '}'.repeat(depth);
// Levels around the text: none as a whole message, one as a PUT's parameter, three in a JSON-RPC message.
for (const [kind, nested] of Object.entries({ arrays: deep, objects }))
  test(`nested ${kind}: 1,024 levels and no more`, async (t) => {
    await asWhole(t, nested(1024), accepted);
    await asWhole(t, nested(1025), refused);
    await asMember(t, nested(1021), accepted);
    await asMember(t, nested(1022), refused);
    assert.notEqual(await put(nested(1023)), 400);
    assert.equal(await put(nested(1024)), 400);
    for (const depth of [2000, 50_000]) {
      await asWhole(t, nested(depth), refused);
      await asMember(t, nested(depth), refused);
      assert.equal(await put(nested(depth)), 400);
    }
  });

// Of 10,000 values one is the parameter, one its word, one the array.
const most = 10_000 - 3;
const many = {
  'an array': (count) => `[${Array(count).fill(0)}]`,
  'an object': (count) => `{${Array.from({ length: count }, (_, i) => `"${i}":0`)}}`,
  'empty arrays': (count) => `[${Array(count).fill('[]')}]`,
  'texts': (count) => `[${Array(count).fill('""')}]`,
};
for (const [name, text] of Object.entries(many))
  test(`10,000 values in a parameter and no more: ${name}`, async (t) => {
    await asMember(t, text(most), (code, where) => assert.equal(code, undefined, where));
    assert.equal(await put(text(most)), 422);
    for (const count of [10_001, 100_000]) {
      await asMember(t, text(count), (code, where) => assert.equal(code, -32003, where));
      assert.equal(await put(text(count)), 413);
    }
  });

test('a parameter of half a million values delays nobody', async (t) => {
  const greedy = await connect(t, host);
  const other = await connect(t, host);
  const times = [];
  for (let round = 0; round < 9; ++round) {
    greedy.socket.send(message(many['an array'](500_000)), { binary: false });
    const begun = performance.now();
    await other.call('get', { uri: volume });
    times.push(performance.now() - begun);
    assert.equal(codeOf(await greedy.text()), -32003);
  }
  times.sort((a, b) => a - b);
  t.diagnostic(`another's gets took ${times.map((ms) => ms.toFixed(1)).join(', ')} ms`);
  assert.ok(times[4] < (sanitized ? 2000 : 500), `${times[4]} ms in the middle`);
});

test('a message of 1 MiB is read, and no longer one', async (t) => {
  const filled = (length) => parameter(`"${'x'.repeat(length - parameter('""').length)}"`).toString();
  const limit = 1_048_576;
  assert.equal((await request(host, 'PUT', volume, { body: filled(limit) })).status, 422);
  assert.equal((await request(host, 'PUT', volume, { body: filled(limit + 1) })).status, 413);
  const client = await connect(t, host);
  client.send(' '.repeat(limit - 1) + '1');
  assert.equal(codeOf(await client.text()), -32600);
  client.send(' '.repeat(limit) + '1');
  assert.equal(await within(client.closed(), 'end of the connection', seconds), 1009);
});

// Where a request ends: a request whose end is in doubt is refused with 400, the connection is closed, and nothing after it is
// carried out. Each row is a request; a set follows it in the same bytes.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { mute, sharedHost, sleep, volume } from './host_support.mjs';
import { answersIn, ask, getText, hostLine, putText, refuses, talk, volumeOf } from './wire_support.mjs';

const host = sharedHost();

// A set whose body is a set as well, so that a length which is read as 0 carries out the inner one.
const inner = () => putText(host, 78);
const framed = (fields) => `PUT ${volume} HTTP/1.1\r\n${hostLine(host)}${fields}\r\n${inner()}`;
const length = (value) => framed(`Content-Length: ${value}\r\n`);
const N = () => inner().length;

const lengths = {
  'twice in a list': () => `${N()}, ${N()}`,
  'twice in a list without a space': () => `${N()},${N()}`,
  'two of a list differ': () => `0, ${N()}`,
  'a list that ends in a comma': () => `${N()},`,
  'letters behind it': () => `${N()}abc`,
  'a plus sign': () => `+${N()}`,
  'negative': () => '-5',
  'minus zero': () => '-0',
  'empty': () => '',
  'spaces alone': () => '   ',
  'hexadecimal': () => '0x10',
  'two numbers': () => ' 5 5',
  'a number and a tab and a number': () => '5\t5',
  'a fraction': () => '5.0',
  'an exponent': () => '1e2',
  'a semicolon': () => `${N()};q=1`,
  'quoted': () => `"${N()}"`,
  'digits of another script': () => '\xd9\xa5',
  'twenty digits': () => '99999999999999999999',
  'two to the power of 64': () => '18446744073709551616',
  'two to the power of 64 and the length': () => String(2n ** 64n + BigInt(N())),
  'two to the power of 32 and the length, in 30 digits': () => `1${String(2n ** 32n + BigInt(N())).padStart(29, '0')}`,
};
for (const [name, value] of Object.entries(lengths)) test(`Content-Length: ${name}`, (t) => refuses(t, host, length(value())));

const pairs = {
  'the same length twice': () => framed(`Content-Length: ${N()}\r\nContent-Length: ${N()}\r\n`),
  'two lengths, the first zero': () => framed(`Content-Length: 0\r\nContent-Length: ${N()}\r\n`),
  'two lengths, the last zero': () => framed(`Content-Length: ${N()}\r\nContent-Length: 0\r\n`),
  'two lengths with a field between': () => framed(`Content-Length: ${N()}\r\nX-Foo: a\r\ncontent-length: 0\r\n`),
  'a length and an empty one': () => framed(`Content-Length: ${N()}\r\nContent-Length:\r\n`),
  'a length, then chunked': () => framed(`Content-Length: ${N()}\r\nTransfer-Encoding: chunked\r\n`),
  'chunked, then a length': () => framed(`Transfer-Encoding: chunked\r\nContent-Length: ${N()}\r\n`),
  'a length of zero and chunked': () => framed('Content-Length: 0\r\nTransfer-Encoding: chunked\r\n'),
  'a length and an unknown coding': () => framed(`Content-Length: ${N()}\r\nTransfer-Encoding: xchunked\r\n`),
};
for (const [name, text] of Object.entries(pairs)) test(`Content-Length: ${name}`, (t) => refuses(t, host, text()));

const chunkedBody = (body) => `${body.length.toString(16)}\r\n${body}\r\n0\r\n\r\n`;
const coded = (fields, version = '1.1') => `PUT ${volume} HTTP/${version}\r\n${hostLine(host)}${fields}\r\n${chunkedBody(inner())}`;
const codings = {
  'gzip': 'Transfer-Encoding: gzip\r\n',
  'identity': 'Transfer-Encoding: identity\r\n',
  'xchunked': 'Transfer-Encoding: xchunked\r\n',
  'chunkedx': 'Transfer-Encoding: chunkedx\r\n',
  'chunked, gzip': 'Transfer-Encoding: chunked, gzip\r\n',
  'gzip, chunked': 'Transfer-Encoding: gzip, chunked\r\n',
  'chunked, chunked': 'Transfer-Encoding: chunked, chunked\r\n',
  'chunked, identity': 'Transfer-Encoding: chunked, identity\r\n',
  'a parameter': 'Transfer-Encoding: chunked;q=1\r\n',
  'quoted': 'Transfer-Encoding: "chunked"\r\n',
  'empty': 'Transfer-Encoding:\r\n',
  'a comma': 'Transfer-Encoding: ,chunked\r\n',
  'two words': 'Transfer-Encoding: chunked chunked\r\n',
  'two equal fields': 'Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n',
  'two fields': 'Transfer-Encoding: chunked\r\nTransfer-Encoding: identity\r\n',
  'two fields, the other way round': 'Transfer-Encoding: gzip\r\nTransfer-Encoding: chunked\r\n',
  'a vertical tab before it': 'Transfer-Encoding: \x0bchunked\r\n',
  'on a line of its own': 'Transfer-Encoding:\r\n chunked\r\n',
  'a space before the colon': 'Transfer-Encoding : chunked\r\n',
};
for (const [name, fields] of Object.entries(codings)) test(`Transfer-Encoding: ${name}`, (t) => refuses(t, host, coded(fields)));
test('Transfer-Encoding: in HTTP/1.0', (t) => refuses(t, host, coded('Connection: keep-alive\r\nTransfer-Encoding: chunked\r\n', '1.0')));

const withFields = (fields) => `GET ${volume} HTTP/1.1\r\n${hostLine(host)}${fields}\r\n`;
const fields = {
  'a space before the colon': () => withFields('X-Foo : a\r\n'),
  'a tab before the colon': () => withFields('X-Foo\t: a\r\n'),
  'a space before the colon of Content-Length': () => framed(`Content-Length : ${N()}\r\n`),
  'a space before the colon of Host': () => `GET ${volume} HTTP/1.1\r\nHost : 127.0.0.1:${host.port}\r\n\r\n`,
  'no colon': () => withFields('X-Foo a\r\n'),
  'no name': () => withFields(': a\r\n'),
  'a space in the name': () => withFields('X Foo: a\r\n'),
  'a bracket in the name': () => withFields('X(Foo): a\r\n'),
  'a letter beyond ASCII in the name': () => withFields('X-F\xc3\xb6: a\r\n'),
  'a bare CR in a value': () => withFields('X-Foo: a\rb\r\n'),
  'a bare CR before a name': () => withFields('\rX-Foo: a\r\n'),
  'CR CR LF': () => withFields('X-Foo: a\r\r\n'),
  'a bare CR that would hide a length': () => framed(`X-Foo: a\rContent-Length: ${N()}\r\n`),
  'a bare LF after a value': () => withFields('X-Foo: a\nX-Bar: b\r\n'),
  'a bare LF that would make a length': () => framed(`X-Foo: a\nContent-Length: ${N()}\r\n`),
  'a bare LF after the request line': () => `GET ${volume} HTTP/1.1\n${hostLine(host)}\r\n`,
  'bare LFs alone': () => `GET ${volume} HTTP/1.1\nHost: 127.0.0.1:${host.port}\n\n`,
  'a bare LF as the end': () => `GET ${volume} HTTP/1.1\r\n${hostLine(host)}\n`,
  'a continued line': () => withFields('X-Foo: a\r\n b\r\n'),
  'a line continued by a tab': () => withFields('X-Foo: a\r\n\tb\r\n'),
  'a continued length': () => framed(`Content-Length: ${N()}\r\n 0\r\n`),
  'a continued Host': () => `GET ${volume} HTTP/1.1\r\nHost:\r\n 127.0.0.1:${host.port}\r\n\r\n`,
  'a first line that continues': () => `GET ${volume} HTTP/1.1\r\n X-Foo: a\r\n${hostLine(host)}\r\n`,
  'a line of spaces': () => withFields(' \r\n'),
};
for (const [name, text] of Object.entries(fields)) test(`header section: ${name}`, (t) => refuses(t, host, text()));

test('header section: every control character but the tab', async (t) => {
  for (let code = 0; code < 0x20; ++code) {
    if (code === 9) continue;
    await refuses(t, host, withFields(`X-Foo: a${String.fromCharCode(code)}b\r\n`));
    await refuses(t, host, withFields(`X-F${String.fromCharCode(code)}oo: b\r\n`));
  }
  await refuses(t, host, withFields('X-Foo: a\x7fb\r\n'));
  await refuses(t, host, withFields('X-F\x7foo: b\r\n'));
  await refuses(t, host, withFields('X-F\too: b\r\n'));
  assert.equal((await ask(t, host, withFields('X-Foo: a\tb\r\n'))).status, 200);
});

const line = (first) => `${first}\r\n${hostLine(host)}\r\n`;
const lines = {
  'no version': `GET ${volume}`,
  'no version, but a space': `GET ${volume} `,
  'HTTP/0.9': `GET ${volume} HTTP/0.9`,
  'HTTP/2.0': `GET ${volume} HTTP/2.0`,
  'HTTP/2': `GET ${volume} HTTP/2`,
  'the preface of HTTP/2': 'PRI * HTTP/2.0\r\n\r\nSM\r\n',
  'HTTP/3.0': `GET ${volume} HTTP/3.0`,
  'HTTP/1.10': `GET ${volume} HTTP/1.10`,
  'HTTP/11.1': `GET ${volume} HTTP/11.1`,
  'HTTP/01.1': `GET ${volume} HTTP/01.1`,
  'HTTP/1': `GET ${volume} HTTP/1`,
  'HTTP/1.': `GET ${volume} HTTP/1.`,
  'HTTP/.1': `GET ${volume} HTTP/.1`,
  'HTTP/1,1': `GET ${volume} HTTP/1,1`,
  'HTTP/1.1x': `GET ${volume} HTTP/1.1x`,
  'HTTP/x.1': `GET ${volume} HTTP/x.1`,
  'HTTP 1.1': `GET ${volume} HTTP 1.1`,
  'HTTP /1.1': `GET ${volume} HTTP /1.1`,
  'HTTPS/1.1': `GET ${volume} HTTPS/1.1`,
  'lower case': `GET ${volume} http/1.1`,
  'mixed case': `GET ${volume} Http/1.1`,
  'a space behind the version': `GET ${volume} HTTP/1.1 `,
  'a tab behind the version': `GET ${volume} HTTP/1.1\t`,
  'a word behind the version': `GET ${volume} HTTP/1.1 HTTP/1.1`,
  'a space in the target': `GET ${volume} x HTTP/1.1`,
  'two spaces': `GET  ${volume} HTTP/1.1`,
  'two spaces before the version': `GET ${volume}  HTTP/1.1`,
  'tabs': `GET\t${volume}\tHTTP/1.1`,
  'a space before the method': ` GET ${volume} HTTP/1.1`,
  'no method': `${volume} HTTP/1.1`,
  'no target': 'GET HTTP/1.1',
  'a method with a colon': `GET: ${volume} HTTP/1.1`,
  'a method beyond ASCII': `G\xc3\x8bT ${volume} HTTP/1.1`,
  'a method with a control character': `GE\x01T ${volume} HTTP/1.1`,
  'a bare CR': `GET ${volume}\r HTTP/1.1`,
  'one word': 'GET',
  'a sentence': 'this is no request at all',
  'a JSON text': '{"jsonrpc":"2.0","id":1,"method":"list"}',
  'an answer': 'HTTP/1.1 200 OK',
  'mail': 'EHLO example.org',
};
for (const [name, first] of Object.entries(lines)) test(`request line: ${name}`, (t) => refuses(t, host, line(first)));

test('request line: every control character', async (t) => {
  for (let code = 0; code <= 0x20; ++code) {
    const character = code === 0x20 ? '\x7f' : String.fromCharCode(code);
    await refuses(t, host, line(`GET ${volume}${character} HTTP/1.1`));
    await refuses(t, host, line(`G${character}ET ${volume} HTTP/1.1`));
  }
});

test('bytes that are no text are answered and closed', async (t) => {
  const garbage = Buffer.from(Array.from({ length: 512 }, (_, i) => (i * 37 + 11) & 255)).toString('latin1');
  // The beginning of a TLS connection; a binary protocol; noise.
  for (const text of ['\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03', '\x00\x00\x00\x0c\x00\x01', garbage]) await refuses(t, host, text);
});

test('a method that is not known but well-formed is 405', async (t) => {
  for (const method of ['FOO', 'get', 'PROPFIND', 'M-SEARCH', "!#$%&'*+-.^_`|~", 'X'.repeat(64)]) {
    const answer = await ask(t, host, `${method} ${volume} HTTP/1.1\r\n${hostLine(host)}\r\n`);
    assert.equal(answer.status, 405, method);
    assert.match(answer.headers.allow, /\bGET\b.*\bPUT\b/, method);
  }
});

const own = () => `127.0.0.1:${host.port}`;
const names = {
  'no Host': () => `GET ${volume} HTTP/1.1\r\n\r\n`,
  'two equal Hosts': () => `GET ${volume} HTTP/1.1\r\n${hostLine(host)}${hostLine(host)}\r\n`,
  'two Hosts, the first foreign': () => `GET ${volume} HTTP/1.1\r\nHost: evil.example\r\n${hostLine(host)}\r\n`,
  'two Hosts, the last foreign': () => `GET ${volume} HTTP/1.1\r\n${hostLine(host)}Host: evil.example\r\n\r\n`,
  'two Hosts apart, in other cases': () => `GET ${volume} HTTP/1.1\r\nhost: ${own()}\r\nX-Foo: a\r\nHOST: ${own()}\r\n\r\n`,
  'a second Host that is empty': () => `GET ${volume} HTTP/1.1\r\n${hostLine(host)}Host:\r\n\r\n`,
};
for (const [name, text] of Object.entries(names)) test(`Host: ${name}`, (t) => refuses(t, host, text()));

test('Host: names that are not this server are refused, whatever their form', async (t) => {
  for (const name of ['', 'evil.example', `${own()}, evil.example`, `${own()}/`, `user@${own()}`, `evil.example@${own()}`, `${own()}#evil`, `http://${own()}`, `${own()}0`, `${own()} `.trimEnd() + '\xff', '127.0.0.1:+80', `[::1`]) {
    const answer = await ask(t, host, `PUT ${volume} HTTP/1.1\r\nHost: ${name}\r\nContent-Length: 31\r\n\r\n{"REQUEST":"MODIFY","VALUE":79}`);
    assert.ok([400, 403].includes(answer.status), `${name}: ${answer.status}`);
  }
  assert.ok([400, 403].includes((await ask(t, host, `GET ${volume} HTTP/1.0\r\n\r\n`)).status), 'no Host in HTTP/1.0');
  assert.notEqual(await volumeOf(t, host), 79);
});

test('target: an encoded control character in the path', async (t) => {
  for (let code = 0; code <= 0x20; ++code) {
    const hex = (code === 0x20 ? 0x7f : code).toString(16).padStart(2, '0');
    await refuses(t, host, line(`GET ${volume}%${hex} HTTP/1.1`));
    await refuses(t, host, line(`GET /%${hex.toUpperCase()}index.html?x=1 HTTP/1.1`));
  }
});

const targets = {
  'a fragment': () => `${volume}#x`,
  'a fragment in the query': () => `${volume}?x=1#y`,
  'a fragment alone': () => '#',
  'a byte from 0x80 in the path': () => `${volume}\xe9`,
  'UTF-8 in the path': () => '/\xc3\xa4',
  'a byte from 0x80 in the query': () => `${volume}?x=\xff`,
  'no slash': () => volume.slice(1),
  'an asterisk': () => '*',
  'a query alone': () => '?x=1',
  'a name and a port': own,
  'a backslash': () => '\\tv',
  'another host': () => `http://evil.example${volume}`,
  'another host at this port': () => `http://evil.example:${host.port}${volume}`,
  'this host at another port': () => `http://127.0.0.1:${host.port === 1 ? 2 : 1}${volume}`,
  'a user of this host': () => `http://evil@${own()}${volume}`,
  'this host as the user of another': () => `http://${own()}@evil.example${volume}`,
  'https': () => `https://${own()}${volume}`,
  'another scheme': () => `ftp://${own()}${volume}`,
  'a scheme alone': () => 'http:',
  'a scheme without a host': () => `http://${volume}`,
  'one slash after the scheme': () => `http:/${own()}${volume}`,
  'a fragment behind this host': () => `http://${own()}${volume}#x`,
};
for (const [name, target] of Object.entries(targets)) test(`target: ${name}`, (t) => refuses(t, host, line(`GET ${target()} HTTP/1.1`)));

// A reader that decodes the target first sees the length 0, and the body as requests of their own.
const decoded = ['/?%0aContent-Length:0', '/?%0d%0aContent-Length:%200', '/%0aContent-Length:0', '/jsonrpc?%0aContent-Length:0', `${volume}?%0aContent-Length:0%0a`, '/?x=%0d%0aTransfer-Encoding:chunked'];
for (const path of decoded)
  test(`an encoded line feed in the target makes no header: ${path}`, async (t) => {
    for (const pause of [50, 0])
      for (const body of [putText(host, 66), `0\r\n\r\n${putText(host, 66)}`]) {
        await ask(t, host, putText(host, 20));
        const sent = await talk(t, host, `POST ${path} HTTP/1.1\r\n${hostLine(host)}Connection: keep-alive\r\nContent-Type: text/plain\r\nContent-Length: ${body.length}\r\n\r\n`);
        if (pause > 0) await sleep(pause);
        sent.write(body + getText(host, { path: mute, more: 'Connection: close\r\n' }));
        await sent.ended();
        assert.equal(await volumeOf(t, host), 20);
        const answers = answersIn(sent.received());
        assert.ok(answers.length > 0 && answers.length <= 2, sent.shown());
      }
  });

test('header section: its longest, and beyond', async (t) => {
  const long = (bytes) => withFields(`X-Foo: ${'a'.repeat(bytes)}\r\n`);
  assert.equal((await ask(t, host, long(30_000))).status, 200);
  await refuses(t, host, long(33_000), [431]);
  await refuses(t, host, withFields(Array.from({ length: 90 }, (_, i) => `X-Foo-${i}: ${'a'.repeat(400)}\r\n`).join('')), [431]);
  await refuses(t, host, line(`GET ${volume}?x=${'a'.repeat(40_000)} HTTP/1.1`), [431, 414]);
  // It need not end for that.
  await refuses(t, host, `GET ${volume} HTTP/1.1\r\n${hostLine(host)}X-Foo: ${'a'.repeat(40_000)}`, [431], { behind: '' });
});

test('header section: a hundred fields, and one more', async (t) => {
  const many = (count) => withFields(Array.from({ length: count - 1 }, (_, i) => `X-Foo-${i}: a\r\n`).join(''));
  assert.equal((await ask(t, host, many(100))).status, 200);
  await refuses(t, host, many(101), [431]);
  await refuses(t, host, many(1000), [431]);
});

test('a refusal harms nobody else', async (t) => {
  const other = await talk(t, host, getText(host));
  await other.answers(1);
  await refuses(t, host, length('31, 31'));
  other.write(getText(host));
  assert.equal((await other.answers(2))[1].status, 200);
});

// A header whose name begins another's is itself, and the header behind it stays what it is.
const beginnings = (name) => Array.from({ length: name.length - 1 }, (_, i) => name.slice(0, i + 1));
for (const name of ['Origin', 'origin'])
  test(`a name that begins ${name} hides no ${name}`, async (t) => {
    for (const beginning of [...beginnings(name), 'X', 'h', 'Ho', 'X-', 's', 'c', 't']) {
      await ask(t, host, putText(host, 20));
      const answer = await ask(t, host, putText(host, 75, { more: `${beginning}: 1\r\n${name}: http://evil.example\r\n` }));
      assert.equal(answer.status, 403, beginning);
      const last = await ask(t, host, putText(host, 75, { more: `${name}: http://evil.example\r\n${beginning}: 1\r\n` }));
      assert.equal(last.status, 403, beginning);
      assert.equal(await volumeOf(t, host), 20, beginning);
    }
  });

test('a name that begins another is served', async (t) => {
  const names = ['Host', 'Content-Length', 'Transfer-Encoding', 'Connection', 'Upgrade', 'Expect', 'Sec-Fetch-Site', 'Authorization'].flatMap(beginnings);
  for (const name of new Set([...names, ...'abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_'])) {
    const read = await ask(t, host, withFields(`${name}: 1\r\n`));
    assert.equal(read.status, 200, name);
    const before = await talk(t, host, putText(host, 33, { more: `${name}: 1\r\n` }) + getText(host, { more: `Connection: close\r\n${name}: 1\r\n` }));
    await before.ended();
    assert.deepEqual(answersIn(before.received()).map(({ status }) => status), [200, 200], name);
    assert.equal(await volumeOf(t, host), 33, name);
  }
});

test('a name that begins Host is no Host', async (t) => {
  for (const name of ['h', 'ho', 'hos', 'H', 'Ho', 'Hos']) await refuses(t, host, `GET ${volume} HTTP/1.1\r\n${name}: 127.0.0.1:${host.port}\r\n\r\n`);
});

// Legal HTTP: requests one behind another in any pieces, connections that stay or end, HEAD, Expect, chunked bodies, every
// form of a target, and the query's parameter.
import assert from 'node:assert/strict';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, test } from 'node:test';
import { modify, mute, sharedHost, sleep, volume, within } from './host_support.mjs';
import { answersIn, ask, getText, hostLine, processorTime, putText, seconds, talk, volumeOf } from './wire_support.mjs';

const site = mkdtempSync(join(tmpdir(), 'dtv-host-page-'));
writeFileSync(join(site, 'index.html'), '<!doctype html><title>page</title>');
after(() => rmSync(site, { recursive: true, force: true }));
const host = sharedHost(['--web', site]);

const rpc = JSON.stringify({ jsonrpc: '2.0', id: 5, method: 'get', params: { uri: volume } });
const postText = (body = rpc, more = '') => `POST /jsonrpc HTTP/1.1\r\n${hostLine(host)}${more}Content-Length: ${body.length}\r\n\r\n${body}`;
const optionsText = () => `OPTIONS ${volume} HTTP/1.1\r\n${hostLine(host)}\r\n`;
const chunkedText = (pieces, { path = volume, more = '', trailers = '' } = {}) =>
  `PUT ${path} HTTP/1.1\r\n${hostLine(host)}Transfer-Encoding: chunked\r\n${more}\r\n${pieces.map((piece) => `${piece.length.toString(16)}\r\n${piece}\r\n`).join('')}0\r\n${trailers}\r\n`;
const valueIn = (answer) => JSON.parse(answer.text).ITEMS[0].VALUE;

// Requests behind one another in one write, and the statuses of their answers. A request that is refused may also end the
// connection.
const together = {
  'GET and POST': { texts: () => [`GET / HTTP/1.1\r\n${hostLine(host)}\r\n`, postText()], statuses: [200, 200] },
  'GET of a URI and POST': { texts: () => [getText(host), postText()], statuses: [200, 200] },
  'PUT and PUT': { texts: () => [putText(host, 21), putText(host, 22)], statuses: [200, 200] },
  'PUT, PUT and GET': { texts: () => [putText(host, 21), putText(host, 22), getText(host)], statuses: [200, 200, 200] },
  'OPTIONS and POST': { texts: () => [optionsText(), postText()], statuses: [204, 200] },
  'POST and GET': { texts: () => [postText(), getText(host)], statuses: [200, 200] },
  'POST and POST': { texts: () => [postText(), postText()], statuses: [200, 200] },
  'an unknown URI and PUT': { texts: () => [getText(host, { path: '/tv/nothing' }), putText(host, 23)], statuses: [404, 200] },
  'a foreign origin and PUT': { texts: () => [getText(host, { more: 'Origin: http://evil.example\r\n' }), putText(host, 23)], statuses: [403, 200], mayEnd: true },
  'a foreign origin with a body and PUT': { texts: () => [putText(host, 77, { more: 'Origin: http://evil.example\r\n' }), putText(host, 23)], statuses: [403, 200], mayEnd: true },
  'a method that is not served and PUT': { texts: () => [putText(host, 77).replace('PUT', 'PATCH'), putText(host, 23)], statuses: [405, 200], mayEnd: true },
  'no JSON and PUT': { texts: () => [putText(host, 'x').replace('"x"', ']x['), putText(host, 23)], statuses: [400, 200], mayEnd: true },
  'forty PUTs': { texts: () => Array.from({ length: 40 }, (_, i) => putText(host, i)), statuses: Array(40).fill(200) },
};
for (const [name, { texts, statuses, mayEnd = false }] of Object.entries(together))
  test(`in one write: ${name}`, async (t) => {
    const line = await talk(t, host, texts().join(''));
    const all = new Promise((resolve) => {
      const look = () => answersIn(line.received()).length >= statuses.length && resolve();
      line.socket.on('data', look).on('close', resolve);
      look();
    });
    await within(all, 'answers', seconds).catch(({ message }) => assert.fail(`${message}; ${line.shown()}`));
    const answers = answersIn(line.received()).map(({ status }) => status);
    assert.deepEqual(answers, mayEnd && answers.length === 1 ? statuses.slice(0, 1) : statuses);
    assert.notEqual(await volumeOf(t, host), 77);
  });

test('PUT and PUT in two writes without a pause', async (t) => {
  const line = await talk(t, host);
  line.write(putText(host, 24));
  line.write(putText(host, 25));
  assert.deepEqual((await line.answers(2)).map(({ status }) => status), [200, 200]);
  assert.equal(await volumeOf(t, host), 25);
});

test('requests in one write leave the host at rest', async (t) => {
  for (const { texts } of Object.values(together)) await talk(t, host, texts().join(''));
  await sleep(300);
  const before = processorTime(host.child.pid);
  await sleep(1000);
  const used = processorTime(host.child.pid) - before;
  assert.ok(used < 0.25, `${used} s of processor time in 1 s`);
  assert.equal((await ask(t, host, getText(host))).status, 200);
});

// Nine requests of every kind, of which the last ends the connection. The first set makes the volume value, the second next.
const script = (value, next) => [
  getText(host),
  putText(host, value),
  postText(),
  chunkedText(['{"REQUEST":"MOD', `IFY","VALUE":${next}}`], { trailers: 'X-Foo: bar\r\n' }).replace('\r\n{', ';name="a value"\r\n{'),
  `HEAD ${volume} HTTP/1.1\r\n${hostLine(host)}\r\n`,
  optionsText(),
  getText(host, { path: `${volume}?parameter=%7B%22REQUEST%22:%0a%22OTHER%22%7D` }),
  getText(host, { path: `http://127.0.0.1:${host.port}${volume}` }),
  getText(host, { path: mute, more: 'Connection: close\r\n' }),
].join('');
const methods = ['GET', 'PUT', 'POST', 'PUT', 'HEAD', 'OPTIONS', 'GET', 'GET', 'GET'];

function checkScript(line, before, value, next, what) {
  const answers = answersIn(line.received(), methods);
  assert.deepEqual(answers.map(({ status }) => status), [200, 200, 200, 200, 200, 204, 200, 200, 200], `${what}; ${line.shown()}`);
  assert.equal(valueIn(answers[0]), before, what);
  assert.deepEqual([answers[1].text, answers[3].text], ['{"ret":0}', '{"ret":0}'], what);
  const { id, result } = JSON.parse(answers[2].text);
  assert.deepEqual([id, result.response.ITEMS[0].VALUE], [5, value], what);
  assert.equal(Number(answers[4].headers['content-length']), answers[6].body.length, what);
  assert.deepEqual([answers[6], answers[7]].map(valueIn), [next, next], what);
  assert.equal(JSON.parse(answers[8].text).URI, mute, what);
}

test('nine requests, cut at every byte', async (t) => {
  let before = await volumeOf(t, host);
  const { length } = script(10, 10);
  for (let cut = 0; cut < length; ++cut) {
    const value = 10 + Math.floor(cut / 50); // a set that changes nothing does not wait for the disk
    const line = await talk(t, host);
    line.write(script(value, value).slice(0, cut));
    await sleep(1);
    line.write(script(value, value).slice(cut));
    await line.ended();
    checkScript(line, before, value, value, `cut at ${cut}`);
    before = value;
  }
});

test('nine requests, byte by byte', async (t) => {
  const before = await volumeOf(t, host);
  const line = await talk(t, host);
  for (const byte of script(55, 56)) {
    line.write(byte);
    await new Promise(setImmediate);
  }
  await line.ended();
  checkScript(line, before, 55, 56, 'byte by byte');
});

test('HEAD: the headers of GET, and no body', async (t) => {
  for (const path of [volume, '/', '/index.html', '/tv/nothing', '/none.html']) {
    const got = await ask(t, host, getText(host, { path }));
    const line = await talk(t, host, `HEAD ${path} HTTP/1.1\r\n${hostLine(host)}\r\n` + getText(host, { path: mute, more: 'Connection: close\r\n' }));
    await line.ended();
    const answers = answersIn(line.received(), ['HEAD', 'GET']);
    assert.deepEqual(answers.map(({ status }) => status), [got.status, 200], path);
    assert.equal(answers[0].headers['content-length'], String(got.body.length), path);
    assert.equal(answers[0].headers['content-type'], got.headers['content-type'], path);
  }
});

test('OPTIONS is answered with 204', async (t) => {
  for (const path of [volume, '/jsonrpc', '/']) assert.equal((await ask(t, host, `OPTIONS ${path} HTTP/1.1\r\n${hostLine(host)}\r\n`)).status, 204, path);
});

// The fields of a first request, its version, and whether a second one on the connection is answered.
const staying = [
  ['1.1', '', true],
  ['1.1', 'Connection: keep-alive\r\n', true],
  ['1.1', 'Connection: close\r\n', false],
  ['1.1', 'Connection: Close\r\n', false],
  ['1.1', 'connection: x-foo, close\r\n', false],
  ['1.1', 'Connection: keep-alive\r\nConnection: close\r\n', false],
  ['1.1', 'Connection: closed\r\n', true],
  ['1.0', '', false],
  ['1.0', 'Connection: close\r\n', false],
  ['1.0', 'Connection: keep-alive\r\n', true],
  ['1.0', 'Connection: Keep-Alive\r\n', true],
];
for (const [version, more, stays] of staying)
  test(`HTTP/${version} ${JSON.stringify(more)}: the connection ${stays ? 'stays' : 'ends'}`, async (t) => {
    const line = await talk(t, host, putText(host, 30, { version, more }) + putText(host, 31));
    if (!stays) await line.ended();
    assert.deepEqual((await line.answers(stays ? 2 : 1)).map(({ status }) => status), stays ? [200, 200] : [200]);
    assert.equal(await volumeOf(t, host), stays ? 31 : 30);
    if (stays) {
      await sleep(50);
      line.write(getText(host, { more: 'Connection: close\r\n' }));
      await line.ended();
      assert.equal(answersIn(line.received()).length, 3);
    }
  });

const body = JSON.stringify(modify(41));
const expecting = (more, { path = volume, method = 'PUT', name = hostLine(host), version = '1.1' } = {}) =>
  `${method} ${path} HTTP/${version}\r\n${name}Expect: 100-continue\r\n${more}\r\n`;

test('Expect: 100 comes before the body', async (t) => {
  for (const [more, sent] of [[`Content-Length: ${body.length}\r\n`, body], ['Transfer-Encoding: chunked\r\n', `${body.length.toString(16)}\r\n${body}\r\n0\r\n\r\n`]]) {
    const line = await talk(t, host, expecting(more));
    assert.deepEqual((await line.answers(1)).map(({ status }) => status), [100], more);
    line.write(sent + getText(host));
    assert.deepEqual((await line.answers(3)).map(({ status }) => status), [100, 200, 200], more);
    assert.equal(valueIn(answersIn(line.received())[2]), 41);
  }
  const posted = await talk(t, host, expecting(`Content-Length: ${rpc.length}\r\n`, { path: '/jsonrpc', method: 'POST' }));
  await posted.answers(1);
  posted.write(rpc);
  assert.deepEqual((await posted.answers(2)).map(({ status }) => status), [100, 200]);
});

test('Expect: a body that is there needs no 100, and gets one at most', async (t) => {
  const line = await talk(t, host, expecting(`Content-Length: ${body.length}\r\nConnection: close\r\n`) + body);
  await line.ended();
  const statuses = answersIn(line.received()).map(({ status }) => status);
  assert.ok(['200', '100,200'].includes(statuses.join()), statuses.join());
});

test('Expect: HTTP/1.0 gets no 100', async (t) => {
  const line = await talk(t, host, expecting(`Content-Length: ${body.length}\r\n`, { version: '1.0' }));
  await sleep(100);
  assert.equal(line.received().length, 0);
  line.write(body);
  await line.ended();
  assert.deepEqual(answersIn(line.received()).map(({ status }) => status), [200]);
});

test('Expect: a request that is refused gets its status in place of 100', async (t) => {
  const refusals = [
    [404, expecting('Content-Length: 31\r\n', { path: '/tv/nothing' })],
    [405, expecting('Content-Length: 31\r\n', { method: 'DELETE' })],
    [403, expecting('Content-Length: 31\r\nOrigin: http://evil.example\r\n')],
    [403, expecting('Content-Length: 31\r\n', { name: 'Host: evil.example\r\n' })],
    [413, expecting('Content-Length: 2000000000\r\n')],
    [400, expecting('Content-Length: 31, 31\r\n')],
    [400, expecting('Transfer-Encoding: gzip\r\n')],
  ];
  for (const [status, text] of refusals) {
    const line = await talk(t, host, text);
    assert.equal((await line.answers(1))[0].status, status, text);
  }
});

const chunks = {
  'one chunk': () => chunkedText([body]),
  'a chunk for each byte': () => chunkedText([...body]),
  'upper-case digits': () => chunkedText([body.padEnd(0xab)]).replace('\r\nab\r\n', '\r\nAB\r\n'),
  'zeros before the size': () => chunkedText([body]).replace('\r\n1f\r\n', '\r\n0000001f\r\n'),
  'an extension': () => chunkedText([body]).replace('\r\n1f\r\n', '\r\n1f;name\r\n'),
  'extensions with values': () => chunkedText([body]).replace('\r\n1f\r\n', '\r\n1f;a=1;b="x;y"\r\n').replace('\r\n0\r\n', '\r\n0;last\r\n'),
  'zeros as the last chunk': () => chunkedText([body]).replace('\r\n0\r\n', '\r\n000\r\n'),
  'a trailer': () => chunkedText([body], { trailers: 'X-Foo: bar\r\n' }),
  'trailers that would change the request': () =>
    chunkedText([body], { trailers: 'Host: evil.example\r\nOrigin: http://evil.example\r\nConnection: close\r\n' }),
  'spaces around the coding': () => chunkedText([body]).replace('Encoding: chunked', 'Encoding: \t chunked \t '),
};
for (const [name, text] of Object.entries(chunks))
  test(`chunked: ${name}`, async (t) => {
    await ask(t, host, putText(host, 20));
    const line = await talk(t, host, text() + getText(host));
    const answers = await line.answers(2);
    assert.deepEqual(answers.map(({ status }) => status), [200, 200]);
    assert.equal(valueIn(answers[1]), 41);
  });

test('chunked: trailers that speak of framing are refused', async (t) => {
  await ask(t, host, putText(host, 20));
  for (const trailer of ['Content-Length: 5', 'Transfer-Encoding: gzip']) {
    const line = await talk(t, host, chunkedText([body], { trailers: `${trailer}\r\n` }) + putText(host, 77));
    assert.equal((await line.answers(1))[0].status, 400, trailer);
    await line.ended();
  }
  assert.equal(valueIn(await ask(t, host, getText(host))), 20);
});

test('chunked: an empty body is none', async (t) => {
  const line = await talk(t, host, chunkedText([]) + getText(host));
  assert.deepEqual((await line.answers(2)).map(({ status }) => status), [400, 200]);
});

test('chunked: a body beyond the limit is 413 and the end', async (t) => {
  const line = await talk(t, host, chunkedText(Array(70).fill('x'.repeat(32768))) + putText(host, 77));
  const [answer] = await line.answers(1);
  assert.equal(answer.status, 413);
  await line.ended();
  assert.equal(answersIn(line.received()).length, 1);
  assert.notEqual(await volumeOf(t, host), 77);
});

test('a length beyond the limit is 413 and the end, without the body', async (t) => {
  for (const length of ['1048577', '4294967327', '1000000000000']) {
    const line = await talk(t, host, `PUT ${volume} HTTP/1.1\r\n${hostLine(host)}Content-Length: ${length}\r\n\r\n${putText(host, 77)}`);
    assert.equal((await line.answers(1))[0].status, 413, length);
    await line.ended();
    assert.equal(answersIn(line.received()).length, 1, length);
    assert.notEqual(await volumeOf(t, host), 77);
  }
});

test('a length with zeros before it is a length', async (t) => {
  const line = await talk(t, host, putText(host, 42).replace('Content-Length: ', 'Content-Length: 000') + getText(host));
  assert.deepEqual((await line.answers(2)).map(({ status }) => status), [200, 200]);
  assert.equal(valueIn(answersIn(line.received())[1]), 42);
});

test('empty lines before a request are passed over', async (t) => {
  assert.equal((await ask(t, host, `\r\n${getText(host)}`)).status, 200);
  const line = await talk(t, host, `${putText(host, 43)}\r\n${getText(host)}`);
  assert.deepEqual((await line.answers(2)).map(({ status }) => status), [200, 200]);
  assert.equal(valueIn(answersIn(line.received())[1]), 43);
});

test('the target may name this host', async (t) => {
  for (const name of [`127.0.0.1:${host.port}`, `localhost:${host.port}`])
    for (const scheme of ['http', 'HTTP']) {
      const answer = await ask(t, host, getText(host, { path: `${scheme}://${name}${volume}?x=1` }));
      assert.equal(answer.status, 200, `${scheme}://${name}`);
      assert.equal(JSON.parse(answer.text).URI, volume);
    }
  assert.equal((await ask(t, host, getText(host, { path: `http://127.0.0.1:${host.port}/` }))).headers['content-type'].split(';')[0], 'text/html');
});

const parameters = {
  'an encoded line feed': ['%7B%22REQUEST%22:%0a%22OTHER%22%7D', 200],
  'an encoded CR and LF': ['%7B%0d%0a%22REQUEST%22:%22OTHER%22%0d%0a%7D', 200],
  'an encoded tab': ['%7B%09%22REQUEST%22:%22OTHER%22%7D', 200],
  'white space around': ['%20%0a%0d%09%7B%22REQUEST%22:%22OTHER%22%7D%20%0a%0d%09', 200],
  'lines that look like headers': ['%7B%22REQUEST%22:%0d%0aHost:%20evil.example%0d%0a%22OTHER%22%7D', 400],
  'an encoded line feed in a text': ['%7B%22REQUEST%22:%22OT%0aHER%22%7D', 400],
  'an encoded NUL': ['%7B%22REQUEST%22:%00%22OTHER%22%7D', 400],
  'an encoded NUL in a text': ['%7B%22REQUEST%22:%22OT%00HER%22%7D', 400],
  'an encoded NUL behind the text': ['%7B%22REQUEST%22:%22OTHER%22%7D%00', 400],
  'an escaped NUL in a text': ['%7B%22REQUEST%22:%22OT%5Cu0000HER%22%7D', 400],
  'nothing but a line feed': ['%0a', 400],
};
for (const [name, [text, status]] of Object.entries(parameters))
  test(`?parameter=: ${name}`, async (t) => {
    const answer = await ask(t, host, getText(host, { path: `${volume}?parameter=${text}` }));
    assert.equal(answer.status, status, answer.text);
    if (status === 200) assert.equal(JSON.parse(answer.text).URI, volume);
    else assert.ok(JSON.parse(answer.text).error.length > 0, answer.text);
  });

test('a client that has sent all may end its side', async (t) => {
  const line = await talk(t, host);
  line.socket.end(putText(host, 44) + getText(host));
  await within(line.until((bytes) => answersIn(bytes).length === 2, 'answers'), 'answers', seconds);
  assert.equal(valueIn(answersIn(line.received())[1]), 44);
});

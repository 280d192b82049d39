// Plain HTTP: the URIs for curl, which clients may use them, and what is refused.
import assert from 'node:assert/strict';
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import { connect, dial, folder, modify, mute, post, request, sleep, slowCall, startHost, valueOf, volume } from './host_support.mjs';
import { ask } from './wire_support.mjs';

const set = (host, value, options = {}) => request(host, 'PUT', volume, { body: JSON.stringify(modify(value)), ...options });
const get = (host, options = {}) => request(host, 'GET', volume, options);

test('GET and PUT on a URI', async (t) => {
  const host = await startHost(t);
  const changed = await set(host, 42);
  assert.equal(changed.status, 200);
  assert.equal(changed.text, '{"ret":0}');
  const answer = await get(host);
  assert.equal(answer.status, 200);
  assert.equal(answer.headers['content-type'], 'application/json');
  assert.equal(
    answer.text,
    `{"URI":"${volume}","STATUS":0,"ITEMS":[{"NAME":"Volume","TYPE":"TYPE_VALUE","GROUP":4,"STATE":1,"MINIMUM":0,"MAXIMUM":0,"INCREMENT":1,"VALUE":42}]}`,
  );
  const other = encodeURIComponent(JSON.stringify({ REQUEST: 'OTHER', 'a+b': '&=%' }));
  assert.equal((await request(host, 'GET', `${volume}?parameter=${other}`)).json.ITEMS[0].VALUE, 42);
});

test('HEAD on a URI is GET without the body', async (t) => {
  const host = await startHost(t);
  for (const path of [volume, '/tv/cast/volume/volume_increase', '/tv/nothing']) {
    const [head, whole] = [await request(host, 'HEAD', path), await request(host, 'GET', path)];
    assert.equal(head.status, whole.status, path);
    assert.equal(head.text, '', path);
    assert.equal(head.headers['content-length'], `${Buffer.byteLength(whole.text)}`, path);
    assert.equal(head.headers['content-type'], whole.headers['content-type'], path);
  }
});

test("a handler's failure is 422", async (t) => {
  const host = await startHost(t);
  const step = await request(host, 'GET', '/tv/cast/volume/volume_increase');
  assert.equal(step.status, 422);
  assert.equal(step.json.ret, -2);
  assert.equal(step.json.response.STATUS, -2);
  const query = await request(host, 'GET', `${volume}?parameter=${encodeURIComponent('{"REQUEST":"QUERY"}')}`);
  assert.equal(query.status, 422);
  const { reason, ...rest } = query.json;
  assert.deepEqual(rest, { ret: -1, response: null });
  assert.match(reason, /takes no parameter/);
  const none = await request(host, 'PUT', volume, { body: '{}' });
  assert.equal(none.status, 422);
  assert.equal(none.json.ret, -1);
  assert.match(none.json.reason, /REQUEST is missing/);
});

test('what is wrong with a request', async (t) => {
  const host = await startHost(t, ['--max-message', '50000']);
  for (const body of ['', '{', 'text', '5', '[]', '{"a":1}}']) {
    const answer = await request(host, 'PUT', volume, { body });
    assert.equal(answer.status, 400, body);
    assert.ok(answer.json.error.length > 0);
  }
  assert.equal((await request(host, 'GET', `${volume}?parameter=%7B`)).status, 400);
  assert.equal((await request(host, 'GET', `${volume}?parameter=`)).status, 400);
  const unknown = await request(host, 'GET', '/tv/cast/volume/volumee');
  assert.equal(unknown.status, 404);
  assert.match(unknown.json.error, /did you mean/);
  assert.equal(unknown.json.data.nearest[0], volume);
  assert.equal((await request(host, 'PUT', '/tv/nothing', { body: '{}' })).status, 404);
  for (const method of ['POST', 'DELETE', 'PATCH']) {
    const answer = await request(host, method, volume, { body: '{}' });
    assert.equal(answer.status, 405, method);
    assert.equal(answer.headers.allow, 'GET, HEAD, PUT', method);
  }
  for (const method of ['TRACE', 'PROPFIND', 'FOO']) {
    const answer = await ask(t, host, `${method} ${volume} HTTP/1.1\r\nHost: 127.0.0.1:${host.port}\r\n\r\n`);
    assert.equal(answer.status, 405, method);
    assert.match(answer.headers.allow, /\bGET\b.*\bPUT\b/, method);
    assert.match(JSON.parse(answer.text).error, /GET.*PUT/, method);
  }
  assert.equal((await request(host, 'GET', '/jsonrpc')).status, 405);
  assert.equal((await set(host, 'x'.repeat(60000))).status, 413);
  const huge = await dial(t, host);
  huge.socket.write(`PUT ${volume} HTTP/1.1\r\nHost: 127.0.0.1:${host.port}\r\nContent-Length: 1000000000\r\n\r\nx`);
  await huge.until((bytes) => bytes.toString().startsWith('HTTP/1.1 413 '), 'answer to a huge body');
  assert.equal((await set(host, 43, { headers: { 'Transfer-Encoding': 'chunked' } })).status, 200);
  assert.equal((await get(host)).json.ITEMS[0].VALUE, 43);
});

test('Host and Origin are checked on HTTP', async (t) => {
  const host = await startHost(t, ['--allow-origin', 'http://app.example', '--allow-origin', 'http://localhost:5173']);
  const own = `127.0.0.1:${host.port}`;
  for (const name of ['evil.example', `evil.example:${host.port}`, '127.0.0.1', `127.0.0.1:${host.port + 1}`, `localhost.evil.example:${host.port}`]) {
    const answer = await get(host, { headers: { Host: name } });
    assert.equal(answer.status, 403, name);
    assert.match(answer.json.error, /is not this server/);
  }
  for (const name of [own, `localhost:${host.port}`, `[::1]:${host.port}`]) assert.equal((await get(host, { headers: { Host: name } })).status, 200, name);
  for (const origin of ['null', 'http://evil.example', `https://${own}`, `http://localhost:${host.port}`, 'http://app.example.evil.example'])
    for (const ask of [get(host, { headers: { Host: own, Origin: origin } }), set(host, 99, { headers: { Host: own, Origin: origin } }), post(host, '{}', { headers: { Host: own, Origin: origin } })]) {
      const answer = await ask;
      assert.equal(answer.status, 403, origin);
      assert.equal(answer.headers['access-control-allow-origin'], undefined);
      assert.match(answer.json.error, /--allow-origin/);
    }
  assert.notEqual((await get(host)).json.ITEMS[0].VALUE, 99);

  const same = await get(host, { headers: { Host: own, Origin: `http://${own}` } });
  assert.equal(same.status, 200);
  assert.equal(same.headers['access-control-allow-origin'], undefined);
  for (const origin of ['http://app.example', 'http://localhost:5173']) {
    const answer = await set(host, 7, { headers: { Host: own, Origin: origin } });
    assert.equal(answer.status, 200);
    assert.equal(answer.headers['access-control-allow-origin'], origin);
    assert.match(answer.headers.vary, /origin/i);
    const preflight = await request(host, 'OPTIONS', volume, { headers: { Host: own, Origin: origin, 'Access-Control-Request-Method': 'PUT' } });
    assert.equal(preflight.status, 204);
    assert.equal(preflight.headers['access-control-allow-origin'], origin);
    assert.match(preflight.headers['access-control-allow-methods'], /PUT/);
  }
  const foreign = await request(host, 'OPTIONS', volume, { headers: { Host: own, Origin: 'http://evil.example' } });
  assert.equal(foreign.status, 403);
});

test('a request that a page of another site made is refused, although it names no Origin', async (t) => {
  const web = folder(t);
  writeFileSync(join(web, 'index.html'), '<!doctype html><title>page</title>');
  const host = await startHost(t, ['--web', web, '--allow-origin', 'http://app.example']);
  const navigation = { 'Sec-Fetch-Mode': 'navigate', 'Sec-Fetch-Dest': 'document' };
  for (const site of ['cross-site', 'same-site']) {
    const headers = { 'Sec-Fetch-Site': site };
    const refusals = [
      get(host, { headers }),
      get(host, { headers: { ...headers, ...navigation } }),
      get(host, { headers: { ...headers, 'Sec-Fetch-Mode': 'no-cors', 'Sec-Fetch-Dest': 'image' } }),
      set(host, 98, { headers }),
      post(host, { jsonrpc: '2.0', id: 1, method: 'set', params: { uri: volume, parameter: modify(98) } }, { headers }),
      request(host, 'GET', '/', { headers: { ...headers, 'Sec-Fetch-Mode': 'no-cors', 'Sec-Fetch-Dest': 'script' } }),
      request(host, 'GET', '/', { headers: { ...headers, 'Sec-Fetch-Mode': 'navigate', 'Sec-Fetch-Dest': 'iframe' } }),
      request(host, 'POST', '/', { headers: { ...headers, ...navigation }, body: 'x' }),
    ];
    assert.deepEqual((await Promise.all(refusals)).map(({ status }) => status), Array(refusals.length).fill(403), site);
    await assert.rejects(connect(t, host, { headers }), ({ status }) => status === 403);
    assert.equal((await request(host, 'GET', '/', { headers: { ...headers, ...navigation } })).status, 200, site);
    assert.equal((await get(host, { headers: { ...headers, Origin: 'http://app.example' } })).status, 200, site);
  }
  for (const site of ['same-origin', 'none']) assert.equal((await get(host, { headers: { 'Sec-Fetch-Site': site } })).status, 200, site);
  assert.notEqual((await get(host)).json.ITEMS[0].VALUE, 98);
});

test('Host, Origin and path are checked on the upgrade', async (t) => {
  const host = await startHost(t, ['--allow-origin', 'http://app.example']);
  const own = `127.0.0.1:${host.port}`;
  const refused = async (options, status) => assert.rejects(connect(t, host, options), (error) => error.status === status, JSON.stringify(options));
  await refused({ headers: { Host: 'evil.example' } }, 403);
  await refused({ headers: { Host: `evil.example:${host.port}` } }, 403);
  await refused({ headers: { Origin: 'http://evil.example' } }, 403);
  await refused({ headers: { Origin: 'null' } }, 403);
  await refused({ path: '/' }, 404);
  await refused({ path: volume }, 404);
  for (const headers of [{}, { Host: `localhost:${host.port}`, Origin: `http://localhost:${host.port}` }, { Origin: `http://${own}` }, { Origin: 'http://app.example' }])
    assert.equal((await (await connect(t, host, { headers })).call('get', { uri: volume })).ret, 0);
});

test('one connection serves many requests, in pieces or at once', async (t) => {
  const host = await startHost(t);
  const line = await dial(t, host);
  const head = `Host: 127.0.0.1:${host.port}\r\n`;
  for (let i = 1; i <= 3; ++i) {
    const body = JSON.stringify(modify(i));
    const text = `PUT ${volume} HTTP/1.1\r\n${head}Content-Length: ${body.length}\r\n\r\n${body}`;
    for (const piece of text.match(/[^]{1,40}/g)) line.socket.write(piece);
    await line.until((bytes) => bytes.toString().split('{"ret":0}').length === i + 1, `answer ${i}`);
  }
  line.socket.write(`GET ${volume} HTTP/1.1\r\n${head}\r\nGET ${mute} HTTP/1.1\r\n${head}\r\n`);
  await line.until((bytes) => bytes.includes('"VALUE":3') && bytes.includes('"Mute"'), 'answers to two requests sent at once');
});

test('malformed HTTP is answered or closed, and harms nobody else', async (t) => {
  const host = await startHost(t);
  for (const text of ['\r\n\r\n\r\n', 'GET\r\n\r\n', 'NONSENSE / HTTP/1.1\r\n\r\n', `GET / HTTP/1.1\r\nHost: ${'x'.repeat(70000)}\r\n\r\n`, '\u0016\u0003\u0001\u0002', `PUT ${volume} HTTP/1.1\r\nHost: 127.0.0.1:${host.port}\r\nContent-Length: -5\r\n\r\n`, `PUT ${volume} HTTP/1.1\r\nHost: 127.0.0.1:${host.port}\r\nContent-Length: 99999999999999999999\r\n\r\nx`]) {
    const line = await dial(t, host);
    line.socket.write(text);
    line.socket.end();
    await line.closed();
  }
  assert.equal(valueOf({ response: (await get(host)).json }), 20);
});

test('each request is answered once; a silent or pausing client gets no answer', async (t) => {
  const host = await startHost(t);
  // What was answered is not answered again when the client ends.
  for (const text of [`GET ${volume} HTTP/1.1\r\nHost: 127.0.0.1:${host.port}\r\n\r\n`, `GET /no HTTP/1.1\r\nHost: 127.0.0.1:${host.port}\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n`]) {
    const line = await dial(t, host);
    line.socket.write(text);
    await line.until((bytes) => bytes.includes('\r\n\r\n{'), 'answer');
    line.socket.end();
    await line.closed();
    assert.equal(line.received().toString().split('HTTP/1.').length, 2, line.received().toString());
  }
  // A connection without a request gets no answer.
  const silent = await dial(t, host);
  const kept = await dial(t, host);
  kept.socket.write(`GET ${volume} HTTP/1.1\r\nHost: 127.0.0.1:${host.port}\r\n\r\n`);
  await kept.until((bytes) => bytes.includes('"VALUE"'), 'answer');
  await sleep(2000);
  assert.equal(silent.received().length, 0);
  assert.equal(kept.received().toString().split('HTTP/1.1').length, 2);
  kept.socket.write(`GET ${mute} HTTP/1.1\r\nHost: 127.0.0.1:${host.port}\r\n\r\n`);
  await kept.until((bytes) => bytes.includes('"Mute"'), 'answer after a pause');
});

test('a body and an answer may take longer than headers', async (t) => {
  const host = await startHost(t, ['--header-time', '1', '--body-time', '20', '--reply-time', '1']);
  const line = await dial(t, host);
  const body = JSON.stringify(modify(44));
  line.socket.write(`PUT ${volume} HTTP/1.1\r\nHost: 127.0.0.1:${host.port}\r\nContent-Length: ${body.length}\r\n\r\n${body.slice(0, 5)}`);
  await sleep(2000);
  line.socket.write(body.slice(5));
  await line.until((bytes) => bytes.includes('{"ret":0}'), 'answer');
  const tv = await connect(t, host);
  await tv.call('tv', { words: ['fault', slowCall, '--delay', '2000'] });
  assert.equal((await get(host)).json.ITEMS[0].VALUE, 44);
});

test('connections beyond the maximum get a 503', async (t) => {
  const host = await startHost(t, ['--max-connections', '3']);
  const clients = [];
  for (let i = 0; i < 3; ++i) clients.push(await connect(t, host));
  const answer = await get(host);
  assert.equal(answer.status, 503);
  assert.match(answer.json.error, /--max-connections/);
  await assert.rejects(connect(t, host), (error) => error.status === 503);
  clients[0].socket.terminate();
  for (let i = 0; ; ++i) {
    if ((await get(host)).status === 200) break;
    assert.ok(i < 100, 'the place of a closed connection is free again');
    await new Promise((resolve) => setTimeout(resolve, 20));
  }
});

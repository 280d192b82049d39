// GET /list.json: what the method "list" returns, compressed, with a tag, and with the rules of the other answers.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { gunzipSync } from 'node:zlib';
import http from 'node:http';
import { folder, oddPlugin, post, request, sharedHost, startHost, within } from './host_support.mjs';

const path = '/list.json';
const host = sharedHost();
const locked = sharedHost(['--require-token']);

const gzip = { 'Accept-Encoding': 'gzip, deflate, br' };
const vary = 'accept-encoding, authorization, origin';

// As request(), with the answer's bytes.
const bytesOf = (at, method, headers = {}) =>
  within(
    new Promise((resolve, reject) => {
      const sent = http.request({ host: '127.0.0.1', port: at.port, method, path, headers, agent: false }, async (answer) => {
        const pieces = [];
        for await (const piece of answer) pieces.push(piece);
        resolve({ status: answer.statusCode, headers: answer.headers, bytes: Buffer.concat(pieces) });
      });
      sent.on('error', reject);
      sent.end();
    }),
    `answer to ${method} ${path}`,
  );

const listed = async (at) => (await post(at, { jsonrpc: '2.0', id: 1, method: 'list' })).json.result;

test('it is what the method list returns, compressed for who takes that', async () => {
  const list = await listed(host);
  assert.ok(list.uris.length > 400);
  const plain = await bytesOf(host, 'GET');
  assert.equal(plain.status, 200);
  assert.equal(plain.headers['content-type'], 'application/json');
  assert.equal(plain.headers['content-encoding'], undefined);
  assert.equal(plain.headers['cache-control'], 'no-cache');
  assert.equal(plain.headers.vary, vary);
  assert.deepEqual(JSON.parse(plain.bytes.toString('utf8')), list);

  const compressed = await bytesOf(host, 'GET', gzip);
  assert.equal(compressed.status, 200);
  assert.equal(compressed.headers['content-type'], 'application/json');
  assert.equal(compressed.headers['content-encoding'], 'gzip');
  assert.equal(compressed.headers['content-length'], `${compressed.bytes.length}`);
  assert.equal(compressed.headers.vary, vary);
  assert.ok(gunzipSync(compressed.bytes).equals(plain.bytes));
  assert.ok(compressed.bytes.length < plain.bytes.length / 5, `${compressed.bytes.length} of ${plain.bytes.length}`);
  for (const coding of ['br', 'gzip;q=0', 'identity', ''])
    assert.ok((await bytesOf(host, 'GET', { 'Accept-Encoding': coding })).bytes.equals(plain.bytes), coding);
});

test('HEAD is GET without the body', async () => {
  for (const headers of [{}, gzip]) {
    const [head, whole] = [await bytesOf(host, 'HEAD', headers), await bytesOf(host, 'GET', headers)];
    assert.equal(head.status, 200);
    assert.equal(head.bytes.length, 0);
    assert.equal(head.headers['content-length'], `${whole.bytes.length}`);
    for (const name of ['content-type', 'etag', 'cache-control', 'vary', 'content-encoding']) assert.equal(head.headers[name], whole.headers[name], name);
  }
});

test('who has the list is told so', async (t) => {
  const [plain, compressed] = [await bytesOf(host, 'GET'), await bytesOf(host, 'GET', gzip)];
  assert.match(plain.headers.etag, /^"[^"]+"$/);
  assert.notEqual(compressed.headers.etag, plain.headers.etag);
  for (const [headers, { etag }] of [[{}, plain.headers], [gzip, compressed.headers]]) {
    for (const tags of [etag, `W/${etag}`, `"a", ${etag}`, '*']) {
      const answer = await bytesOf(host, 'GET', { ...headers, 'If-None-Match': tags });
      assert.equal(answer.status, 304, tags);
      assert.equal(answer.bytes.length, 0);
      assert.equal(answer.headers.etag, etag);
      assert.equal(answer.headers.vary, vary);
    }
    assert.equal((await bytesOf(host, 'HEAD', { ...headers, 'If-None-Match': etag })).status, 304);
    assert.equal((await bytesOf(host, 'GET', { ...headers, 'If-None-Match': '"a"' })).status, 200);
  }
  // The compressed form is another version.
  assert.equal((await bytesOf(host, 'GET', { 'If-None-Match': compressed.headers.etag })).status, 200);
  // The same list has the same tag after a restart, another plugin's list has another one.
  assert.equal((await bytesOf(locked, 'GET', { Authorization: `Bearer ${locked.token}` })).headers.etag, plain.headers.etag);
  const odd = await startHost(t, ['--plugin', oddPlugin], { state: folder(t) });
  const other = await bytesOf(odd, 'GET', { ...gzip, 'If-None-Match': compressed.headers.etag });
  assert.equal(other.status, 200);
  assert.deepEqual(JSON.parse(gunzipSync(other.bytes).toString('utf8')), await listed(odd));
});

test('the rules of access are those of the other answers', async (t) => {
  const asked = (headers, at = host) => request(at, 'GET', path, { headers });
  assert.equal((await asked({ Host: `example.com:${host.port}` })).status, 403);
  assert.equal((await asked({ Origin: 'http://example.com' })).status, 403);
  for (const site of ['cross-site', 'same-site']) {
    assert.equal((await asked({ 'Sec-Fetch-Site': site })).status, 403, site);
    // A link may be followed to a page only.
    const link = { 'Sec-Fetch-Site': site, 'Sec-Fetch-Mode': 'navigate', 'Sec-Fetch-Dest': 'document' };
    assert.equal((await asked(link)).status, 403, site);
  }
  assert.equal((await asked({ Origin: host.url, 'Sec-Fetch-Site': 'same-origin' })).status, 200);

  const { etag } = (await asked({})).headers;
  for (const headers of [{}, { Authorization: 'Bearer 0' }, { 'If-None-Match': etag }]) {
    const refused = await asked(headers, locked);
    assert.equal(refused.status, 401);
    assert.equal(refused.headers['www-authenticate'], 'Bearer');
    assert.ok(!refused.text.includes('uris'));
  }
  assert.equal((await asked({ Authorization: `Bearer ${locked.token}` }, locked)).status, 200);

  const allowed = 'http://localhost:5173';
  const open = await startHost(t, ['--allow-origin', allowed]);
  const foreign = await asked({ Origin: allowed, 'Sec-Fetch-Site': 'cross-site' }, open);
  assert.equal(foreign.status, 200);
  assert.equal(foreign.headers['access-control-allow-origin'], allowed);
});

test('it can only be read', async () => {
  for (const method of ['POST', 'PUT', 'DELETE']) {
    const answer = await request(host, method, path, { body: '{}' });
    assert.equal(answer.status, 405, method);
    assert.equal(answer.headers.allow, 'GET, HEAD', method);
  }
});

// The page's files over real connections: which files are served, in which form, and that a client that reads slowly
// does not delay others.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { randomBytes } from 'node:crypto';
import { mkdirSync, readdirSync, readFileSync, readlinkSync, rmSync, symlinkSync, writeFileSync } from 'node:fs';
import http from 'node:http';
import { join } from 'node:path';
import { test } from 'node:test';
import { gunzipSync, gzipSync } from 'node:zlib';
import { dial, folder, request, sleep, startHost, volume, within } from './host_support.mjs';

const page = '<!doctype html><title>page</title>';
const script = 'let x = 1;\n'.repeat(50000);

// A built page, with a secret beside its folder.
function makeSite(t) {
  const around = folder(t);
  const site = join(around, 'dist');
  mkdirSync(join(site, 'assets'), { recursive: true });
  writeFileSync(join(site, 'index.html'), page);
  writeFileSync(join(site, 'assets/app-aB3_x-9Z.js'), script);
  writeFileSync(join(site, 'assets/app-aB3_x-9Z.js.gz'), gzipSync(script));
  for (const name of ['a.css', 'a.svg', 'a.woff2', 'a.json', 'a.odd', 'app-1.js']) writeFileSync(join(site, name), 'x');
  writeFileSync(join(around, 'secret.txt'), 'secret');
  symlinkSync(join(around, 'secret.txt'), join(site, 'link.txt'));
  return site;
}

// As request(), with the answer's bytes.
const bytesOf = (host, method, path, headers = {}) =>
  within(
    new Promise((resolve, reject) => {
      const sent = http.request({ host: '127.0.0.1', port: host.port, method, path, headers, agent: false }, async (answer) => {
        const pieces = [];
        for await (const piece of answer) pieces.push(piece);
        resolve({ status: answer.statusCode, headers: answer.headers, bytes: Buffer.concat(pieces) });
      });
      sent.on('error', reject);
      sent.end();
    }),
    `answer to ${method} ${path}`,
  );


test('the page and its files, and nothing else', async (t) => {
  const host = await startHost(t, ['--web', makeSite(t)]);
  const index = await request(host, 'GET', '/');
  assert.equal(index.status, 200);
  assert.equal(index.text, page);
  assert.match(index.headers['content-type'], /^text\/html/);
  assert.match(index.headers['content-security-policy'], /^default-src 'self';/);
  assert.equal(index.headers['x-content-type-options'], 'nosniff');
  assert.equal((await request(host, 'GET', '/index.html?x=1')).text, page);
  assert.equal((await request(host, 'GET', '/assets/app-aB3_x-9Z.js')).text, script);
  for (const [name, type] of [['assets/app-aB3_x-9Z.js', /^text\/javascript/], ['a.css', /^text\/css/], ['a.svg', /^image\/svg\+xml$/], ['a.woff2', /^font\/woff2$/], ['a.json', /^application\/json$/], ['a.odd', /^application\/octet-stream$/]])
    assert.match((await request(host, 'GET', `/${name}`)).headers['content-type'], type, name);

  for (const path of ['/../secret.txt', '/%2e%2e/secret.txt', '/assets/..%2f..%2fsecret.txt', '/assets/../../secret.txt', '/..%5csecret.txt', '/link.txt', '//etc/passwd', '/etc/passwd', '/assets', '/none.html', '/assets/app-aB3_x-9Z.js.gz']) {
    const answer = await request(host, 'GET', path).catch((error) => ({ status: error.code, text: '' }));
    assert.ok([404, 403, 400, 'ECONNRESET'].includes(answer.status), `${path}: ${answer.status}`);
    assert.ok(!answer.text.includes('secret') && !answer.text.includes('root:'), path);
  }
  for (const method of ['POST', 'PUT', 'DELETE']) {
    const answer = await request(host, method, '/', { body: 'x' });
    assert.equal(answer.status, 405, method);
    assert.equal(answer.headers.allow, 'GET, HEAD', method);
  }
});

test('a page that is not built says how to build it', async (t) => {
  const host = await startHost(t, ['--web', join(folder(t), 'nothing')]);
  const answer = await request(host, 'GET', '/');
  assert.equal(answer.status, 404);
  assert.match(answer.text, /npm run build/);
});

test('HEAD is GET without the body', async (t) => {
  const host = await startHost(t, ['--web', makeSite(t)]);
  for (const [path, headers] of [['/', {}], ['/assets/app-aB3_x-9Z.js', {}], ['/assets/app-aB3_x-9Z.js', { 'Accept-Encoding': 'gzip' }], ['/none.html', {}]]) {
    const [head, whole] = [await bytesOf(host, 'HEAD', path, headers), await bytesOf(host, 'GET', path, headers)];
    assert.equal(head.status, whole.status, path);
    assert.equal(head.bytes.length, 0, path);
    assert.equal(head.headers['content-length'], `${whole.bytes.length}`, path);
    for (const name of ['content-type', 'etag', 'cache-control', 'vary', 'content-encoding', 'content-security-policy']) assert.equal(head.headers[name], whole.headers[name], `${path} ${name}`);
  }
  // The connection goes on behind an answer without a body.
  const line = await dial(t, host);
  const own = `Host: 127.0.0.1:${host.port}\r\n\r\n`;
  line.socket.write(`HEAD /assets/app-aB3_x-9Z.js HTTP/1.1\r\n${own}`);
  await line.until((bytes) => bytes.includes('\r\n\r\n'), 'answer to HEAD');
  line.socket.write(`GET ${volume} HTTP/1.1\r\n${own}`);
  await line.until((bytes) => bytes.includes('"Volume"'), 'answer to GET');
  assert.ok(!line.received().includes('let x'));
});

test('a compressed file goes to who takes it', async (t) => {
  const host = await startHost(t, ['--web', makeSite(t)]);
  const path = '/assets/app-aB3_x-9Z.js';
  const compressed = await bytesOf(host, 'GET', path, { 'Accept-Encoding': 'deflate, gzip;q=0.8' });
  assert.equal(compressed.status, 200);
  assert.equal(compressed.headers['content-encoding'], 'gzip');
  assert.equal(compressed.headers['content-type'], 'text/javascript; charset=utf-8');
  assert.equal(compressed.headers.vary, 'accept-encoding, origin');
  assert.equal(gunzipSync(compressed.bytes).toString(), script);
  for (const headers of [{}, { 'Accept-Encoding': 'br' }, { 'Accept-Encoding': 'gzip;q=0' }]) {
    const plain = await bytesOf(host, 'GET', path, headers);
    assert.equal(plain.headers['content-encoding'], undefined);
    assert.equal(plain.headers.vary, 'accept-encoding, origin');
    assert.equal(plain.bytes.toString(), script);
  }
  const small = await bytesOf(host, 'GET', '/', { 'Accept-Encoding': 'gzip' });
  assert.equal(small.headers['content-encoding'], undefined);
  assert.equal(small.bytes.toString(), page);
});

test('a browser asks again only for what may have changed, and is told whether it has', async (t) => {
  const site = makeSite(t);
  const host = await startHost(t, ['--web', site]);
  assert.equal((await request(host, 'GET', '/assets/app-aB3_x-9Z.js')).headers['cache-control'], 'public, max-age=31536000, immutable');
  for (const path of ['/', '/index.html', '/app-1.js', '/none.html', volume]) assert.equal((await request(host, 'GET', path)).headers['cache-control'], 'no-cache', path);
  assert.equal((await request(host, 'GET', volume)).headers.vary, 'origin');

  const { etag } = (await request(host, 'GET', '/')).headers;
  const asked = (tags) => request(host, 'GET', '/', { headers: { 'If-None-Match': tags } });
  for (const tags of [etag, `W/${etag}`, '*', `"a", ${etag}`]) {
    const answer = await asked(tags);
    assert.equal(answer.status, 304, tags);
    assert.equal(answer.text, '');
    assert.equal(answer.headers.etag, etag);
    assert.equal(answer.headers['cache-control'], 'no-cache');
  }
  assert.equal((await asked('"a"')).text, page);
  writeFileSync(join(site, 'index.html'), page.replace('page', 'news'));
  const changed = await asked(etag);
  assert.equal(changed.status, 200);
  assert.notEqual(changed.headers.etag, etag);
  assert.match(changed.text, /news/);

  // The compressed form is another version of the file.
  const path = '/assets/app-aB3_x-9Z.js';
  const compressed = await request(host, 'GET', path, { headers: { 'Accept-Encoding': 'gzip' } });
  const plain = await request(host, 'GET', path, { headers: { 'If-None-Match': compressed.headers.etag } });
  assert.equal(plain.status, 200);
  assert.equal(plain.text, script);
});

test('what stands in the place of a file is neither served nor waited for', async (t) => {
  const site = makeSite(t);
  execFileSync('mkfifo', [join(site, 'fifo.html')]);
  symlinkSync('/dev/zero', join(site, 'zero.html'));
  symlinkSync('loop.html', join(site, 'loop.html'));
  mkdirSync(join(site, 'folder.html'));
  rmSync(join(site, 'assets/app-aB3_x-9Z.js.gz'));
  execFileSync('mkfifo', [join(site, 'assets/app-aB3_x-9Z.js.gz')]);
  const host = await startHost(t, ['--web', site]);
  for (const name of ['fifo.html', 'zero.html', 'loop.html', 'folder.html']) assert.equal((await request(host, 'GET', `/${name}`)).status, 404, name);
  const answer = await request(host, 'GET', '/assets/app-aB3_x-9Z.js', { headers: { 'Accept-Encoding': 'gzip' } });
  assert.equal(answer.headers['content-encoding'], undefined);
  assert.equal(answer.text, script);
});

// The superuser may read every file; a limit on descriptors stops the superuser's host, too.
test('a file that cannot be opened is the failure of the server', async (t) => {
  const site = makeSite(t);
  const host = await startHost(t, ['--web', site]);
  assert.equal((await request(host, 'GET', '/')).status, 200);
  const line = await dial(t, host);
  line.socket.write(`GET ${volume} HTTP/1.1\r\nHost: 127.0.0.1:${host.port}\r\n\r\n`);
  await line.until((bytes) => bytes.includes('"Volume"'), 'answer');
  const soft = /^Max open files\s+(\d+)/m.exec(readFileSync(`/proc/${host.child.pid}/limits`, 'utf8'))[1];
  const open = readdirSync(`/proc/${host.child.pid}/fd`);
  let free = 0;
  while (open.includes(`${free}`)) ++free;
  execFileSync('prlimit', ['--pid', `${host.child.pid}`, `--nofile=${free}:`]);
  line.socket.write(`GET / HTTP/1.1\r\nHost: 127.0.0.1:${host.port}\r\n\r\n`);
  await line.until((bytes) => bytes.includes('HTTP/1.1 500 '), 'answer to a file that cannot be opened');
  execFileSync('prlimit', ['--pid', `${host.child.pid}`, `--nofile=${soft}:`]);
  assert.equal((await request(host, 'GET', '/')).text, page);
});

test('a large file comes whole, and a slow reader does not delay others', async (t) => {
  const site = makeSite(t);
  const large = randomBytes(24 * 1024 * 1024);
  writeFileSync(join(site, 'large.bin'), large);
  const host = await startHost(t, ['--web', site]);
  const slow = await dial(t, host);
  slow.socket.write(`GET /large.bin HTTP/1.1\r\nHost: 127.0.0.1:${host.port}\r\n\r\n`);
  await slow.until((bytes) => bytes.includes('\r\n\r\n'), 'beginning of the file');
  slow.socket.pause();
  const begun = performance.now();
  assert.equal((await request(host, 'GET', volume)).status, 200);
  assert.ok(performance.now() - begun < 5000, `${performance.now() - begun} ms`);
  assert.ok((await bytesOf(host, 'GET', '/large.bin')).bytes.equals(large));
  slow.socket.resume();
  const whole = await slow.until((bytes) => bytes.length >= large.length + bytes.indexOf('\r\n\r\n') + 4, 'rest of the file');
  assert.ok(whole.subarray(whole.indexOf('\r\n\r\n') + 4).equals(large));
});

test('no file stays open', async (t) => {
  const site = makeSite(t);
  writeFileSync(join(site, 'large.bin'), Buffer.alloc(24 * 1024 * 1024));
  const host = await startHost(t, ['--web', site]);
  const { etag } = (await request(host, 'GET', '/')).headers;
  // The television opens files of its own at any time: sockets and the page's files are counted.
  const open = () =>
    readdirSync(`/proc/${host.child.pid}/fd`).filter((fd) => {
      try {
        const target = readlinkSync(`/proc/${host.child.pid}/fd/${fd}`);
        return target.startsWith('socket:') || target.startsWith(site);
      } catch {
        return false; // closed meanwhile
      }
    }).length;
  const before = open();
  for (let i = 0; i < 20; ++i) {
    await request(host, 'GET', '/');
    await request(host, 'HEAD', '/large.bin');
    await request(host, 'GET', '/', { headers: { 'If-None-Match': etag } });
    await request(host, 'GET', '/assets/app-aB3_x-9Z.js', { headers: { 'Accept-Encoding': 'gzip' } });
    // Gone in the middle of the answer, and before it.
    const gone = await dial(t, host);
    gone.socket.write(`GET /large.bin HTTP/1.1\r\nHost: 127.0.0.1:${host.port}\r\n\r\n`);
    if (i % 2) await gone.until((bytes) => bytes.includes('\r\n\r\n'), 'beginning of the file');
    gone.socket.destroy();
  }
  for (let i = 0; open() > before; ++i) {
    assert.ok(i < 100, `${open()} open, ${before} before`);
    await sleep(50);
  }
});

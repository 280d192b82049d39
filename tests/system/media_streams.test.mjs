// Films from a server on the network: with and without ranges, and servers that hang, lie, or send something else.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import { join } from 'node:path';
import { test } from 'node:test';
import { until } from './antenna_support.mjs';
import { within } from './host_support.mjs';
import { film, frame, madeMedia, shownColour, television, uri } from './media_support.mjs';
import { actionFailed, code, event, events } from './player_support.mjs';
import { prober } from './wire_support.mjs';

// A server that hangs is given up within this time; the set's own limits are shorter.
const patience = 60_000;

const set = television();
const bytes = readFileSync(join(madeMedia(), 'Films', 'colours.mkv'));

// Serves the film. answer(request, response) may do something else. requests are what came.
async function serve(t, answer = sendRange) {
  const requests = [];
  const server = http.createServer((request, response) => {
    requests.push({ method: request.method, url: request.url, range: request.headers.range });
    response.on('error', () => {});
    answer(request, response);
  });
  server.listen(0, '127.0.0.1');
  await new Promise((resolve) => server.on('listening', resolve));
  t.after(() => {
    server.closeAllConnections();
    server.close();
  });
  return { address: `http://127.0.0.1:${server.address().port}`, requests };
}

function sendRange(request, response) {
  const [, from, to] = /^bytes=(\d+)-(\d*)$/.exec(request.headers.range ?? '') ?? [];
  if (from === undefined) {
    response.writeHead(200, { 'content-type': 'video/x-matroska', 'content-length': bytes.length, 'accept-ranges': 'bytes' });
    return response.end(request.method === 'HEAD' ? undefined : bytes);
  }
  const end = to ? Math.min(Number(to), bytes.length - 1) : bytes.length - 1;
  if (Number(from) >= bytes.length) return response.writeHead(416, { 'content-range': `bytes */${bytes.length}` }).end();
  response.writeHead(206, { 'content-type': 'video/x-matroska', 'content-length': end - Number(from) + 1, 'content-range': `bytes ${from}-${end}/${bytes.length}`, 'accept-ranges': 'bytes' });
  return response.end(request.method === 'HEAD' ? undefined : bytes.subarray(Number(from), end + 1));
}

function sendAll(request, response) {
  response.writeHead(200, { 'content-type': 'video/x-matroska', 'content-length': bytes.length });
  response.end(request.method === 'HEAD' ? undefined : bytes);
}

let tag = 900;
async function open(client, address) {
  const { ret, response } = await client.get(uri('playback_init'), { REQUEST: 'QUERY', mediaPath: address, pvTag: ++tag, protocal: 'http-get:*:video/x-matroska:*' });
  const own = tag;
  const handle = response.ITEMS[0].handle;
  return {
    ret,
    handle,
    told: (TYPE) => client.notified(events, { TYPE, TAG: own }),
    // The event by which the opening ends.
    result: async () => {
      for (;;) {
        const notice = await client.notified(events, { TAG: own });
        if ([event.opened, event.error].includes(notice.TYPE)) return notice;
      }
    },
    act: (operator, more) => client.call('set', { uri: uri('playback_operator'), parameter: { REQUEST: 'SET', handle, operator, ...more } }),
    time: async () => (await client.item(uri('playback_get_info'), { handle, operator: 'getcurpos' })).curplaytime,
    end: () => client.set(uri('playback_deinit'), { handle }),
  };
}

const seen = (wanted) => until(async () => shownColour((await frame(set.host)).at(320, 120)), (shown) => shown === wanted, wanted);

test('a server with ranges: the film is played, and seeks work', async (t) => {
  const client = await set.client(t);
  await client.subscribe(events);
  const server = await serve(t);
  const player = await open(client, `${server.address}/film.mkv`);
  assert.equal(player.ret, 0);
  const opened = await player.result();
  assert.deepEqual([opened.TYPE, opened.ARG2, opened.ARG3], [event.opened, film.seconds, 2]);
  assert.equal((await player.act('Play')).ret, 0);
  await seen('red');
  assert.equal((await player.act('timeSeek', { seek_time: 25 })).ret, 0);
  await player.told(event.sought);
  await seen('blue');
  await player.told(event.end);
  assert.ok(server.requests.some(({ range }) => range), 'ranges were asked for');
  await player.end();
});

test('a server without ranges: the film is played from its beginning', async (t) => {
  const client = await set.client(t);
  await client.subscribe(events);
  const server = await serve(t, sendAll);
  const player = await open(client, `${server.address}/film.mkv`);
  assert.equal((await player.result()).TYPE, event.opened);
  await player.act('Play');
  await until(() => player.time(), (time) => time >= 1, 'the film plays');
  const { ret } = await player.act('timeSeek', { seek_time: 25 });
  assert.ok([0, code.unsupported].includes(ret), `${ret}`);
  await player.end();
});

test('a command plays a film from a server', async (t) => {
  const client = await set.client(t);
  const server = await serve(t);
  await client.tv('player', 'play', `${server.address}/film.mkv`);
  const { title, duration } = await until(() => client.tv('player'), ({ state }) => state === 'playing', 'the film');
  assert.equal(title, film.title);
  assert.ok(Math.abs(duration - film.seconds) < 0.5);
  await client.tv('player', 'stop');
});

// Each is given up with an error, and delays nobody: neither another client's gets, nor the end of the player.
const servers = {
  'one that accepts, and says nothing': [() => {}, [code.network]],
  'one that stops after the first bytes': [(request, response) => response.writeHead(200, { 'content-length': bytes.length }).write(bytes.subarray(0, 500)), [code.network, code.format]],
  'one that sends a byte a second': [
    (request, response) => {
      response.writeHead(200, { 'content-length': bytes.length });
      const drip = setInterval(() => response.write('x'), 1000);
      response.on('close', () => clearInterval(drip));
    },
    [code.network, code.format],
  ],
  'one that does not have it': [(request, response) => response.writeHead(404).end('none'), [code.network, code.file]],
  'one that fails': [(request, response) => response.writeHead(500).end(), [code.network, code.file]],
  'one that sends garbage': [(request, response) => response.end(Buffer.from(Array.from({ length: 200_000 }, (_, i) => (i * 7919) % 251))), [code.format]],
  'one that sends a page': [(request, response) => response.writeHead(200, { 'content-type': 'text/html' }).end('<html></html>'), [code.format]],
  'one that sends a list of local files': [(request, response) => response.writeHead(200, { 'content-type': 'application/vnd.apple.mpegurl' }).end('#EXTM3U\n#EXT-X-TARGETDURATION:5\n#EXTINF:5,\nfile:///etc/passwd\n#EXT-X-ENDLIST\n'), [code.format]],
  'one that redirects to a file': [(request, response) => response.writeHead(302, { location: 'file:///etc/passwd' }).end(), [code.network]],
  'one that redirects to another host': [(request, response) => response.writeHead(302, { location: 'http://192.0.2.1/film.mkv' }).end(), [code.network]],
  'one that redirects to itself for ever': [(request, response) => response.writeHead(302, { location: request.url }).end(), [code.network]],
  'one that ends too early': [(request, response) => (response.writeHead(200, { 'content-length': bytes.length }), response.write(bytes.subarray(0, 100)), response.socket.end()), [code.network, code.format]],
};
const raw = {
  'headers without an end': (socket) => {
    socket.write('HTTP/1.1 200 OK\r\n');
    const more = () => socket.writable && socket.write(`X-More: ${'y'.repeat(10_000)}\r\n`, () => setImmediate(more));
    more();
  },
  'a line of no protocol': (socket) => socket.end('SMTP ready\r\n\r\n'),
  'a length that is none': (socket) => socket.end('HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\nabc'),
  'a length of all bytes of the world': (socket) => socket.end('HTTP/1.1 206 Partial Content\r\nContent-Length: 18446744073709551615\r\nContent-Range: bytes 0-18446744073709551614/18446744073709551615\r\n\r\nabc'),
  'a chunk of a huge size': (socket) => socket.end('HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nFFFFFFFFFFFFFFFFF\r\nabc'),
};
async function serveRaw(t, answer) {
  const sockets = new Set();
  const server = net.createServer((socket) => {
    sockets.add(socket);
    socket.on('error', () => {});
    socket.once('data', () => answer(socket));
  });
  server.listen(0, '127.0.0.1');
  await new Promise((resolve) => server.on('listening', resolve));
  t.after(() => {
    for (const socket of sockets) socket.destroy();
    server.close();
  });
  return { address: `http://127.0.0.1:${server.address().port}` };
}

for (const [name, [answer, reasons, make]] of [...Object.entries(servers), ...Object.entries(raw).map(([what, reply]) => [`a server's ${what}`, [reply, [code.network, code.format], serveRaw]])])
  test(`no film from ${name}`, async (t) => {
    const client = await set.client(t);
    await client.subscribe(events);
    const other = await prober(t, set.host, { uri: '/tv/cast/volume/volume' });
    const server = await (make ?? serve)(t, answer);
    const begun = Date.now();
    const player = await open(client, `${server.address}/film.mkv`);
    assert.ok(Date.now() - begun < patience / 4, 'the init itself does not wait for the server');
    const failed = player.ret === 0 ? within(player.result(), 'error', patience / 1000) : Promise.resolve({ TYPE: event.error, ARG1: player.ret });
    const times = await other.times(failed);
    const { TYPE: told, ARG1: why } = await failed;
    assert.equal(told, event.error);
    assert.ok([actionFailed, ...reasons].includes(why), `${why}`);
    t.diagnostic(`${why} after ${Date.now() - begun} ms; p99 of another's get ${times.p99.toFixed(2)} ms`);
    assert.ok(times.p99 < 2000, `p99 of another's get ${times.p99} ms`);
    if (player.handle !== 0) await player.end();
    assert.equal((await client.tv('player')).state, 'none');
  });

test('a player is ended while its server hangs', async (t) => {
  const client = await set.client(t);
  await client.subscribe(events);
  const server = await serve(t, () => {});
  const begun = Date.now();
  for (let i = 0; i < 6; ++i) {
    const player = await open(client, `${server.address}/film.mkv`);
    assert.equal(player.ret, 0);
    await player.end();
  }
  assert.ok(Date.now() - begun < 20_000, `${Date.now() - begun} ms`);
});

// Starts dtv-host on a free port with a state of its own, and talks to it.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { existsSync, mkdtempSync, readdirSync, renameSync, rmSync } from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { after, before, beforeEach } from 'node:test';
import { fileURLToPath } from 'node:url';
import WebSocket from 'ws';

export const root = join(dirname(fileURLToPath(import.meta.url)), '../..');
export const build = process.env.DTV_BUILD ?? join(root, 'build');
export const dtvHost = join(build, 'bin/dtv-host');
export const sanitized = /san$/.test(build);
export const oddPlugin = join(build, 'lib/libodd_plugin.so');

export const volume = '/tv/cast/volume/volume';
export const mute = '/tv/cast/volume/mute';
export const volumeEvents = '/tv/ws/notify/volume_ctrl';
export const slowCall = 'a_vextvapi_volctrl_getVolume';

export const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

export const descriptors = (host) => readdirSync(`/proc/${host.child.pid}/fd`).length;

// A folder in the build that is made once for each version of what it contains. Two test files may make it at the same time:
// the first one that has finished counts.
export function madeOnce(kind, version, make) {
  const name = `test-${kind}-${version}`;
  const place = join(build, name);
  if (existsSync(place)) return place;
  for (const old of readdirSync(build)) if (old.startsWith(`test-${kind}-`) && old !== name) rmSync(join(build, old), { recursive: true, force: true });
  const made = mkdtempSync(join(build, `new-${kind}-`));
  make(made);
  try {
    renameSync(made, place);
  } catch (error) {
    rmSync(made, { recursive: true });
    if (!existsSync(place)) throw error;
  }
  return place;
}

// Returns when a slow platform call that the client has requested is running. The host's lanes take turns, so the call may
// begin only after the first command here; when the second is answered, the call has begun.
export async function callRuns(client) {
  for (let i = 0; i < 2; ++i) await client.call('tv', { words: ['faults'] });
}

// The promise, or a failure that says what did not come. The limit is generous: sanitizer builds are slow.
export function within(promise, what, seconds = 30) {
  let limit;
  const late = new Promise((_, reject) => {
    limit = setTimeout(() => reject(new Error(`no ${what} within ${seconds} s`)), seconds * 1000);
  });
  return Promise.race([promise, late]).finally(() => clearTimeout(limit));
}

export function folder(t) {
  const path = mkdtempSync(join(tmpdir(), 'dtv-host-test-'));
  t.after(() => rmSync(path, { recursive: true, force: true }));
  return path;
}

// Starts the program; resolves when it says where it listens. ended resolves with {code, signal, output}. token is the
// one of the address, or undefined where it has none. program may be a command before the host's path, cwd is where it
// starts.
export async function startHost(t, args = [], { state = folder(t), env = {}, program = [dtvHost], cwd } = {}) {
  const [file, ...words] = [...program, '--listen', '127.0.0.1:0', '--state', state, ...args];
  const child = spawn(file, words, {
    cwd,
    env: { ...process.env, ...env },
    stdio: ['ignore', 'pipe', 'pipe'],
  });
  const told = { output: '' };
  const ended = new Promise((resolve) => {
    child.on('close', (code, signal) => resolve({ code, signal, output: told.output }));
  });
  t.after(async () => {
    if (child.exitCode === null && child.signalCode === null) child.kill('SIGKILL');
    await ended;
  });
  const address = new Promise((resolve, reject) => {
    const look = () => {
      const found = /^dtv-host: http:\/\/127\.0\.0\.1:(\d+)\/(?:#token=([0-9a-f]+))?$/m.exec(told.output);
      if (found) resolve({ port: Number(found[1]), token: found[2] });
    };
    // Whole lines: a piece of one stream would tear a line of the other.
    for (const stream of [child.stdout, child.stderr]) {
      let piece = '';
      stream.setEncoding('utf8').on('data', (text) => {
        const end = (piece + text).lastIndexOf('\n') + 1;
        told.output += (piece + text).slice(0, end);
        piece = (piece + text).slice(end);
        look();
      });
      stream.on('end', () => {
        told.output += piece;
      });
    }
    child.on('error', reject);
    ended.then(({ code, signal }) => reject(new Error(`dtv-host ended (${code ?? signal}): ${told.output}`)));
  });
  const { port, token } = await within(address, 'address of the host');
  return {
    child,
    ended,
    state,
    port,
    token,
    told: () => told.output,
    url: `http://127.0.0.1:${port}`,
    stop: (signal = 'SIGTERM') => {
      child.kill(signal);
      return within(ended, 'end of the host');
    },
  };
}

// A host for all tests of a file. Before each test it must answer a request; one that does not is replaced, so that only
// the test that it did not survive fails.
export function sharedHost(args = [], options = {}) {
  const cleanups = [];
  const host = {};
  const start = async () => Object.assign(host, await startHost({ after: (cleanup) => cleanups.push(cleanup) }, args, options));
  before(start);
  beforeEach(async () => {
    const alive = within(request(host, 'GET', volume), 'answer');
    await alive.catch(async () => {
      await host.stop('SIGKILL');
      await start();
    });
  });
  after(async () => {
    for (const cleanup of cleanups.reverse()) await cleanup();
  });
  return host;
}

// One HTTP exchange with every header under the test's control: {status, headers, text, json}.
export function request(host, method, path, { headers = {}, body } = {}) {
  const exchange = new Promise((resolve, reject) => {
    const sent = http.request({ host: '127.0.0.1', port: host.port, method, path, headers, agent: false }, (answer) => {
      const pieces = [];
      answer.on('data', (piece) => pieces.push(piece));
      answer.on('end', () => {
        const text = Buffer.concat(pieces).toString('utf8');
        let json;
        try {
          json = JSON.parse(text);
        } catch {
          json = undefined;
        }
        resolve({ status: answer.statusCode, headers: answer.headers, text, json });
      });
      answer.on('error', reject);
    });
    sent.on('error', reject);
    sent.end(body);
  });
  return within(exchange, `answer to ${method} ${path}`);
}

export const post = (host, message, options = {}) =>
  request(host, 'POST', '/jsonrpc', { body: typeof message === 'string' || Buffer.isBuffer(message) ? message : JSON.stringify(message), ...options });

// A WebSocket client. call() gives a request's result or throws its error; next(method) gives the params of the next
// notification of that kind, text() the next message as it came. The client is authorized when the host told its token,
// so that it may use the method tv.
export async function connect(t, host, { headers = {}, path = '/jsonrpc', authorize = true } = {}) {
  const socket = new WebSocket(`ws://127.0.0.1:${host.port}${path}`, { headers, perMessageDeflate: false });
  t.after(() => socket.terminate());
  const replies = new Map();
  const queues = new Map();
  const waiting = new Map();
  let lastId = 0;
  const give = (kind, value) => {
    const waiter = waiting.get(kind)?.shift();
    if (waiter) return waiter(value);
    if (!queues.has(kind)) queues.set(kind, []);
    queues.get(kind).push(value);
  };
  const take = (kind) => {
    const queue = queues.get(kind);
    if (queue?.length) return Promise.resolve(queue.shift());
    return new Promise((resolve) => {
      if (!waiting.has(kind)) waiting.set(kind, []);
      waiting.get(kind).push(resolve);
    });
  };
  socket.on('message', (data) => {
    const text = data.toString('utf8');
    const message = JSON.parse(text);
    if (message.method) return give(message.method, { ...message.params, text });
    const reply = replies.get(message.id);
    replies.delete(message.id);
    if (reply) reply(message);
    else give('text', text);
  });
  const closed = new Promise((resolve) => socket.on('close', (code) => resolve(code)));
  await within(
    new Promise((resolve, reject) => {
      socket.on('open', resolve);
      socket.on('error', reject);
      socket.on('unexpected-response', (_, answer) => reject(Object.assign(new Error(`refused: ${answer.statusCode}`), { status: answer.statusCode })));
    }),
    'WebSocket connection',
  );
  const ask = (method, params) => {
    const id = ++lastId;
    const reply = new Promise((resolve) => replies.set(id, resolve));
    socket.send(JSON.stringify({ jsonrpc: '2.0', id, method, params }));
    return within(reply, `reply to ${method}`);
  };
  const call = async (method, params) => {
    const { result, error } = await ask(method, params);
    assert.equal(error, undefined, JSON.stringify(error));
    return result;
  };
  if (authorize && host.token !== undefined) await call('authorize', { token: host.token });
  return {
    socket,
    closed: () => within(closed, 'end of the connection'),
    ask,
    call,
    fail: async (method, params) => {
      const { result, error } = await ask(method, params);
      assert.equal(result, undefined, JSON.stringify(result));
      return error;
    },
    send: (text) => socket.send(text),
    text: () => within(take('text'), 'message'),
    next: (kind) => within(take(kind), `notification ${kind}`),
    pending: (kind) => queues.get(kind)?.length ?? 0,
    ping: () => {
      const pong = new Promise((resolve) => socket.once('pong', resolve));
      socket.ping();
      return within(pong, 'pong');
    },
  };
}

export const modify = (value) => ({ REQUEST: 'MODIFY', VALUE: value });
export const valueOf = (result) => result.response.ITEMS[0].VALUE;

// A connection of bytes, for what no well-behaved client sends. received() is everything so far.
export async function dial(t, host) {
  const socket = net.connect(host.port, '127.0.0.1');
  t.after(() => socket.destroy());
  let room = Buffer.alloc(65536);
  let bytes = room.subarray(0, 0); // of it, what has come
  const watchers = new Set();
  socket.on('data', (piece) => {
    const length = bytes.length + piece.length;
    if (length > room.length) {
      room = Buffer.alloc(2 * length);
      bytes.copy(room);
    }
    piece.copy(room, bytes.length);
    bytes = room.subarray(0, length);
    for (const look of [...watchers]) look();
  });
  const closed = new Promise((resolve) => socket.on('close', resolve));
  socket.on('error', () => {});
  await within(new Promise((resolve) => socket.on('connect', resolve)), 'connection');
  return {
    socket,
    closed: () => within(closed, 'end of the connection'),
    received: () => bytes,
    until: (predicate, what) =>
      within(
        new Promise((resolve, reject) => {
          const look = () => {
            try {
              if (!predicate(bytes)) return;
              resolve(bytes);
            } catch (error) {
              reject(error);
            }
            watchers.delete(look);
          };
          watchers.add(look);
          look();
        }),
        what,
      ),
  };
}

// A request for a WebSocket. The key's bytes are of no meaning.
export const upgradeText = (host) =>
  `GET /jsonrpc HTTP/1.1\r\nHost: 127.0.0.1:${host.port}\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n` +
  'Sec-WebSocket-Key: MDEyMzQ1Njc4OWFiY2RlZg==\r\nSec-WebSocket-Version: 13\r\n\r\n';

export async function dialWebSocket(t, host) {
  const line = await dial(t, host);
  line.socket.write(upgradeText(host));
  const start = await line.until((bytes) => bytes.includes('\r\n\r\n'), 'upgrade');
  assert.match(start.toString('latin1'), /^HTTP\/1\.1 101 /);
  return line;
}

// A client's frame. form is the number of bits that the length takes: 7, 16 or 64, the fewest unless told.
export function frame(payload, { opcode = 1, final = true, reserved = 0, key = [0, 0, 0, 0], masked = true, form } = {}) {
  const body = Buffer.from(payload);
  const bits = form ?? (body.length < 126 ? 7 : body.length < 65536 ? 16 : 64);
  const head = Buffer.alloc({ 7: 2, 16: 4, 64: 10 }[bits]);
  head[0] = (final ? 0x80 : 0) | (reserved << 4) | opcode;
  head[1] = (masked ? 0x80 : 0) | { 7: body.length, 16: 126, 64: 127 }[bits];
  if (bits === 16) head.writeUInt16BE(body.length, 2);
  if (bits === 64) head.writeBigUInt64BE(BigInt(body.length), 2);
  if (!masked) return Buffer.concat([head, body]);
  return Buffer.concat([head, Buffer.from(key), body.map((byte, i) => byte ^ key[i % 4])]);
}

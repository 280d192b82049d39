// Starts dtv-host on a free port with a state of its own, and talks to it.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import WebSocket from 'ws';

export const root = join(dirname(fileURLToPath(import.meta.url)), '../..');
export const build = process.env.DTV_BUILD ?? join(root, 'build');
export const dtvHost = join(build, 'bin/dtv-host');
export const oddPlugin = join(build, 'lib/libodd_plugin.so');

export const volume = '/tv/cast/volume/volume';
export const mute = '/tv/cast/volume/mute';
export const volumeEvents = '/tv/ws/notify/volume_ctrl';
export const slowCall = 'a_vextvapi_volctrl_getVolume';

export const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

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

// Starts the program; resolves when it says where it listens. ended resolves with {code, signal, output}. program may
// be a command before the host's path, cwd is where it starts.
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
    const look = (text) => {
      told.output += text;
      const found = /^dtv-host: http:\/\/127\.0\.0\.1:(\d+)\/$/m.exec(told.output);
      if (found) resolve(Number(found[1]));
    };
    child.stdout.setEncoding('utf8').on('data', look);
    child.stderr.setEncoding('utf8').on('data', look);
    child.on('error', reject);
    ended.then(({ code, signal }) => reject(new Error(`dtv-host ended (${code ?? signal}): ${told.output}`)));
  });
  const port = await within(address, 'address of the host');
  return {
    child,
    ended,
    state,
    port,
    told: () => told.output,
    url: `http://127.0.0.1:${port}`,
    stop: (signal = 'SIGTERM') => {
      child.kill(signal);
      return within(ended, 'end of the host');
    },
  };
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
  request(host, 'POST', '/jsonrpc', { body: typeof message === 'string' ? message : JSON.stringify(message), ...options });

// A WebSocket client. call() gives a request's result or throws its error; next(method) gives the params of the next
// notification of that kind, text() the next message as it came.
export async function connect(t, host, { headers = {}, path = '/jsonrpc' } = {}) {
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
  return {
    socket,
    closed: () => within(closed, 'end of the connection'),
    ask,
    call: async (method, params) => {
      const { result, error } = await ask(method, params);
      assert.equal(error, undefined, JSON.stringify(error));
      return result;
    },
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
  let bytes = Buffer.alloc(0);
  const watchers = new Set();
  socket.on('data', (piece) => {
    bytes = Buffer.concat([bytes, piece]);
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
        new Promise((resolve) => {
          const look = () => {
            if (!predicate(bytes)) return;
            watchers.delete(look);
            resolve(bytes);
          };
          watchers.add(look);
          look();
        }),
        what,
      ),
  };
}

export async function dialWebSocket(t, host) {
  const line = await dial(t, host);
  line.socket.write(
    `GET /jsonrpc HTTP/1.1\r\nHost: 127.0.0.1:${host.port}\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n` +
      'Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n',
  );
  const start = await line.until((bytes) => bytes.includes('\r\n\r\n'), 'upgrade');
  assert.match(start.toString('latin1'), /^HTTP\/1\.1 101 /);
  return line;
}

// A client's frame with a mask of zeros.
export function frame(payload, { opcode = 1, final = true } = {}) {
  const body = Buffer.from(payload);
  const head = [(final ? 0x80 : 0) | opcode];
  if (body.length < 126) head.push(0x80 | body.length);
  else if (body.length < 65536) head.push(0x80 | 126, body.length >> 8, body.length & 255);
  else head.push(0x80 | 127, 0, 0, 0, 0, ...[24, 16, 8, 0].map((shift) => (body.length >>> shift) & 255));
  return Buffer.concat([Buffer.from([...head, 0, 0, 0, 0]), body]);
}

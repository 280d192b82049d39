// Runs dtvctl as a shell does, and a made-up host that answers what a test says.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { createHash } from 'node:crypto';
import { mkdtempSync, rmSync } from 'node:fs';
import { createServer } from 'node:http';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

export const root = join(dirname(fileURLToPath(import.meta.url)), '../..');
export const build = process.env.DTV_BUILD ?? join(root, 'build');
export const dtvctl = join(build, 'bin/dtvctl');

// An environment in which nothing of the caller's leaks into the program. The usual state folder is not there.
export function environment(more = {}) {
  const { DTV_HOST, DTV_TOKEN, NO_COLOR, ...rest } = process.env;
  return { ...rest, XDG_STATE_HOME: join(tmpdir(), 'dtvctl-test-without-state'), ...more };
}

// Runs a program to its end: {code, stdout, stderr}. The time limit keeps a hang from being waited for.
export function run(program, words, { env = {}, cwd, seconds = 60 } = {}) {
  return new Promise((resolve, reject) => {
    const child = spawn(program, words, { env: environment(env), cwd, stdio: ['ignore', 'pipe', 'pipe'] });
    const told = { stdout: '', stderr: '' };
    child.stdout.setEncoding('utf8').on('data', (text) => (told.stdout += text));
    child.stderr.setEncoding('utf8').on('data', (text) => (told.stderr += text));
    const limit = setTimeout(() => child.kill('SIGKILL'), seconds * 1000);
    child.on('error', reject);
    child.on('close', (code, signal) => {
      clearTimeout(limit);
      resolve({ code: code ?? signal, ...told });
    });
  });
}

export const ctl = (words, options) => run(dtvctl, words, options);

// dtvctl with a host, and its state folder for the token: how a command line ends, what it prints where it must succeed, and that as JSON.
export function shell(host) {
  const run = (...words) => ctl(['--state', host.state, ...words], { env: { DTV_HOST: `127.0.0.1:${host.port}` } });
  const done = async (...words) => {
    const { code, stdout, stderr } = await run(...words);
    assert.equal(code, 0, `${words.join(' ')}: ${stderr}`);
    return stdout;
  };
  return { run, done, json: async (...words) => JSON.parse(await done('--json', ...words)) };
}

// A program that goes on running: lines arrive in order, stop() sends a signal and gives what run() gives.
export function start(program, words, { env = {} } = {}) {
  const child = spawn(program, words, { env: environment(env), stdio: ['ignore', 'pipe', 'pipe'] });
  let pending = '';
  let stderr = '';
  const lines = [];
  const waiting = [];
  child.stdout.setEncoding('utf8').on('data', (text) => {
    const parts = (pending + text).split('\n');
    pending = parts.pop();
    for (const line of parts) waiting.length ? waiting.shift()(line) : lines.push(line);
  });
  child.stderr.setEncoding('utf8').on('data', (text) => (stderr += text));
  const ended = new Promise((resolve) => child.on('close', (code, signal) => resolve({ code: code ?? signal, stderr })));
  return {
    child,
    ended,
    line: (seconds = 20) =>
      lines.length
        ? Promise.resolve(lines.shift())
        : new Promise((resolve, reject) => {
            const limit = setTimeout(() => reject(new Error(`no line within ${seconds} s; stderr: ${stderr}`)), seconds * 1000);
            waiting.push((line) => (clearTimeout(limit), resolve(line)));
          }),
    more: () => lines.length,
    told: () => stderr,
    stop: (signal = 'SIGINT') => (child.kill(signal), ended),
  };
}

export function stateFolder(t) {
  const folder = mkdtempSync(join(tmpdir(), 'dtvctl-test-'));
  t.after(() => rmSync(folder, { recursive: true, force: true }));
  return folder;
}

// A host that can be wrong on purpose. answer(request, send, socket) gets each request; send(text) writes one text
// message, in pieces of `piece` bytes where given. upgrade is its answer to the request for a WebSocket, as bytes.
export function fakeHost(t, answer, { upgrade, at = '127.0.0.1' } = {}) {
  const seen = { requests: [], headers: null };
  const sockets = new Set();
  const server = createServer();
  server.on('upgrade', (request, socket) => {
    sockets.add(socket);
    socket.on('error', () => {});
    seen.headers = { ...request.headers, path: request.url };
    if (upgrade !== undefined) return socket.end(upgrade);
    const accept = createHash('sha1')
      .update(request.headers['sec-websocket-key'] + '258EAFA5-E914-47DA-95CA-C5AB0DC85B11')
      .digest('base64');
    socket.write(
      `HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: ${accept}\r\n\r\n`,
    );
    const send = (text, piece = Infinity) => {
      const bytes = Buffer.from(text);
      let at = 0;
      do {
        const part = bytes.subarray(at, at + Math.min(piece, bytes.length - at));
        const last = at + part.length >= bytes.length;
        const first = (last ? 0x80 : 0) | (at === 0 ? 1 : 0);
        const length =
          part.length < 126
            ? Buffer.from([part.length])
            : part.length < 65536
              ? Buffer.from([126, part.length >> 8, part.length & 255])
              : Buffer.from([127, 0, 0, 0, 0, (part.length >>> 24) & 255, (part.length >> 16) & 255, (part.length >> 8) & 255, part.length & 255]);
        socket.write(Buffer.concat([Buffer.from([first]), length, part]));
        at += part.length;
      } while (at < bytes.length);
    };
    let buffer = Buffer.alloc(0);
    let message = Buffer.alloc(0);
    socket.on('data', (data) => {
      buffer = Buffer.concat([buffer, data]);
      while (buffer.length >= 6) {
        const short = buffer[1] & 127;
        const extra = short === 126 ? 2 : short === 127 ? 8 : 0;
        if (buffer.length < 6 + extra) return;
        const length = extra === 2 ? buffer.readUInt16BE(2) : extra === 8 ? Number(buffer.readBigUInt64BE(2)) : short;
        const mask = buffer.subarray(2 + extra, 6 + extra);
        if (buffer.length < 6 + extra + length) return;
        const payload = Buffer.from(buffer.subarray(6 + extra, 6 + extra + length)).map((byte, i) => byte ^ mask[i % 4]);
        const [opcode, last] = [buffer[0] & 15, buffer[0] & 128];
        buffer = buffer.subarray(6 + extra + length);
        if (opcode > 2) continue; // control frames
        message = Buffer.concat([message, payload]);
        if (!last) continue;
        const text = message.toString();
        message = Buffer.alloc(0);
        seen.requests.push(text);
        answer(JSON.parse(text), send, socket);
      }
    });
  });
  t.after(() => {
    for (const socket of sockets) socket.destroy();
    server.close();
  });
  return new Promise((resolve, reject) =>
    server.on('error', reject).listen(0, at, () => {
      const { port } = server.address();
      resolve({ address: `${at.includes(':') ? `[${at}]` : at}:${port}`, port, seen });
    }),
  );
}

export const result = (id, text) => `{"jsonrpc":"2.0","id":${id},"result":${text}}`;
export const notification = (method, params) => `{"jsonrpc":"2.0","method":"${method}","params":${params}}`;

// The frame by which a host closes.
export function closeFrame(code, reason = '') {
  const payload = Buffer.concat([Buffer.from([code >> 8, code & 255]), Buffer.from(reason)]);
  return Buffer.concat([Buffer.from([0x88, payload.length]), payload]);
}

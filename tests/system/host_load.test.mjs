// Hostile clients: how long another client's gets take meanwhile, how much memory the host uses, and that it recovers.
// With DTV_LOAD=full there are more of them.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { test } from 'node:test';
import { connect, dial, dialWebSocket, frame, modify, mute, sanitized, sleep, slowCall, startHost, valueOf, volume, within } from './host_support.mjs';
import { hostLine, prober, resident } from './wire_support.mjs';

const full = process.env.DTV_LOAD === 'full';
// Times of another client's gets in ms. A client that is not served waits for all of the harm, which lasts seconds; a busy
// machine costs some gets a few scheduler slices. Only the full run measures closely.
const times = full ? { median: 50, p99: 50 } : { median: 1000, p99: 2000 };
const bounds = sanitized ? { median: 10_000, p99: 10_000, resident: Infinity, left: Infinity } : { ...times, resident: 400, left: 64 };

const clients = (count, make) => Promise.all(Array.from({ length: count }, make));
const leave = (lines) => () => lines.forEach((line) => line.socket.destroy());
const request = (method, params) => JSON.stringify({ jsonrpc: '2.0', id: 'x', method, params });
const longest = 1 << 20;

// begin() does the harm and gives what ends it. probe is the get whose time counts.
const harms = {
  'clients that do not read, each with a batch of 400 lists': {
    count: full ? 250 : 60,
    async begin(t, host, { count }) {
      const batch = frame(`[${Array(400).fill(request('list'))}]`);
      const lines = await clients(count, () => dialWebSocket(t, host));
      for (const line of lines) {
        line.socket.pause();
        line.socket.write(batch);
      }
      return leave(lines);
    },
  },
  'clients that do not read, each with 400 POSTs of a list': {
    count: full ? 250 : 60,
    async begin(t, host, { count }) {
      const list = request('list');
      const posts = `POST /jsonrpc HTTP/1.1\r\n${hostLine(host)}Content-Length: ${list.length}\r\n\r\n${list}`.repeat(400);
      const lines = await clients(count, () => dial(t, host));
      for (const line of lines) {
        line.socket.pause();
        line.socket.write(posts);
      }
      return leave(lines);
    },
  },
  'clients that send a byte a second': {
    count: 250,
    async begin(t, host, { count }) {
      const bodies = await clients(count / 2, () => dial(t, host));
      for (const line of bodies) line.socket.write(`PUT ${volume} HTTP/1.1\r\n${hostLine(host)}Content-Length: 1000\r\n\r\n`);
      const messages = await clients(count / 2, () => dialWebSocket(t, host));
      for (const line of messages) line.socket.write(frame(' '.repeat(1000)).subarray(0, 20));
      const lines = [...bodies, ...messages];
      const drip = setInterval(() => lines.forEach((line) => line.socket.writable && line.socket.write(' ')), 1000);
      return () => {
        clearInterval(drip);
        leave(lines)();
      };
    },
  },
  'unfinished messages of nearly the greatest size': {
    count: 50,
    async begin(t, host, { count }) {
      const message = frame(' '.repeat(longest)).subarray(0, -1);
      const body = Buffer.from(`PUT ${volume} HTTP/1.1\r\n${hostLine(host)}Content-Length: ${longest}\r\n\r\n${' '.repeat(longest - 1)}`);
      const lines = [];
      for (let i = 0; i < count; ++i) {
        const line = i % 2 === 0 ? await dialWebSocket(t, host) : await dial(t, host);
        line.socket.write(i % 2 === 0 ? message : body);
        lines.push(line);
      }
      return leave(lines);
    },
  },
  'fragments of unfinished messages': {
    count: 50,
    async begin(t, host, { count }) {
      const piece = frame(' ', { final: false });
      const more = Buffer.concat(Array(full ? 50_000 : 5000).fill(frame(' ', { opcode: 0, final: false })));
      const lines = await clients(count, () => dialWebSocket(t, host));
      for (const line of lines) line.socket.write(Buffer.concat([piece, more]));
      return leave(lines);
    },
  },
  'connections on which nothing is said': {
    count: full ? 1000 : 300,
    async begin(t, host, { count }) {
      return leave(await clients(count, () => dial(t, host)));
    },
  },
  'a platform that takes 5 ms for each call of two busy clients': {
    count: 2,
    async begin(t, host, { count }, tv) {
      await tv.call('tv', { words: ['fault', slowCall, '--delay', '5'] });
      const lines = await clients(count, () => dialWebSocket(t, host));
      for (const line of lines) line.socket.write(Buffer.concat(Array(full ? 1000 : 300).fill(frame(request('get', { uri: volume })))));
      return async () => {
        await tv.call('tv', { words: ['fault', '--clear'] });
        leave(lines)();
      };
    },
  },
  'a platform that does not return': {
    count: full ? 200 : 20,
    probe: { uri: '/no/such/uri' }, // what the host itself can answer
    async begin(t, host, { count }, tv) {
      await tv.call('tv', { words: ['fault', slowCall, '--delay', '4000'] });
      const lines = await clients(count, () => dialWebSocket(t, host));
      for (const line of lines) line.socket.write(Buffer.concat(Array(80).fill(frame(request('get', { uri: volume })))));
      return async () => {
        await tv.call('tv', { words: ['fault', '--clear'] });
        leave(lines)();
      };
    },
  },
  // Only the first request of a batch has an id. The others are done at once without a reply; the batch waits for it.
  'batches that wait for one slow get, filled with lists or unknown methods without an id': {
    count: full ? 200 : 8,
    probe: { uri: '/no/such/uri' },
    async begin(t, host, { count }, tv) {
      await tv.call('tv', { words: ['fault', slowCall, '--delay', '4000'] });
      const get = request('get', { uri: volume });
      const batchOf = (method) => frame(`[${get}${`,{"jsonrpc":"2.0","method":"${method}"}`.repeat(999)}]`);
      const sent = Buffer.concat([...Array(10).fill(batchOf('list')), ...Array(200).fill(batchOf('none'))]);
      const lines = await clients(count, () => dialWebSocket(t, host));
      for (const line of lines) line.socket.write(sent);
      return async () => {
        await tv.call('tv', { words: ['fault', '--clear'] });
        leave(lines)();
      };
    },
  },
  // Each of these requests makes the plugin, or the virtual television, print a line.
  'a standard output that nobody reads': {
    count: full ? 60_000 : 6000,
    stream: 'stdout',
    begin: (t, host, harm) => printMuch(t, host, harm, { uri: volume, parameter: { REQUEST: 'QUERY' } }),
  },
  'a standard error that nobody reads': {
    count: full ? 60_000 : 6000,
    stream: 'stderr',
    begin: (t, host, harm) => printMuch(t, host, harm, { uri: '/tv/menu/misc/jump_ebanner' }),
  },
};

async function printMuch(t, host, { count, stream }, params) {
  host.child[stream].pause();
  const client = await connect(t, host);
  const batch = `[${Array(500).fill(request('get', params))}]`;
  for (let sent = 0; sent < count; sent += 500) {
    client.send(batch);
    const replies = JSON.parse(await within(client.text(), 'replies', sanitized ? 30 : 10));
    assert.equal(replies.length, 500);
    assert.ok(replies.every(({ error }) => error === undefined), 'every get is answered by the plugin');
  }
  return () => {};
}

for (const [name, harm] of Object.entries(harms))
  test(`${name} (${harm.count})`, async (t) => {
    const host = await startHost(t, ['--no-cec']);
    const other = await prober(t, host, harm.probe ?? { uri: mute });
    const tv = await connect(t, host);
    await tv.call('set', { uri: volume, parameter: modify(40) });
    await other.times(sleep(300));
    const before = await other.times(sleep(500));
    const memory = { before: resident(host.child.pid), during: 0 };
    const watch = setInterval(() => (memory.during = Math.max(memory.during, resident(host.child.pid))), 50);
    t.after(() => clearInterval(watch));

    const begun = harm.begin(t, host, harm, tv);
    const [end, { median, p99, count }] = await Promise.all([begun, other.times(begun.then(() => sleep(1500)))]);
    await end();
    clearInterval(watch);
    for (let i = 0; i < 100 && (memory.after = resident(host.child.pid)) > memory.before + bounds.left; ++i) await sleep(100);
    t.diagnostic(
      `${name}: p99 of a get ${before.p99.toFixed(2)} ms before, ${p99.toFixed(2)} ms during (${count} gets, median ${median.toFixed(2)}); ` +
        `resident ${memory.before.toFixed(0)} MiB before, ${memory.during.toFixed(0)} during, ${memory.after.toFixed(0)} after`,
    );
    // A machine that is busy with other things is slow before as well.
    assert.ok(median < Math.max(bounds.median, 4 * before.median), `median of another's get ${median} ms`);
    assert.ok(p99 < Math.max(bounds.p99, 4 * before.p99), `p99 of another's get ${p99} ms`);
    assert.ok(memory.during < bounds.resident, `${memory.during} MiB during`);
    assert.ok(memory.after <= memory.before + bounds.left, `${memory.after} MiB after, ${memory.before} MiB before`);

    const late = await connect(t, host);
    assert.equal(valueOf(await late.call('get', { uri: volume })), 40);
    assert.deepEqual(await late.call('set', { uri: volume, parameter: modify(41) }), { ret: 0 });
    assert.ok((await late.call('list')).uris.length > 0);
    assert.ok(await tv.call('tv', { words: ['state'] }));

    const exit = once(host.child, 'exit');
    host.child.kill('SIGTERM');
    const [code] = await within(exit, 'end of the host', sanitized ? 60 : 10);
    assert.equal(code, 0, host.told());
    for (const stream of ['stdout', 'stderr']) host.child[stream].resume();
  });

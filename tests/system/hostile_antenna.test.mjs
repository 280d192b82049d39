// What a folder of the antenna may contain beside multiplexes, and what a guide file may: the host tells why it does not
// take them, goes on with what is good, and needs no more memory than before.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { closeSync, ftruncateSync, mkdirSync, openSync, readFileSync, statSync, symlinkSync, truncateSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import { antenna, services, until, viewer } from './antenna_support.mjs';
import { folder, request, sanitized, startHost, volume } from './host_support.mjs';

const packet = 188;
const mutations = 200;
const most = 64; // MiB that a host may grow by; it grows by far less
// A sanitizer keeps what was freed, and shadows everything.
const bound = sanitized ? Infinity : most;

// The most memory that a process has had since `forget`, in MiB.
const peak = (pid) => Number(/VmHWM:\s+(\d+) kB/.exec(readFileSync(`/proc/${pid}/status`, 'utf8'))[1]) / 1024;
const forget = (pid) => writeFileSync(`/proc/${pid}/clear_refs`, '5');

async function grows(t, host, what, work) {
  forget(host.child.pid);
  const before = peak(host.child.pid);
  await work();
  const growth = peak(host.child.pid) - before;
  t.diagnostic(`${what}: ${growth.toFixed(1)} MiB more than the ${before.toFixed(1)} MiB before`);
  assert.ok(growth < bound, `${what}: ${growth} MiB`);
}

// Numbers that are the same in every run.
function random(seed) {
  let state = seed;
  return (below) => {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    return Math.floor((state / 2 ** 32) * below);
  };
}

const crcs = Array.from({ length: 256 }, (_, byte) => {
  let value = byte << 24;
  for (let bit = 0; bit < 8; ++bit) value = value & 0x80000000 ? (value << 1) ^ 0x04c11db7 : value << 1;
  return value;
});
const crc = (bytes) => bytes.reduce((value, byte) => (value << 8) ^ crcs[(value >>> 24) ^ byte], -1) >>> 0;

// Flips bits of the tables that fit into a packet, and gives them the CRC that they should have: else nobody would read
// them. Then some of everything is damaged: packets are lost, doubled and cut, and bytes lie between them.
function mutated(stream, id, pick) {
  const flip = (bytes, from, to) => (bytes[from + pick(to - from)] ^= 1 << pick(8));
  const pieces = [];
  for (let at = 0; at + packet <= stream.length; at += packet) {
    const piece = Buffer.from(stream.subarray(at, at + packet));
    const length = 3 + (((piece[6] & 0x0f) << 8) | piece[7]);
    const holdsTable = piece[1] & 0x40 && (piece[3] & 0x30) === 0x10 && piece[4] === 0 && (piece[6] & 0xb0) === 0xb0;
    if (holdsTable && length >= 12 && 5 + length <= packet) {
      if (piece[5] === 0) piece.writeUInt16BE(id, 8); // of the PAT: two multiplexes with the same one would be one
      if (pick(3) === 0) for (let flips = 1 + pick(3); flips > 0; --flips) flip(piece, 10, 5 + length - 4);
      piece.writeUInt32BE(crc(piece.subarray(5, 5 + length - 4)), 5 + length - 4);
    }
    switch (pick(400)) {
      case 0: break; // lost
      case 1: pieces.push(piece, piece); break;
      case 2: pieces.push(piece.subarray(0, pick(packet))); break;
      case 3: pieces.push(Buffer.from('G'.repeat(pick(300))), piece); break;
      case 4: flip(piece, 0, packet); // falls through
      default: pieces.push(piece);
    }
  }
  return Buffer.concat(pieces);
}

async function start(t, place) {
  const host = await startHost(t, ['--antenna', place, '--stick-root', place]);
  return { host, client: await viewer(t, host) };
}

const indexed = (client) => until(() => client.tv('antenna'), ({ multiplexes, refused }) => multiplexes.length + refused.length > 0, 'the antenna');

test(`${mutations} damaged multiplexes are scanned to the end`, async (t) => {
  const sound = antenna();
  const streams = ['air-506.ts', 'air-578.ts', 'satellite-11494.ts'].map((name) => readFileSync(join(sound, name)).subarray(0, 1500 * packet));
  const place = folder(t);
  const pick = random(20261123);
  for (let i = 0; i < mutations; ++i) {
    const stream = streams[i % streams.length];
    const from = packet * pick(500);
    writeFileSync(join(place, `${i}.ts`), mutated(stream.subarray(from), 100 + i, pick));
  }
  const { host, client } = await start(t, place);
  await indexed(client);
  await grows(t, host, 'the antenna and the scan', async () => {
    await client.tv('antenna rescan');
    await client.tv('scan all');
    const ended = await until(() => client.tv('scan'), ({ state }) => state !== 'running', 'the end of the scan');
    assert.equal(ended.state, 'done');
    const { multiplexes, refused } = await client.tv('antenna');
    t.diagnostic(`${multiplexes.length} multiplexes with ${ended.services} services, ${refused.length} files refused`);
    assert.equal(multiplexes.length + refused.length, mutations);
    assert.ok(multiplexes.length > mutations / 2, 'most are still multiplexes');
    assert.ok(ended.services > mutations, 'most still have services');
  });
  // Names have no control characters, and numbers are within their range; each channel can be tuned, whatever it carries.
  // What a damaged name does not have in its character set is U+FFFD; a reply that is not UTF-8 would end the connection.
  const { channels } = await client.tv('channels');
  assert.ok(channels.length > 0);
  for (const { number, name } of channels) assert.ok(number >= 1 && number <= 16383 && !/[\u0000-\u001f]/.test(name), `${number} ${name}`);
  for (const { number } of channels.slice(0, 10)) {
    await client.tv(`tune ${number}`);
    await until(() => client.tv('tuner'), ({ result }) => result !== null, `the result of ${number}`);
  }
  assert.equal((await host.stop()).code, 0);
});

test('a folder with everything that is no multiplex', async (t) => {
  const place = folder(t);
  const copy = join(place, 'good.ts');
  writeFileSync(copy, readFileSync(join(antenna(), 'air-506.ts')));
  mkdirSync(join(place, 'folder.ts'));
  assert.equal(spawnSync('mkfifo', [join(place, 'pipe.ts')]).status, 0);
  symlinkSync('good.ts', join(place, 'link.ts'));
  symlinkSync('/dev/zero', join(place, 'endless.ts'));
  writeFileSync(join(place, 'empty.ts'), '');
  const zeros = openSync(join(place, 'zeros.ts'), 'w');
  ftruncateSync(zeros, 2 ** 30);
  closeSync(zeros);
  // Of packets, but without a table: what is read of it has a limit.
  const bare = Buffer.alloc(packet, 0xff);
  bare.set([0x47, 0x1f, 0xff, 0x10]);
  writeFileSync(join(place, 'bare.ts'), Buffer.concat(Array(2 ** 19).fill(bare)));

  const { host, client } = await start(t, place);
  await indexed(client);
  await grows(t, host, 'the antenna and the scan', async () => {
    await client.tv('antenna rescan');
    const { multiplexes, refused } = await until(() => client.tv('antenna'), (shown) => shown.multiplexes.length > 0, 'the multiplex');
    assert.deepEqual(multiplexes.map(({ file }) => file), ['good.ts']);
    assert.deepEqual(refused.map(({ file }) => file).sort(), ['bare.ts', 'empty.ts', 'endless.ts', 'folder.ts', 'link.ts', 'pipe.ts', 'zeros.ts']);
    for (const { file, why } of refused) assert.ok(why.length > 5, file);
    await client.tv('scan all');
    const { state, services: found } = await until(() => client.tv('scan'), (answer) => answer.state !== 'running', 'the end of the scan');
    assert.deepEqual([state, found], ['done', services.filter(({ stream }) => stream === 1001).length]);
  });
  assert.equal((await host.stop()).code, 0);
});

test('a multiplex that shrinks and vanishes while its picture is shown and recorded', async (t) => {
  const place = folder(t);
  const copy = join(place, 'good.ts');
  const whole = readFileSync(join(antenna(), 'air-506.ts'));
  writeFileSync(copy, whole);
  const { host, client } = await start(t, place);
  await indexed(client);
  await client.tv('scan all');
  await until(() => client.tv('scan'), ({ state }) => state === 'done', 'the end of the scan');
  await client.tv('tune 1');
  await until(() => client.tv('tuner'), ({ result }) => result === 'picture', 'the picture');
  await until(() => client.tv('screen'), (screen) => screen.shown, 'the picture on the screen');
  const { id, file } = await client.tv('record now 5');
  const size = () => statSync(join(host.state, file)).size;
  await until(size, (bytes) => bytes > 50_000, 'the recording');
  await grows(t, host, 'the shrinking file', async () => {
    // The tuner first reads the packets that are left in the file, then finds none.
    truncateSync(copy, Math.floor(whole.length / 2) + 77);
    const before = size();
    await until(size, (bytes) => bytes > before + 100_000, 'the recording of what is left');
    truncateSync(copy, 0);
    await until(() => client.tv('tuner'), ({ result }) => result === 'no signal', 'the loss of the signal');
  });
  const ended = await until(() => client.tv(`recording ${id}`), ({ status }) => status !== 'recording', 'the end of the recording');
  assert.equal(ended.status, 'partial');
  assert.equal(ended.bytes, size());
  // The picture comes back when there is a multiplex again.
  writeFileSync(copy, whole);
  await client.tv('antenna rescan');
  await until(() => client.tv('tuner'), ({ result }) => result === 'picture', 'the picture again');
  assert.equal((await request(host, 'GET', volume)).status, 200);
  assert.equal((await host.stop()).code, 0);
});

test('a guide file whose entities would make a text of a terabyte is refused', async (t) => {
  const place = folder(t);
  const bomb = join(place, 'bomb.xml');
  const levels = Array.from({ length: 12 }, (_, level) => `<!ENTITY e${level} "${level ? `&e${level - 1};`.repeat(10) : 'boom'}">`);
  writeFileSync(bomb, `<?xml version="1.0"?>\n<!DOCTYPE tv [\n${levels.join('\n')}\n]>\n<tv><programme channel="c" start="20260327183000 +0000"><title>&e11;</title></programme></tv>\n`);
  const { host, client } = await start(t, place);
  await grows(t, host, 'the guide file', async () => {
    await client.tv(`guide import ${bomb}`);
    const guide = await until(() => client.tv('guide'), (answer) => answer.import.state !== 'running', 'the end of the import');
    assert.equal(guide.import.state, 'failed');
    assert.match(JSON.stringify(guide.import), /line 3.*entity/);
    assert.equal(guide.events, 0);
  });
  assert.equal((await host.stop()).code, 0);
});

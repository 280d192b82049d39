// What a USB stick may contain to do harm: the set says why it leaves a file out, reads nothing outside the stick, answers
// others meanwhile, and needs no more memory than it is allowed to.
import assert from 'node:assert/strict';
import { execFileSync, spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import { closeSync, copyFileSync, mkdirSync, openSync, readdirSync, readFileSync, symlinkSync, writeFileSync } from 'node:fs';
import net from 'node:net';
import { basename, join } from 'node:path';
import { before, test } from 'node:test';
import { createInterface } from 'node:readline';
import { deflateSync } from 'node:zlib';
import { until } from './antenna_support.mjs';
import { sanitized, volume, within } from './host_support.mjs';
import { filesIn, kind, madeMedia, memory, television, uri } from './media_support.mjs';
import { prober } from './wire_support.mjs';

const mutations = 500;
const most = sanitized ? Infinity : 150; // MiB that all processes together may grow by in a scan
const others = { p99: sanitized ? 30_000 : 2000 }; // ms; a get that waits for a file waits for seconds

const set = television();
const place = (name) => join(set.world, name);

function random(seed) {
  let state = seed;
  return (below) => {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    return Math.floor((state / 2 ** 32) * below);
  };
}

// Does the work, while another client asks for the volume. Reports its time, the memory of all processes, and the other's times.
async function measured(t, what, work, bound = most) {
  const other = await prober(t, set.host, { uri: volume });
  const earlier = memory(set.host);
  let peak = earlier;
  const watch = setInterval(() => (peak = Math.max(peak, memory(set.host))), 100);
  const begun = Date.now();
  try {
    const working = work();
    const { median, p99, count } = await other.times(working);
    const result = await working;
    t.diagnostic(
      `${what}: ${((Date.now() - begun) / 1000).toFixed(1)} s; all processes ${earlier.toFixed(0)} MiB before, ${peak.toFixed(0)} MiB at most; ` +
        `volume get: median ${median.toFixed(2)} ms, p99 ${p99.toFixed(2)} ms of ${count}`,
    );
    assert.ok(p99 < others.p99, `p99 of a volume get: ${p99} ms`);
    assert.ok(peak - earlier < bound, `${what}: ${peak - earlier} MiB more`);
    return result;
  } finally {
    clearInterval(watch);
  }
}

const scan = (client, t, name, bound) => measured(t, `the scan of ${name}`, () => client.stick(name), bound);
async function left(client, path) {
  const { problems } = await client.tv('media', 'problems', path);
  for (const { path: of, why } of problems) assert.ok(why.length > 5 && !/[\u0000-\u001f]/.test(why + of), `${of}: ${why}`);
  return new Map(problems.map(({ path: of, why }) => [of, why]));
}

// Ten kinds of files, each small.
function sources() {
  const made = madeMedia();
  const folder = place('.sources');
  mkdirSync(folder);
  const ffmpeg = (...words) => execFileSync('ffmpeg', ['-nostdin', '-v', 'error', ...words]);
  const picture = join(made, 'Photos', 'turned 6.jpg');
  const film = join(made, 'Films', 'quadrants.mp4');
  for (const name of ['a.png', 'a.gif', 'a.webp', 'a.bmp']) ffmpeg('-i', picture, '-s', '120x90', join(folder, name));
  for (const name of ['a.avi', 'a.ts', 'a.webm', 'a.mkv']) ffmpeg('-i', film, '-f', 'lavfi', '-i', 'sine=duration=2', '-t', '2', '-s', '160x90', join(folder, name));
  copyFileSync(picture, join(folder, 'a.jpg'));
  copyFileSync(join(made, 'Films', 'short.mp4'), join(folder, 'a.mp4'));
  for (const song of ['cover.mp3', 'Birne.flac', 'take 1.ogg']) copyFileSync(join(made, 'Music', song), join(folder, `a${song.slice(song.lastIndexOf('.'))}`));
  return filesIn(folder);
}

function mutated(bytes, pick) {
  let copy = Buffer.from(bytes);
  // More of the changes fall into the beginning, where the headers are.
  const somewhere = () => pick(pick(2) ? copy.length : Math.min(copy.length, 600));
  for (let changes = 1 + pick(12); changes > 0; --changes) {
    const at = somewhere();
    switch (pick(7)) {
      case 0: copy = copy.subarray(0, 1 + at); break;
      case 1: copy.fill(0, at, Math.min(copy.length, at + pick(300))); break;
      case 2: copy.fill(255, at, Math.min(copy.length, at + 1 + pick(8))); break;
      case 3: copy = Buffer.concat([copy.subarray(0, at), copy.subarray(pick(copy.length))]); break;
      default: for (let flips = 1 + pick(20); flips > 0; --flips) copy[somewhere()] ^= 1 << pick(8);
    }
  }
  return copy;
}

const crcs = Array.from({ length: 256 }, (_, byte) => {
  let value = byte;
  for (let bit = 0; bit < 8; ++bit) value = value & 1 ? 0xedb88320 ^ (value >>> 1) : value >>> 1;
  return value;
});
const crc32 = (bytes) => ~bytes.reduce((value, byte) => crcs[(value ^ byte) & 255] ^ (value >>> 8), -1) >>> 0;

// A PNG that has this many pixels, all black.
function blackPng(width, height) {
  const chunk = (name, data) => {
    const body = Buffer.concat([Buffer.from(name, 'latin1'), data]);
    const whole = Buffer.alloc(body.length + 8);
    whole.writeUInt32BE(data.length);
    body.copy(whole, 4);
    whole.writeUInt32BE(crc32(body), body.length + 4);
    return whole;
  };
  const head = Buffer.alloc(13);
  head.writeUInt32BE(width);
  head.writeUInt32BE(height, 4);
  head.set([8, 0, 0, 0, 0], 8); // grey, 8 bits
  return Buffer.concat([Buffer.from('\x89PNG\r\n\x1a\n', 'latin1'), chunk('IHDR', head), chunk('IDAT', deflateSync(Buffer.alloc(height * (width + 1)), { level: 1 })), chunk('IEND', Buffer.alloc(0))]);
}

// The film, with a reference that says that its data are in another file: an alias record with an absolute path. The index is
// at the file's end, so that what is in front of it stays where it is.
function referring(film, target) {
  let bytes = Buffer.from(film);
  const boxes = (from, to) => {
    const found = [];
    for (let at = from; at + 8 <= to; at += bytes.readUInt32BE(at)) found.push({ at, name: bytes.toString('latin1', at + 4, at + 8), end: at + bytes.readUInt32BE(at) });
    return found;
  };
  const path = [boxes(0, bytes.length).find(({ name }) => name === 'moov')];
  assert.equal(path[0].end, bytes.length);
  for (const [name, head] of [['trak', 8], ['mdia', 8], ['minf', 8], ['dinf', 8], ['dref', 8], ['url ', 16]]) path.push(boxes(path.at(-1).at + head, path.at(-1).end).find((box) => box.name === name));
  const reference = path.pop();
  const name = Buffer.from(`disk:${target.slice(1).replaceAll('/', ':')}`); // as the system had it from which the format comes
  const even = name.length + (name.length % 2);
  const alias = Buffer.alloc(12 + 10 + 28 + 12 + 64 + 16 + 4 + 16 + 4 + even + 4);
  alias.writeUInt32BE(alias.length);
  alias.write('alis', 4, 'latin1'); // its flags are 0: not in this file
  alias[22] = 4;
  alias.write('disk', 23, 'latin1');
  alias[62] = basename(target).length;
  alias.write(basename(target), 63, 'latin1');
  alias.writeInt16BE(1, 142); // levels from and to a common folder
  alias.writeInt16BE(1, 144);
  alias.writeInt16BE(2, 162); // an absolute path
  alias.writeInt16BE(name.length, 164);
  name.copy(alias, 166);
  alias.writeInt16BE(-1, 166 + even); // the end
  for (const { at } of path) bytes.writeUInt32BE(bytes.readUInt32BE(at) + alias.length - (reference.end - reference.at), at);
  return Buffer.concat([bytes.subarray(0, reference.at), alias, bytes.subarray(reference.end)]);
}

// Watches files: opened() gives those that a process has opened since.
const watcher = `
import ctypes, os, struct, sys
libc = ctypes.CDLL(None, use_errno=True)
fd = libc.inotify_init()
names = {}
for path in sys.argv[1:]:
    names[libc.inotify_add_watch(fd, path.encode(), 0x20 | 0x1)] = path
print("ready", flush=True)
while True:
    data = os.read(fd, 65536)
    at = 0
    while at < len(data):
        wd, mask, cookie, length = struct.unpack_from("iIII", data, at)
        at += 16 + length
        print(names.get(wd, "?"), flush=True)
`;
async function watch(t, paths) {
  const child = spawn('python3', ['-c', watcher, ...paths], { stdio: ['ignore', 'pipe', 'inherit'] });
  t.after(() => child.kill());
  const lines = createInterface({ input: child.stdout });
  const opened = [];
  lines.on('line', (line) => opened.push(line));
  await within(once(lines, 'line'), 'the watcher');
  opened.shift();
  return opened;
}

before(() => mkdirSync(place('Mutants')));

test(`${mutations} damaged files of all kinds`, async (t) => {
  const client = await set.client(t);
  const pick = random(20261123);
  const originals = sources().map((path) => ({ extension: path.slice(path.lastIndexOf('.')), bytes: readFileSync(path) }));
  assert.ok(originals.length >= 10);
  for (let i = 0; i < mutations; ++i) {
    const { extension, bytes } = originals[i % originals.length];
    writeFileSync(join(place('Mutants'), `${i}${extension}`), mutated(bytes, pick));
  }
  const path = await scan(client, t, 'Mutants');
  const { scan: state, photos, music, videos } = await client.scanned(path);
  assert.equal(state.state, 'done');
  assert.equal(photos + music + videos + state.left_out, mutations, 'each is listed or left out');
  t.diagnostic(`${photos} photos, ${music} of music, ${videos} videos, ${state.left_out} left out`);
  assert.ok(photos > 10 && music > 10 && videos > 10, 'much of it can still be read');
  const problems = await left(client, path);
  assert.ok(problems.size > 0 && problems.size <= state.left_out);

  const listed = [];
  for (const what of ['photo', 'music', 'video']) for (const entry of await client.list(what, path)) listed.push({ ...entry, kind: what });
  assert.equal(new Set([...listed.map((entry) => entry.path), ...problems.keys()]).size, listed.length + problems.size);
  for (const { path: of, title, width = 0, height = 0, duration = 0 } of listed) assert.ok(!/[\u0000-\u001f\ufffd]/.test(title) && width >= 0 && height >= 0 && duration >= 0 && duration < 1e7, of);

  await measured(t, `the thumbnails of ${listed.length} damaged files`, async () => {
    for (let from = 0; from < listed.length; from += 24) {
      const some = listed.slice(from, from + 24).map((entry) => entry.path);
      const { thumbnails } = await until(() => client.tv('media', 'thumbnails', ...some), ({ thumbnails: all }) => all.every(({ pending }) => !pending), 'the thumbnails');
      for (const { path: of, jpeg, none } of thumbnails) assert.ok(jpeg?.length > 100 || none?.length > 5, of);
    }
  });
  // A player takes more memory than a scan, and gives it back.
  await measured(t, 'playing and showing damaged files', async () => {
    const every = (what, n) => listed.filter((entry) => entry.kind === what).filter((_, i) => i % n === 0);
    for (const { path: of } of [...every('video', 4), ...every('music', 6)]) {
      await client.tv('player', 'play', of, '0').catch(() => {});
      await until(() => client.tv('player'), ({ state: now }) => now !== 'opening', `the opening of ${of}`);
    }
    await client.tv('player', 'stop').catch(() => {});
    for (const { path: of } of every('photo', 4)) await client.ask('tv', { words: ['photo', 'show', of] });
    await client.tv('photo', 'close').catch(() => {});
  }, sanitized ? Infinity : 400);
  assert.equal((await client.tv('player')).state, 'none');
});

test('entries that are no files, lead out of the stick, or name other files', async (t) => {
  const client = await set.client(t);
  const made = madeMedia();
  const odd = place('Odd');
  const outside = place('Outside');
  for (const folder of [odd, outside, join(odd, 'playlists')]) mkdirSync(folder);
  const at = (...names) => join(odd, ...names);
  const secrets = { film: join(outside, 'secret.mp4'), photo: join(outside, 'secret.jpg'), song: join(outside, 'secret.mp3'), text: join(outside, 'secret.txt') };
  copyFileSync(join(made, 'Films', 'short.mp4'), secrets.film);
  copyFileSync(join(made, 'Photos', 'quadrants.jpg'), secrets.photo);
  copyFileSync(join(made, 'Music', 'cover.mp3'), secrets.song);
  writeFileSync(secrets.text, 'nobody reads this');
  copyFileSync(join(made, 'Photos', 'snap 1.jpg'), at('good.jpg'));
  copyFileSync(join(made, 'Music', 'take 1.ogg'), at('good.ogg'));

  // No files.
  assert.equal(spawnSync('mkfifo', [at('pipe.jpg')]).status, 0);
  assert.equal(spawnSync('mkfifo', [at('pipe.mp4')]).status, 0);
  const socket = net.createServer();
  await new Promise((resolve) => socket.listen(at('socket.mp3'), resolve));
  t.after(() => socket.close());
  mkdirSync(at('folder.mp4'));
  writeFileSync(at('empty.jpg'), '');
  // Links out of the stick, to nothing, and in a circle.
  symlinkSync(secrets.photo, at('link.jpg'));
  symlinkSync('../Outside/secret.mp4', at('link.mp4'));
  symlinkSync(outside, at('linked'));
  symlinkSync('/', at('root'));
  symlinkSync('b.jpg', at('a.jpg'));
  symlinkSync('a.jpg', at('b.jpg'));
  symlinkSync('.', at('itself'));
  symlinkSync('/dev/zero', at('zero.mp3'));
  symlinkSync('good.jpg', at('inside.jpg'));
  // Films that name other files.
  writeFileSync(at('concat.mp4'), `ffconcat version 1.0\nfile '${secrets.film}'\n`);
  writeFileSync(at('relative.mkv'), 'ffconcat version 1.0\nfile ../Outside/secret.mp4\n');
  writeFileSync(at('list.mp4'), `#EXTM3U\n#EXT-X-TARGETDURATION:5\n#EXT-X-MEDIA-SEQUENCE:0\n#EXTINF:5,\nfile://${secrets.film}\n#EXTINF:5,\n../Outside/secret.mp4\n#EXT-X-ENDLIST\n`);
  writeFileSync(at('refers.mov'), referring(readFileSync(secrets.film), secrets.film));
  writeFileSync(at('edl.mkv'), `# mpv EDL v0\n${secrets.film},0,5\n`);
  writeFileSync(at('cue.mkv'), `# mpv EDL v0\n!no_chapters;%${secrets.film.length}%${secrets.film}\n`);
  writeFileSync(at('session.sdp'), 'v=0\no=- 0 0 IN IP4 127.0.0.1\nc=IN IP4 127.0.0.1\nm=video 5004 RTP/AVP 96\n');
  writeFileSync(at('image.svg'), `<svg xmlns="http://www.w3.org/2000/svg" xmlns:xlink="http://www.w3.org/1999/xlink"><image xlink:href="file://${secrets.photo}" width="9" height="9"/></svg>`);
  writeFileSync(at('text.jpg'), 'no picture at all, but a text of some length');
  writeFileSync(at('huge.png'), blackPng(14_000, 14_000));
  // Playlists.
  const named = ['../../Outside/secret.mp3', secrets.song, '/etc/passwd', 'file:///etc/passwd', 'http://127.0.0.1:9/a.mp3', '../good.ogg/../../../Outside/secret.mp3', '../linked/secret.mp3', '\\\\server\\share\\a.mp3', '../pipe.jpg'];
  writeFileSync(at('playlists', 'bad.m3u'), `#EXTM3U\n${named.join('\n')}\n`);
  writeFileSync(at('playlists', 'mixed.m3u8'), `${named.join('\r\n')}\r\n../good.ogg\r\n`);
  writeFileSync(at('playlists', 'bad.pls'), `[playlist]\nNumberOfEntries=999999999\n${named.map((file, i) => `File${i + 1}=${file}`).join('\n')}\n`);
  writeFileSync(at('playlists', 'itself.m3u'), 'itself.m3u\nbad.m3u\n');
  writeFileSync(at('playlists', 'long.m3u'), `${'x'.repeat(1_000_000)}\n`.repeat(5));
  writeFileSync(at('playlists', 'many.m3u'), '../good.ogg\n'.repeat(200_000));
  const opened = await watch(t, Object.values(secrets));
  const path = await scan(client, t, 'Odd');
  assert.equal((await client.scanned(path)).scan.state, 'done');
  const listed = [];
  for (const what of ['photo', 'music', 'video', 'playlist']) listed.push(...(await client.list(what, path)).map((entry) => ({ ...entry, kind: what })));
  const files = listed.map((entry) => entry.path.slice(path.length + 1));
  const problems = await left(client, path);

  // Of a film whose data are elsewhere only its own file is read: that may be enough for its facts.
  const top = files.filter((name) => !name.includes('/') && name !== 'refers.mov').sort();
  assert.deepEqual(top, ['good.jpg', 'good.ogg']);
  const explained = ['pipe.jpg', 'pipe.mp4', 'empty.jpg', 'link.jpg', 'link.mp4', 'a.jpg', 'inside.jpg', 'zero.mp3', 'concat.mp4', 'relative.mkv', 'list.mp4', 'edl.mkv', 'text.jpg', 'huge.png', 'socket.mp3'];
  assert.deepEqual(explained.filter((name) => !problems.has(join(path, name))), [], 'left out without a reason');
  for (const name of explained) t.diagnostic(`${name}: ${problems.get(join(path, name))}`);

  // The playlists are listed, and what they name only where it is on the stick.
  assert.deepEqual(await client.list('folder', path).then((all) => all.map(({ name }) => name).sort()), ['playlists']);
  const entriesOf = async (name) => (await client.items(uri('get_info'), { TYPE: kind.music, PATH: join(path, 'playlists', name), COUNT: 24 })).filter(({ MEDIA_PATH }) => MEDIA_PATH).map(({ MEDIA_PATH }) => basename(MEDIA_PATH));
  assert.deepEqual(await entriesOf('bad.m3u'), []);
  assert.deepEqual(await entriesOf('bad.pls'), []);
  assert.deepEqual(await entriesOf('itself.m3u'), []);
  assert.deepEqual(await entriesOf('mixed.m3u8'), ['good.ogg']);
  assert.ok((await entriesOf('many.m3u')).every((name) => name === 'good.ogg'));

  // Asked for by their names, they are refused as well.
  for (const name of ['link.jpg', 'linked/secret.jpg', 'huge.png', 'pipe.jpg', 'text.jpg', '../Outside/secret.jpg']) {
    const { error } = await client.ask('tv', { words: ['photo', 'show', join(path, name)] });
    assert.ok(error?.message.length > 5, name);
  }
  await measured(t, 'playing what must not be played', async () => {
    for (const name of ['link.mp4', 'linked/secret.mp4', 'pipe.mp4', 'zero.mp3', 'concat.mp4', 'relative.mkv', 'list.mp4', 'edl.mkv', 'cue.mkv', 'session.sdp', 'root/etc/passwd', 'socket.mp3', 'playlists/bad.m3u', 'playlists/long.m3u', 'playlists/itself.m3u', 'folder.mp4', 'empty.jpg']) {
      const { result, error } = await client.ask('tv', { words: ['player', 'play', join(path, name)] });
      if (error) {
        assert.ok(error.message.length > 5, name);
        continue;
      }
      assert.ok(result);
      const now = await until(() => client.tv('player'), ({ state }) => state !== 'opening', `the opening of ${name}`);
      assert.equal(now.state, 'failed', name);
      assert.ok(now.reason.length > 5, name);
    }
  }, sanitized ? Infinity : 400);
  assert.deepEqual(opened, [], 'files outside the stick were opened');
  closeSync(openSync(secrets.film, 'r'));
  await until(() => opened, (all) => all.length > 0, 'the watcher sees what is opened');
  assert.deepEqual((await client.tv('media', 'search', 'secret')).entries, []);
});

test('names with every byte, and deep folders', async (t) => {
  const client = await set.client(t);
  const strange = place('Names');
  const at = (...names) => join(strange, ...names);
  for (const folder of [strange, at('bytes')]) mkdirSync(folder);
  // Names with each byte that a name can have.
  const photo = readFileSync(join(madeMedia(), 'Photos', 'snap 1.jpg'));
  for (let byte = 1; byte < 256; ++byte)
    if (byte !== 47) writeFileSync(Buffer.concat([Buffer.from(`${at('bytes')}/n`), Buffer.from([byte]), Buffer.from(`${byte}.jpg`)]), photo);
  // Deep folders, with a photo at each tenth.
  let deep = at('deep');
  for (let depth = 0; depth < 300; ++depth) {
    deep = join(deep, 'd');
    mkdirSync(deep, { recursive: true });
    if (depth % 10 === 0) writeFileSync(join(deep, 'p.jpg'), photo);
  }

  const path = await scan(client, t, 'Names');
  const listed = await client.list('photo', path);
  const files = listed.map((entry) => entry.path.slice(path.length + 1));
  const wantedBytes = Array.from({ length: 95 }, (_, i) => 32 + i).filter((byte) => byte !== 47).map((byte) => `bytes/n${String.fromCharCode(byte)}${byte}.jpg`);
  assert.deepEqual(files.filter((name) => name.startsWith('bytes/')).sort(), wantedBytes.sort());
  const depths = files.filter((name) => name.startsWith('deep/'));
  assert.ok(depths.length > 1 && depths.length < 30, `${depths.length} deep photos`);
  for (const entry of listed) assert.ok(Buffer.byteLength(entry.path) <= 255, entry.path);
  const problems = await left(client, path);
  assert.ok(problems.size > 100 && problems.size <= 200, `${problems.size}`);
  const { scan: state } = await client.scanned(path);
  assert.ok(state.left_out >= 254 - wantedBytes.length, `${state.left_out}`);
});

test('a folder of 100,000 files', async (t) => {
  const client = await set.client(t);
  const crowd = place('Crowd');
  mkdirSync(crowd);
  for (let i = 0; i < 100_000; ++i) closeSync(openSync(join(crowd, `${i}.${i % 2 ? 'jpg' : 'txt'}`), 'w'));
  writeFileSync(join(crowd, 'a.jpg'), readFileSync(join(madeMedia(), 'Photos', 'snap 1.jpg')));
  const path = await scan(client, t, 'Crowd');
  const { scan: state, photos } = await client.scanned(path);
  assert.ok(['done', 'failed'].includes(state.state), state.state);
  assert.ok(photos <= 1);
  assert.ok(state.left_out > 0);
  const { problems } = await client.tv('media', 'problems', path);
  assert.ok(problems.length > 0 && problems.length < 10_000, `${problems.length} problems are told`);
  await measured(t, 'a second scan', async () => {
    await client.tv('media', 'scan', path);
    await client.scanned(path);
  });
  await client.tv('stick', 'remove', crowd);
});

test('a stick whose files change and vanish while it is scanned', async (t) => {
  const client = await set.client(t);
  const moving = place('Moving');
  mkdirSync(moving);
  const photo = readFileSync(join(madeMedia(), 'Photos', 'quadrants.jpg'));
  for (let i = 0; i < 600; ++i) writeFileSync(join(moving, `${i}.jpg`), photo);
  await client.tv('stick', 'insert', moving);
  const { path } = (await client.tv('media')).sticks.find(({ label }) => label === 'Moving');
  for (let i = 0; i < 600; i += 3) writeFileSync(join(moving, `${i}.jpg`), photo.subarray(0, i * 10));
  execFileSync('find', [moving, '-name', '*1.jpg', '-delete']);
  await client.scanned(path);
  await client.tv('media', 'scan', path);
  const { photos, scan: state } = await client.scanned(path);
  assert.equal(photos + state.left_out, readdirSync(moving).length);
  // It is pulled in the middle of a scan.
  await client.set(uri('delete_database'), { VALUE: path }, 'MODIFY');
  await client.tv('media', 'scan', path);
  await client.tv('stick', 'remove', moving);
  await until(() => client.tv('media'), ({ sticks }) => !sticks.some(({ label }) => label === 'Moving'), 'the stick is gone');
  await client.stick('Mutants');
});

// dtvctl and the set's media: the scan of a stick, tables of files, the player's lines, paths of sticks' files. The host
// is a fake one, whose replies the tests choose.
import assert from 'node:assert/strict';
import { mkdirSync, symlinkSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';

import { ctl, dtvctl, fakeHost, result, run, start, stateFolder } from './cli_support.mjs';

const device = '/dev/sda1';
const scanAt = (files, of, progress) => ({ state: 'running', files, of, progress, left_out: 0 });
const inserted = { device, port: 1, label: 'HOLIDAY', path: '/state/usb/sda1', folder: '/home/user/holiday', scan: scanAt(0, 0, 0) };
const watch = { words: ['media', 'stick', device], member: 'scan', cancel: ['media', 'scan', device, 'cancel'], shows: ['files', 'of'] };

// A host whose stick has these scans, one with each question; the last one stays.
async function scanning(t, scans, { cancelled } = {}) {
  let left = scans;
  let asked = 0;
  const host = await fakeHost(t, ({ id, params }, send) => {
    const words = params.words.join(' ');
    if (words.startsWith('stick insert') || words === 'media scan sda1') return send(result(id, JSON.stringify({ ...inserted, watch })));
    if (words === `media scan ${device} cancel`) {
      left = cancelled;
      return send(result(id, '{}'));
    }
    assert.equal(words, `media stick ${device}`);
    ++asked;
    const scan = left.length > 1 ? left.shift() : left[0];
    if (scan === null) return send(JSON.stringify({ jsonrpc: '2.0', id, error: { code: -32001, message: 'there is no stick' } }));
    return send(result(id, JSON.stringify({ ...inserted, scan })));
  });
  return { ...host, questions: () => asked };
}

const lines = (text) => text.trimEnd().split('\n').map((line) => line.split(/ {2,}/));

test('inserting a stick follows its scan, also while it waits, and prints how it ended', async (t) => {
  const scans = [{ state: 'waiting', files: 0, of: 0, progress: 0 }, scanAt(5, 100, 0.05), scanAt(42, 100, 0.42), scanAt(90, 100, 0.9)];
  const host = await scanning(t, [...scans, { state: 'done', files: 98, of: 98, progress: 1, left_out: 2 }]);
  const { code, stdout, stderr } = await ctl(['--host', host.address, 'tv', 'stick', 'insert', '/home/user/holiday']);
  assert.equal(code, 0, stderr);
  assert.equal(stderr, '42 %  files 42  of 100\n90 %  files 90  of 100\n');
  assert.deepEqual(lines(stdout), [
    ['device', device],
    ['port', '1'],
    ['label', 'HOLIDAY'],
    ['path', '/state/usb/sda1'],
    ['folder', '/home/user/holiday'],
    ['scan', 'done, 98 files, 2 left out'],
  ]);
});

test('a scan on a terminal has a bar; --json prints the result only; --no-wait does not ask', async (t) => {
  const host = await scanning(t, [scanAt(50, 100, 0.5), { state: 'done', files: 100, of: 100, progress: 1 }]);
  const shown = await run('script', ['-qec', `'${dtvctl}' --host ${host.address} tv media scan sda1`, '/dev/null'], { env: { TERM: 'xterm' } });
  assert.equal(shown.code, 0, shown.stdout);
  assert.ok(shown.stdout.includes('\r[############------------] 50 %  files 50  of 100\x1b[K'), JSON.stringify(shown.stdout));
  const json = await ctl(['--host', host.address, '--json', 'tv', 'stick', 'insert', '/home/user/holiday']);
  assert.deepEqual(JSON.parse(json.stdout), { ...inserted, scan: { state: 'done', files: 100, of: 100, progress: 1 } });
  assert.equal(json.stderr, '');
  const questions = host.questions();
  const begun = await ctl(['--host', host.address, 'tv', 'stick', 'insert', '/home/user/holiday', '--no-wait']);
  assert.match(begun.stdout, /^scan +running, 0 %$/m);
  assert.equal(host.questions(), questions);
});

test('Ctrl-C cancels the scan; a stick that is removed meanwhile, and a failed scan, are exit code 1', async (t) => {
  const host = await scanning(t, [scanAt(1, 100, 0.01)], { cancelled: [{ state: 'cancelled', files: 2, of: 100, progress: 0.02 }] });
  const scan = start(dtvctl, ['--host', host.address, 'tv', 'stick', 'insert', '/home/user/holiday']);
  while (host.questions() < 2) await new Promise((resolve) => setTimeout(resolve, 20));
  scan.child.kill('SIGINT');
  const { code, stderr } = await scan.ended;
  assert.equal(code, 'SIGINT');
  assert.match(stderr, /dtvctl: cancelled\n$/);

  for (const [end, says] of [[null, /there is no stick/], [{ state: 'failed', files: 0, of: 0, progress: 0, reason: 'the disk is full' }, /it failed: the disk is full/]]) {
    const other = await scanning(t, [scanAt(1, 100, 0.01), end]);
    const ended = await ctl(['--host', other.address, 'tv', 'stick', 'insert', '/home/user/holiday']);
    assert.equal(ended.code, 1);
    assert.match(ended.stderr, says);
  }
});

test('a set without a media library inserts sticks as before', async (t) => {
  const { scan: _, ...reply } = inserted;
  const host = await fakeHost(t, ({ id }, send) => send(result(id, JSON.stringify(reply))));
  const { code, stdout } = await ctl(['--host', host.address, 'tv', 'stick', 'insert', '/home/user/holiday']);
  assert.equal(code, 0);
  assert.match(stdout, /^device +\/dev\/sda1$/m);
  assert.equal(host.seen.requests.filter((text) => text.includes('"tv"')).length, 1);
});

// What dtvctl prints for a reply.
async function printed(t, reply, ...words) {
  const host = await fakeHost(t, ({ id }, send) => send(result(id, JSON.stringify(reply))));
  const { code, stdout, stderr } = await ctl(['--host', host.address, 'tv', ...words]);
  assert.equal(code, 0, stderr);
  return stdout;
}

test('sticks are printed as a table, with their scans in words', async (t) => {
  const sticks = [
    { device, port: 1, label: 'HOLIDAY', path: '/state/usb/sda1', folder: '/home/user/holiday', scan: scanAt(4200, 10000, 0.42) },
    { device: '/dev/sdb1', port: 2, label: 'MUSIC', path: '/state/usb/sdb1', folder: '/home/user/music', scan: { state: 'done', files: 12, of: 12, progress: 1, left_out: 0 } },
  ];
  assert.deepEqual(lines(await printed(t, { sticks }, 'stick', 'list')), [
    ['LABEL', 'DEVICE', 'PORT', 'SCAN', 'PATH', 'FOLDER'],
    ['HOLIDAY', '/dev/sda1', '1', 'running, 42 %, 4200 of 10000 files', '/state/usb/sda1', '/home/user/holiday'],
    ['MUSIC', '/dev/sdb1', '2', 'done, 12 files', '/state/usb/sdb1', '/home/user/music'],
  ]);
  assert.equal(await printed(t, { sticks: [] }, 'media'), 'no stick is inserted\n');
});

test('files are printed as a table: lengths, sizes with units, no empty columns; control characters as codes', async (t) => {
  const entries = [
    { path: '/m/a.mkv', name: 'a.mkv', kind: 'video', title: 'The Harbour', duration: 5025.4, width: 1920, height: 1080, size: 1_900_000_000, date: '2026-10-05T18:00:00Z', favourite: true },
    { path: '/m/b.mp3', name: 'b\x1b[31m.mp3', kind: 'music', title: '', duration: 61, size: 4_800_000, favourite: false },
  ];
  assert.deepEqual(lines(await printed(t, { total: 120, index: 50, entries }, 'media', 'list', 'all', '/m')), [
    ['KIND', 'TITLE', 'LENGTH', 'PIXELS', 'SIZE', 'DATE', 'FAVOURITE', 'PATH'],
    ['video', 'The Harbour', '1:23:45', '1920x1080', '1.9 GB', '2026-10-05', 'yes', '/m/a.mkv'],
    ['music', 'b\\x1b[31m.mp3', '1:01', '4.8 MB', '/m/b.mp3'],
    ['51 to 52 of 120'],
  ]);
  assert.equal(await printed(t, { total: 0, index: 0, entries: [] }, 'media', 'search', 'nothing'), 'nothing\n');
});

test('values of a wrong kind in a reply are left out', async (t) => {
  const entries = [{ path: 7, name: ['x'], kind: {}, duration: 'long', width: -1, height: 1e300, size: -5, favourite: 'yes' }, 3, null];
  assert.equal(await printed(t, { total: 'many', index: null, entries }, 'media', 'list', 'all', '/m'), '');
  assert.match(await printed(t, { state: 'playing', position: 1e300, duration: -1, speed: null, tracks: 7, chapters: [1] }, 'player'), /^state +playing$/m);
});

test('the player is printed as lines', async (t) => {
  const reply = {
    state: 'playing',
    path: '/m/a.mkv',
    title: 'The Harbour',
    position: 61.7,
    duration: 5025,
    speed: 1.5,
    repeat: 'off',
    application: false,
    video: { width: 1920, height: 1080, aspect: 1.78, codec: 'h264' },
    tracks: [
      { kind: 'audio', number: 1, language: 'eng', title: 'Stereo', codec: 'aac', chosen: true },
      { kind: 'subtitle', number: 1, language: 'fra', title: '', codec: 'subrip', chosen: false },
    ],
    chapters: [{ number: 1, title: 'Arrival', start: 0 }, { number: 2, title: '', start: 1200 }],
    chapter: 1,
  };
  assert.deepEqual(lines(await printed(t, reply, 'player')), [
    ['state', 'playing'],
    ['title', 'The Harbour'],
    ['path', '/m/a.mkv'],
    ['position', '1:01 of 1:23:45'],
    ['speed', '1.5'],
    ['repeat', 'off'],
    ['video', '1920x1080 h264'],
    ['audio 1', 'eng, Stereo, aac (chosen)'],
    ['subtitle 1', 'fra, subrip'],
    ['chapter 1', '0:00, Arrival (present)'],
    ['chapter 2', '20:00'],
  ]);
  assert.equal(await printed(t, { state: 'none' }, 'player', 'stop'), 'state  none\n');
});

test('a file of a stick is named by its path on this machine, through links too, or on the set', async (t) => {
  const folder = stateFolder(t);
  const holiday = join(folder, 'holiday');
  mkdirSync(join(holiday, 'sub'), { recursive: true });
  writeFileSync(join(holiday, 'sub/film.mkv'), '');
  symlinkSync(holiday, join(folder, 'link'));
  const sent = [];
  const host = await fakeHost(t, ({ id, params }, send) => {
    if (params.words.join(' ') === 'stick list') return send(result(id, JSON.stringify({ sticks: [{ device, path: '/state/usb/sda1', folder: holiday }] })));
    sent.push(params.words);
    return send(result(id, '{"state":"none"}'));
  });
  const send = (...words) => ctl(['--host', host.address, 'tv', ...words], { cwd: folder });
  await send('player', 'play', 'holiday/sub/film.mkv');
  await send('player', 'play', join(folder, 'link/sub/film.mkv'));
  await send('player', 'play', '/state/usb/sda1/sub/film.mkv', '30');
  await send('media', 'list', 'all', './holiday/');
  await send('media', 'list', 'video', 'link/sub');
  await send('photo', 'show', 'holiday/none.jpg');
  await send('player', 'play', 'http://192.0.2.7/film');
  assert.deepEqual(sent, [
    ['player', 'play', '/state/usb/sda1/sub/film.mkv'],
    ['player', 'play', '/state/usb/sda1/sub/film.mkv'],
    ['player', 'play', '/state/usb/sda1/sub/film.mkv', '30'],
    ['media', 'list', 'all', '/state/usb/sda1'],
    ['media', 'list', 'video', '/state/usb/sda1/sub'],
    ['photo', 'show', '/state/usb/sda1/none.jpg'],
    ['player', 'play', 'http://192.0.2.7/film'],
  ]);
});

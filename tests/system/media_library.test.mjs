// The media library from end to end: every URI of the content browser that is about files, their lists and their scan.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { copyFileSync, mkdirSync, readFileSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { basename, dirname, extname, join } from 'node:path';
import { before, test } from 'node:test';
import { until } from './antenna_support.mjs';
import { sleep } from './host_support.mjs';
import { copyInto, copyPackages, each, exif, filesIn, kind, madeMedia, probed, songs, television, uri } from './media_support.mjs';

const scans = '/tv/ws/notify/usb_detect';
const done = 1000;
const other = 1001;
const scanning = 13;
const noJump = 14;
const badParameter = 2;
// The orders of lists, as the television's contract numbers them.
const sort = { name: 1, date: 2, size: 3, title: 4, artist: 5, album: 6, genre: 7, duration: 8, favourites: 9, played: 10, descending: 100 };

const set = television();
before(() => {
  const made = join(set.world, 'Made');
  copyInto(madeMedia(), made);
  mkdirSync(join(made, 'Texts'));
  writeFileSync(join(made, 'Texts', 'letter.txt'), 'Dear Ida');
  mkdirSync(join(made, 'Empty'));
  writeFileSync(join(made, 'Music', 'mix.m3u'), '#EXTM3U\n#EXTINF:1,Anna Lind - Lied 1\nZebra.mp3\ntake 1.ogg\n');
  mkdirSync(join(set.world, 'Texts'));
  writeFileSync(join(set.world, 'Texts', 'letter.txt'), 'Dear Ida');
  mkdirSync(join(set.world, 'Many'));
  const photo = readFileSync(join(made, 'Photos', 'snap 1.jpg'));
  for (let i = 0; i < 1500; ++i) writeFileSync(join(set.world, 'Many', `${i}.jpg`), photo);
});

const query = (client, name, request) => client.get(uri(name), { REQUEST: 'QUERY', ...request });
// The entries of a list, or the status of one that fails.
async function entries(client, name, request) {
  const items = await client.items(uri(name), request);
  if (items.length === 1 && items[0].NAME === 'Content Browser') return [];
  return items;
}
const status = async (client, name, request) => {
  const { ret, response } = await query(client, name, request);
  assert.equal(response.STATUS, ret);
  set.used.add(`get ${uri(name)}`);
  return ret;
};
const count = async (client, request, name = 'get_db_count') => (await client.item(uri(name), request)).COUNT;
const text = (client, name, value) => client.set(uri(name), { VALUE: value }, 'MODIFY');
const refusesText = (client, name, value) => client.refused(uri(name), { REQUEST: 'MODIFY', VALUE: value });
const names = (list) => list.map(({ MEDIA_PATH: path }) => basename(path));
const music = songs.map(({ file }) => file);
const musicMembers = ['MEDIA_TYPE', 'MEDIA_PATH', 'RECID', 'FAVOURITE', 'DATE', 'TRACK', 'TITLE', 'ARTIST', 'ALBUM', 'GENER', 'DURATION'];

test('a scan is started, and its callback and its status report the end', async (t) => {
  const client = await set.client(t);
  const path = await client.stick('Made');
  await client.subscribe(scans);
  await text(client, 'start_scan', path);
  assert.deepEqual(await client.notified(scans, { TYPE: done }), { TYPE: done, TAG: 0, DEV: '', PATH: '', LABEL: '', PORT: 0 });
  assert.equal(await status(client, 'get_scan_status'), 0);

  // The stick is mounted, then scanned: 13 until the end is reported.
  await client.tv('stick', 'insert', join(set.world, 'Many'));
  const { PATH: many } = await client.notified(scans, { LABEL: 'Many' });
  assert.equal(await status(client, 'get_scan_status'), scanning);
  await client.notified(scans, { TYPE: other });
  await client.notified(scans, { TYPE: done });
  assert.equal(await status(client, 'get_scan_status'), 0);
  assert.equal(await count(client, { TYPE: kind.photo, PATH: many }), 1500);

  await refusesText(client, 'start_scan', '/nowhere');
  await refusesText(client, 'start_scan', '');
  await refusesText(client, 'stop_scan', '/nowhere');
  await text(client, 'start_scan', path);
  await client.notified(scans, { TYPE: done }); // the failed stop has left the callback
});

test('a scan that is stopped is over within seconds, and reports no more', async (t) => {
  const client = await set.client(t);
  const many = await client.stick('Many');
  await text(client, 'delete_database', many);
  await client.subscribe(scans);
  await text(client, 'start_scan', many);
  await client.notified(scans, { TYPE: other });
  await text(client, 'stop_scan', many);
  const stick = await client.scanned(many);
  assert.equal(stick.scan.state, 'cancelled');
  assert.equal(await status(client, 'get_scan_status'), 0);
  const found = await count(client, { TYPE: kind.photo, PATH: many });
  assert.ok(found < 1500, `${found}`);
  await sleep(300); // what was raised before the stop
  while (client.raised() > 0) await client.notified(scans, {});
  await client.tv('media', 'scan', many);
  const again = await client.scanned(many);
  assert.deepEqual([again.scan.state, again.photos], ['done', 1500]);
  await sleep(300);
  assert.equal(client.raised(), 0, 'no callback is registered');
});

test('what is on the stick is counted by kind', async (t) => {
  const client = await set.client(t);
  const path = await client.stick('Made');
  const photos = filesIn(join(set.world, 'Made', 'Photos')).length;
  for (const [type, wanted] of [[kind.photo, photos], [kind.music, songs.length + 1], [kind.video, 5], [kind.folder, 3], [kind.playlist, 1], [kind.shop, photos + 5]])
    assert.equal(await count(client, { TYPE: type, PATH: path }), wanted, `kind ${type}`);
  assert.equal(await count(client, { TYPE: kind.music, PATH: join(path, 'Photos') }), 0);
  assert.equal(await count(client, { TYPE: kind.music, PATH: '/nowhere' }), 0);
  for (const type of [7, 0, -1]) {
    const { ret, response } = await query(client, 'get_db_count', { TYPE: type, PATH: path });
    assert.deepEqual([ret, response.STATUS, response.ITEMS[0].COUNT], [badParameter, badParameter, 0], `kind ${type}`);
  }
});

test('a list has 24 entries at most, and continues from an index', async (t) => {
  const client = await set.client(t);
  const path = await client.stick('Made');
  const ask = (index, number) => entries(client, 'get_info', { TYPE: kind.music, PATH: path, INDEX: index, COUNT: number });
  const first = await ask(0, 100);
  assert.equal(first.length, 24);
  const all = [...first, ...(await ask(24, 24))];
  assert.deepEqual(names(all).sort(), [...music, 'cover.mp3'].sort());
  assert.deepEqual((await ask(5, 3)).map(({ MEDIA_PATH }) => MEDIA_PATH), all.slice(5, 8).map(({ MEDIA_PATH }) => MEDIA_PATH));
  for (const [index, number] of [[31, 24], [2 ** 31 - 1, 24], [0, 0]]) {
    const [summary] = await client.items(uri('get_info'), { TYPE: kind.music, PATH: path, INDEX: index, COUNT: number });
    assert.deepEqual([summary.NAME, summary.PATH, summary.COUNT, summary.TYPE], ['Content Browser', path, 0, kind.music]);
  }
  for (const [index, number] of [[-1, 24], [0, -1]]) assert.ok([0, -1].includes(await status(client, 'get_info', { TYPE: kind.music, PATH: path, INDEX: index, COUNT: number })));
  for (const type of [0, 7]) for (const name of ['get_info', 'get_top_list', 'get_rec']) assert.equal(await status(client, name, { TYPE: type, PATH: path, COUNT: 5 }), badParameter);
});

test('each kind is listed with its members', async (t) => {
  const client = await set.client(t);
  const path = await client.stick('Made');
  const list = (type, more) => entries(client, 'get_info', { TYPE: type, PATH: path, COUNT: 24, ...more });
  const folders = await list(kind.folder);
  assert.deepEqual(folders, ['Films', 'Music', 'Photos'].map((name) => ({ MEDIA_TYPE: kind.folder, MEDIA_PATH: join(path, name) })));

  const listed = [...(await list(kind.music)), ...(await list(kind.music, { INDEX: 24 }))];
  for (const song of songs) {
    const entry = listed.find(({ MEDIA_PATH }) => MEDIA_PATH === join(path, 'Music', song.file));
    assert.deepEqual(Object.keys(entry), musicMembers);
    assert.deepEqual(
      [entry.MEDIA_TYPE, entry.TRACK, entry.TITLE, entry.ARTIST, entry.ALBUM, entry.GENER, entry.DURATION, entry.FAVOURITE],
      [kind.music, `${song.track}`, song.title, song.artist, song.album, song.genre, song.seconds, 0],
    );
    const { YEAR: year, MONTH: month, DAY: day, HOUR: hour, MINUTE: minute, SECOND: second } = entry.DATE;
    assert.equal(Date.UTC(year, month - 1, day, hour, minute, second), Math.floor(statSync(join(set.world, 'Made', 'Music', song.file)).mtimeMs / 1000) * 1000);
  }
  assert.equal(new Set(listed.map(({ RECID }) => RECID)).size, listed.length);

  const films = await list(kind.video);
  for (const [file, title, year, duration] of [['colours.mkv', 'Three colours', '2019', 30], ['short.mp4', 'A short film', '2001', 3]]) {
    const entry = films.find(({ MEDIA_PATH }) => basename(MEDIA_PATH) === file);
    assert.deepEqual(Object.keys(entry), ['MEDIA_TYPE', 'MEDIA_PATH', 'RECID', 'FAVOURITE', 'DATE', 'TITLE', 'YEAR', 'DURATION', 'SIZE']);
    assert.deepEqual([entry.TITLE, entry.YEAR, entry.DURATION, entry.SIZE], [title, year, duration, statSync(join(set.world, 'Made', 'Films', file)).size]);
  }

  const photos = await list(kind.photo);
  assert.equal(photos.length, 24);
  for (const entry of photos) {
    assert.deepEqual(Object.keys(entry), ['MEDIA_TYPE', 'MEDIA_PATH', 'RECID', 'FAVOURITE', 'DATE', 'WIDTH', 'HEIGHT', 'SIZE']);
    assert.equal(entry.SIZE, statSync(join(set.world, 'Made', 'Photos', basename(entry.MEDIA_PATH))).size);
  }
  const turned = (await entries(client, 'get_info', { TYPE: kind.photo, PATH: path, INDEX: 24, COUNT: 24 })).find(({ MEDIA_PATH }) => basename(MEDIA_PATH) === 'turned 6.jpg');
  assert.deepEqual([turned.WIDTH, turned.HEIGHT, turned.DATE], [300, 400, { YEAR: 2015, MONTH: 6, DAY: 6, HOUR: 7, MINUTE: 8, SECOND: 9 }]);

  const [playlist] = await list(kind.playlist);
  assert.deepEqual(Object.keys(playlist), ['MEDIA_TYPE', 'MEDIA_PATH', 'RECID', 'FAVOURITE', 'DATE', 'TITLE', 'YEAR', 'DURATION']);
  assert.equal(playlist.MEDIA_PATH, join(path, 'Music', 'mix.m3u'));
  assert.equal(playlist.TITLE, 'mix.m3u');
  // The files that it names.
  assert.deepEqual(names(await entries(client, 'get_info', { TYPE: kind.music, PATH: playlist.MEDIA_PATH, COUNT: 24 })).sort(), ['Zebra.mp3', 'take 1.ogg'].sort());
});

test('lists come in the order that was set, or that the request names', async (t) => {
  const client = await set.client(t);
  const path = join(await client.stick('Made'), 'Music');
  const byName = ['apfel 2.mp3', 'Äpfel 9.ogg', 'apfel 10.flac', 'Birne.flac', 'cover.mp3', 'élan.ogg', 'Elano.mp3', 'mond.flac', ...Array.from({ length: 22 }, (_, i) => songs[8 + i].file), 'Zebra.mp3'];
  const list = async (request) => names([...(await entries(client, 'get_info', { ...request, TYPE: kind.music, PATH: path, COUNT: 24 })), ...(await entries(client, 'get_info', { ...request, TYPE: kind.music, PATH: path, INDEX: 24, COUNT: 24 }))]);
  const order = (number) => client.set(uri('set_sort_type'), { TYPE: kind.music, SORT: number });
  assert.deepEqual(await list(), byName);
  await order(sort.name + sort.descending);
  assert.deepEqual(await list(), [...byName].reverse());
  const size = (name) => statSync(join(set.world, 'Made', 'Music', name)).size;
  await order(sort.size);
  assert.deepEqual((await list()).map(size), byName.map(size).sort((a, b) => a - b));
  await order(sort.title);
  const title = (name) => songs.find(({ file }) => file === name)?.title ?? 'Yellow cover';
  assert.deepEqual((await list()).map(title), byName.map(title).sort());
  const rises = (values) => values.every((value, i) => i === 0 || values[i - 1] <= value);
  await order(sort.duration);
  assert.ok(rises((await list()).map((name) => songs.find(({ file }) => file === name)?.seconds ?? 4)));
  await order(sort.artist);
  const artists = (await list()).map((name) => songs.find(({ file }) => file === name)?.artist ?? 'Solo');
  assert.deepEqual(artists.filter((artist, i) => artist !== artists[i - 1]), ['Anna Lind', 'Čeněk', 'Solo', 'The Quiet Ones']);
  await order(sort.name);

  // The order is kept for each kind.
  const photos = async () => names(await entries(client, 'get_info', { TYPE: kind.photo, PATH: join(dirname(path), 'Photos'), COUNT: 2 }));
  assert.deepEqual(await photos(), ['quadrants.jpg', 'quadrants.png']);
  await client.set(uri('set_sort_type'), { TYPE: kind.photo, SORT: sort.date });
  assert.deepEqual(await photos(), ['turned 1.jpg', 'turned 2.jpg']);
  assert.deepEqual(await list(), byName);
  await client.set(uri('set_sort_type'), { TYPE: kind.photo, SORT: sort.name });
  for (const wrong of [{ TYPE: kind.music, SORT: 77 }, { TYPE: kind.music, SORT: -1 }, { TYPE: 9, SORT: sort.name }]) await client.refused(uri('set_sort_type'), wrong);

  const top = (number, more) => entries(client, 'get_top_list', { TYPE: kind.music, SORT: number, PATH: path, COUNT: 24, ...more });
  assert.deepEqual(names(await top(sort.name)), byName.slice(0, 24));
  assert.deepEqual(names(await top(sort.name, { INDEX: 30 })), ['Zebra.mp3']);
  assert.deepEqual((await top(sort.artist)).map(({ ARTIST }) => ARTIST), ['Anna Lind', 'Čeněk', 'Solo', 'The Quiet Ones']);
  assert.deepEqual((await top(sort.album)).map(({ ALBUM }) => ALBUM).filter(Boolean), ['Obst', 'Studio', 'Tiere']);
  assert.deepEqual((await top(sort.genre)).map(({ GENER }) => GENER).filter(Boolean), ['Blues', 'Folk', 'Jazz']);
  const number = (of, more) => count(client, { TYPE: kind.music, SORT: of, ...more }, 'get_top_list_db_count');
  assert.equal(await number(sort.artist, { RESERVED: path }), 4);
  assert.equal(await number(sort.name, { RESERVED: path }), byName.length);
  assert.equal(await number(sort.artist, { RESERVED: 'Anna Lind' }), 8);
  for (const type of [0, 4, 5, 6]) assert.equal(await status(client, 'get_top_list_db_count', { TYPE: type, RESERVED: path }), badParameter);

  const rec = (of, name) => entries(client, 'get_rec', { TYPE: kind.music, SORT: of, RESERVED: name, PATH: path, COUNT: 24 });
  assert.deepEqual(names(await rec(sort.artist, 'Anna Lind')).sort(), songs.slice(0, 8).map(({ file }) => file).sort());
  assert.deepEqual(names(await rec(sort.album, 'Obst')).sort(), songs.slice(0, 4).map(({ file }) => file).sort());
  assert.deepEqual(names(await rec(sort.genre, 'Jazz')).sort(), songs.filter(({ genre }) => genre === 'Jazz').map(({ file }) => file).sort());
  assert.deepEqual(await rec(sort.artist, 'Nobody'), []);
});

test('favourites, and what was displayed last', async (t) => {
  const client = await set.client(t);
  const path = await client.stick('Made');
  const photo = (name) => join(path, 'Photos', name);
  const list = async (of) => names(await entries(client, 'get_top_list', { TYPE: kind.photo, SORT: of, PATH: path, COUNT: 24 }));
  assert.deepEqual(await list(sort.favourites), []);
  assert.equal((await client.tv('media', 'favourite', photo('snap 7.jpg'), 'on')).favourite, true);
  await client.tv('media', 'favourite', photo('snap 3.jpg'), 'on');
  assert.deepEqual(await list(sort.favourites), ['snap 3.jpg', 'snap 7.jpg']);
  const [entry] = await entries(client, 'get_top_list', { TYPE: kind.photo, SORT: sort.favourites, PATH: path, COUNT: 1 });
  assert.equal(entry.FAVOURITE, 1);
  await client.tv('media', 'scan', path);
  await client.scanned(path);
  assert.deepEqual(await list(sort.favourites), ['snap 3.jpg', 'snap 7.jpg'], 'kept in a further scan');
  for (const name of ['snap 3.jpg', 'snap 7.jpg']) await client.tv('media', 'favourite', photo(name), 'off');
  assert.deepEqual(await list(sort.favourites), []);

  for (const name of ['snap 5.jpg', 'snap 9.jpg']) await client.tv('photo', 'show', photo(name));
  await until(() => list(sort.played), (shown) => shown.join() === 'snap 9.jpg,snap 5.jpg', 'what was displayed');
  await client.tv('photo', 'close');
});

test('a file is found by its index, and its facts by its path', async (t) => {
  const client = await set.client(t);
  const path = await client.stick('Made');
  for (const type of [kind.photo, kind.music, kind.video]) {
    const listed = await entries(client, 'get_info', { TYPE: type, PATH: path, COUNT: 24 });
    for (const index of [0, 2, listed.length - 1]) {
      const { MEDIA_TYPE, MEDIA_PATH } = await client.item(uri('get_info_by_idx'), { TYPE: type, PATH: path, INDEX: index });
      assert.deepEqual([MEDIA_TYPE, MEDIA_PATH], [type, listed[index].MEDIA_PATH]);
    }
    for (const index of [-1, 1000, 2 ** 31 - 1]) assert.equal(await status(client, 'get_info_by_idx', { TYPE: type, PATH: path, INDEX: index }), -1);
  }
  for (const type of [0, 4, 5, 6, 7]) assert.equal(await status(client, 'get_info_by_idx', { TYPE: type, PATH: path }), badParameter);

  const look = (type, file, folder) => status(client, 'get_info_by_path', { TYPE: type, PATH: folder, RESERVED: file });
  for (const [type, file, folder] of [[kind.photo, 'quadrants.png', 'Photos'], [kind.music, 'Zebra.mp3', 'Music'], [kind.video, 'colours.mkv', 'Films'], [kind.playlist, 'mix.m3u', 'Music']]) {
    assert.equal(await look(type, file, join(path, folder)), 0, file);
    assert.equal(await look(type, join(path, folder, file), join(path, folder)), 0, `the path of ${file}`);
    assert.equal(await look(type, file, join(path, 'Texts')), -1, `${file} elsewhere`);
  }
  assert.equal(await look(kind.photo, 'Zebra.mp3', join(path, 'Music')), -1, 'a file of another kind');
  assert.equal(await look(kind.photo, '../../../../etc/passwd', join(path, 'Photos')), -1);
  assert.equal(await status(client, 'get_info_by_path', { TYPE: kind.photo, PATH: path }), -2);
  for (const type of [0, 4, 6, 7]) assert.equal(await look(type, 'quadrants.png', join(path, 'Photos')), badParameter);
});

test('queries of a disk: its file system, and whether the set may jump to it', async (t) => {
  const client = await set.client(t);
  const path = await client.stick('Made');
  const texts = await client.stick('Texts');
  const ext = execFileSync('stat', ['-f', '-c', '%t', set.world], { encoding: 'utf8' }).trim() === 'ef53';
  assert.equal(await status(client, 'check_disk_type_by_path', { PATH: path }), ext ? 0 : -1);
  assert.equal(await status(client, 'check_disk_type_by_path', { PATH: '/nowhere' }), -1);
  await until(() => set.host.told(), (told) => /^\[TVC_MAIN\] a_vextvapi_cb_checkDevExt4Status 4_ret: \[\d+\]$/m.test(told), 'the line about the disk');
  assert.equal(await status(client, 'check_jump_status', { PATH: path }), 0);
  assert.equal(await status(client, 'check_jump_status', { PATH: texts }), noJump);
  await client.tv('media', 'jump', 'off');
  assert.equal(await status(client, 'check_jump_status', { PATH: path }), noJump);
  await client.tv('media', 'jump', 'on');
  assert.equal(await status(client, 'check_jump_status', { PATH: path }), 0);
});

test('a database is dropped and loaded', async (t) => {
  const client = await set.client(t);
  const path = await client.stick('Made');
  const photos = () => count(client, { TYPE: kind.photo, PATH: path });
  const wanted = await photos();
  assert.ok(wanted > 20);
  await text(client, 'delete_database', path);
  assert.equal(await photos(), 0);
  await text(client, 'import_database', path);
  await client.scanned(path);
  assert.equal(await photos(), wanted);
  for (const name of ['import_database', 'delete_database', 'delete_mmp_stop_info']) await refusesText(client, name, '/nowhere');
  await text(client, 'delete_mmp_stop_info', path);
});

test('a second scan reads only what has changed', async (t) => {
  const client = await set.client(t);
  const folder = join(set.world, 'Made', 'Photos');
  const path = await client.stick('Made');
  const listed = async () => names([...(await entries(client, 'get_info', { TYPE: kind.photo, PATH: path, COUNT: 24 })), ...(await entries(client, 'get_info', { TYPE: kind.photo, PATH: path, INDEX: 24, COUNT: 24 }))]);
  const before = await listed();
  copyFileSync(join(folder, 'snap 1.jpg'), join(folder, 'zz new.jpg'));
  copyFileSync(join(folder, 'snap 20.jpg'), join(folder, 'snap 2.jpg'));
  rmSync(join(folder, 'snap 9.jpg'));
  await text(client, 'start_scan', path);
  await client.scanned(path);
  assert.deepEqual(await listed(), [...before.filter((name) => name !== 'snap 9.jpg'), 'zz new.jpg']);
  const changed = (await client.list('photo', join(path, 'Photos'))).find(({ name }) => name === 'snap 2.jpg');
  assert.deepEqual([changed.width, changed.height], [78, 49]);
  await client.remove('Made');
  assert.equal(await count(client, { TYPE: kind.photo, PATH: path }), 0, 'a stick that is gone');
});

test('files of Debian packages: the library says what ffprobe and exif say', async (t) => {
  const client = await set.client(t);
  const folder = join(set.world, 'Found');
  for (const name of copyPackages(folder)) t.diagnostic(`the package ${name} is not installed`);
  const files = filesIn(folder);
  if (files.length === 0) return t.skip('none of the packages is installed');
  const path = await client.stick('Found');
  const listed = new Map();
  for (const what of ['photo', 'music', 'video', 'playlist']) for (const entry of await client.list(what, path)) listed.set(entry.path, { ...entry, kind: what });
  const problems = new Map((await client.tv('media', 'problems', path)).problems.map(({ path: of, why }) => [of, why]));
  const facts = await each(files, async (file) => ({ file, seen: await probed(file), ...(/\.jpe?g$/i.test(file) ? await exif(file) : {}) }));
  const missed = [];
  const totals = { photo: 0, music: 0, video: 0, playlist: 0, problem: 0 };
  for (const { file, seen, taken, onSide } of facts) {
    const at = join(path, file.slice(folder.length));
    const entry = listed.get(at);
    assert.ok(!entry !== !problems.has(at), `${at} is listed, or left out with a reason: ${JSON.stringify(entry ?? problems.get(at))}`);
    ++totals[entry?.kind ?? 'problem'];
    if (file.endsWith('.m3u')) {
      assert.equal(entry?.kind, 'playlist', file);
      continue;
    }
    if (!entry) {
      assert.ok(problems.get(at).length > 5, file);
      // What ffprobe finds pictures or sound in is left out only if it was damaged on purpose, or a limit of the set refuses it.
      const damaged = /\/test-images\/(fail|randomly-modified)\//.test(file);
      if (!damaged && seen && (seen.kind !== 'photo' || seen.width * seen.height > 0) && !/large|more than/.test(problems.get(at))) missed.push(`${file}: ${problems.get(at)}`);
      continue;
    }
    assert.ok(seen, `${file}: ffprobe finds nothing, the library ${JSON.stringify(entry)}`);
    assert.equal(entry.kind, seen.kind, file);
    assert.equal(entry.size, statSync(file).size, file);
    assert.equal(entry.name, basename(file));
    // Pictures that are damaged or larger than what ffprobe reads of a file have no dimensions there.
    // A photo has those that it is seen with.
    const sides = [seen.width, seen.height];
    if (seen.kind !== 'music' && seen.width > 0) assert.deepEqual([entry.width, entry.height], onSide ? sides.reverse() : sides, file);
    if (seen.kind !== 'photo') {
      assert.ok(Math.abs((entry.duration ?? 0) - seen.duration) < 0.1, `${file}: ${entry.duration} s, ffprobe ${seen.duration} s`);
      assert.ok(seen.tags.title ? entry.title === seen.tags.title : [basename(file), basename(file, extname(file))].includes(entry.title), `${file}: ${entry.title}`);
    }
    if (seen.kind === 'music') assert.deepEqual([entry.artist ?? '', entry.album ?? '', entry.genre ?? ''], [seen.tags.artist ?? '', seen.tags.album ?? '', seen.tags.genre ?? ''], file);
    const when = entry.date.slice(0, 19);
    const recorded = seen.tags.creation_time?.slice(0, 19);
    const wanted = taken?.replace(/^(\d+):(\d+):(\d+) /, '$1-$2-$3T') ?? recorded ?? new Date(Math.floor(statSync(file).mtimeMs / 1000) * 1000).toISOString().slice(0, 19);
    assert.equal(when, wanted, file);
  }
  t.diagnostic(`${files.length} files: ${JSON.stringify(totals)}`);
  assert.deepEqual(missed, [], 'ffprobe can read them');
  const { photos, music: sounds, videos, playlists } = await client.scanned(path);
  assert.deepEqual([photos, sounds, videos, playlists], [totals.photo, totals.music, totals.video, totals.playlist]);

  // Searched by title, artist, album and name; without case and accents.
  const search = async (...words) => (await client.tv('media', 'search', ...words)).entries.map(({ name }) => name).sort();
  const corpus = ['title-artist-album.ogg', 'title-artist-album-genre.ogg', 'title-artist.ogg'];
  assert.deepEqual(await search('dir1-artist'), [...corpus].sort());
  assert.deepEqual(await search('foo-title'), ['title-artist-album-genre.ogg', 'title-artist-album.ogg']);
  assert.deepEqual(await search('FOO-TITLE', 'photo'), []);
  assert.deepEqual(await search('ÉRIBERTO'), ['debian.mp3', 'debian.ogg', 'debian.wav', 'deleted.mp3', 'deleted.ogg', 'deleted.wav']);
  assert.deepEqual(await search('frontiers'), ['frontiers.mp3']);
  assert.deepEqual(await search('no such thing'), []);

  // Everything with sound or moving pictures is played.
  for (const { path: at, kind: what, duration } of [...listed.values()]) {
    if (what !== 'music' && what !== 'video') continue;
    await client.tv('player', 'play', at, '0');
    const playing = await until(() => client.tv('player'), ({ state, path: of }) => of === at && state !== 'opening', `the playing of ${at}`);
    assert.ok(['playing', 'ended'].includes(playing.state), `${at}: ${playing.state}, ${playing.reason}`);
    if (playing.state === 'playing') assert.ok(Math.abs(playing.duration - duration) < 1, `${at}: ${playing.duration} s, in the library ${duration} s`);
  }
  await client.tv('player', 'stop');
});

test('every URI of the library has been used', (t) => set.everyUriIsUsed(t, /^\/tv\/cbrowser\/(?!dlna|pus|playback|image)/));

// The media player from end to end: an application's players, what each operator does to what is seen and reported.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import { copyFileSync, mkdirSync, readdirSync, readFileSync, statSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { afterEach, before, test } from 'node:test';
import { until, viewer } from './antenna_support.mjs';
import { descriptors, modify, valueOf, volume } from './host_support.mjs';
import { actionFailed, code, event, metadata, type, unknown, playerClient } from './player_support.mjs';
import { copyInto, film, frame, looks, madeMedia, shownColour, television, uri } from './media_support.mjs';

const set = television();
const application = (t) => playerClient(t, set);
let films;
before(() => {
  copyInto(madeMedia(), join(set.world, 'Films and music'));
  films = join(set.world, 'Films and music', 'Films');
  mkdirSync(join(set.world, 'Pulled'));
  copyFileSync(join(films, 'colours.mkv'), join(set.world, 'Pulled', 'colours.mkv'));
});

// A player that a failed test has left ends here, so that the next test has both players.
const playersEnd = [];
afterEach(async () => {
  const cleanups = [];
  const client = await viewer({ after: (cleanup) => cleanups.push(cleanup) }, set.host);
  for (const handle of playersEnd.splice(0)) await client.call('set', { uri: uri('playback_deinit'), parameter: { REQUEST: 'SET', handle } });
  await client.call('tv', { words: ['player', 'stop'] }).catch(() => {});
  for (const cleanup of cleanups) cleanup();
});

const seen = (wanted, x = 320, y = 120) => until(async () => shownColour((await frame(set.host)).at(x, y)), (shown) => shown === wanted, `${wanted} at ${x}, ${y}`);
// How much of the lower half of the screen has this colour.
async function area(colour, from = 180, to = 360) {
  const picture = await frame(set.host);
  let count = 0;
  for (let y = from; y < to; ++y) for (let x = 0; x < 640; ++x) if (looks(picture.at(x, y), colour)) ++count;
  return count;
}

test('a player opens a film, plays it to its end, and is destroyed once', async (t) => {
  const app = await application(t);
  const player = await app.init('colours.mkv');
  playersEnd.push(player.handle);
  const opened = await player.told(event.opened);
  assert.deepEqual([opened.ARG1, opened.ARG2, opened.ARG3], [type.video, film.seconds, film.sounds.length]);
  assert.deepEqual(Object.keys(opened), ['TYPE', 'TAG', 'ARG1', 'ARG2', 'ARG3', 'ARG4']);
  const { ARG1: width, ARG2: height, ARG3: shape } = await player.told(event.size);
  assert.deepEqual([width, height, shape], [film.width, film.height, 1778]);
  const shown = await app.tv('player');
  assert.deepEqual([shown.state, shown.application, shown.title, shown.duration], ['paused', true, film.title, Math.round(shown.duration * 1000) / 1000]);
  assert.ok(Math.abs(shown.duration - film.seconds) < 0.5);
  for (const play of ['play', 'Play', 'PLAY']) {
    await player.act(play);
    await player.told(event.playing);
    await until(() => app.tv('player'), ({ state }) => state === 'playing', 'the film plays');
    await player.act('Pause');
    await player.told(event.paused);
    await until(() => app.tv('player'), ({ state }) => state === 'paused', 'the film is paused');
  }
  await seen('red');
  await player.act('Play');
  let last = 0;
  for (let i = 0; i < 3; ++i) {
    const { ARG1: second, ARG2: duration, ARG3: percent } = await player.told(event.position);
    assert.equal(duration, film.seconds);
    assert.ok(Math.abs(percent - (100 * second) / film.seconds) <= 4, `${percent} % at ${second} s`);
    assert.ok(second > last || i === 0, `${second} s after ${last} s`);
    last = second;
  }
  assert.ok((await player.time()) >= last);
  const { picture, title } = await app.tv('screen');
  assert.deepEqual([picture, title], ['media', film.title]);
  await player.act('timeSeek', { seek_time: 27 });
  await player.told(event.chapter, { ARG1: 3, ARG2: film.chapters.length });
  await seen('blue');
  await player.told(event.end);
  await until(() => app.tv('player'), ({ state }) => ['ended', 'none'].includes(state), 'the end');
  await player.act('Play');
  await player.told(event.playing);
  await until(() => player.time(), (time) => time < 20, 'the film from its beginning');
  await player.end();
  playersEnd.pop();
  await until(() => app.tv('screen'), (screen) => screen.picture !== 'media', 'the end of the picture');
  await app.refused(uri('playback_deinit'), { handle: player.handle });
  for (const operator of ['Play', 'Pause', 'Stop', 'timeSeek', 'savestopinfo', 'setzoom', 'setsubenc']) await player.refuses(operator, code.invalidHandle);
  for (const operator of ['getcurpos', 'getspeed', 'getmetadata', 'getmediainfo', 'getstopinfo']) await player.failsToTell(operator, code.invalidHandle);
});

test('invalid players, operators and paths are refused', async (t) => {
  const app = await application(t);
  const init = async (request) => (await app.get(uri('playback_init'), { REQUEST: 'QUERY', ...request })).ret;
  assert.equal(await init({}), -2);
  assert.equal(await init({ mediaPath: '' }), -2);
  assert.equal(await init({ bMode: 1, oMode: 1, profile: 'p', protocal: 'q' }), -2);
  for (const handle of [0, 1, 77, 2 ** 32 - 1]) {
    await app.player(handle, 0).refuses('Play', code.invalidHandle);
    await app.refused(uri('playback_deinit'), { handle });
  }
  const player = await app.open('short.mp4');
  playersEnd.push(player.handle);
  for (const operator of ['flip', '', 'Play ', 'x'.repeat(500)]) {
    await player.refuses(operator, unknown);
    await player.failsToTell(operator, unknown);
  }
  await app.refused(uri('playback_operator'), { handle: player.handle }, unknown);
  // Without a tag of its own a player has one that is not zero.
  const second = await app.item(uri('playback_init'), { mediaPath: app.path('Films/short.mp4') });
  assert.notEqual(second.pvTag, 0);
  playersEnd.push(second.handle);
  assert.notEqual(second.handle, player.handle);
  // A third one ends the oldest.
  const third = await app.item(uri('playback_init'), { mediaPath: app.path('Films/short.mp4') });
  await player.refuses('Play', code.invalidHandle);
  for (const { handle } of [second, third]) await app.set(uri('playback_deinit'), { handle });
  const last = await app.open('short.mp4');
  playersEnd.splice(-2, 2, last.handle);

  for (const [path, reasons] of [
    [app.path('Films/nothing.mkv'), [code.file]],
    [app.path('Films'), [code.file, code.format]],
    [app.path('Films/colours.srt'), [code.format]],
    ['/etc/passwd', [code.file]],
    [app.path('../../../../../../../../etc/passwd'), [code.file]],
    [`file://${app.path('Films/short.mp4')}`, [code.file]],
    [`concat:${app.path('Films/short.mp4')}|${app.path('Films/short.mp4')}`, [code.file]],
    ['lavfi://color=red', [code.file]],
    ['http://192.0.2.1/film.mp4', [code.network]],
    ['ftp://127.0.0.1/film.mp4', [code.file, code.network, code.unsupported]],
  ]) {
    const reason = await app.reason(path);
    assert.ok([actionFailed, ...reasons].includes(reason), `${path}: ${reason}`);
  }
  await last.act('Play'); // it plays on
  await last.told(event.end);
});

test('before the film is open, after a stop and after a failure a player takes only some operators', async (t) => {
  const app = await application(t);
  const player = await app.open('colours.mkv');
  playersEnd.push(player.handle);
  await player.act('Play');
  await player.told(event.playing);
  await player.seek(12);
  await player.act('Stop');
  await player.told(event.stopped);
  for (const [operator, more] of [['Pause'], ['timeSeek', { seek_time: 3 }], ['byteSeek', { seek_byte: 4096 }], ['FF'], ['Step'], ['SetSpeed', { SetSpeedValue: 200 }], ['selectaud', { select_aud_idx: 1 }]])
    await player.refuses(operator, code.notReady, more);
  assert.ok(!['playing', 'paused'].includes((await app.tv('player')).state));
  await player.act('Play');
  await player.told(event.playing);
  assert.ok((await player.time()) < 10, 'from the beginning');
});

test('seeks by time and by bytes', async (t) => {
  const app = await application(t);
  const player = await app.open('colours.mkv');
  playersEnd.push(player.handle);
  await player.seek(15);
  await seen('lime');
  assert.equal(await player.time(), 15);
  const size = statSync(join(films, 'colours.mkv')).size;
  const at = Math.floor((size * 5) / 6);
  // A byte as a number, and as texts: decimal, hexadecimal, octal.
  for (const byte of [at, `${at}`, `0x${at.toString(16)}`, `0X${at.toString(16).toUpperCase()}`, `0${at.toString(8)}`]) {
    await player.act('byteSeek', { seek_byte: '0x10' });
    const { ARG1: begin } = await player.told(event.sought);
    assert.equal(begin, 0, 'byte 16 is at the beginning');
    await player.act('byteSeek', { seek_byte: byte });
    const { ARG1: time } = await player.told(event.sought);
    assert.ok(time >= 22 && time <= 28, `${byte}: ${time} s`);
    const { curplaytime, curplayposition } = await player.ask('getcurpos');
    assert.ok(curplaytime >= 22 && curplayposition > size / 2 && curplayposition <= size, `${curplaytime} s, byte ${curplayposition}`);
  }
  await seen('blue');
  await player.act('byteSeek'); // without a byte: byte 0
  assert.equal((await player.told(event.sought)).ARG1, 0);
  // Beyond the end: refused, or the end.
  for (const [operator, more] of [['timeSeek', { seek_time: 4_000_000_000 }], ['byteSeek', { seek_byte: '0xffffffffffffffff' }]]) {
    const { ret } = await app.call('set', { uri: uri('playback_operator'), parameter: { REQUEST: 'SET', handle: player.handle, operator, ...more } });
    assert.ok([0, code.badArgument].includes(ret), `${operator}: ${ret}`);
  }
  await app.tv('player');
});

test('speeds, single pictures, and repeating', async (t) => {
  const app = await application(t);
  const player = await app.open('colours.mkv');
  playersEnd.push(player.handle);
  const speed = async () => Number.parseInt((await player.ask('getspeed')).s_speed, 10);
  await player.act('Play');
  for (const [operator, wanted] of [['FF', 200], ['FF', 400], ['FF', 800], ['FF', 200], ['SF', 50], ['SF', 25]]) {
    await player.act(operator);
    await player.told(event.speed, { ARG1: wanted });
    assert.equal(await speed(), wanted);
  }
  for (const wanted of [100, 400, 50, 100]) {
    await player.act('SetSpeed', { SetSpeedValue: wanted });
    await player.told(event.speed, { ARG1: wanted });
    assert.equal(await speed(), wanted);
    assert.equal((await app.tv('player')).speed, wanted / 100);
  }
  await player.act('FF');
  await player.act('Play'); // the usual speed again
  await until(speed, (now) => now === 100, 'the usual speed');
  for (const wrong of [9, 801, 100_000, -(2 ** 31)]) await player.refuses('SetSpeed', code.badArgument, { SetSpeedValue: wrong });
  await player.refuses('SR', code.unsupported);
  await player.seek(15);
  await player.act('FR');
  await until(() => player.time(), (time) => time < 12, 'backwards');
  assert.ok((await speed()) < 0);
  await player.act('Play');

  await player.act('Pause');
  await player.seek(5);
  const position = async () => (await app.tv('player')).position;
  const before = await position();
  await player.act('Step');
  const after = await until(position, (now) => now > before, 'the next picture');
  assert.ok(after - before < 0.5, `${after - before} s`);

  await player.act('repeat', { repeat: 1 });
  assert.equal((await app.tv('player')).repeat, 'one');
  await player.seek(28);
  await player.act('Play');
  await until(() => player.time(), (time) => time < 10, 'the beginning again');
  await player.act('repeat', { repeat: 0 });
  await player.seek(29);
  await player.told(event.end);
  for (const [wrong, wanted] of [[2, code.unsupported], [3, code.badArgument], [-1, code.badArgument]]) await player.refuses('repeat', wanted, { repeat: wrong });
});

test('sound tracks and subtitles are described and chosen', async (t) => {
  const app = await application(t);
  const player = await app.open('colours.mkv');
  playersEnd.push(player.handle);
  const chosen = async () => (await app.tv('player')).tracks.filter((track) => track.chosen).map(({ kind, language }) => `${kind} ${language}`);
  assert.ok((await chosen()).includes('audio eng'));
  for (const [index, language] of film.sounds.entries()) {
    const { audenctype, audchnum, audsamplerate, audlang } = await player.ask('getaudinfo', { getaudinfoidx: index });
    assert.match(audenctype, /^aac$/i);
    assert.equal(Number.parseInt(audchnum, 10), 1);
    assert.equal(Number.parseInt(audsamplerate, 10), 44100);
    assert.equal(audlang, language);
    await player.act('selectaud', { select_aud_idx: index });
    await until(chosen, (now) => now.includes(`audio ${language}`), language);
    assert.equal((await player.ask('getmediainfo')).mediaCurAudTrackIdx, index);
  }
  for (const index of [2, 99, -7]) {
    await player.refuses('selectaud', code.badArgument, { select_aud_idx: index });
    await player.failsToTell('getaudinfo', code.badArgument, { getaudinfoidx: index });
    await player.failsToTell('getsubinfo', code.badArgument, { getsubinfoidx: index });
  }
  const info = await player.ask('getmediainfo');
  const { mediaFileSize, mediaVidTrackNum, mediaAudTrackNum, mediaSubTrackNum, mediaChapterNum, mediaDuration } = info;
  assert.deepEqual([mediaFileSize, mediaVidTrackNum, mediaAudTrackNum, mediaSubTrackNum, mediaChapterNum, mediaDuration], [statSync(join(films, 'colours.mkv')).size, 1, 2, 1, 3, film.seconds]);
  assert.ok(info.eMediaType.length > 0);
  assert.equal(Object.keys(info).length, 2 + 19); // NAME, handle, and what the operator tells
  const { subtype, external, hearingImpair } = await player.ask('getsubinfo', { getsubinfoidx: 0 });
  assert.deepEqual([subtype, external, hearingImpair], [4, 1, 0]);

  // The text is white on red, in the lower half, from 1 to 9 s.
  await player.seek(5);
  await player.act('selectsub', { select_sub_idx: 0 });
  await until(() => area('white'), (count) => count > 100, 'the subtitle');
  await player.act('selectsub', { select_sub_idx: -1 });
  await until(() => area('white'), (count) => count === 0, 'no subtitle');
  await player.act('selectsub', { select_sub_idx: 0 });
  await until(() => area('white'), (count) => count > 100, 'the subtitle again');
  // The flag of "setsubtitleshowhide" is "bsethasstopinfo".
  for (const [more, shown] of [[{ bsethasstopinfo: 0 }, false], [{ bsethasstopinfo: 1 }, true], [{ show: 1 }, false], [{ bsethasstopinfo: 1 }, true]]) {
    await player.act('setsubtitleshowhide', more);
    await until(() => area('white'), (count) => (count > 100) === shown, `${JSON.stringify(more)}: ${shown ? '' : 'no '}subtitle`);
  }
  await player.act('setstopsub');
  await until(() => area('white'), (count) => count === 0, 'no subtitle after setstopsub');
  const { ret } = await app.call('set', { uri: uri('playback_operator'), parameter: { REQUEST: 'SET', handle: player.handle, operator: 'selectcc', select_cc_idx: 0 } });
  assert.ok([code.unsupported, code.badArgument].includes(ret), 'there are no closed captions');
});

test('subtitle attributes change how subtitles look', async (t) => {
  const app = await application(t);
  const player = await app.open('plain.mp4');
  playersEnd.push(player.handle);
  await player.seek(5);
  await player.act('selectsub', { select_sub_idx: 0 });
  const usual = await until(() => area('white'), (count) => count > 100, 'the subtitle');
  const text = (more, what, colour = 'yellow') => until(() => area(colour), (count) => count > 50, `${what} ${JSON.stringify(more)}`);
  const yellow = { setsubtxtclr_alpha: 255, setsubtxtclr_r: 255, setsubtxtclr_g: 255, setsubtxtclr_b: 0 };
  await player.act('setsubtxtcolor', yellow);
  await text(yellow, 'a yellow text');
  assert.equal(await area('white'), 0);
  await player.act('setsubtxtcolor', { ...yellow, setsubtxtclr_b: 255 });
  await until(() => area('white'), (count) => count > 100, 'a white text');

  const size = async (more, good) => {
    await player.act('setsubfontsize', more);
    return until(() => area('white'), good, JSON.stringify(more));
  };
  const large = await size({ setsubfontsizetype: 'large' }, (count) => count > usual * 1.1);
  await size({ setsubfontsizetype: 'Small' }, (count) => count > 20 && count < usual);
  await size({ setsubfontsizetype: 'custom', setsubfontsizevalue: 90 }, (count) => count > large);
  await size({ setsubfontsizetype: 'medium' }, (count) => Math.abs(count - usual) < usual / 4);

  const box = { setsubbkgclr_alpha: 255, setsubbkgclr_r: 0, setsubbkgclr_g: 0, setsubbkgclr_b: 255 };
  await player.act('setsubbkgcolor', box);
  await text(box, 'a blue background', 'blue');
  await player.act('setsubbkgcolor', { ...box, setsubbkgclr_alpha: 0 });
  await until(() => area('blue'), (count) => count === 0, 'no background');
  const edge = { setsubedgclr_alpha: 255, setsubedgclr_r: 255, setsubedgclr_g: 0, setsubedgclr_b: 0 };
  await player.act('setsubedgcolor', edge);
  await player.act('setsubedgwidth', { setsubedgwidth: 8 });
  await text(edge, 'a red edge', 'red');
  await player.act('setsubedgwidth', { setsubedgwidth: 0 });
  await until(() => area('red'), (count) => count === 0, 'no edge');

  // Of a rectangle the left edge and the lower edge count: the text rises into the upper half.
  await player.act('setsubdisplayrect', { setsubdisplayrect_u4X: 0, setsubdisplayrect_u4Y: 0, setsubdisplayrect_u4W: 1920, setsubdisplayrect_u4H: 400 });
  await until(() => area('white', 0, 180), (count) => count > 100, 'the text above');
  await player.act('setsubdisplayrect', { setsubdisplayrect_u4X: 0, setsubdisplayrect_u4Y: 0, setsubdisplayrect_u4W: 1920, setsubdisplayrect_u4H: 1080 });
  await until(() => area('white'), (count) => count > 100, 'the text below');

  // Later by six seconds: at 5 s there is none.
  await player.act('setsubtimeoffset', { setsubtimeoffset_type: 'userdef', setsubtimeoffset_value: 6000 });
  await until(() => area('white'), (count) => count === 0, 'a later text');
  await player.act('setsubtimeoffset', { setsubtimeoffset_type: 'off' });
  await until(() => area('white'), (count) => count > 100, 'the text in time');
});

test('subtitles in another character set', async (t) => {
  const app = await application(t);
  const pictureOf = async (name, ...encodings) => {
    await until(() => area('white'), (count) => count === 0, 'the end of what was seen before');
    const player = await app.open(name);
    playersEnd.push(player.handle);
    await player.seek(5);
    await player.act('selectsub', { select_sub_idx: 0 });
    for (const encoding of encodings) await player.act('setsubenc', encoding);
    await until(() => area('white'), (count) => count > 100, 'the subtitle');
    return { picture: async () => createHash('sha256').update((await frame(set.host)).bytes).digest('hex'), player, end: () => (playersEnd.pop(), player.end()) };
  };
  const right = await pictureOf('plain.mp4');
  // The title may be drawn for some seconds.
  await until(() => area('white', 0, 150), (count) => count === 0, 'the picture alone');
  const wanted = await right.picture();
  await right.end();
  const other = await pictureOf('koi.mp4', { setsubencinfo: 'codepage1252' });
  await until(() => area('white', 0, 150), (count) => count === 0, 'the picture alone');
  // A text that was read again is drawn at the latest after a seek.
  const sought = async () => {
    await other.player.seek(5);
    return other.picture();
  };
  await until(sought, (picture) => picture !== wanted, 'the text in the wrong character set');
  await other.player.act('setsubenc', { setsubencinfo: 'KOI8' });
  await until(sought, (picture) => picture === wanted, 'the same text');
  await other.player.act('setsubenc', { setsubencinfo: 'latin1' }); // no name of the list: found out by the set
  await other.player.act('setsubenc', {});
  await other.end();
});

test('the picture is placed and zoomed', async (t) => {
  const app = await application(t);
  const player = await app.open('quadrants.mp4');
  playersEnd.push(player.handle);
  const at = async (wanted) => {
    for (const [colour, x, y] of wanted) await seen(colour, x, y);
  };
  const whole = [['red', 160, 90], ['lime', 480, 90], ['blue', 160, 270], ['white', 480, 270]];
  await at(whole);
  const zoomStatus = async () => (await player.ask('getzoomstatus')).s_zoomStatus;
  const rect = (name, x, y, w, h) => ({ [`${name}_u4X`]: x, [`${name}_u4Y`]: y, [`${name}_u4W`]: w, [`${name}_u4H`]: h });
  await player.act('setzoom', { setzoomType: 2, ...rect('setzoomrect', 0, 540, 960, 540) }); // the lower left quarter
  await at([['blue', 40, 40], ['blue', 600, 320]]);
  assert.match(await zoomStatus(), /^2 0 540 960 540$/);
  await player.act('setzoom', { setzoomType: 3 }); // the middle
  await at([['red', 300, 160], ['white', 340, 200], ['lime', 600, 40]]);
  await player.act('setzoom', { setzoomType: 0 });
  await at(whole);
  for (const wrong of [{ setzoomType: 9 }, { setzoomType: -1 }, { setzoomType: 2, ...rect('setzoomrect', 0, 0, 0, 0) }, { setzoomType: 2, ...rect('setzoomrect', 4e9, 4e9, 4e9, 4e9) }])
    await player.refuses('setzoom', code.badArgument, wrong);

  await player.act('setdisplayrect', rect('setdisplayrect', 960, 0, 960, 540)); // the upper right quarter of the panel
  await at([['red', 400, 45], ['lime', 560, 45], ['blue', 400, 135], ['white', 560, 135]]);
  await player.act('setdisplayrect', rect('setdisplayrect', 0, 0, 0, 0));
  await at(whole);
  await player.refuses('setdisplayrect', code.badArgument, rect('setdisplayrect', 4e9, 0, 100, 100));
});

test('metadata, the kind, and pictures of the file', async (t) => {
  const app = await application(t);
  const player = await app.open('colours.mkv');
  playersEnd.push(player.handle);
  const tell = async (of, what) => {
    const { getmetaType, getMetaData } = await of.ask('getmetadata', { getmetaType: what });
    assert.equal(getmetaType, what);
    return getMetaData;
  };
  assert.deepEqual([await tell(player, metadata.title), await tell(player, metadata.year), await tell(player, metadata.director), await tell(player, metadata.artist)], [film.title, '2019', film.director, '']);
  assert.equal(await tell(player, metadata.chapter), film.chapters[0]);
  await player.seek(14);
  await until(() => tell(player, metadata.chapter), (chapter) => chapter === film.chapters[1], 'the chapter');
  for (const wrong of [0, 13, 99, -1]) await player.failsToTell('getmetadata', code.badArgument, { getmetaType: wrong });
  assert.equal((await player.ask('getplayertype')).playerType, type.video);
  const { hasRating } = await player.ask('getRatingInfo');
  assert.equal(hasRating, 0);
  await player.act('setunlockrating');

  // A picture of at most this size; the event has its path as a text, and the picture can be read.
  const pictureOf = async (of, operator, more, colour) => {
    await app.item(uri('playback_get_info'), { handle: of.handle, operator, ...more });
    const { ARG1: path } = await of.told(event.thumbnail);
    assert.equal(typeof path, 'string');
    const { getthumbnailasyncbuffer: read } = await of.ask('getthumbnaildata');
    const jpeg = Buffer.from(read, 'base64');
    assert.ok(jpeg.length < 131072 && jpeg.subarray(0, 3).equals(Buffer.from([0xff, 0xd8, 0xff])));
    assert.ok(jpeg.equals(readFileSync(path)), path);
    const sizes = execFileSync('ffprobe', ['-v', 'error', '-show_entries', 'stream=width,height', '-of', 'csv=p=0', path], { encoding: 'utf8' }).trim().split(',').map(Number);
    const pixels = execFileSync('ffmpeg', ['-v', 'error', '-i', path, '-f', 'rawvideo', '-pix_fmt', 'rgb24', '-'], { maxBuffer: 1 << 20 });
    const middle = 3 * (Math.floor(sizes[1] / 2) * sizes[0] + Math.floor(sizes[0] / 2));
    assert.equal(shownColour([...pixels.subarray(middle, middle + 3)]), colour);
    return sizes;
  };
  assert.deepEqual(await pictureOf(player, 'getthumbnailasync', { getthumbnailasyncwidth: 160, getthumbnailasyncheight: 160 }, 'red'), [160, 90]);
  for (const wrong of [[0, 0], [-1, 90], [100_000, 100_000]])
    assert.notEqual((await app.get(uri('playback_get_info'), { REQUEST: 'QUERY', handle: player.handle, operator: 'getthumbnailasync', getthumbnailasyncwidth: wrong[0], getthumbnailasyncheight: wrong[1] })).ret, 0, `${wrong}`);

  const song = await app.open(app.path('Music/cover.mp3'));
  playersEnd.push(song.handle);
  assert.equal((await song.ask('getplayertype')).playerType, type.music);
  assert.deepEqual([await tell(song, metadata.title), await tell(song, metadata.artist)], ['Yellow cover', 'Solo']);
  assert.deepEqual(await pictureOf(song, 'getmp3coverasync', { getmp3coverasyncwidth: 100, getmp3coverasyncheight: 100 }, 'yellow'), [100, 100]);
  await song.end();
  playersEnd.pop();
  const bare = await app.open(app.path('Music/Zebra.mp3'));
  playersEnd.push(bare.handle);
  await bare.ask('getmp3coverasync', { getmp3coverasyncwidth: 100, getmp3coverasyncheight: 100 });
  assert.ok((await bare.told(event.noThumbnail)).ARG1 < 0);
  await bare.act('Play');
  await bare.told(event.playing);
});

test('the position is kept for a later player, until it is forgotten', async (t) => {
  const app = await application(t);
  const open = async () => {
    const player = await app.open('colours.mkv');
    playersEnd.push(player.handle);
    return player;
  };
  const end = (player) => (playersEnd.pop(), player.end());
  await app.set(uri('delete_mmp_stop_info'), { VALUE: app.path('') }, 'MODIFY');
  const first = await open();
  assert.equal((await first.ask('getstopinfo')).bgethasstopinfo, 0);
  await first.seek(17);
  await first.act('savestopinfo');
  await end(first);
  const second = await open();
  assert.equal((await second.ask('getstopinfo')).bgethasstopinfo, 1);
  await second.act('setstopinfo', { bsethasstopinfo: 1 });
  await second.act('Play');
  await until(() => second.time(), (time) => time >= 17, 'where it was left');
  await end(second);
  const third = await open();
  await third.act('setstopinfo', { bsethasstopinfo: 0 });
  await third.act('Play');
  await third.told(event.playing);
  assert.ok((await third.time()) < 10, 'not used');
  await app.set(uri('delete_mmp_stop_info'), { VALUE: app.path('') }, 'MODIFY');
  assert.equal((await third.ask('getstopinfo')).bgethasstopinfo, 0);
});

test('removing a stick ends the players of its files, and no others', async (t) => {
  const app = await application(t);
  const pulled = await app.stick('Pulled');
  const player = await app.open(join(pulled, 'colours.mkv'));
  playersEnd.push(player.handle);
  await player.act('Play');
  await player.told(event.playing);
  await app.remove('Pulled');
  assert.equal((await player.told(event.error)).ARG1, code.removed);
  await player.refuses('timeSeek', code.notReady, { seek_time: 1 });
  await player.end();
  playersEnd.pop();
  const again = await app.stick('Pulled');
  await app.tv('player', 'play', join(again, 'colours.mkv'), '0');
  await until(() => app.tv('player'), ({ state }) => state === 'playing', 'the film');
  await app.remove('Pulled');
  const shown = await until(() => app.tv('player'), ({ state }) => state !== 'playing', 'the end of the film');
  assert.equal(shown.state, 'failed');
  assert.match(shown.reason, /stick|removed/);
  assert.ok([actionFailed, code.file, code.removed].includes(await app.reason(join(pulled, 'colours.mkv'))));
  const next = await app.open('short.mp4');
  playersEnd.push(next.handle);
  await next.act('Play');
  await next.told(event.end);
});

test('players that are opened and closed at once leave nothing behind', async (t) => {
  const app = await application(t);
  const threads = () => readdirSync(`/proc/${set.host.child.pid}/task`).length;
  const round = async (waits) => {
    const player = waits ? await app.open('colours.mkv') : await app.init('colours.mkv');
    await player.act('Play');
    await player.end();
  };
  for (let i = 0; i < 3; ++i) await round(true);
  await until(() => app.tv('player'), ({ application }) => !application, 'no player of an application');
  const before = { threads: threads(), descriptors: descriptors(set.host) };
  for (let i = 0; i < 15; ++i) await round(i % 3 === 0);
  await until(threads, (now) => now <= before.threads, `the ${before.threads} threads of before`);
  await until(() => descriptors(set.host), (now) => now <= before.descriptors + 2, `the ${before.descriptors} descriptors of before`);
});

test("the viewer's player by commands and keys", async (t) => {
  const app = await application(t);
  const player = (...words) => app.tv('player', ...words);
  const path = app.path('Films/colours.mkv');
  const playing = (good, what) => until(() => app.tv('player'), good, what);
  await player('play', path, '5');
  const shown = await playing(({ state, position }) => state === 'playing' && position >= 5, 'the film');
  assert.deepEqual([shown.application, shown.path, shown.chapters.map(({ title }) => title), shown.chapters.map(({ start }) => start)], [false, path, film.chapters, [0, 10, 20]]);
  await seen('red');
  await app.tv('key', 'ENTER');
  await playing(({ state }) => state === 'paused', 'paused by ENTER');
  await app.tv('key', 'FF');
  await playing(({ position }) => position > 29, 'skipped to the end by FF');
  await app.tv('key', 'FR');
  await playing(({ position }) => position >= 14 && position <= 21, 'skipped back by FR');
  await app.tv('key', 'ENTER');
  await playing(({ state }) => state === 'playing', 'resumed by ENTER');
  await player('seek', '50%');
  await playing(({ position }) => position >= 14 && position <= 20, 'the middle');
  await player('pause');
  await player('chapter', '3');
  await playing(({ position, chapter }) => position >= 19.5 && chapter === 3, 'the last chapter');
  await seen('blue');
  await player('seek', '-10');
  await playing(({ position }) => position >= 9 && position <= 11.5, 'ten seconds back');
  await player('audio', '2');
  await playing(({ tracks }) => tracks.some(({ kind, language, chosen }) => kind === 'audio' && language === 'fra' && chosen), 'the French sound');
  await player('speed', '2');
  await playing(({ speed }) => speed === 2, 'twice as fast');
  await player('pause');
  await player('chapter', '2');
  await playing(({ chapter }) => chapter === 2, 'the second chapter');
  await player('next');
  await playing(({ chapter, path: of }) => chapter === 3 && of === path, 'the next chapter');
  await player('next');
  const next = await playing(({ path: of, state }) => of !== path && state !== 'opening', 'the next film of the folder');
  assert.equal(next.path, app.path('Films/koi.mp4'));
  // The key as the set's command device has it.
  await app.tv('key', 'EXIT');
  await playing(({ state }) => state === 'none', 'the end by EXIT');
  for (const [words, says] of [[['play', '/etc/passwd'], /stick/], [['seek', '10'], /play/], [['play', app.path('Films/nothing.mkv')], /nothing\.mkv|found|no /]]) assert.match(await app.refuses('player', ...words), says);

  // A playlist is played file by file.
  const list = join(set.world, 'Films and music', 'Music', 'both.m3u');
  writeFileSync(list, 'Zebra.mp3\nBirne.flac\n');
  await app.tv('media', 'scan', app.path(''));
  await app.scanned(app.path('').replace(/\/$/, ''));
  await player('play', app.path('Music/both.m3u'));
  for (const name of ['Zebra.mp3', 'Birne.flac']) await playing(({ path: of }) => of === app.path(`Music/${name}`), name);
});

test('the requests of the player do not wait for each other', async (t) => {
  const app = await application(t);
  const player = await app.open('colours.mkv');
  playersEnd.push(player.handle);
  await app.call('set', { uri: volume, parameter: modify(31) });
  const asked = Promise.all(Array.from({ length: 200 }, (_, i) => app.call('set', { uri: uri('playback_operator'), parameter: { REQUEST: 'SET', handle: player.handle, operator: ['Play', 'Pause', 'timeSeek', 'FF'][i % 4], seek_time: i % 30 } })));
  assert.equal(valueOf(await app.call('get', { uri: volume })), 31);
  for (const { ret } of await asked) assert.ok(ret === 0 || ret === code.notReady, `${ret}`);
});

test('every URI of the player has been used', (t) => set.everyUriIsUsed(t, /^\/tv\/cbrowser\/playback_/));

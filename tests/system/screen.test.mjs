// The screen: GET /screen.jpg, and "dtvctl tv screen FILE".
import assert from 'node:assert/strict';
import { execFile, execFileSync } from 'node:child_process';
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import { antenna } from './antenna_support.mjs';
import { build, connect, folder, request, sharedHost, sleep, startHost } from './host_support.mjs';

const host = sharedHost();
const path = '/screen.jpg';
const bearer = (token = host.token) => ({ authorization: `Bearer ${token}` });
const ask = (headers = bearer(), method = 'GET') => request(host, method, path, { headers });

function dtvctl(args, env = {}) {
  return new Promise((resolve) => {
    execFile(join(build, 'bin/dtvctl'), args, { env: { ...process.env, ...env } }, (failure, stdout, stderr) =>
      resolve({ code: failure ? failure.code : 0, stdout, stderr }),
    );
  });
}
const here = (args) => dtvctl(['--host', `127.0.0.1:${host.port}`, '--state', host.state, ...args]);

// The size in a JPEG's start of frame.
function sizeOf(jpeg) {
  assert.equal(jpeg.subarray(0, 2).toString('hex'), 'ffd8');
  assert.equal(jpeg.subarray(-2).toString('hex'), 'ffd9');
  const frame = jpeg.indexOf(Buffer.from([0xff, 0xc0]));
  return [jpeg.readUInt16BE(frame + 7), jpeg.readUInt16BE(frame + 5)];
}

test('the screen is a JPEG with a tag', async () => {
  const reply = await fetch(host.url + path, { headers: bearer() });
  assert.equal(reply.status, 200);
  assert.equal(reply.headers.get('content-type'), 'image/jpeg');
  assert.equal(reply.headers.get('cache-control'), 'no-store');
  assert.match(reply.headers.get('etag'), /^"\d+"$/);
  assert.deepEqual(sizeOf(Buffer.from(await reply.arrayBuffer())), [640, 360]);
});

test('a picture that has not changed is not sent again', async () => {
  const first = await ask();
  const again = await ask({ ...bearer(), 'if-none-match': first.headers.etag });
  assert.equal(again.status, 304);
  assert.equal(again.text, '');
  assert.equal(again.headers.etag, first.headers.etag);
  assert.equal((await ask({ ...bearer(), 'if-none-match': '"1"' })).status, 200);
});

test('HEAD answers without the picture, other methods are refused', async () => {
  const head = await ask(bearer(), 'HEAD');
  assert.equal(head.status, 200);
  assert.equal(head.text, '');
  assert.ok(Number(head.headers['content-length']) > 1000);
  for (const method of ['PUT', 'POST', 'DELETE']) {
    const { status, headers } = await ask(bearer(), method);
    assert.equal(status, 405, method);
    assert.equal(headers.allow, 'GET, HEAD');
  }
});

test('without the token the screen is refused, as control commands are', async () => {
  const last = host.token.endsWith('0') ? '1' : '0';
  for (const headers of [{}, bearer(''), bearer(host.token.slice(0, -1) + last), { authorization: host.token }]) {
    const { status, headers: told, json } = await ask(headers);
    assert.equal(status, 401);
    assert.equal(told['www-authenticate'], 'Bearer');
    assert.match(json.error, /token/);
  }
  // A token in the address is none: addresses are logged.
  assert.equal((await request(host, 'GET', `${path}?token=${host.token}`)).status, 401);
  const { status } = await ask({ ...bearer(), origin: 'http://evil.example' });
  assert.equal(status, 403);
});

test('the picture is served while a control command and a request hang', async (t) => {
  const client = await connect(t, host);
  await client.call('tv', { words: ['fault', 'a_vextvapi_volctrl_getVolume', '--delay', '10000'] });
  let answered = false;
  const slow = client.call('get', { uri: '/tv/cast/volume/volume' }).then(() => (answered = true));
  for (let i = 0; i < 50; ++i) assert.equal((await ask()).status, 200);
  assert.ok(!answered, 'the pictures came after the slow answer');
  await client.call('tv', { words: ['fault', '--clear'] });
  await slow;
});

test('dtvctl saves the picture, over an older file', async (t) => {
  const file = join(folder(t), 'a picture.jpg');
  writeFileSync(file, 'x'.repeat(100_000));
  const { code, stdout, stderr } = await here(['--json', 'tv', 'screen', file]);
  assert.equal(code, 0, stderr);
  const picture = readFileSync(file);
  assert.deepEqual(sizeOf(picture), [640, 360]);
  const reply = JSON.parse(stdout);
  assert.equal(reply.jpeg, picture.length);
  assert.equal(reply.picture, 'none');
  assert.equal(reply.reason, 'no_channel');
});

test('dtvctl says what the screen shows, and where it cannot save', async (t) => {
  const { code, stdout } = await here(['tv', 'screen']);
  assert.equal(code, 0);
  assert.match(stdout, /reason\s+no_channel/);
  const place = join(folder(t), 'folder');
  mkdirSync(place);
  for (const file of [place, join(place, 'missing/a.jpg')]) {
    const refused = await here(['tv', 'screen', file]);
    assert.equal(refused.code, 5, file);
    assert.match(refused.stderr, /cannot write .*: (Is a directory|No such file)/);
  }
});

test('dtvctl saves the picture of a set of its own', async (t) => {
  const place = folder(t);
  const file = join(place, 'own.jpg');
  const { code, stderr } = await dtvctl(['--local', '--state', join(place, 'state'), 'tv', 'screen', file]);
  assert.equal(code, 0, stderr);
  assert.deepEqual(sizeOf(readFileSync(file)), [640, 360]);
});

// A multiplex of two services that never stands still, one of them red.
function broadcast(place) {
  const file = join(place, 'multiplex.ts');
  const sources = ['testsrc2=size=352x288:rate=25', 'color=red:size=352x288:rate=25', 'sine=440'];
  const inputs = sources.flatMap((source) => ['-f', 'lavfi', '-i', source]);
  const services = ['-program', 'title=Tests:program_num=101:st=0:st=1', '-program', 'title=Red:program_num=102:st=2:st=3'];
  const streams = ['-map', '0', '-map', '2', '-map', '1', '-map', '2', '-c:v', 'mpeg2video', '-b:v', '700k', '-g', '12', '-c:a', 'mp2'];
  execFileSync('ffmpeg', ['-v', 'error', ...inputs, '-t', '20', ...streams, ...services, '-mpegts_flags', '+nit', '-muxrate', '2200k', file]);
}

// Asks until the answer is good; the limit is generous.
async function until(ask, good, what) {
  const end = Date.now() + 60_000;
  for (;;) {
    const answer = await ask();
    if (good(answer)) return answer;
    assert.ok(Date.now() < end, `${what}: ${JSON.stringify(answer)}`);
    await sleep(50);
  }
}

// Scans the antenna; the channels found.
async function scanned(tv) {
  await tv('scan', 'update');
  await until(() => tv('scan'), ({ state }) => state !== 'running', 'the end of the scan');
  return (await tv('channels')).channels;
}

test('the picture of a channel moves, and follows the channel', async (t) => {
  const antenna = folder(t);
  broadcast(antenna);
  const set = await startHost(t, ['--antenna', antenna]);
  const client = await connect(t, set);
  const tv = (...words) => client.call('tv', { words });
  const numbers = Object.fromEntries((await scanned(tv)).map(({ name, number }) => [name, number]));
  const screen = () => tv('screen');
  const frames = async (count) => {
    const tags = new Set();
    await until(
      async () => tags.add((await request(set, 'GET', path, { headers: bearer(set.token) })).headers.etag).size,
      (size) => size >= count,
      'frames',
    );
  };

  await tv('tune', String(numbers.Tests));
  const shown = await until(screen, ({ shown }) => shown, 'a picture');
  assert.equal(shown.picture, 'channel');
  assert.equal(shown.reason, undefined);
  assert.deepEqual([shown.banner.number, shown.banner.name], [numbers.Tests, 'Tests']);
  await frames(5);

  await tv('tune', String(numbers.Red));
  await until(screen, ({ banner }) => banner?.name === 'Red', 'the other banner');
  await until(screen, ({ banner }) => !banner, 'the end of the banner');
  await tv('key', 'INFO');
  assert.equal((await screen()).banner.name, 'Red');
  const file = join(folder(t), 'red.jpg');
  const saved = await dtvctl(['--host', `127.0.0.1:${set.port}`, '--state', set.state, '--json', 'tv', 'screen', file]);
  assert.equal(saved.code, 0, saved.stderr);
  assert.equal(JSON.parse(saved.stdout).shown, true);
  const pixel = execFileSync('ffmpeg', ['-v', 'error', '-i', file, '-vf', 'format=rgb24,crop=1:1:320:180', '-f', 'rawvideo', '-pix_fmt', 'rgb24', '-']);
  assert.ok(pixel[0] > 200 && pixel[1] < 60 && pixel[2] < 60, `colour ${[...pixel]}`);

  await tv('power', 'standby');
  assert.deepEqual([(await screen()).picture, (await screen()).reason], ['none', 'standby']);
  await until(screen, ({ shown }) => !shown, 'the empty frame');
  assert.equal((await set.stop()).code, 0);
});

// The red, green and blue of each pixel of the set's newest frame.
async function pixels(set, t) {
  const file = join(folder(t), 'frame.jpg');
  const reply = await fetch(set.url + path, { headers: bearer(set.token) });
  writeFileSync(file, Buffer.from(await reply.arrayBuffer()));
  return execFileSync('ffmpeg', ['-v', 'error', '-i', file, '-f', 'rawvideo', '-pix_fmt', 'rgb24', '-'], { maxBuffer: 1e6 });
}

test('the chosen sound is played, and the chosen subtitles are drawn', async (t) => {
  const set = await startHost(t, ['--antenna', antenna()]);
  const client = await connect(t, set);
  const tv = (words) => client.call('tv', { words: words.split(' ') });
  await scanned((...words) => tv(words.join(' ')));
  const screen = () => tv('screen');
  const plays = (kind, language) => until(screen, (now) => now[kind]?.language === language, `${kind} ${language}`);

  await tv('tune 2'); // in French and English; a new set prefers English
  const first = await plays('sound', 'eng');
  // The generator's pictures have square pixels.
  const { video } = await until(screen, (now) => now.video?.aspect, 'the shape of the picture');
  assert.deepEqual([video.width, video.height, Math.round(video.aspect * 100)], [352, 288, 122]);
  const { audio } = await tv('tuner');
  assert.deepEqual(audio.map(({ language, chosen }) => [language, chosen]), [['fra', false], ['eng', true]]);
  await tv('tuner audio 1');
  const second = await plays('sound', 'fra');
  assert.notEqual(second.sound.pid, first.sound.pid);
  await tv('key MTS/AUDIO');
  assert.equal((await plays('sound', 'eng')).sound.pid, first.sound.pid);

  // The subtitles alone are yellow.
  const yellow = async () => {
    const frame = await pixels(set, t);
    let count = 0;
    for (let at = 0; at < frame.length; at += 3) if (frame[at] > 180 && frame[at + 1] > 180 && frame[at + 2] < 90) ++count;
    return count;
  };
  await tv('tune 5');
  await plays('subtitles', 'ell');
  await until(yellow, (count) => count > 100, 'subtitles in the picture');
  await tv('tuner subtitle off');
  await until(screen, ({ shown, subtitles }) => shown && !subtitles, 'the end of the subtitles');
  await until(yellow, (count) => count === 0, 'a picture without subtitles');
  await tv('tuner subtitle 1');
  await plays('subtitles', 'ell');
  await until(yellow, (count) => count > 100, 'subtitles again');
  assert.equal((await set.stop()).code, 0);
});

test('the volume is shown after its change, not at the first look', async (t) => {
  const state = folder(t);
  const run = async (then) => {
    const set = await startHost(t, [], { state });
    const client = await connect(t, set);
    await then((words) => client.call('tv', { words: words.split(' ') }));
    assert.equal((await set.stop()).code, 0);
  };
  await run(async (tv) => {
    await tv('volume 33');
    assert.equal((await tv('screen')).volume, 33);
  });
  await run(async (tv) => assert.equal((await tv('screen')).volume, undefined));
});

// Two pictures from end to end: modes, regions, sources, which one is heard.
import assert from 'node:assert/strict';
import { afterEach, test } from 'node:test';
import { byNumber, television, until } from './antenna_support.mjs';
import { connect } from './host_support.mjs';

const uri = (name) => `/tv/multiview/${name}`;
const set = television(['MULTIVIEW']);
const screen = { x: 0, y: 0, width: 1920, height: 1080 };
const region = ({ x, y, width, height }) => ({ MVIEW_REGION_X: x, MVIEW_REGION_Y: y, MVIEW_REGION_W: width, MVIEW_REGION_H: height });
const mode = (client, value) => client.set(uri('set_tv_mode'), { VALUE: value }, 'MODIFY');

afterEach(async () => {
  const cleanups = [];
  const client = await connect({ after: (cleanup) => cleanups.push(cleanup) }, set.host);
  await client.call('tv', { words: ['multiview', 'normal'] });
  await client.call('tv', { words: ['tune', '1'] });
  for (const cleanup of cleanups) cleanup();
});

const overlap = (a, b) => a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height && b.y < a.y + a.height;
const inside = (a, b) => a.x >= b.x && a.y >= b.y && a.x + a.width <= b.x + b.width && a.y + a.height <= b.y + b.height;

test('the modes lay the pictures out', async (t) => {
  const client = await set.client(t);
  await client.tv('tune 1');
  await mode(client, 1); // a small picture in a corner of the other
  const small = await client.tv('multiview');
  assert.equal(small.mode, 'pip');
  assert.deepEqual(small.main.region, screen);
  assert.ok(inside(small.sub.region, screen) && small.sub.region.width < 960);
  await mode(client, 2); // side by side
  const beside = await client.tv('multiview');
  assert.equal(beside.mode, 'pop');
  assert.ok(!overlap(beside.main.region, beside.sub.region));
  assert.ok(inside(beside.main.region, screen) && inside(beside.sub.region, screen));
  await mode(client, 0); // the main picture alone
  const alone = await client.tv('multiview');
  assert.equal(alone.mode, 'normal');
  assert.deepEqual(alone.main.region, screen);
  assert.ok(!alone.sub?.shown);
  assert.equal((await client.ask('set', { uri: uri('set_tv_mode'), parameter: { REQUEST: 'MODIFY', VALUE: 7 } })).result.ret, -1);
  assert.equal((await client.tv('multiview')).mode, 'normal');
});

test('each picture is started in a region, with a source by its number', async (t) => {
  const client = await set.client(t);
  const left = { x: 0, y: 270, width: 960, height: 540 };
  const right = { x: 960, y: 270, width: 960, height: 540 };
  await client.set(uri('start_main_video'), { MVIEW_VALUE: 0, ...region(left) });
  await client.set(uri('start_sub_video'), { MVIEW_VALUE: 2 + 256, ...region(right) }); // of the number, the low 8 bits count
  const both = await client.tv('multiview');
  assert.deepEqual([both.main.source, both.main.region], ['TV', left]);
  assert.deepEqual([both.sub.source, both.sub.region], ['HDMI 1', right]);
  await client.set(uri('stop_sub_video'), {}, 'ACTION');
  assert.ok(!(await client.tv('multiview')).sub?.shown);
  await client.set(uri('stop_main_video'), {}, 'ACTION');
  assert.ok(!(await client.tv('multiview')).main.shown);
});

test('a picture is moved to a region of the screen', async (t) => {
  const client = await set.client(t);
  await mode(client, 1);
  const places = [
    [0, 'main', { x: 100, y: 50, width: 1280, height: 720 }],
    [1, 'sub', { x: 1400, y: 800, width: 480, height: 270 }],
  ];
  for (const [value, picture, place] of places) {
    await client.set(uri('display_region'), { MVIEW_VALUE: value, ...region(place) });
    assert.deepEqual((await client.tv('multiview'))[picture].region, place);
  }
  // A region beyond the screen is not taken.
  await client.set(uri('display_region'), { MVIEW_VALUE: 1, ...region({ x: 4_000_000_000, y: 0, width: 480, height: 270 }) });
  await client.set(uri('display_region'), { MVIEW_VALUE: 257, ...region(screen) });
  assert.deepEqual((await client.tv('multiview')).sub.region, places[1][2]);
});

test('the picture that is heard is the one whose source changes', async (t) => {
  const client = await set.client(t);
  const focus = async (text) => client.set(uri('audio_focus'), { VALUE: text }, 'MODIFY');
  const change = (value) => client.set(uri('set_change_source'), { VALUE: value }, 'MODIFY');
  await client.tv('tune 1');
  await mode(client, 2);
  await focus('sub');
  assert.equal((await client.tv('multiview')).focus, 'sub');
  await change(3);
  const heard = await client.tv('multiview');
  assert.deepEqual([heard.main.source, heard.main.channel, heard.sub.source], ['TV', byNumber(1).number, 'HDMI 2']);
  await focus('main');
  await change(2);
  const main = await client.tv('multiview');
  assert.deepEqual([main.focus, main.main.source, main.sub.source], ['main', 'HDMI 1', 'HDMI 2']);
  assert.equal((await client.ask('set', { uri: uri('set_change_source'), parameter: { REQUEST: 'MODIFY', VALUE: 200 } })).result.ret, -1);
});

test('two channels of different multiplexes are shown at once', async (t) => {
  const client = await set.client(t);
  await client.tv('tune 1');
  await mode(client, 2);
  await client.tv('multiview channel 30');
  const { main, sub } = await client.tv('multiview');
  assert.deepEqual([main.channel, sub.channel], [1, 30]);
  const received = ({ tuners }) => tuners.map(({ file }) => file ?? 'none').sort().join(' ');
  await until(() => client.tv('antenna'), (answer) => received(answer) === 'air-506.ts satellite-11494.ts', 'the reception of both multiplexes');
});

test('both pictures are drawn, each with its own reason when it is not', async (t) => {
  const client = await set.client(t);
  const screen = () => client.tv('screen');
  await client.tv('tune 1');
  await mode(client, 1);
  await client.tv('multiview channel 30');
  const both = await until(screen, ({ shown, second }) => shown && second?.shown, 'both pictures');
  assert.deepEqual([both.second.channel, both.second.name, both.focus], [30, byNumber(30).name, 'main']);
  assert.deepEqual(both.second.region, (await client.tv('multiview')).sub.region);
  await client.set(uri('audio_focus'), { VALUE: 'sub' }, 'MODIFY');
  await until(screen, ({ focus, sound }) => focus === 'sub' && sound?.language === 'eng', 'the sound of the second picture');
  await client.tv('multiview focus main');
  await until(screen, ({ sound }) => sound?.language === 'deu', 'the sound of the main picture');
  await client.tv('multiview channel 12'); // scrambled
  const scrambled = await until(screen, ({ second }) => second?.reason === 'scrambled', 'the reason');
  assert.deepEqual([scrambled.shown, scrambled.second.shown], [true, false]);
  await client.tv('multiview channel 30');
  await client.tv('channel 1 block');
  await until(screen, ({ reason, second }) => reason === 'blocked_channel' && second?.shown, 'the second picture alone');
  await client.tv('channel 1 unblock');
  await until(screen, ({ shown }) => shown, 'the main picture again');
});

set.everyUriIsUsed();

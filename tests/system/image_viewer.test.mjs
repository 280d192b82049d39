// The image viewer from end to end: what an application opens, turns and zooms is what the screen shows; slide shows.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { afterEach, before, test } from 'node:test';
import { until, viewer } from './antenna_support.mjs';
import { copyInto, frame, madeMedia, quadrants, shownColour, television, uri } from './media_support.mjs';

const unknown = -3;
const badArgument = -2;
// The television's numbers: rotations in degrees clockwise, zooms in percent.
const effect = 1;

const set = television();
before(() => {
  const album = join(set.world, 'Album');
  copyInto(join(madeMedia(), 'Photos'), album);
  writeFileSync(join(album, 'text.jpg'), 'no picture');
});

afterEach(async () => {
  const cleanups = [];
  const client = await viewer({ after: (cleanup) => cleanups.push(cleanup) }, set.host);
  for (const name of ['image_close', 'image_res_deinit']) await client.call('set', { uri: uri(name), parameter: { REQUEST: 'ACTION' } });
  await client.call('tv', { words: ['photo', 'close'] }).catch(() => {});
  for (const cleanup of cleanups) cleanup();
});

async function application(t) {
  const client = await set.client(t);
  const stick = await client.stick('Album');
  const status = async (name, parameter) => (await client.call('set', { uri: uri(name), parameter })).ret;
  return {
    ...client,
    path: (name) => join(stick, name),
    action: (name) => client.set(uri(name), {}, 'ACTION'),
    actionStatus: (name) => status(name, { REQUEST: 'ACTION' }),
    open: (name) => client.set(uri('image_open'), { path: join(stick, name) }),
    openStatus: (path) => status('image_open', { REQUEST: 'SET', path }),
    act: (operator, more) => client.set(uri('image_operator'), { operator, ...more }),
    actStatus: (operator, more) => status('image_operator', { REQUEST: 'SET', operator, ...more }),
  };
}

// The colours of the four quarters of the picture on the screen, row by row.
const quarters = [[250, 90], [390, 90], [250, 270], [390, 270]];
async function shown() {
  const picture = await frame(set.host);
  return quarters.map(([x, y]) => shownColour(picture.at(x, y)));
}
const shows = (wanted, what) => until(shown, (now) => now.join() === wanted.join(), `${what}: ${wanted}`);
const colourAt = (wanted, x, y) => until(async () => shownColour((await frame(set.host)).at(x, y)), (now) => now === wanted, `${wanted} at ${x}, ${y}`);

const [[red, lime], [blue, white]] = quadrants;
// How EXIF's orientations show the stored rows [red, lime], [blue, white].
const upright = [red, lime, blue, white];
const orientations = {
  1: upright,
  2: [lime, red, white, blue],
  3: [white, blue, lime, red],
  4: [blue, white, red, lime],
  5: [red, blue, lime, white],
  6: [blue, red, white, lime],
  7: [white, lime, blue, red],
  8: [lime, white, red, blue],
};
const turned = { 0: upright, 90: orientations[6], 180: orientations[3], 270: orientations[8] };

test('a picture is opened, displayed, and closed', async (t) => {
  const app = await application(t);
  await app.action('image_res_init');
  await app.open('quadrants.png');
  assert.notEqual((await app.tv('photo')).state, 'shown');
  await app.act('Display');
  await shows(upright, 'the picture');
  await colourAt('black', 40, 180); // beside a picture of 4:3
  const { state, path, width, height, rotation, application: owned } = await app.tv('photo');
  assert.deepEqual([state, path, width, height, rotation, owned], ['shown', app.path('quadrants.png'), 400, 300, 0, true]);
  assert.equal((await app.tv('screen')).picture, 'photo');
  await app.action('image_close');
  assert.notEqual((await app.tv('screen')).picture, 'photo');
  await app.open('quadrants.jpg');
  await app.act('display');
  await shows(upright, 'the next picture');
  await app.action('image_res_deinit');
  await until(() => app.tv('screen'), ({ picture }) => picture !== 'photo', 'the end of the picture');
});

test('pictures are turned by their EXIF orientations', async (t) => {
  const app = await application(t);
  await app.action('image_res_init');
  for (const [orientation, wanted] of Object.entries(orientations)) {
    await app.open(`turned ${orientation}.jpg`);
    await app.act('Display');
    await shows(wanted, `orientation ${orientation}`);
    assert.equal((await app.tv('photo')).orientation, Number(orientation));
  }
});

test('a picture is turned and zoomed', async (t) => {
  const app = await application(t);
  await app.action('image_res_init');
  await app.open('quadrants.jpg');
  await app.act('Display');
  for (const [degrees, wanted] of Object.entries(turned)) {
    await app.act('Rotate', { rotate: Number(degrees) });
    await shows(wanted, `${degrees} degrees`);
    assert.equal((await app.tv('photo')).rotation, Number(degrees));
  }
  await app.act('Rotate', { rotate: 0 });
  for (const wrong of [45, -1, 1000, 2 ** 31 - 1]) assert.notEqual(await app.actStatus('Rotate', { rotate: wrong }), 0, `${wrong} degrees`);
  await shows(upright, 'as it was');

  // Only the lower 16 bits of a zoom count.
  for (const [operator, zoom] of [['Zoom', 200], ['zoom', 100], ['ZOOM', 65536 + 200]]) {
    await app.act(operator, { zoom });
    const percent = zoom % 65536;
    await colourAt(percent === 200 ? red : 'black', 20, 20);
    assert.equal((await app.tv('photo')).zoom, percent);
  }
  await app.tv('photo', 'pan', '100', '100'); // to the lower right end
  await colourAt(white, 320, 180);
  await app.act('Zoom', { zoom: 100 });
  await shows(upright, 'the whole picture');
  for (const wrong of [0, 65537, -1]) assert.notEqual(await app.actStatus('Zoom', { zoom: wrong }), 0, `zoom ${wrong}`);
});

test('operators are known by their names in any case, and effects run; others are refused', async (t) => {
  const app = await application(t);
  await app.action('image_res_init');
  await app.open('quadrants.jpg');
  for (const name of ['display', 'DISPLAY', 'DisPlay']) await app.act(name);
  await app.act('Tfx_Effect_Play', { effect });
  await app.act('tfx_effect_stop');
  await shows(upright, 'the picture after the effect');
  for (const name of ['flip', '', 'Display ', 'x'.repeat(300)]) assert.equal(await app.actStatus(name), unknown, name);
  assert.equal((await app.call('set', { uri: uri('image_operator'), parameter: { REQUEST: 'SET' } })).ret, unknown);
  assert.notEqual(await app.actStatus('Tfx_Effect_Play', { effect: 99999 }), 0);
});

test('calls in the wrong order and files that are no pictures are refused', async (t) => {
  const app = await application(t);
  const picture = app.path('quadrants.jpg');
  assert.notEqual(await app.openStatus(picture), 0, 'before the resources');
  assert.notEqual(await app.actStatus('Display'), 0, 'nothing is open');
  await app.action('image_res_init');
  assert.notEqual(await app.actStatus('Display'), 0, 'nothing is open');
  assert.notEqual(await app.actStatus('Rotate', { rotate: 90 }), 0);
  assert.equal(await app.openStatus(''), badArgument);
  for (const path of [app.path('nothing.jpg'), app.path(''), '/etc/passwd', app.path('../../../../../etc/passwd'), '/nowhere/a.jpg']) assert.notEqual(await app.openStatus(path), 0, path);
  // It opens, is not decoded, and is closed again: the close's result.
  assert.equal(await app.openStatus(app.path('text.jpg')), 0);
  assert.notEqual(await app.actStatus('Display'), 0, 'it is closed');
  await app.open('quadrants.jpg');
  await app.act('Display');
  await shows(upright, 'a picture after all');
});

test('thumbnails', async (t) => {
  const app = await application(t);
  const ask = (path, width, height) => app.get(uri('image_get_thumbnail_path'), { REQUEST: 'QUERY', path, width, height });
  for (const [name, width, height, wanted, colours] of [
    ['quadrants.jpg', 120, 120, [120, 90], upright],
    ['turned 6.jpg', 120, 120, [90, 120], orientations[6]],
    ['quadrants.png', 160, 90, [120, 90], upright],
    ['snap 1.jpg', 1, 1, [1, 1], undefined],
  ]) {
    const item = await app.item(uri('image_get_thumbnail_path'), { path: app.path(name), width, height });
    assert.equal(item.NAME, 'Content Browser Image');
    const size = execFileSync('ffprobe', ['-v', 'error', '-show_entries', 'stream=width,height', '-of', 'csv=p=0', item.thumbnailPath], { encoding: 'utf8' }).trim().split(',').map(Number);
    assert.deepEqual(size, wanted, name);
    if (!colours) continue;
    const pixels = execFileSync('ffmpeg', ['-v', 'error', '-i', item.thumbnailPath, '-f', 'rawvideo', '-pix_fmt', 'rgb24', '-']);
    const found = [[0.25, 0.25], [0.75, 0.25], [0.25, 0.75], [0.75, 0.75]].map(([x, y]) => 3 * (Math.floor(y * size[1]) * size[0] + Math.floor(x * size[0]))).map((at) => shownColour([...pixels.subarray(at, at + 3)]));
    assert.deepEqual(found, colours, name);
  }
  for (const [path, width, height] of [['', 10, 10], [app.path('quadrants.jpg'), 0, 10], [app.path('quadrants.jpg'), 10, 0], [app.path('quadrants.jpg'), -5, 10], [app.path('quadrants.jpg')]])
    assert.equal((await ask(path, width, height)).ret, badArgument, `${path} ${width} ${height}`);
  for (const path of [app.path('nothing.jpg'), app.path('text.jpg'), '/etc/passwd']) assert.notEqual((await ask(path, 10, 10)).ret, 0, path);

  // By command: the reply does not wait for thumbnails that have not been made yet.
  const paths = Array.from({ length: 20 }, (_, i) => app.path(`snap ${i + 1}.jpg`));
  const { thumbnails } = await until(() => app.tv('media', 'thumbnails', ...paths, app.path('text.jpg')), ({ thumbnails: all }) => all.every(({ pending }) => !pending), 'the thumbnails');
  assert.deepEqual(thumbnails.map(({ path }) => path), [...paths, app.path('text.jpg')]);
  for (const { path, jpeg } of thumbnails.slice(0, 20)) assert.ok(Buffer.from(jpeg, 'base64').subarray(0, 3).equals(Buffer.from([0xff, 0xd8, 0xff])), path);
  assert.ok(thumbnails[20].none.length > 5);
  assert.match(await app.refuses('media', 'thumbnails', ...Array(25).fill(paths[0])), /24|many/);
});

test('the viewer and a slide show step through the photos of a folder', async (t) => {
  const app = await application(t);
  const photo = (...words) => app.tv('photo', ...words);
  const at = (name, what) => until(() => app.tv('photo'), ({ state, path }) => state === 'shown' && path === app.path(name), `${name} ${what ?? ''}`);
  await photo('show', app.path('quadrants.jpg'));
  const { index, of, application: owned } = await at('quadrants.jpg');
  assert.deepEqual([of, owned], [30, false]);
  await shows(upright, 'the photo');
  await photo('next');
  assert.equal((await at('quadrants.png')).index, index + 1);
  await photo('previous');
  await at('quadrants.jpg');
  await photo('rotate');
  await shows(turned[90], 'turned');
  await app.tv('key', 'NEXT');
  await at('quadrants.png', 'by NEXT');
  await shows(upright, 'the next one is not turned');
  await app.tv('key', 'PREV');
  await at('quadrants.jpg', 'by PREV');
  await photo('close');
  assert.deepEqual((await app.tv('photo')).state, 'none');

  await photo('show', app.path('turned 1.jpg'));
  assert.equal((await photo('slideshow', 'on', '2')).slide_show, true);
  await at('turned 2.jpg', 'in the slide show');
  await at('turned 3.jpg', 'in the slide show');
  assert.equal((await photo('slideshow', 'off')).slide_show, false);
  const { path } = await photo();
  await app.tv('key', 'ENTER');
  assert.equal((await photo()).slide_show, true);
  await app.tv('key', 'ENTER');
  assert.equal((await photo()).slide_show, false);
  assert.ok([path, app.path('turned 4.jpg')].includes((await photo()).path));
  await app.tv('key', 'EXIT');
  assert.equal((await photo()).state, 'none');
  for (const [words, says] of [[['show', '/etc/passwd'], /stick/], [['next'], /photo|picture/], [['show', app.path('text.jpg')], /text\.jpg|picture|photo/]]) assert.match(await app.refuses('photo', ...words), says);
});

test('removing a stick ends the display of its picture', async (t) => {
  const app = await application(t);
  await app.tv('photo', 'show', app.path('quadrants.jpg'));
  await shows(upright, 'the photo');
  await app.remove('Album');
  await until(() => app.tv('photo'), ({ state }) => state === 'none', 'no photo');
  assert.notEqual((await app.tv('screen')).picture, 'photo');
});

test('every URI of the image viewer has been used', (t) => set.everyUriIsUsed(t, /^\/tv\/cbrowser\/image_/));

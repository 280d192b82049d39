// The home network from end to end, with a media server as people use it. Server, host and dtvctl run in a network
// namespace of the test, on its loopback, so nothing on the machine's network takes part.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { existsSync, mkdirSync, readFileSync, statSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import { dtvctl, run, start } from './cli_support.mjs';
import { folder, sleep, volume } from './host_support.mjs';
import { hostInNamespace, missingNamespace } from './namespace_support.mjs';

const serverProgram = '/usr/sbin/minidlnad';
const waitSeconds = 3; // for a server that does not answer
const loopback = ['ip link set lo up'];
const skip = existsSync(serverProgram) ? missingNamespace(loopback) : 'this needs the package minidlna';

function ffmpeg(...words) {
  const { status, stderr } = spawnSync('ffmpeg', ['-v', 'error', '-y', ...words], { encoding: 'utf8' });
  assert.equal(status, 0, stderr);
}

// What ffprobe says of a file: its duration in s, width and height.
function probed(file) {
  const { stdout } = spawnSync('ffprobe', ['-v', 'error', '-of', 'json', '-show_format', '-show_streams', file], { encoding: 'utf8' });
  const { format, streams } = JSON.parse(stdout);
  const video = streams.find((stream) => stream.codec_type === 'video');
  return { duration: Number(format.duration), width: video?.width, height: video?.height };
}

function makeMedia(place) {
  mkdirSync(place);
  const files = { song: join(place, 'song.mp3'), clip: join(place, 'clip.mp4'), photo: join(place, 'photo.jpg') };
  const tags = ['-metadata', 'title=Quiet Evening', '-metadata', 'artist=The Four', '-metadata', 'album=Walks'];
  ffmpeg('-f', 'lavfi', '-i', 'sine=440:duration=7', ...tags, files.song);
  ffmpeg('-f', 'lavfi', '-i', 'testsrc=320x240:rate=25:duration=9', '-f', 'lavfi', '-i', 'sine=440:duration=9', '-shortest', '-pix_fmt', 'yuv420p', files.clip);
  ffmpeg('-f', 'lavfi', '-i', 'testsrc=640x480', '-frames:v', '1', files.photo);
  return files;
}

async function home(t) {
  const place = folder(t);
  const files = makeMedia(join(place, 'media'));
  const { inside, env, address } = await hostInNamespace(t, loopback, { args: ['--home-network', 'lo'], state: join(place, 'state') });
  const tv = async (...words) => {
    const { code, stdout, stderr } = await run(...inside(dtvctl, ['--json', 'tv', ...words]), { env });
    return code === 0 ? JSON.parse(stdout) : { error: stderr };
  };
  const settings = join(place, 'server.conf');
  writeFileSync(settings, `network_interface=lo\nport=8200\nfriendly_name=Attic\nmedia_dir=${join(place, 'media')}\ndb_dir=${join(place, 'db')}\n` + `log_dir=${place}\nroot_container=B\ninotify=no\nwide_links=no\n`);
  const server = start(...inside(serverProgram, ['-S', '-R', '-f', settings, '-P', join(place, 'server.pid')]));
  t.after(() => server.stop('SIGKILL'));
  return { tv, files, env, inside, server, address, place, serverLog: () => readFileSync(join(place, 'minidlna.log'), 'utf8') };
}

// Asks until the answer fits. The limit is generous.
async function until(ask, fits, what) {
  let answer;
  for (const end = Date.now() + 60000; Date.now() < end; await sleep(100)) {
    answer = await ask();
    if (fits(answer)) return answer;
  }
  assert.fail(`${what}; the last answer: ${JSON.stringify(answer)}`);
}

const found = (tv) => until(() => tv('servers'), ({ servers }) => servers?.some((each) => each.online), 'no server was found').then(({ servers }) => servers.find((each) => each.online));

// All files below the root, by their names.
async function listed(tv, server) {
  const entries = {};
  const waiting = [0];
  while (waiting.length) {
    const page = await tv('servers', 'list', String(server), String(waiting.shift()));
    assert.ok(page.entries, JSON.stringify(page));
    for (const entry of page.entries) entry.kind === 'folder' ? waiting.push(entry.object) : (entries[entry.name] = entry);
  }
  return entries;
}

test('a media server is found, and its files are listed as they are', { skip }, async (t) => {
  const { tv, files } = await home(t);
  assert.deepEqual(await tv('servers'), { searching: false, servers: [] });
  assert.equal((await tv('servers', 'search', 'on')).searching, true);
  const server = await found(tv);
  assert.equal(server.name, 'Attic');
  assert.equal(server.address, '127.0.0.1');
  const entries = await until(() => listed(tv, server.id), (all) => Object.keys(all).length === 3, 'not all files are listed');

  const song = entries['Quiet Evening'];
  assert.deepEqual([song.kind, song.artist, song.album, song.size], ['music', 'The Four', 'Walks', statSync(files.song).size]);
  assert.equal(song.duration, Math.trunc(probed(files.song).duration));
  const facts = probed(files.clip);
  assert.deepEqual([entries.clip.kind, entries.clip.width, entries.clip.height], ['video', facts.width, facts.height]);
  assert.equal(entries.clip.duration, Math.trunc(facts.duration));
  const picture = probed(files.photo);
  assert.deepEqual([entries.photo.kind, entries.photo.width, entries.photo.height], ['photo', picture.width, picture.height]);

  const matches = await tv('servers', 'search_for', String(server.id), 'Evening');
  assert.deepEqual(matches.entries.map(({ name }) => name), ['Quiet Evening']);

  await tv('servers', 'download', String(server.id), String(entries.photo.object));
  const done = await until(() => tv('servers', 'download', String(server.id), String(entries.photo.object), 'show'), ({ state }) => state !== 'running', 'the download does not end');
  assert.equal(done.state, 'done');
  assert.deepEqual(readFileSync(done.path), readFileSync(files.photo));
});

test('a film of a media server is played', { skip }, async (t) => {
  const { tv, files } = await home(t);
  await tv('servers', 'search', 'on');
  const server = await found(tv);
  const { clip } = await until(() => listed(tv, server.id), (all) => 'clip' in all, 'the film is not listed');
  const started = await tv('servers', 'play', String(server.id), String(clip.object));
  assert.equal(started.error, undefined);
  const player = await until(() => tv('player'), ({ state, position }) => state === 'playing' && position > 0, 'the film is not played');
  assert.ok(Math.abs(player.duration - probed(files.clip).duration) < 0.5, `${player.duration}`);
});

// The times of so many requests one after the other, sorted, in ms.
const probe = `
  const [address, uri, count] = process.argv.slice(1);
  const times = [];
  for (let i = 0; i < Number(count); ++i) {
    const begin = performance.now();
    const answer = await fetch('http://' + address + uri);
    await answer.text();
    if (answer.status !== 200) throw new Error('status ' + answer.status);
    times.push(performance.now() - begin);
  }
  console.log(JSON.stringify(times.sort((a, b) => a - b)));
`;

async function volumeTimes({ inside, address }, count) {
  const { code, stdout, stderr } = await run(...inside(process.execPath, ['--input-type=module', '-e', probe, '--', address, volume, String(count)]));
  assert.equal(code, 0, stderr);
  return JSON.parse(stdout);
}

test('a media server that hangs, and one that ends, delay nobody', { skip }, async (t) => {
  const set = await home(t);
  const { tv, server: process_ } = set;
  await tv('servers', 'search', 'on');
  const server = await found(tv);
  await until(() => listed(tv, server.id), (all) => Object.keys(all).length === 3, 'not all files are listed');

  process_.child.kill('SIGSTOP');
  const begin = Date.now();
  const [answer, times] = await Promise.all([tv('servers', 'list', String(server.id)), volumeTimes(set, 500)]);
  const seconds = (Date.now() - begin) / 1000;
  assert.match(answer.error, /did not answer in time/);
  assert.ok(seconds >= waitSeconds && seconds < 10 * waitSeconds, `${seconds} s`);
  const slow = times[Math.floor(times.length * 0.99)];
  t.diagnostic(`volume while the server hangs: p50 ${times[250].toFixed(2)} ms, p99 ${slow.toFixed(2)} ms`);
  assert.ok(slow < 500, `p99 ${slow} ms`);

  process_.child.kill('SIGCONT');
  await until(() => tv('servers', 'list', String(server.id)), ({ total }) => total >= 1, 'the server does not answer again');
  await process_.stop('SIGTERM');
  await until(() => tv('servers'), ({ servers }) => !servers[0].online, 'the end of the server was not noticed');
  assert.match((await tv('servers', 'list', String(server.id))).error, /is off/);
});

test('a server sorts its list as requested', { skip }, async (t) => {
  const { tv } = await home(t);
  await tv('servers', 'search', 'on');
  const { id } = await found(tv);
  await until(() => listed(tv, id), (all) => Object.keys(all).length === 3, 'not all files are listed');
  // The folder that has all three files.
  const parentOf = async (folder) => {
    const { entries } = await tv('servers', 'list', String(id), String(folder));
    if (entries.length === 3 && entries.every(({ kind }) => kind !== 'folder')) return folder;
    for (const { kind, object } of entries) {
      const inner = kind === 'folder' ? await parentOf(object) : undefined;
      if (inner !== undefined) return inner;
    }
    return undefined;
  };
  const parent = await parentOf(0);
  const names = async (order) => {
    const page = await tv('servers', 'list', String(id), String(parent), '0', '10', order);
    assert.ok(page.entries, JSON.stringify(page));
    return page.entries.map(({ name }) => name);
  };
  const rising = await names('title');
  assert.deepEqual([...rising].sort((a, b) => a.toLowerCase().localeCompare(b.toLowerCase())), rising);
  assert.deepEqual(await names('title_down'), [...rising].reverse());
  assert.match((await tv('servers', 'list', String(id), String(parent), '0', '10', 'colour')).error, /title, date, artist, album or size/);
});

// An application's request waits for the server, and all requests to the plugin wait for it: a key ends that.
test('a key ends a request that waits for a server', { skip }, async (t) => {
  const { tv, inside, env, server: process_ } = await home(t);
  const get = async (uri, ...words) => {
    const { stdout } = await run(...inside(dtvctl, ['--json', 'get', `/tv/cbrowser/dlna/${uri}`, ...words]), { env });
    return JSON.parse(stdout);
  };
  await tv('servers', 'search', 'on');
  const { id } = await found(tv);
  await until(() => listed(tv, id), (all) => Object.keys(all).length === 3, 'not all files are listed');
  assert.equal((await get('dmp_get_real_dev_id', `devId=${id}`)).ret, 0);
  const root = await get('dmp_create_instance', `devId=${id}`, 'objId=0');
  assert.equal(root.ret, 0, JSON.stringify(root));
  const { instance } = root.response.ITEMS[0];
  const list = () => get('dmp_get_dir_list', `instance=${instance}`, 'startIdx=0', 'requestNum=20');
  assert.ok((await list()).response.ITEMS.length > 0);

  process_.child.kill('SIGSTOP');
  const waits = list();
  const begin = Date.now();
  // The request has no other sign of life than that it has not been answered.
  let answer;
  waits.then((value) => (answer = value));
  while (!answer && Date.now() < begin + 10 * waitSeconds * 1000) {
    await tv('key', 'EXIT');
    await sleep(50);
  }
  const seconds = (Date.now() - begin) / 1000;
  process_.child.kill('SIGCONT');
  t.diagnostic(`the request ended after ${seconds.toFixed(2)} s`);
  assert.equal(answer.ret, -1);
  assert.ok(seconds < waitSeconds, `${seconds} s`);
});

// Announces so many servers whose descriptions never come.
const crowd = `
  import { createSocket } from 'node:dgram';
  import { createServer } from 'node:net';
  const listener = createServer(() => {}).listen(0, '127.0.0.1', () => {
    const socket = createSocket('udp4');
    socket.bind(0, async () => {
      socket.setMulticastInterface('127.0.0.1');
      const type = 'urn:schemas-upnp-org:device:MediaServer:1';
      for (let sent = 0; ; ++sent) { // again and again, since datagrams get lost
        const i = sent % Number(process.argv[1]);
        if (sent === Number(process.argv[1])) console.log('announced');
        const text = 'NOTIFY * HTTP/1.1\\r\\nHOST: 239.255.255.250:1900\\r\\nCACHE-CONTROL: max-age=1800\\r\\nLOCATION: http://127.0.0.1:' +
          listener.address().port + '/' + i + '\\r\\nNT: ' + type + '\\r\\nNTS: ssdp:alive\\r\\nSERVER: crowd\\r\\nUSN: uuid:crowd-' + i + '::' + type + '\\r\\n\\r\\n';
        await new Promise((resolve) => socket.send(text, 1900, '239.255.255.250', resolve));
        if (i % 50 === 0) await new Promise((resolve) => setTimeout(resolve, 10));
      }
    });
  });
`;

test('five hundred servers that announce themselves at once do not hide a real one', { skip }, async (t) => {
  const set = await home(t);
  const { tv, inside } = set;
  await tv('servers', 'search', 'on');
  await found(tv);
  const announcing = start(...inside(process.execPath, ['--input-type=module', '-e', crowd, '--', '500']));
  t.after(() => announcing.stop('SIGKILL'));
  await announcing.line();
  const times = await volumeTimes(set, 300);
  t.diagnostic(`volume meanwhile: p99 ${times[297].toFixed(2)} ms`);
  const shown = await until(() => tv('servers'), ({ refused }) => refused > 400, 'the crowd was not refused');
  assert.deepEqual(shown.servers.filter(({ online }) => online).map(({ name }) => name), ['Attic']);
  assert.ok((await tv('servers', 'list', String(shown.servers[0].id))).total >= 1);
});

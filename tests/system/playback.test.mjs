// Playing recordings from end to end: the notifications of the application, its reports, and the position after a kill.
import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import { antenna, scan, television, until, viewer } from './antenna_support.mjs';
import { folder, startHost } from './host_support.mjs';

const uri = (name) => `/tv/cbrowser/pus/${name}`;
const events = '/tv/ws/notify/cbrowser_pus';
const fileInfo = '/tv/pvr/file_info';
const set = television(['PUS'], [events]);
const told = { start: 1, stop: 2, pause: 3, resume: 4, prepare: 5, seek: 6 };
const file = { ready: 2, playing: 3, paused: 4 };

// What the recorder says of a recording's file.
const fileOf = async (client, listId) => (await client.get(fileInfo, { listId })).response.ITEMS[0];

// A recording of some seconds of channel 1; with `running` it is not stopped.
async function record(client, { seconds = 4, running = false } = {}) {
  await client.tv('tune 1');
  await until(() => client.tv('tuner'), (tuner) => tuner.result === 'picture', 'the picture');
  const { id } = await client.tv('record now 10');
  await until(() => client.tv(`recording ${id}`), (shown) => shown.seconds >= seconds && shown.bytes > 400_000, 'the recording');
  return running ? client.tv(`recording ${id}`) : client.tv(`record stop ${id}`);
}

test('the application is told what is played, describes it, and reports', async (t) => {
  const client = await set.client(t);
  await client.set(uri('pus_init'), {}, 'ACTION');
  await client.subscribe(events);
  const { id, title, channel, file: path, start, seconds } = await record(client);
  const nothing = await client.item(uri('pus_get_file_info'), { instance: 1 });
  assert.deepEqual([nothing.fileInfo.URL, nothing.fileInfo.duration], ['', 0]);
  await client.refused(uri('pus_submit_status'), { instance: 1, state: 1, value: 0 });

  await client.tv(`recording ${id} play 1`);
  const { instance } = await client.notified(events, { playCmd: told.prepare });
  assert.ok(instance > 0);
  await client.notified(events, { instance, playCmd: told.start, value: path });
  assert.ok(existsSync(join(set.host.state, path)));
  const { fileInfo: info } = await client.item(uri('pus_get_file_info'), { instance });
  const begin = Date.parse(start) / 1000;
  assert.deepEqual(
    [info.URL, info.channelName, info.eventName, info.startDateTime, info.endDateTime, info.duration],
    [path, channel, title, begin, begin + seconds, seconds],
  );
  assert.ok(info.sizeInMB < 100 && info.fileType > 0);
  assert.equal((await fileOf(client, id)).fileStatus, file.playing);

  await client.tv('playback pause');
  await client.notified(events, { instance, playCmd: told.pause, value: 0 });
  await client.set(uri('pus_submit_status'), { instance, state: 2, value: 9 });
  assert.deepEqual((await client.tv('state')).application_playback, { instance, state: 2, value: 9 });
  const { fileStatus, listId } = await fileOf(client, 0);
  assert.deepEqual([fileStatus, listId], [file.paused, id]);
  await client.tv('playback seek 2');
  await client.notified(events, { instance, playCmd: told.seek, value: 2 });
  await client.tv('playback resume');
  await client.notified(events, { instance, playCmd: told.resume });
  await client.tv('key EXIT');
  await client.notified(events, { instance, playCmd: told.stop });
  assert.deepEqual(await client.tv('playback'), { recording: null });
  const left = await fileOf(client, id);
  assert.equal(left.fileStatus, file.ready);
  assert.ok(left.resumeTime >= 2, `${left.resumeTime}`);

  await client.set(uri('pus_deinit'), {}, 'ACTION');
  await client.tv(`recording ${id} play`);
  await client.set(uri('pus_init'), {}, 'ACTION');
  await client.tv('playback stop');
  const next = await client.notified(events, {});
  assert.deepEqual([next.playCmd, next.instance], [told.stop, instance + 1], 'nothing was told while the service was stopped');
});

test('a recording is played to its end, and its picture is on the screen', async (t) => {
  const client = await set.client(t);
  await client.subscribe(events);
  const { id } = await record(client);
  await client.tv(`recording ${id} play 0`);
  const { picture, reason } = await client.tv('screen');
  if (reason === 'unavailable') {
    t.diagnostic('this build has no picture');
  } else {
    assert.equal(picture, 'recording');
    await until(() => client.tv('screen'), ({ shown }) => shown, 'a frame of the recording');
  }
  await client.notified(events, { playCmd: told.stop });
  assert.deepEqual(await client.tv('playback'), { recording: null });
  await until(() => client.tv('screen'), (screen) => screen.picture !== 'recording', 'the channel');
  assert.equal((await fileOf(client, id)).resumeTime, 0);
});

test('a running recording is paused, played behind the broadcast, and ended by another channel', async (t) => {
  const client = await set.client(t);
  const { id } = await record(client, { running: true });
  await client.tv(`recording ${id} play 1`);
  await client.tv('playback pause');
  const before = await client.tv('playback');
  assert.equal(before.running, true);
  const after = await until(() => client.tv('playback'), ({ seconds }) => seconds >= before.seconds + 2, 'the growing recording');
  assert.deepEqual([after.position_seconds, after.paused], [before.position_seconds, true]);
  await client.tv('playback resume');
  await until(() => client.tv('playback'), ({ position_seconds }) => position_seconds > before.position_seconds, 'the position');
  await client.tv('playback seek 9999');
  const live = await client.tv('playback');
  assert.ok(live.position_seconds >= live.seconds - 2, JSON.stringify(live));
  await client.tv('tune 2');
  assert.deepEqual(await client.tv('playback'), { recording: null });
  await client.tv(`record stop ${id}`);
});

test('the position survives the end of the process', async (t) => {
  const state = join(folder(t), 'state');
  const args = ['--antenna', antenna()];
  let host = await startHost(t, args, { state });
  let client = await viewer(t, host);
  await scan(client);
  const { id } = await record(client, { seconds: 5 });
  await client.tv(`recording ${id} play`);
  await client.tv('playback seek 2');
  await client.tv('playback pause');
  await host.stop('SIGKILL');

  host = await startHost(t, args, { state });
  client = await viewer(t, host);
  assert.deepEqual(await client.tv('playback'), { recording: null });
  const info = await fileOf(client, id);
  assert.equal(info.fileStatus, file.ready);
  assert.ok(info.resumeTime >= 2 && info.resumeTime <= 4, `${info.resumeTime}`);
  await client.tv(`recording ${id} play`);
  const { position_seconds: position } = await client.tv('playback');
  assert.ok(position >= info.resumeTime && position <= info.resumeTime + 3, `${position}`);
});

set.everyUriIsUsed();

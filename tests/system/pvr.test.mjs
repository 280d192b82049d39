// The recorder from end to end: recordings, their files, timers and reminders, as applications see them.
import assert from 'node:assert/strict';
import { existsSync, statSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import { byNumber, television, until } from './antenna_support.mjs';

const uri = (name) => `/tv/pvr/${name}`;
const set = television(['PVR']);
const [one, five, sport] = [1, 5, 30].map(byNumber);
const now = () => Math.floor(Date.now() / 1000);

// Operations, states and reasons as the television's contract names them.
const list = { page: 0, number: 2, file: 3, remove: 4, rename: 5, record: 6, stop: 7 };
const status = { recording: 1, partial: 3 };
const stopped = 1; // failure_reason: by the viewer
const timer = { slot: 1, disk: 2, add: 3, records: 4, remove: 5, modify: 6, get: 7, byIndex: 8, conflict: 10, number: 12, timeShift: 13 };
const mode = { remind: 0, record: 1 };
const paused = 4;

const page = (client, more) => client.items(uri('record_list_info'), { operation: list.page, ...more });
const number = async (client) => (await client.item(uri('record_list_info'), { operation: list.number })).reclist_num;
const ask = (client, operation, more) => client.item(uri('reminder_event'), { operation, ...more });
const act = (client, operation, more) => client.set(uri('reminder_event'), { operation, ...more });
const timers = async (client) => (await ask(client, timer.number)).total_rmdr_num;

test('a recording is started, renamed, stopped, remembered where it was watched to, and deleted', async (t) => {
  const client = await set.client(t);
  await client.tv('tune 1');
  assert.equal(await number(client), 0);
  const begin = now();
  await client.set(uri('record_list_info'), { operation: list.record, channel_id: 0, duration: 600, program_name: 'Meine Aufnahme' });
  const [entry, ...others] = await page(client);
  assert.deepEqual(others, []);
  assert.equal(await number(client), 1);
  assert.deepEqual(
    [entry.channel_id, entry.channel_name, entry.program_name, entry.recording_status, entry.b_recording_complete],
    [one.id, one.name, 'Meine Aufnahme', status.recording, 0],
  );
  assert.ok(entry.start_time >= begin - 1 && entry.start_time <= now(), `${entry.start_time}`);
  assert.equal((await ask(client, timer.records, { channel_id: 0 })).is_recording, 1);
  assert.equal((await ask(client, timer.records, { channel_id: five.id })).is_recording, 0);

  const disk = await client.item(uri('record_paired_disk_info'));
  assert.ok(disk.totalSize >= disk.freeSize && disk.freeSize > 0);
  const file = join(disk.mntPath, entry.file_name_id);
  assert.equal(join(disk.mntPath, entry.file_url_id), file);
  await until(() => existsSync(file) && statSync(file).size, (size) => size > 100_000, 'the growing recording');
  const playable = await client.item(uri('record_list_info'), { operation: list.file, list_id: entry.list_id });
  assert.deepEqual(playable, { recording_status: status.recording, file_name_id: entry.file_name_id, file_url_id: entry.file_url_id });

  await client.refused(uri('record_list_info'), { operation: list.remove, list_id: entry.list_id });
  await client.set(uri('record_list_info'), { operation: list.rename, list_id: entry.list_id, program_name: 'Leuchtturm' });
  await client.set(uri('record_list_info'), { operation: list.stop, list_id: 0 });
  const [ended] = await page(client);
  assert.deepEqual([ended.program_name, ended.recording_status, ended.failure_reason], ['Leuchtturm', status.partial, stopped]);
  assert.equal((await ask(client, timer.records, { channel_id: 0 })).is_recording, 0);

  await client.set(uri('file_info'), { fileStatus: paused, resumeTime: 1, listId: entry.list_id });
  for (const listId of [entry.list_id, 0]) assert.deepEqual(await client.item(uri('file_info'), { listId }), { fileStatus: paused, resumeTime: 1, listId: entry.list_id });
  assert.equal((await page(client))[0].playback_resume_time, 1);
  assert.equal((await client.item(uri('file_info'), { listId: 999 })).fileStatus, 0);

  await client.set(uri('record_list_info'), { operation: list.remove, list_id: entry.list_id });
  assert.equal(await number(client), 0);
  assert.deepEqual(await page(client), []);
  assert.ok(!existsSync(file));
  await client.refused(uri('record_list_info'), { operation: list.remove, list_id: entry.list_id });
  await client.refused(uri('record_list_info'), { operation: list.record, channel_id: 0x3fff0001, duration: 60 });
});

test('a recording without a duration takes the present event and its end', async (t) => {
  const client = await set.client(t);
  await client.tv('tune 1');
  const { response } = await until(
    () => client.get('/tv/eventinfo/event_current_information', { CH_ID: one.id }),
    ({ ret }) => ret === 0,
    'the present event',
  );
  const [event] = response.ITEMS;
  await client.tv('config g_rec__end_padding 5');
  await client.set(uri('record_list_info'), { operation: list.record, channel_id: 0 });
  const [entry] = await page(client);
  assert.deepEqual([entry.event_id, entry.program_name], [event.EVENT_ID, event.EVENT_NAME]);
  const [running] = (await client.tv('timers')).timers;
  assert.equal(Date.parse(running.to) / 1000, event.START_TIME + event.DURATION + 5 * 60, 'the event and the padding');
  const titles = async (channel_id) => (await page(client, { channel_id })).map(({ program_name }) => program_name);
  assert.deepEqual([await titles(one.id), await titles(five.id)], [[event.EVENT_NAME], []]);
  await client.set(uri('record_list_info'), { operation: list.stop, list_id: entry.list_id });
  await client.set(uri('record_list_info'), { operation: list.remove, list_id: entry.list_id });
});

test('a timer is added, found, modified and deleted', async (t) => {
  const client = await set.client(t);
  const start = now() + 3 * 3600;
  const wanted = { mode: mode.record, channel_id: one.id, event_id: 0, start_time: start, duration: 1800, genre: 0x11, event_title: 'Nachtfilm' };
  await act(client, timer.add, wanted);
  assert.equal(await timers(client), 1);
  const found = await ask(client, timer.byIndex, { info_data: 0 });
  assert.deepEqual(
    [found.mode, found.channel_id, found.start_time, found.duration, found.genre, found.event_title, found.op_result],
    [mode.record, one.id, start, 1800, 0x11, 'Nachtfilm', 0],
  );
  assert.ok(found.rec_start_time <= start && found.rec_start_time + found.rec_duration >= start + 1800);
  const { slot } = found;
  const place = await ask(client, timer.slot, { slot });
  assert.deepEqual([place.is_rmdr, place.is_on_going_pvr, place.slot_idx], [1, 0, 0]);
  assert.equal((await ask(client, timer.get, { slot })).event_title, 'Nachtfilm');

  await act(client, timer.modify, { ...wanted, slot, duration: 3600 });
  assert.equal((await ask(client, timer.get, { slot })).duration, 3600);
  await act(client, timer.remove, { slot });
  assert.equal(await timers(client), 0);
  await client.refused(uri('reminder_event'), { operation: timer.remove, slot });
  await client.refused(uri('reminder_event'), { operation: timer.add, ...wanted, start_time: 1000 });
  assert.deepEqual([(await ask(client, timer.disk)).is_usb_ready, (await ask(client, timer.timeShift)).is_usb_ready], [1, 0]);
});

test('two tuners record two multiplexes; a third is a conflict', async (t) => {
  const client = await set.client(t);
  const times = { mode: mode.record, event_id: 0, start_time: now() + 6 * 3600, duration: 1800 };
  const slots = [];
  for (const channel of [one, five]) {
    await act(client, timer.add, { ...times, channel_id: channel.id });
    slots.push((await ask(client, timer.byIndex, { info_data: slots.length })).slot);
  }
  assert.notEqual(slots[0], slots[1]);
  const third = { ...times, channel_id: sport.id };
  const conflict = await ask(client, timer.conflict, third);
  assert.deepEqual([conflict.conflict_type, conflict.conflict_state], [1, 1]);
  assert.ok(slots.includes(conflict.conflict_slot));
  await client.refused(uri('reminder_event'), { operation: timer.add, ...third });
  assert.equal(await timers(client), 2);
  const without = await ask(client, timer.conflict, { ...third, is_ignore_special_slot: 1, conflict_slot: slots[0] });
  assert.deepEqual([without.conflict_type, without.conflict_state], [0, 0]);
  const sameMultiplex = await ask(client, timer.conflict, { ...times, channel_id: byNumber(2).id });
  assert.equal(sameMultiplex.conflict_type, 0);
  for (const slot of slots) await act(client, timer.remove, { slot });
  assert.equal(await timers(client), 0);
});

test('a timer whose time has come records; deleting it ends the recording', async (t) => {
  const client = await set.client(t);
  await act(client, timer.add, { mode: mode.record, channel_id: sport.id, event_id: 0, start_time: now() - 30, duration: 900, event_title: 'Finale' });
  const { slot } = await ask(client, timer.byIndex, { info_data: 0 });
  await until(() => ask(client, timer.slot, { slot }), ({ is_on_going_pvr }) => is_on_going_pvr === 1, 'the recording');
  const [entry] = await page(client);
  assert.deepEqual([entry.channel_id, entry.program_name, entry.recording_status], [sport.id, 'Finale', status.recording]);
  await act(client, timer.remove, { slot });
  const [ended] = await until(() => page(client), ([first]) => first.recording_status !== status.recording, 'the end of the recording');
  assert.notEqual(ended.recording_status, status.recording);
  await client.set(uri('record_list_info'), { operation: list.remove, list_id: entry.list_id });
});

test('a reminder of an event of the guide', async (t) => {
  const client = await set.client(t);
  const channel = byNumber(7);
  await client.tv('tune 7');
  const following = await until(
    async () => (await client.get('/tv/eventinfo/event_next_information', { CH_ID: channel.id })),
    ({ ret }) => ret === 0,
    'the following event',
  );
  const event = following.response.ITEMS[0];
  const wanted = { mode: mode.remind, channel_id: channel.id, event_id: event.EVENT_ID };
  await act(client, timer.add, wanted);
  const found = await ask(client, timer.byIndex, { info_data: 0 });
  assert.deepEqual([found.mode, found.event_id, found.start_time, found.duration, found.genre, found.event_title], [mode.remind, event.EVENT_ID, event.START_TIME, event.DURATION, event.CATEGORY[0], event.EVENT_NAME]);
  await client.refused(uri('reminder_event'), { operation: timer.add, ...wanted }); // there already
  await client.refused(uri('reminder_event'), { operation: timer.add, ...wanted, event_id: 1 }); // no such event
  assert.equal(await timers(client), 1);
  await act(client, timer.remove, { slot: found.slot });
});

test('the form that the application shows is accepted', async (t) => {
  const client = await set.client(t);
  await client.set(uri('ui_status'), { formId: 2, formState: 1 });
});

set.everyUriIsUsed();

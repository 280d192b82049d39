// What a viewer made of the channels survives the end of the process by kill -9.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { antenna, byNumber, scan, services, viewer } from './antenna_support.mjs';
import { folder, startHost } from './host_support.mjs';

const [two, four, five, sport] = [2, 4, 5, 30].map(byNumber);
const channelinfo = (name) => `/tv/channelinfo/${name}`;
const reminder = '/tv/pvr/reminder_event';
const active = { NW_MASK: 1, NW_VALUE: 1 };

async function start(t, state) {
  const host = await startHost(t, ['--antenna', antenna()], { state });
  return { host, client: await viewer(t, host) };
}

test('a scan, an edited channel, favourites and a timer are there after kill -9', async (t) => {
  const state = folder(t);
  let { host, client } = await start(t, state);
  // Each change is followed by the end of the process as soon as it is answered.
  const again = async () => {
    assert.equal((await host.stop('SIGKILL')).signal, 'SIGKILL');
    ({ host, client } = await start(t, state));
  };
  await scan(client);
  await again();
  const { channels } = await client.tv('channels');
  assert.deepEqual(channels.map(({ number, name }) => `${number} ${name}`).sort(), services.map(({ number, name }) => `${number} ${name}`).sort());

  await client.set(channelinfo('edit_channel_info'), { SVL_ID: 1, CH_ID: two.id, CH_EDIT_NAME: 'Waldkino', CH_EDIT_NUMBER: 33 });
  await client.set(channelinfo('block_channel_info'), { SVL_ID: 1, CH_ID: four.id });
  await again();
  const edited = await client.item(channelinfo('channel_info'), { SVL_ID: 1, CH_ID: 33 * 2 ** 18 + 0x80 + 1, ...active, DIRECTION: 0 });
  assert.deepEqual([edited.SERVICE_NAME, edited.MAJOR_NUM], ['Waldkino', 33]);
  assert.deepEqual((await client.tv('channel 4')).flags, ['blocked']);

  for (const { id } of [sport, five]) await client.set(channelinfo('ocl_fav_list_add_item'), { CH_ID: id });
  await client.set(channelinfo('fav_list_add_item'), { SVL_ID: 3, FAV_IDX: 2, CH_ID: sport.id });
  await again();
  assert.deepEqual((await client.tv('favourites')).favourites.map(({ number }) => number), [30, 5]);
  assert.equal((await client.item(channelinfo('fav_list_get_num'), { SVL_ID: 3, FAV_IDX: 2, ...active })).CH_TOTAL_NUM, 1);

  const begin = Math.floor(Date.now() / 1000) + 7200;
  await client.set(reminder, { operation: 3, mode: 1, channel_id: sport.id, event_id: 0, start_time: begin, duration: 5400, event_title: 'Finale' });
  await client.tv('tune 30');
  await again();
  const timer = await client.item(reminder, { operation: 8, info_data: 0 });
  assert.deepEqual([timer.channel_id, timer.start_time, timer.duration, timer.event_title], [sport.id, begin, 5400, 'Finale']);
  assert.equal((await client.item(channelinfo('current_channel_info'))).CHANNEL_ID, sport.id);

  // All of it is still there, and an update by a scan keeps what the viewer changed.
  await scan(client, 'update');
  assert.equal((await client.tv('channel 33')).name, 'Waldkino');
  assert.deepEqual((await client.tv('channel 4')).flags, ['blocked']);
  assert.deepEqual((await client.tv('favourites')).favourites.map(({ number }) => number), [30, 5]);
  assert.equal((await client.item(reminder, { operation: 12 })).total_rmdr_num, 1);
  assert.equal((await host.stop()).code, 0);
});

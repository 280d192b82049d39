// A change of channel from end to end: the request, the picture, and the notification of the result.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { byNumber, television } from './antenna_support.mjs';

const uri = (name) => `/tv/brdcast/${name}`;
const results = '/tv/ws/notify/broadcast/chg_channel_res';
const current = '/tv/channelinfo/current_channel_info';
const set = television(['BRDCAST'], [results]);

// Results of a change of channel, as the television reports them.
const picture = 0;
const scrambled = 2;
const blockedChannel = 3;
const audioOnly = 5;

const tuned = async (client) => (await client.get(current)).response.ITEMS[0].CHANNEL_ID;

test('the channel with an identifier is tuned, and the result comes as an event', async (t) => {
  const client = await set.client(t);
  await client.subscribe(results);
  const steps = [[1, picture], [202, audioOnly], [12, scrambled], [30, picture], [90, picture]];
  for (const [number, result] of steps) {
    const { id, name } = byNumber(number);
    await client.set(uri('chg_channel'), { CH_ID: id });
    assert.equal(await tuned(client), id, name);
    await client.notified(results, { VALUE: result });
  }
});

test('every client that subscribed is told the result', async (t) => {
  const client = await set.client(t);
  const others = [await set.client(t), await set.client(t)];
  for (const other of others) await other.subscribe(results);
  await client.set(uri('chg_channel'), { CH_ID: byNumber(201).id });
  for (const other of others) await other.notified(results, { VALUE: audioOnly });
});

test('a channel is selected by its list and record', async (t) => {
  const client = await set.client(t);
  await client.subscribe(results);
  for (const number of [5, 21]) {
    const { id, list } = byNumber(number);
    const { record } = await client.tv(`channel ${number}`);
    await client.set(uri('sel_channel'), { SVL_ID: list, SVL_REC_ID: record, CHANNEL_ID: id, CHECK_BARKER: 1 });
    assert.equal(await tuned(client), id);
    await client.notified(results, { VALUE: picture });
  }
});

test('a blocked channel is tuned without a picture', async (t) => {
  const client = await set.client(t);
  await client.subscribe(results);
  await client.tv('channel 7 block');
  await client.set(uri('chg_channel'), { CH_ID: byNumber(7).id });
  await client.notified(results, { VALUE: blockedChannel });
  assert.equal(await tuned(client), byNumber(7).id);
  await client.tv('channel 7 unblock');
});

test('an unknown channel is refused, and the channel stays', async (t) => {
  const client = await set.client(t);
  await client.set(uri('chg_channel'), { CH_ID: byNumber(2).id });
  await client.refused(uri('chg_channel'), { CH_ID: 0x3fff0001 });
  await client.refused(uri('chg_channel'), { CHANNEL_ID: byNumber(4).id }); // its key is CH_ID
  await client.refused(uri('sel_channel'), { SVL_ID: 1, SVL_REC_ID: 60000, CHANNEL_ID: 0x3fff0001 });
  assert.equal(await tuned(client), byNumber(2).id);
});

test('a digital channel cannot be fine-tuned', async (t) => {
  const client = await set.client(t);
  for (const name of ['set_fine_tune_freq', 'fine_tune_done']) {
    await client.refused(uri(name), { CH_FREQ: 506_062_500 });
    set.used.add(`set ${uri(name)}`); // no broadcast of the antenna is analogue
  }
  const { response } = await client.get(current);
  assert.equal(response.ITEMS[0].FREQUENCY, byNumber(2).frequency);
});

set.everyUriIsUsed();

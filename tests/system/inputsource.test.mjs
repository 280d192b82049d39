// Input sources from end to end: the list, the current one, blocking, names and labels.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { byNumber, television } from './antenna_support.mjs';

const uri = (name) => `/tv/channelinfo/${name}`;
const listUri = '/tv/inputsource/input_source_list';
const set = television(['INPUT_SOURCE']);
const names = ['TV', 'Satellite', 'HDMI 1', 'HDMI 2', 'HDMI 3', 'HDMI 4', 'Composite', 'Media'];
const currentChannel = async (client) => (await client.get('/tv/channelinfo/current_channel_info')).response.ITEMS[0].CHANNEL_ID;
const choose = (client, number) => client.set(uri('change_input_source'), { VALUE: number }, 'MODIFY');
// What the list says is current, counted from 1. Other requests show what the latest list said.
const current = async (client) => (await client.item(listUri)).VALUE;

test('the list names the sources, counted from 1, and the current one', async (t) => {
  const client = await set.client(t);
  const listed = await client.item(listUri);
  assert.equal(listed.OPTION, names.map((name, i) => `${i + 1}:${name}`).join());
  assert.equal(listed.VALUE, 1);
  assert.equal((await client.item(uri('input_source_num'))).VALUE, names.length);
});

test('a source is chosen by its place in the list', async (t) => {
  const client = await set.client(t);
  for (const number of [3, 8, 1]) {
    await choose(client, number);
    assert.equal(await current(client), number);
    assert.equal((await client.item(uri('change_input_source'))).VALUE, number);
    assert.equal((await client.tv('source')).current, number - 1);
  }
  await client.refused(uri('change_input_source'), { REQUEST: 'MODIFY', VALUE: 0 });
  await client.set(uri('change_input_source'), { VALUE: 99 }, 'MODIFY'); // the set's answer is ignored
  assert.equal(await current(client), 1);
});

test('the tuners are chosen, each with a channel of its own', async (t) => {
  const client = await set.client(t);
  await client.tv('tune 30');
  await client.set(uri('change_source_to_tv'), {}, 'ACTION');
  assert.equal(await current(client), 1);
  assert.equal((await currentChannel(client)) & 0xf, 1);
  await client.set(uri('change_source_to_satellite'), {}, 'ACTION');
  assert.equal(await current(client), 2);
  assert.equal(await currentChannel(client), byNumber(30).id);
  await client.tv('tune 1');
  assert.equal(await current(client), 1);
});

test('a blocked source cannot be chosen; blocking counts sources from 0', async (t) => {
  const client = await set.client(t);
  const status = async () => (await client.item(uri('input_source_block_status'))).VALUE;
  assert.equal(await status(), 0);
  await client.set(uri('block_input_source'), { VALUE: 3 }, 'MODIFY');
  await client.set(uri('block_input_source'), { VALUE: 6 }, 'MODIFY');
  assert.equal(await status(), (1 << 3) | (1 << 6));
  await current(client);
  for (const name of ['block_input_source', 'unblock_input_source']) assert.equal((await client.item(uri(name))).VALUE, 1);
  await choose(client, 4);
  assert.equal(await current(client), 1);
  const { sources } = await client.tv('source');
  assert.deepEqual(sources.filter((each) => each.blocked).map((each) => each.number), [3, 6]);

  await client.set(uri('unblock_input_source'), { VALUE: 3 }, 'MODIFY');
  assert.equal(await status(), 1 << 6);
  await choose(client, 4);
  assert.equal(await current(client), 4);
  await client.set(uri('unblock_input_source'), { VALUE: 6 }, 'MODIFY');
  assert.equal(await status(), 0);
  await choose(client, 1);
});

test("a viewer's name and label of a source", async (t) => {
  const client = await set.client(t);
  const nameOf = async (INDEX) => (await client.item(uri('alias_name'), { INDEX })).ALIAS_NAME;
  assert.equal(await nameOf(2), '');
  await client.set(uri('alias_name'), { INDEX: 2, ALIAS_NAME: 'Spielkonsole' });
  assert.equal(await nameOf(2), 'Spielkonsole');
  assert.equal(await nameOf(3), '');
  await client.set(uri('alias_name'), { INDEX: 2, ALIAS_NAME: '' });
  assert.equal(await nameOf(2), '');

  const labelOf = async (INDEX) => (await client.item(uri('device_type'), { INDEX })).DEVICE_TYPE;
  assert.equal(await labelOf(2), 0);
  await client.set(uri('device_type'), { INDEX: 2, DEVICE_TYPE: 3 });
  assert.equal(await labelOf(2), 3);
  assert.equal(await labelOf(4), 0);
  await client.set(uri('device_type'), { INDEX: 2, DEVICE_TYPE: 0 });
});

test('what is known of an HDMI-CEC device', async (t) => {
  const client = await set.client(t);
  const { devices } = await client.tv('cec');
  for (const { name, logical, address } of devices) {
    const found = await client.item(uri('device_info'), { E_LOGICADR: logical });
    assert.deepEqual([found.e_la, found.s_osd_name], [logical, name]);
    assert.equal(found.ui2_pa, parseInt(address.replaceAll('.', ''), 16));
    assert.equal(found.s_hdmi_port, `HDMI ${address[0]}`);
  }
  const { ret, response } = await client.get(uri('device_info'), { E_LOGICADR: 9 });
  assert.equal(ret, 0);
  assert.equal(response.ITEMS[0].s_osd_name, '');
});

test('a picture is stopped, until a channel is chosen', async (t) => {
  const client = await set.client(t);
  await client.tv('multiview pip');
  assert.ok((await client.tv('multiview')).sub.shown);
  await client.set(uri('sync_stop_sub'), { VALUE: 0 }, 'MODIFY');
  assert.ok(!(await client.tv('multiview')).sub?.shown);
  assert.ok((await client.tv('multiview')).main.shown);
  await client.set(uri('sync_stop_main'), { VALUE: 0 }, 'MODIFY');
  assert.ok(!(await client.tv('multiview')).main.shown);
  await client.tv('tune 1');
  assert.ok((await client.tv('multiview')).main.shown);
});

set.everyUriIsUsed();

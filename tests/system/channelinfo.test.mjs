// The channel lists from end to end: what a broadcast announces, as applications get and change it.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { byNumber, scan, services, shown, television } from './antenna_support.mjs';

const uri = (name) => `/tv/channelinfo/${name}`;
const changes = '/tv/ws/notify/channel_info';
const set = television(['CHANNEL_INFO'], [changes]);
const air = 1;
const satellite = 3;
const active = { NW_MASK: 1, NW_VALUE: 1 }; // the channel is in the list
const visible = 0x8;
const blocked = 0x100;
const changed = 2; // CONDITIONS: channels of a list changed
const reason = { changed: 0x4, order: 0x8, favourites: 0x10 };

const ids = (channels) => channels.map(({ id }) => id);
const numbers = (channels) => channels.map(({ number }) => number);
const [one, two, four, five, seven] = [1, 2, 4, 5, 7].map(byNumber);

// The item is the service, as the multiplexes announce it. Without a frequency: where the request reads none.
function is(item, service, { frequency = 0 } = {}) {
  assert.deepEqual(
    [item.CHANNEL_ID, item.MAJOR_NUM, item.MINOR_NUM, item.SERVICE_NAME, item.SHORT_NAME, item.SVL_ID],
    [service.id, service.number, 0, service.name, service.short, service.list],
  );
  assert.deepEqual([item.TYPE, item.BRDCST_TYPE, item.SERVICE_TYPE, item.BARKER_MASK], ['CHANNEL_INFO', 2, service.type, 0]);
  assert.deepEqual([item.NW_MASK & 1, item.FREQUENCY], [service.hidden ? 0 : 1, frequency]);
  if (frequency) assert.equal(item.BRDCST_MEDIUM, service.list);
}

// Searches by name and favourites of the one channel list do not ask for the service list.
const withoutList = (service) => ({ ...service, list: 0 });

// The identifiers at index 0, 1, ... up to where the request fails.
async function walk(client, name, query) {
  const found = [];
  for (;;) {
    const { ret, response } = await client.get(uri(name), { ...query, CH_SEARCH_IDX: found.length });
    if (ret !== 0) break;
    found.push(response.ITEMS[0].CHANNEL_ID);
    assert.ok(found.length <= services.length, 'the list does not end');
  }
  set.used.add(`get ${uri(name)}`);
  return found;
}
const list = (client, svl = air) => walk(client, 'channel_info_by_db_index', { SVL_ID: svl, ...active });
const oneList = (client) => walk(client, 'ocl_channel_info_by_db_index', active);
const maskOf = async (client, channel) => {
  const found = await client.item(uri('channel_info'), { SVL_ID: channel.list, CH_ID: channel.id, NW_MASK: 0, NW_VALUE: 0, DIRECTION: 0 });
  assert.equal(found.CHANNEL_ID, channel.id);
  return found.NW_MASK;
};

test('a scan finds the services with their names and numbers, in the list of their medium', async (t) => {
  const client = await set.client(t);
  for (const svl of [air, satellite]) {
    const wanted = shown(svl);
    assert.equal((await client.item(uri('channel_num'), { SVL_ID: svl, NW_MASK: 1 })).CH_TOTAL_NUM, wanted.length);
    assert.equal((await client.item(uri('channel_num'), { SVL_ID: svl, ...active })).CH_TOTAL_NUM, wanted.length);
    assert.deepEqual(await list(client, svl), ids(wanted));
    for (const [index, service] of wanted.entries()) {
      is(await client.item(uri('channel_info_by_db_index'), { SVL_ID: svl, ...active, CH_SEARCH_IDX: index }), service);
      assert.equal((await client.item(uri('get_index_by_channel_id'), { SVL_ID: svl, ...active, CH_ID: service.id })).INDEX, index);
    }
  }
  const hidden = services.find((each) => each.hidden);
  is(await client.item(uri('channel_info'), { SVL_ID: air, CH_ID: hidden.id, NW_MASK: 1, NW_VALUE: 0, DIRECTION: 0 }), hidden, hidden);
  await client.fails(uri('channel_num'), { SVL_ID: 9, NW_MASK: 1 });
  await client.fails(uri('channel_info_by_db_index'), { SVL_ID: air, ...active, CH_SEARCH_IDX: -1 });
});

test('channels are found by a part of their name', async (t) => {
  const client = await set.client(t);
  const query = { SVL_ID: air, ...active, SEARCH_NAME: 'Radio' };
  assert.equal((await client.item(uri('channel_num'), query)).CH_TOTAL_NUM, 1);
  is(await client.item(uri('channel_info_by_db_index'), { ...query, CH_SEARCH_IDX: 0 }), byNumber(201));
  await client.fails(uri('channel_info_by_db_index'), { ...query, CH_SEARCH_IDX: 1 });
  assert.equal((await client.item(uri('ocl_channel_num'), { ...active, SEARCH_NAME: '竹影' })).CH_TOTAL_NUM, 1);
  is(await client.item(uri('ocl_channel_info_by_db_index'), { ...active, SEARCH_NAME: '竹影', CH_SEARCH_IDX: 0 }), withoutList(byNumber(210)));
  assert.equal((await client.item(uri('channel_num'), { ...query, SEARCH_NAME: 'no such channel' })).CH_TOTAL_NUM, 0);
});

test('the neighbours of a channel, up to both ends of its list', async (t) => {
  const client = await set.client(t);
  const order = shown(air);
  for (const [i, service] of order.entries()) {
    for (const query of [{ SVL_ID: air, NW_MASK: 1, CH_ID: service.id }, { SVL_ID: air, ...active, CH_ID: service.id }]) {
      for (const [name, other] of [['previous_channel_info', order[i - 1]], ['next_channel_info', order[i + 1]]]) {
        if (other) is(await client.item(uri(name), query), other, other);
        else await client.fails(uri(name), query);
      }
    }
  }
  is(await client.item(uri('channel_info'), { SVL_ID: air, NW_MASK: 1, CH_ID: four.id, DIRECTION: 1 }), five, five);
  is(await client.item(uri('channel_info'), { SVL_ID: air, NW_MASK: 1, CH_ID: four.id, DIRECTION: -1 }), two, two);
  is(await client.item(uri('channel_info'), { SVL_ID: air, ...active, CH_ID: four.id, DIRECTION: 2 }), five, five);
  is(await client.item(uri('channel_info'), { SVL_ID: air, ...active, CH_ID: four.id, DIRECTION: 3 }), two, two);
});

test('the one channel list has the channels of all lists by number', async (t) => {
  const client = await set.client(t);
  const order = shown();
  assert.equal((await client.item(uri('ocl_channel_num'), active)).CH_TOTAL_NUM, order.length);
  assert.equal((await client.item(uri('ocl_channel_num'), { NW_MASK: 0, NW_VALUE: 1 })).CH_TOTAL_NUM, order.length);
  assert.deepEqual(await oneList(client), ids(order));
  is(await client.item(uri('ocl_first_channel_info'), active), order[0]);
  for (const [i, service] of order.entries()) {
    assert.equal((await client.item(uri('ocl_get_index_by_channel_id'), { ...active, CH_ID: service.id })).INDEX, i);
    assert.equal((await client.item(uri('ocl_get_nearest_index_by_major_and_mask'), { ...active, MAJOR: service.number })).INDEX, i);
    const query = { ...active, CH_ID: service.id };
    for (const [name, direction, other] of [['ocl_previous_channel_info', -1, order[i - 1]], ['ocl_next_channel_info', 1, order[i + 1]]]) {
      if (!other) continue;
      is(await client.item(uri(name), query), other);
      is(await client.item(uri('ocl_channel_info'), { ...query, DIRECTION: direction }), other);
    }
  }
  await client.fails(uri('ocl_next_channel_info'), { ...active, CH_ID: 0x3fff0001 });
});

test('the current channel is the one that was tuned last', async (t) => {
  const client = await set.client(t);
  for (const service of [five, byNumber(30)]) {
    await client.tv(`tune ${service.number}`);
    is(await client.item(uri('current_channel_info')), service, service);
    is(await client.item(uri('ocl_current_channel_info')), service, service);
    is(await client.item(uri('channel_info'), { DIRECTION: 0 }), service, service);
    is(await client.item(uri('ocl_channel_info'), { DIRECTION: 0 }), service, service);
  }
});

test('a channel is skipped and blocked, and both are taken back', async (t) => {
  const client = await set.client(t);
  await client.subscribe(changes);
  const key = { SVL_ID: air, CH_ID: four.id };
  const steps = [
    ['skip_channel_info', (mask) => mask & ~visible],
    ['block_channel_info', (mask) => mask | blocked],
    ['cancel_skip_channel_info', (mask) => mask | visible],
    ['cancel_block_channel_info', (mask) => mask & ~blocked],
  ];
  let mask = await maskOf(client, four);
  assert.equal(mask & (visible | blocked), visible);
  for (const [name, next] of steps) {
    await client.set(uri(name), key);
    mask = next(mask);
    assert.equal(await maskOf(client, four), mask, name);
    const { REASON } = await client.notified(changes, { TYPE: 0, TAG: 55555, CONDITIONS: changed, DATA: four.id });
    assert.ok(REASON & reason.changed, `reason ${REASON}`);
  }
  await client.set(uri('channel_info'), { ...key, NW_MASK: mask | blocked });
  assert.equal(await maskOf(client, four), mask | blocked);
  assert.deepEqual((await client.tv('channel 4')).flags, ['blocked']);
  await client.set(uri('channel_info'), { ...key, NW_MASK: mask });
  assert.equal(await maskOf(client, four), mask);
  await client.refused(uri('skip_channel_info'), { SVL_ID: air, CH_ID: 0x3fff0001 });
});

test('a channel gets another name and number; a number that is taken is refused', async (t) => {
  const client = await set.client(t);
  await client.subscribe(changes);
  await client.set(uri('edit_channel_info'), { SVL_ID: air, CH_ID: two.id, CH_EDIT_NAME: 'Wald & Kino', CH_EDIT_NUMBER: 33 });
  const id = 33 * 2 ** 18 + 0x80 + air;
  const { REASON } = await client.notified(changes, { CONDITIONS: changed, DATA: id });
  assert.equal(REASON, reason.changed | reason.order);
  is(await client.item(uri('channel_info'), { SVL_ID: air, CH_ID: id, ...active, DIRECTION: 0 }), { ...two, id, number: 33, name: 'Wald & Kino' }, two);
  const order = [...shown(air).filter((each) => each !== two), { id, number: 33 }].sort((a, b) => a.number - b.number);
  assert.deepEqual(await list(client), ids(order));

  await client.refused(uri('edit_channel_info'), { SVL_ID: air, CH_ID: id, CH_EDIT_NUMBER: 7, CH_EDIT_NAME: 'not taken' }, -6);
  assert.deepEqual(await list(client), ids(order));
  const after = await client.tv('channel 33');
  assert.equal(after.name, 'Wald & Kino');
  await client.set(uri('store_channel_list'), {}, 'ACTION');

  await scan(client); // the list as it is broadcast
  assert.deepEqual(await list(client), ids(shown(air)));
});

test('two channels swap their places', async (t) => {
  const client = await set.client(t);
  const swap = { SVL_ID: air, CH_FROM: one.id, CH_TO: seven.id };
  await client.set(uri('sort_channel_info'), swap);
  assert.equal((await client.item(uri('channel_info'), { SVL_ID: air, CH_ID: one.id, ...active, DIRECTION: 0 })).SERVICE_NAME, seven.name);
  assert.equal((await client.item(uri('channel_info'), { SVL_ID: air, CH_ID: seven.id, ...active, DIRECTION: 0 })).SERVICE_NAME, one.name);
  assert.deepEqual(await list(client), ids(shown(air)));
  await client.set(uri('sort_channel_info'), swap);
  assert.equal((await client.item(uri('channel_info'), { SVL_ID: air, CH_ID: one.id, ...active, DIRECTION: 0 })).SERVICE_NAME, one.name);
});

test('the favourites of a service list', async (t) => {
  const client = await set.client(t);
  await client.subscribe(changes);
  for (const index of [0, 3]) {
    const base = { SVL_ID: air, FAV_IDX: index, ...active };
    const favourites = () => walk(client, 'fav_list_get_svl_by_index', base);
    const count = async () => (await client.item(uri('fav_list_get_num'), base)).CH_TOTAL_NUM;
    assert.equal(await count(), 0);
    for (const service of [seven, one, five]) await client.set(uri('fav_list_add_item'), { ...base, CH_ID: service.id });
    assert.ok((await client.notified(changes, { CONDITIONS: changed, DATA: five.id })).REASON & reason.favourites);
    assert.deepEqual(await favourites(), ids([seven, one, five]));
    assert.equal(await count(), 3);
    is(await client.item(uri('fav_list_get_svl_by_index'), { ...base, CH_SEARCH_IDX: 2 }), five);
    assert.equal((await client.item(uri('fav_list_get_index_by_channel_id'), { ...base, CH_ID: one.id })).INDEX, 1);
    await client.set(uri('fav_list_insert_move_by_idx'), { ...base, IDX_FROM: 2, IDX_TO: 0 });
    assert.deepEqual(await favourites(), ids([five, seven, one]));
    await client.set(uri('fav_list_swap_by_channel_id'), { ...base, CH_FROM: five.id, CH_TO: one.id });
    assert.deepEqual(await favourites(), ids([one, seven, five]));
    await client.set(uri('fav_list_delete_item'), { ...base, CH_ID: seven.id });
    assert.deepEqual(await favourites(), ids([one, five]));
    await client.fails(uri('fav_list_get_index_by_channel_id'), { ...base, CH_ID: seven.id });
    await client.set(uri('fav_list_add_all'), base);
    assert.deepEqual((await favourites()).sort((a, b) => a - b), ids(shown(air)));
    await client.set(uri('fav_list_delete_all'), base);
    assert.equal(await count(), 0);
  }
  await client.refused(uri('fav_list_add_item'), { SVL_ID: air, FAV_IDX: 4, CH_ID: one.id });
});

test('the favourites of the one channel list', async (t) => {
  const client = await set.client(t);
  const sport = byNumber(30);
  const favourites = () => walk(client, 'ocl_fav_list_get_svl_by_index', active);
  const count = async () => (await client.item(uri('ocl_fav_list_get_num'), active)).CH_TOTAL_NUM;
  for (const service of [sport, one, five]) await client.set(uri('ocl_fav_list_add_item'), { CH_ID: service.id });
  assert.deepEqual(await favourites(), ids([sport, one, five]));
  assert.deepEqual(numbers((await client.tv('favourites')).favourites), numbers([sport, one, five]));
  is(await client.item(uri('ocl_fav_list_get_svl_by_index'), { ...active, CH_SEARCH_IDX: 1 }), withoutList(one));
  assert.equal((await client.item(uri('ocl_fav_list_get_index_by_channel_id'), { ...active, CH_ID: five.id })).INDEX, 2);
  await client.set(uri('ocl_fav_list_insert_move_by_idx'), { ...active, IDX_FROM: 0, IDX_TO: 2 });
  assert.deepEqual(await favourites(), ids([one, five, sport]));
  await client.set(uri('ocl_fav_list_delete_item'), { CH_ID: five.id });
  assert.deepEqual(await favourites(), ids([one, sport]));
  await client.set(uri('ocl_fav_list_add_all'), active);
  assert.deepEqual((await favourites()).sort((a, b) => a - b), ids(shown()));
  await client.set(uri('ocl_fav_list_delete_all'), active);
  assert.equal(await count(), 0);
});

test('the satellite, and the categories of a broadcaster', async (t) => {
  const client = await set.client(t);
  assert.equal((await client.item(uri('get_satellite_rec_num'), { SATL_ID: 1 })).CH_TOTAL_NUM, 1);
  const found = await client.item(uri('get_satellite_rec_by_index'), { SATL_ID: 1, INDEX: 0 });
  const { orbit } = await client.tv('channel 30');
  assert.equal(`${(found.ORB_POS / 10).toFixed(1)}E`, orbit);
  await client.fails(uri('get_satellite_rec_by_index'), { SATL_ID: 1, INDEX: 1 });
  await client.fails(uri('get_satellite_rec_num'), { SATL_ID: 2 });

  const categories = () => client.items(uri('get_dvbs_tkgs_category_list'), { LOL_ID: 0, LOL_IDX: 0 });
  assert.deepEqual(await categories(), []);
  await client.tv('channels categories 3 Sport');
  await client.tv('channels categories 5 Kids');
  assert.deepEqual(await categories(), [
    { CATEGORY_NO: 3, CATEGORY_NAME: 'Sport' },
    { CATEGORY_NO: 5, CATEGORY_NAME: 'Kids' },
  ]);
  await client.tv('channel 30 categories 3');
  const sport = await client.item(uri('channel_info'), { SVL_ID: satellite, ...active, CATEGORY_MASK: 8, CH_ID: 0, DIRECTION: 1 });
  assert.deepEqual([sport.CHANNEL_ID, sport.CATEGORY_MASK], [byNumber(30).id, 8]);
  assert.equal((await client.item(uri('channel_num'), { SVL_ID: satellite, ...active, CATEGORY_MASK: 8 })).CH_TOTAL_NUM, 1);
});

test('a channel without a logo has the number 0, and no path', async (t) => {
  const client = await set.client(t);
  await client.set(uri('update_channel_logo_id'), { SVL_ID: air, CH_ID: one.id });
  assert.equal((await client.item(uri('channel_info'), { SVL_ID: air, CH_ID: one.id, ...active, DIRECTION: 0 })).CH_LOGO_ID, 0);
  await client.refused(uri('update_channel_logo_id'), { SVL_ID: air, CH_ID: 0x3fff0001 });
  const { ret, response } = await client.get(uri('get_channel_logo_path'), { VALUE: 'no such logo' });
  assert.equal(ret, -1);
  assert.deepEqual([response.ITEMS[0].NAME, response.ITEMS[0].TEXT], ['Channel Logo Path', '']);
  assert.equal((await client.get(uri('get_channel_logo_path'), { VALUE: '' })).ret, -2);
  set.used.add(`get ${uri('get_channel_logo_path')}`);
});

test('a channel that one client renames is renamed for another, which is told', async (t) => {
  const client = await set.client(t);
  const other = await set.client(t);
  await other.subscribe(changes);
  await client.set(uri('edit_channel_info'), { SVL_ID: air, CH_ID: five.id, CH_EDIT_NAME: 'Blaue Bucht' });
  const told = await other.notified(changes, { CONDITIONS: changed, DATA: five.id });
  assert.equal(told.REASON, reason.changed);
  assert.equal((await other.item(uri('channel_info'), { SVL_ID: air, CH_ID: five.id, ...active, DIRECTION: 0 })).SERVICE_NAME, 'Blaue Bucht');
  await client.set(uri('edit_channel_info'), { SVL_ID: air, CH_ID: five.id, CH_EDIT_NAME: five.name });
});

set.everyUriIsUsed();

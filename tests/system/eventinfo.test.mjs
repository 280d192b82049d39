// The programme guide from end to end: events of a broadcast, as applications ask for them, and the active window.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { broadcastBegins, byNumber, schedules, television, until } from './antenna_support.mjs';
import { modify } from './host_support.mjs';

const uri = (name) => `/tv/eventinfo/${name}`;
const infoEvents = '/tv/ws/notify/active_window_info';
const timeEvents = '/tv/ws/notify/active_window_time';
const set = television(['EVENT'], [infoEvents, timeEvents]);
const tag = { TYPE: 0, TAG: 999999, SVL_HANDLE: 0 };
const condition = { window: 1, updated: 2, present: 3 };
const reason = { request: 1, broadcast: 2, time: 4 };

// The parameters of queries in a new set.
const usual = { WINDOW_ID: 0, AT_LEAST_SECS: 0, FAKE_EMPTY_EVENT_AT_LEAST_SECS: 0, AUTO_FILLIN_FAKE_EMPTY_EVENT: 0, ALLOW_CONFLICT_EVENT_WHEN_QUERY: 1, ALLOW_PARTIAL_OVERLAP_EVENT: 1 };

const russian = byNumber(4);
const sport = byNumber(30);
const guide = schedules();
const dayLength = 86400;

// The service's events from the present one on, in the set's time. The broadcast begins at 18:30 of its own time, and is
// moved to the set's; at that time no event of a service that is used here is about to end.
async function eventsOf(client, { service, stream }) {
  const { shift_seconds: shift } = (await client.tv('antenna')).multiplexes.find((each) => each.stream === stream);
  const moved = guide[service].map((event) => ({ ...event, start: event.start + shift }));
  return moved.filter((event) => event.start + event.duration > broadcastBegins + shift);
}
const idsOf = (items) => items.map(({ EVENT_ID }) => EVENT_ID);
const ids = (events) => events.map(({ id }) => id);
// What a query of the time from the first event's begin to the last one's end has to say.
const span = (events) => ({ START_TIME: events[0].start, DURATION: events.at(-1).start + events.at(-1).duration - events[0].start });

// Tunes the channel, and waits until the guide has its events of the next two days.
async function collected(client, channel) {
  await client.tv(`tune ${channel.number}`);
  const events = await eventsOf(client, channel);
  const wanted = events.filter(({ start }) => start < events[0].start + 2 * dayLength);
  assert.ok(wanted.length > 20);
  for (const event of wanted) {
    const query = { CH_ID: channel.id, EVENT_ID: event.id };
    await until(() => client.get(uri('event_information'), query), ({ ret }) => ret === 0, `event ${event.id} in the guide`);
  }
  return wanted;
}

function is(item, event, channel) {
  const { GUIDANCE_MODE, GUIDANCE_TEXT, RATING, ...rest } = item;
  assert.deepEqual(rest, {
    CHANNEL_ID: channel.id,
    EVENT_ID: event.id,
    EVENT_NAME: event.title,
    FREE_CA_MODE: 0,
    CATEGORY_NUM: 1,
    CATEGORY: [event.category],
    DETAILS: event.summary,
    START_TIME: event.start,
    DURATION: event.duration,
  });
}

test('the broadcast is moved to the present time, by whole minutes', async (t) => {
  const client = await set.client(t);
  for (const { shift_seconds: shift } of (await client.tv('antenna')).multiplexes) {
    assert.equal(shift % 60, 0);
    const off = Date.now() / 1000 - (broadcastBegins + shift);
    assert.ok(off > -60 && off < 600, `${off} s`);
  }
});

test('events have the times, titles and texts of the broadcast', async (t) => {
  const client = await set.client(t);
  const events = await collected(client, russian);
  for (const event of events) {
    is(await client.item(uri('event_information'), { CH_ID: russian.id, EVENT_ID: event.id }), event, russian);
    assert.deepEqual(await client.item(uri('event_extend_information'), { CH_ID: russian.id, EVENT_ID: event.id }), {
      CHANNEL_ID: russian.id,
      EVENT_ID: event.id,
      DETAIL_EXTEND: [event.details, ...event.items.map((item) => item.join(': '))].join('\n'),
    });
  }
  is(await client.item(uri('event_current_information'), { CH_ID: russian.id }), events[0], russian);
  is(await client.item(uri('event_next_information'), { CH_ID: russian.id }), events[1], russian);
});

test('a channel without events, an unknown event and an unknown channel are reported', async (t) => {
  const client = await set.client(t);
  for (const name of ['event_current_information', 'event_next_information']) await client.fails(uri(name), { CH_ID: byNumber(90).id });
  await client.fails(uri('event_information'), { CH_ID: russian.id, EVENT_ID: 1 });
  await client.fails(uri('event_information'), { CH_ID: 0x3fff0001, EVENT_ID: (await eventsOf(client, russian))[0].id });
  await client.fails(uri('channel_with_event_ids'), { CH_ID: russian.id, START_TIME: 1000, DURATION: 1000 });
});

test('the events of a time, at most 64', async (t) => {
  const client = await set.client(t);
  const events = await collected(client, russian);
  const range = (some) => client.items(uri('channel_with_event_ids'), { CH_ID: russian.id, ...span(some) });
  const some = events.slice(3, 9);
  assert.deepEqual(
    await range(some),
    some.map(({ id, title, start, duration }) => ({ EVENT_ID: id, EVENT_NAME: title, START_TIME: start, DURATION: duration })),
  );
  const many = await eventsOf(client, russian);
  assert.ok(many.length > 100);
  await until(() => range(many), (items) => items.length === 64, '64 events');
  assert.deepEqual(idsOf(await range(many)), ids(many.slice(0, 64)));
});

test('events by category and by length', async (t) => {
  const client = await set.client(t);
  const events = await collected(client, russian);
  const { START_TIME, DURATION } = span(events);
  const filter = (more) => client.item(uri('channel_event_num_by_filter'), { FILTER_TYPE: 1, SVL_ID: 1, CH_ID: russian.id, START_TIME, END_TIME: START_TIME + DURATION, ...more });
  const { category } = events[0];
  const wanted = ids(events.filter((each) => each.category === category));
  assert.ok(wanted.length > 1 && wanted.length < events.length);
  assert.deepEqual(await filter({ CATEGORY_NUM: 1, CATEGORY: [category] }), {
    EVENT_NUM: wanted.length,
    EVENT_ID: wanted,
    CH_ID: wanted.map(() => russian.id),
  });
  const long = ids(events.filter((each) => each.duration >= 4000));
  assert.ok(long.length > 0 && long.length < events.length);
  assert.deepEqual((await filter({ DURATION: 4000 })).EVENT_ID, long);
  assert.deepEqual((await filter({ END_TIME: 0, DURATION })).EVENT_ID, ids(events), 'without an end, the length of the time');
  const elsewhere = await client.get(uri('channel_event_num_by_filter'), { FILTER_TYPE: 1, SVL_ID: 3, CH_ID: russian.id, START_TIME, DURATION });
  assert.equal(elsewhere.response?.ITEMS, undefined, 'the channel is in list 1');
  const { ret } = await client.get(uri('channel_event_num_by_filter'), { FILTER_TYPE: 1, CH_ID: russian.id, CATEGORY_NUM: 3, CATEGORY: [] });
  assert.equal(ret, -1);
});

test('the parameters of queries leave out short and cut events', async (t) => {
  const client = await set.client(t);
  const events = (await collected(client, russian)).slice(2, 20);
  const { START_TIME, DURATION } = span(events);
  const range = async (cut = 0) => idsOf(await client.items(uri('channel_with_event_ids'), { CH_ID: russian.id, START_TIME: START_TIME + cut, DURATION: DURATION - cut }));
  const long = events.filter((each) => each.duration >= 3600);
  assert.ok(long.length > 1 && long.length < events.length);
  await client.set(uri('set_query_parameter'), { ...usual, AT_LEAST_SECS: 3600 });
  assert.deepEqual(await range(), ids(long));
  await client.set(uri('set_query_parameter'), { ...usual, ALLOW_PARTIAL_OVERLAP_EVENT: 0 });
  assert.deepEqual(await range(60), ids(events.slice(1)));
  await client.set(uri('set_query_parameter'), usual);
  assert.deepEqual(await range(60), ids(events));
});

test('a gap in the guide is an event without a title, with an identifier and a time', async (t) => {
  const client = await set.client(t);
  const empty = byNumber(90);
  const start = Math.floor(Date.now() / 1000);
  await client.set(uri('set_query_parameter'), { ...usual, AUTO_FILLIN_FAKE_EMPTY_EVENT: 1 });
  const range = (from) => client.item(uri('channel_with_event_ids'), { CH_ID: empty.id, START_TIME: from, DURATION: 3600 });
  const [gap, later] = [await range(start), await range(start + 7200)];
  assert.deepEqual([gap.EVENT_NAME, gap.START_TIME, gap.DURATION], ['', start, 3600]);
  assert.deepEqual([later.START_TIME, later.DURATION], [start + 7200, 3600]);
  assert.notEqual(gap.EVENT_ID, later.EVENT_ID);
  assert.deepEqual(await client.item(uri('event_information'), { CH_ID: empty.id, EVENT_ID: gap.EVENT_ID }), gap);
  await client.set(uri('set_query_parameter'), usual);
});

test('titles follow the language of the menus while the channel is received', async (t) => {
  const client = await set.client(t);
  const cinema = byNumber(2);
  await client.tv('config g_gui_lang__gui_language eng');
  const [{ id }] = await collected(client, cinema);
  const name = async () => (await client.item(uri('event_information'), { CH_ID: cinema.id, EVENT_ID: id })).EVENT_NAME;
  const english = await name();
  await client.tv('config g_gui_lang__gui_language fra');
  await until(name, (shown) => shown !== english, 'the French title');
  await client.tv('config g_gui_lang__gui_language eng');
  await until(name, (shown) => shown === english, 'the English title again');
});

test('an update of the guide is started, observed and stopped', async (t) => {
  const client = await set.client(t);
  const update = (operation) => client.item(uri('update_epg'), { operation });
  const idle = (await update(3)).updateState;
  await client.set(uri('update_epg'), { operation: 1 });
  const running = await update(3);
  assert.equal(running.operation, 3);
  assert.notEqual(running.updateState, idle);
  assert.ok((await update(4)).channelNum > 0);
  await client.set(uri('update_epg'), { operation: 2 });
  assert.equal((await update(3)).updateState, idle);
  await client.refused(uri('update_epg'), { operation: 3 });
});

test('the active window is set, told of events that are new in it, and cleared', async (t) => {
  const client = await set.client(t);
  await client.subscribe(infoEvents);
  await client.tv('guide clear');
  const start = Math.floor(Date.now() / 1000);
  const windowed = { ...tag, CONDITIONS: condition.window, REASON: reason.request, DATA: 0 };
  const channels = [russian.id, sport.id, ...[1, 2, 5, 7, 12].map((number) => byNumber(number).id), byNumber(21).id];
  await client.set(uri('active_window_information'), { START_TIME: start, CHANNEL_NUM: channels.length, CHANNEL_ID: channels });
  await client.notified(infoEvents, windowed);
  for (const name of ['active_window_start_time', 'active_window_end_time', 'active_window_channel_ids']) assert.deepEqual(await client.item(uri(name)), {});
  await client.tv('tune 30');
  await client.notified(infoEvents, { ...tag, CONDITIONS: condition.updated, REASON: reason.broadcast, DATA: sport.id });
  await client.set(uri('clear_active_window'), {});
  await client.notified(infoEvents, windowed);
  await client.refused(uri('active_window_information'), { START_TIME: start, CHANNEL_NUM: 1, CHANNEL_ID: 7 });
  await client.refused(uri('active_window_information'), { START_TIME: start, CHANNEL_NUM: 1, CHANNEL_ID: [] });
});

test('a client is told when the time zone changes, and when the next event has begun', async (t) => {
  const client = await set.client(t);
  const events = await collected(client, russian);
  await client.subscribe(timeEvents);
  await client.tv('clock zone Europe/London');
  await client.notified(timeEvents, tag);
  await client.subscribe(infoEvents);
  await client.call('set', { uri: '/tv/menu/common_setting/utc_time', parameter: modify(events[1].start + 5) });
  await client.notified(timeEvents, tag);
  await client.notified(infoEvents, { ...tag, CONDITIONS: condition.present, REASON: reason.time, DATA: russian.id });
  is(await client.item(uri('event_current_information'), { CH_ID: russian.id }), events[1], russian);
  is(await client.item(uri('event_next_information'), { CH_ID: russian.id }), events[2], russian);
});

set.everyUriIsUsed();

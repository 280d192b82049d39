// The set's configuration from end to end: dtvctl and JSON-RPC, the plugin, the virtual television, its store.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { shell } from './cli_support.mjs';
import { connect, startHost } from './host_support.mjs';

const number = '/tv/config/value_number';
const string = '/tv/config/value_string';
const updates = '/tv/ws/notify/config_update';
const language = 'g_gui_lang__gui_language';
const name = 'g_misc__tv_network_name';
const english = 0x656e6700;
const german = 0x64657500;
const callbackTag = 0x14bf88;

const query = (cfg) => JSON.stringify({ REQUEST: 'QUERY', ...cfg });
const update = (key) => ({ URI: updates, REQUEST: 'NOTIFY', ITEMS: [{ ID: -1, TAG: callbackTag, ARG1: 0, ARG2: key }] });

async function television(t, options) {
  const host = await startHost(t, [], options);
  const { run, done, json } = shell(host);
  return {
    host,
    run,
    done,
    json,
    get: async (uri, cfg) => (await json('get', uri, query(cfg))).response.ITEMS[0],
    set: (uri, cfg) => done('set', uri, JSON.stringify({ REQUEST: 'SET', ...cfg })),
    config: (...words) => json('tv', 'config', ...words),
  };
}

test('a value that an application sets is reported and survives kill -9', async (t) => {
  const first = await television(t);
  const client = await connect(t, first.host);
  await client.call('subscribe', { uri: updates });
  assert.equal((await first.get(number, { cfgId: language })).valueInt, english);

  await first.set(number, { cfgId: language, valueInt: german });
  assert.deepEqual((await client.next('notify')).notification, update(language));
  await first.set(string, { cfgId: name, valueString: 'Küche' });
  assert.deepEqual((await client.next('notify')).notification, update(name));
  await first.set(number, { cfgId: 'g_video__brightness', valueInt: 77 }); // not watched
  await first.set(string, { cfgId: name, valueString: 'Küche' }); // no change
  await first.done('tv', 'config', language, 'TUR');
  assert.deepEqual((await client.next('notify')).notification, update(language));
  assert.equal(client.pending('notify'), 0);
  await first.host.stop('SIGKILL');

  const second = await television(t, { state: first.host.state });
  assert.equal((await second.get(number, { cfgId: language })).valueInt, 0x74757200);
  assert.equal((await second.get(string, { cfgId: name })).valueString, 'Küche');
  assert.equal((await second.config('g_video__brightness')).value, 77);
  assert.deepEqual((await second.json('tv', 'state')).config, {
    [language]: 'tur',
    [name]: 'Küche',
    g_video__brightness: 77,
  });
  assert.equal((await second.json('tv', 'reset')).config, undefined);
  assert.equal((await second.get(number, { cfgId: language })).valueInt, english);
});

test('values by item id, limits, the look-up and an action', async (t) => {
  const tv = await television(t);
  const item = async (key) => Number((await tv.config(key)).item);
  const logos = await item('g_misc__ch_logos_status');
  await tv.set('/tv/config/value_bool', { cfgItem: logos, valueInt: 0 });
  assert.equal((await tv.get('/tv/config/value_bool', { cfgItem: logos })).valueInt, 0);
  assert.equal((await tv.config('g_misc__ch_logos_status')).value, false);

  await tv.set(number, { cfgId: 'g_audio__balance', valueInt: -50 });
  const { valueInt, valueMin, valueMax } = await tv.get('/tv/config/value_range', { cfgId: 'g_audio__balance' });
  assert.deepEqual([valueInt, valueMin, valueMax], [-50, -50, 50]);
  const refused = await tv.run('set', number, JSON.stringify({ REQUEST: 'SET', cfgId: 'g_audio__balance', valueInt: 51 }));
  assert.notEqual(refused.code, 0);
  assert.equal((await tv.get(number, { cfgId: 'g_audio__balance' })).valueInt, -50);

  const unlimited = await tv.get('/tv/config/value_range', { cfgId: language });
  assert.deepEqual([unlimited.valueInt, unlimited.valueMin, unlimited.valueMax], [english, 0, 0]);
  assert.equal((await tv.get(number, { cfgId: name })).valueInt, 0);

  const found = await tv.get(string, { cfgItem: 0x07240005, valueString: language });
  assert.equal(found.valueString, 'eng');
  assert.notEqual((await tv.run('get', string, query({ cfgItem: 0x07240005, valueString: 'g_no' }))).code, 0);

  await tv.set('/tv/config/value_action', { cfgItem: await item('g_action__reset_sound') });
  assert.equal((await tv.get(number, { cfgId: 'g_audio__balance' })).valueInt, 0);
});

test('dtvctl tv config', async (t) => {
  const tv = await television(t);
  assert.match(await tv.done('tv', 'help'), /\bconfig\b/);
  const all = await tv.config();
  assert.ok(Object.keys(all).length >= 140);
  assert.equal(all[language], 'eng');
  assert.deepEqual(await tv.config('gui_lang'), { [language]: 'eng' });
  assert.match(await tv.done('tv', 'config', 'gui_lang'), /^g_gui_lang__gui_language\s+eng$/m);
  assert.match(await tv.done('tv', 'config', 'g_audio__balance', '-3'), /^minimum\s+-50$/m);
  assert.equal((await tv.config('g_audio__balance')).value, -3);
  const refused = await tv.run('tv', 'config', 'g_audio__balance', '99');
  assert.notEqual(refused.code, 0);
  assert.match(refused.stderr, /from -50 to 50, not "99"/);
});

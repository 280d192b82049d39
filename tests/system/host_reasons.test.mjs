// A refused request says what was wrong and what would be right; a request that the set bends says so.
import test from 'node:test';
import assert from 'node:assert/strict';
import { connect, modify, mute, request, startHost, volume, volumeEvents } from './host_support.mjs';

const setVolume = 'a_vextvapi_volctrl_setVolume';
const right = '{"REQUEST":"MODIFY","VALUE":0}';
const language = '/tv/menu/common_setting/gui_language';
const text = '/tv/config/value_string';

// A request: the kind, the URI, its parameter, the result; what the reason, or else a warning, says. Before: viewer's
// commands that lead to the failure.
const wrong = [
  { name: 'no VALUE', kind: 'set', uri: volume, parameter: { REQUEST: 'MODIFY' }, ret: -1, reason: ['VALUE is missing', right] },
  { name: 'no request word', kind: 'set', uri: volume, parameter: { VALUE: 5 }, ret: -1, reason: ['REQUEST is missing', right] },
  { name: 'another word', kind: 'set', uri: volume, parameter: { REQUEST: 'SET', VALUE: 5 }, ret: -1, reason: ['"SET"', right] },
  { name: 'the wrong case', kind: 'set', uri: volume, parameter: { REQUEST: 'modify', VALUE: 5 }, ret: -1, reason: ['"modify"', right] },
  { name: 'beyond the range', kind: 'set', uri: volume, parameter: modify(101), ret: -1, reason: ['101', '0 to 100', setVolume] },
  { name: 'a number for a text', kind: 'set', uri: language, parameter: modify(7), ret: -1, reason: ['VALUE is a number, 7', 'a text'] },
  { name: 'a text for a number', kind: 'set', uri: volume, parameter: modify('abc'), ret: 0, warning: ['"abc"', 'a number', 'takes 0'] },
  { name: 'null for a number', kind: 'set', uri: volume, parameter: modify(null), ret: 0, warning: ['null', 'a number', 'takes 0'] },
  { name: 'beyond 16 bits', kind: 'set', uri: volume, parameter: modify(65546), ret: 0, warning: ['65546', 'not within -32768 to 32767', 'another number'] },
  { name: 'a needed member is missing', kind: 'set', uri: '/tv/config/value_number', parameter: { REQUEST: 'SET', cfgId: 'g_video__brightness' }, ret: 0, warning: ['valueInt is missing', 'takes 0', '"valueInt":0'] },
  { name: 'a fraction', kind: 'set', uri: volume, parameter: modify(22.7), ret: 0, warning: ['22.7', 'takes 22'] },
  { name: 'a longer text', kind: 'set', uri: language, parameter: modify('germany'), ret: 0, warning: ['first 3', '"ger"'] },
  { name: 'an unknown member', kind: 'set', uri: volume, parameter: { ...modify(5), MUTE: 1 }, ret: 0, warning: ['MUTE', 'ignored', 'VALUE'] },
  { name: 'a misspelt member', kind: 'get', uri: text, parameter: { REQUEST: 'QUERY', cfgid: 'x' }, ret: -2, reason: ['cfgid', 'did you mean cfgId?'] },
  { name: 'no query', kind: 'get', uri: text, ret: -2, reason: ['"REQUEST":"QUERY"', 'cfgId'] },
  { name: 'an unknown key', kind: 'get', uri: text, parameter: { REQUEST: 'QUERY', cfgId: 'nothing' }, ret: -1, reason: ['no key "nothing"'] },
  { name: 'a needless query', kind: 'get', uri: volume, parameter: { REQUEST: 'QUERY' }, ret: -1, reason: ['takes no parameter'] },
  { name: 'a set of a notification', kind: 'set', uri: volumeEvents, parameter: modify(5), ret: -1, reason: ['only notifies', 'subscribe'] },
  { name: 'a get of a notification', kind: 'get', uri: volumeEvents, ret: -1, reason: ['only notifies', 'subscribe'] },
  { name: 'an action on a value', kind: 'set', uri: volume, parameter: { REQUEST: 'ACTION' }, ret: 0, warning: ['no action', 'nothing is done', right] },
  { name: 'nothing serves it', kind: 'get', uri: '/tv/menu/tuner/scan_mode', ret: -2, reason: ['nothing serves this URI', 'list'] },
  { name: 'an unknown key of the remote control', kind: 'set', uri: '/tv/key/irrc', parameter: modify('VOL'), ret: -2, reason: ['"VOL"', '"POWER"'] },
  { name: "a code of the platform's own", before: ['fault', setVolume, '--fail', '-5'], kind: 'set', uri: volume, parameter: modify(5), ret: -5, reason: ['a fault is set', setVolume, '-5'] },
  { name: 'a failure that the plugin does not pass on', kind: 'set', uri: '/tv/channelinfo/change_input_source', parameter: modify(99), ret: 0, warning: ['succeeded, but', 'no source 98'] },
];

// The plugin's table of results has another meaning for the platform's -5.
const otherMeaning = /unknown URI/;

for (const { name, before, kind, uri, parameter, ret, reason, warning } of wrong)
  test(name, async (t) => {
    const host = await startHost(t, ['--no-cec']);
    const client = await connect(t, host);
    if (before) await client.call('tv', { words: before });

    const told = await client.call(kind, { uri, ...(parameter && { parameter }) });
    assert.equal(told.ret, ret);
    const said = reason ? told.reason : told.warnings.join('\n');
    for (const part of reason ?? warning) assert.ok(said.includes(part), `${said} lacks ${part}`);
    assert.doesNotMatch(said, otherMeaning);
    if (ret === 0) assert.equal(told.reason, undefined);

    const json = parameter && JSON.stringify(parameter);
    const http =
      kind === 'set'
        ? await request(host, 'PUT', uri, { body: json })
        : await request(host, 'GET', json ? `${uri}?parameter=${encodeURIComponent(json)}` : uri);
    assert.equal(http.status, ret === 0 ? 200 : 422);
    assert.equal(http.json.reason, told.reason);
    assert.deepEqual(http.json.warnings, told.warnings);

    // A strict host does not pass on what it can tell without the platform.
    const strict = await client.ask(kind, { uri, ...(parameter && { parameter }), strict: true });
    const needsPlatform = ['beyond the range', 'an unknown key', "a code of the platform's own", 'a failure that the plugin does not pass on'];
    if (needsPlatform.includes(name)) return assert.equal(strict.result.ret, ret);
    assert.equal(strict.error.code, -32602);
    assert.ok(strict.error.data.warnings.includes(strict.error.message));
  });

test('an argument of the query that is no parameter is named', async (t) => {
  const host = await startHost(t);
  const refused = await request(host, 'GET', '/tv/config/value_number?cfgId=g_video__brightness');
  assert.equal(refused.status, 422);
  const said = [refused.json.reason, ...(refused.json.warnings ?? [])].join('\n');
  assert.ok(said.includes(`the query's cfgId is ignored; a get takes its members as ?parameter={"REQUEST":"QUERY","cfgId":`), said);
  const done = await request(host, 'GET', `${volume}?fresh=1`);
  assert.equal(done.status, 200);
  assert.equal(done.headers['dtv-warning'], "the query's fresh is ignored; a get of this URI takes no members");
  assert.equal((await request(host, 'GET', volume)).headers['dtv-warning'], undefined);
});

test('a right request has neither reason nor warnings', async (t) => {
  const client = await connect(t, await startHost(t));
  assert.deepEqual(await client.call('set', { uri: volume, parameter: modify(30), strict: true }), { ret: 0 });
  assert.deepEqual(Object.keys(await client.call('get', { uri: volume, strict: true })), ['ret', 'response']);
});

test("a get's warnings are in its headers by HTTP", async (t) => {
  const host = await startHost(t);
  const reply = await request(host, 'GET', `${mute}?parameter=${encodeURIComponent('{"FOO":1}')}`);
  assert.equal(reply.status, 200);
  assert.match(reply.headers['dtv-warning'], /only with "QUERY"/);
  assert.deepEqual(Object.keys(reply.json), ['URI', 'STATUS', 'ITEMS']);
});

test('--strict holds for every client', async (t) => {
  const host = await startHost(t, ['--strict']);
  const refused = await request(host, 'PUT', volume, { body: JSON.stringify(modify('7')) });
  assert.equal(refused.status, 400);
  assert.match(refused.json.error, /must be a number/);
  const client = await connect(t, host);
  assert.equal((await client.ask('set', { uri: volume, parameter: modify('7') })).error.code, -32602);
  assert.deepEqual(await client.call('set', { uri: volume, parameter: modify(7) }), { ret: 0 });
});

test("with trace the reply has the request's lines of the log, and no others", async (t) => {
  const client = await connect(t, await startHost(t));
  const { log } = await client.call('set', { uri: volume, parameter: modify(101), trace: true });
  assert.ok(log.some((line) => line.includes('101 is not within 0 to 100')), log.join('\n'));
  const plugin = (await client.call('set', { uri: volume, parameter: { REQUEST: 'MODIFY' }, trace: true })).log;
  assert.ok(plugin.some((line) => /^\[TVC_API\].*Error before/.test(line)), plugin.join('\n'));
  assert.deepEqual((await client.call('get', { uri: volume, trace: true })).log, []);
});

test('ping is answered while a slow call runs', async (t) => {
  const client = await connect(t, await startHost(t));
  await client.call('tv', { words: ['fault', 'a_vextvapi_volctrl_getVolume', '--delay', '2000'] });
  let done = false;
  const slow = client.call('get', { uri: volume }).then(() => (done = true));
  assert.deepEqual(await client.call('ping'), {});
  assert.equal(done, false);
  await slow;
});

// The token: where it is kept, which requests need it, and which do not.
import assert from 'node:assert/strict';
import { mkdirSync, readFileSync, statSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import { connect, dtvHost, folder, modify, post, request, sharedHost, startHost, valueOf, volume, volumeEvents } from './host_support.mjs';

const host = sharedHost();
const locked = sharedHost(['--require-token']);

const forbidden = -32006;
const bearer = (token) => ({ headers: { Authorization: `Bearer ${token}` } });
const rpc = (method, params) => ({ jsonrpc: '2.0', id: 1, method, params });
const tv = rpc('tv', { words: ['volume', '61'] });
const stranger = (t, at = host) => connect(t, at, { authorize: false });
const permissions = (path) => (statSync(path).mode & 0o7777).toString(8);

// Tokens that are none, each of the kind that the method takes.
const wrong = (token) => ({
  'nothing': '',
  'a letter': 'a',
  'all but the last digit': token.slice(0, -1),
  'all but the first digit': token.slice(1),
  'a digit too many': `${token}0`,
  'another last digit': token.slice(0, -1) + (token.endsWith('0') ? '1' : '0'),
  'another first digit': (token.startsWith('0') ? '1' : '0') + token.slice(1),
  'upper case': token.toUpperCase() === token ? `${token}A` : token.toUpperCase(),
  'a blank before': ` ${token}`,
  'a line feed behind': `${token}\n`,
  'twice': token + token,
  'zeros': '0'.repeat(64),
  'a long text': 'f'.repeat(100_000),
});

test('the token stands in a file that only its owner reads', async (t) => {
  const state = join(folder(t), 'new/state');
  const { token } = await startHost(t, [], { state });
  assert.match(token, /^[0-9a-f]{64}$/);
  assert.equal(readFileSync(join(state, 'token'), 'latin1'), `${token}\n`);
  assert.equal(permissions(join(state, 'token')), '600');
  assert.equal(permissions(state), '700');
});

test('the file is for its owner whatever the umask', async (t) => {
  const state = join(folder(t), 'state');
  const { token } = await startHost(t, [], { state, program: ['sh', '-c', 'umask 0; exec "$@"', 'sh', dtvHost] });
  assert.equal(readFileSync(join(state, 'token'), 'latin1'), `${token}\n`);
  assert.equal(permissions(join(state, 'token')), '600');
  assert.equal(permissions(state), '700');
});

test('the token survives a restart, and each state folder has its own', async (t) => {
  const state = folder(t);
  const first = await startHost(t, [], { state });
  assert.equal((await first.stop()).code, 0);
  const again = await startHost(t, [], { state });
  assert.equal(again.token, first.token);
  assert.match(again.token, /^[0-9a-f]{64}$/);
  assert.equal(readFileSync(join(state, 'token'), 'latin1'), `${first.token}\n`);
  assert.notEqual(again.token, host.token);
});

test('without authorize, tv is refused by WebSocket and everything else is open', async (t) => {
  const client = await stranger(t);
  await client.call('set', { uri: volume, parameter: modify(20) });
  for (const words of [['volume', '61'], ['help'], ['faults'], ['state'], ['fault', '--clear'], ['no such command'], []]) {
    const { code, message } = await client.fail('tv', { words });
    assert.equal(code, forbidden, words.join(' '));
    assert.ok(message.length > 0);
  }
  client.send(JSON.stringify({ jsonrpc: '2.0', method: 'tv', params: { words: ['volume', '61'] } }));
  client.send(JSON.stringify([tv, rpc('get', { uri: volume })]));
  const [refused, read] = JSON.parse(await client.text());
  assert.equal(refused.error.code, forbidden);
  assert.equal(valueOf(read.result), 20);
  assert.ok((await client.call('list')).uris.length > 0);
  await client.call('subscribe', { uri: volumeEvents });
  await client.call('set', { uri: volume, parameter: modify(21) });
  assert.equal((await client.next('notify')).notification.ITEMS[0].volValue, 21);
  assert.equal((await request(host, 'GET', volume)).json.ITEMS[0].VALUE, 21);
});

test('authorize lets its own connection in, and no other', async (t) => {
  const [client, other] = [await stranger(t), await stranger(t)];
  assert.deepEqual(await client.call('authorize', { token: host.token }), {});
  await client.call('tv', { words: ['volume', '61'] });
  assert.equal(valueOf(await client.call('get', { uri: volume })), 61);
  assert.equal((await other.fail('tv', { words: ['volume', '62'] })).code, forbidden);
  assert.equal((await (await stranger(t)).fail('tv', { words: ['volume', '62'] })).code, forbidden);
  assert.deepEqual(await client.call('authorize', { token: host.token }), {});
  assert.equal(valueOf(await client.call('get', { uri: volume })), 61);
});

test('a wrong token is refused, each in the same words', async (t) => {
  const client = await stranger(t);
  const said = new Set();
  for (const [name, token] of Object.entries(wrong(host.token))) {
    const { code, message, data } = await client.fail('authorize', { token });
    assert.equal(code, forbidden, name);
    said.add(JSON.stringify([message, data]));
    assert.equal((await client.fail('tv', { words: ['volume', '62'] })).code, forbidden, name);
  }
  assert.equal(said.size, 1, [...said].join('\n'));
  assert.ok(![...said][0].includes(host.token.slice(0, 8)));
  assert.deepEqual(await client.call('authorize', { token: host.token }), {});
});

test('what is no token is refused', async (t) => {
  const client = await stranger(t);
  for (const params of [undefined, {}, [], [host.token], { token: null }, { token: 0 }, { token: true }, { token: [host.token] }, { token: { token: host.token } }, { Token: host.token }, { token: host.token, more: 1 }]) {
    const { code } = await client.fail('authorize', params);
    assert.ok([-32602, forbidden].includes(code), JSON.stringify(params)?.replace(host.token, 'TOKEN'));
    assert.equal((await client.fail('tv', { words: ['help'] })).code, forbidden);
  }
});

test('POST: tv needs the token in its header', async (t) => {
  await post(host, rpc('set', { uri: volume, parameter: modify(20) }));
  assert.equal((await post(host, tv)).json.error.code, forbidden);
  for (const [name, token] of Object.entries(wrong(host.token))) {
    if (/^\s|\n/.test(token) || token.length > 1000) continue; // no header has such a value
    assert.equal((await post(host, tv, bearer(token))).json.error.code, forbidden, name);
  }
  for (const value of [host.token, `Basic ${host.token}`, `Bearer${host.token}`, `Bearer token=${host.token}`, `Bearer ${host.token},`, `X Bearer ${host.token}`, 'Bearer', 'Bearer undefined'])
    assert.equal((await post(host, tv, { headers: { Authorization: value } })).json.error.code, forbidden, value.replace(host.token, 'TOKEN'));
  assert.equal((await request(host, 'GET', volume)).json.ITEMS[0].VALUE, 20);
  assert.equal((await post(host, tv, bearer(host.token))).json.error, undefined);
  assert.equal((await request(host, 'GET', volume)).json.ITEMS[0].VALUE, 61);
  // The scheme's name has no case.
  assert.equal((await post(host, tv, { headers: { Authorization: `bearer ${host.token}` } })).json.error, undefined);
  const batch = (await post(host, [tv, rpc('get', { uri: volume })])).json;
  assert.deepEqual([batch[0].error.code, batch[1].error], [forbidden, undefined]);
});

test('POST: authorize lasts no longer than its request', async (t) => {
  await post(host, rpc('authorize', { token: host.token }));
  assert.equal((await post(host, tv)).json.error.code, forbidden);
});

test('a token in the address is none', async (t) => {
  for (const path of [`/jsonrpc?token=${host.token}`, `/jsonrpc?authorization=Bearer%20${host.token}`])
    assert.equal((await request(host, 'POST', path, { body: JSON.stringify(tv) })).json.error.code, forbidden);
});

test('--require-token: every method but authorize needs it', async (t) => {
  const client = await stranger(t, locked);
  for (const [method, params] of [['get', { uri: volume }], ['set', { uri: volume, parameter: modify(91) }], ['list', undefined], ['subscribe', { uri: volumeEvents }], ['unsubscribe', { uri: volumeEvents }], ['trace', { on: true }], ['tv', { words: ['help'] }], ['get', { uri: '/no/such/uri' }]])
    assert.equal((await client.fail(method, params)).code, forbidden, method);
  client.send(JSON.stringify({ jsonrpc: '2.0', method: 'set', params: { uri: volume, parameter: modify(91) } }));
  client.send(JSON.stringify([rpc('set', { uri: volume, parameter: modify(91) }), rpc('list')]));
  assert.deepEqual(JSON.parse(await client.text()).map(({ error }) => error.code), [forbidden, forbidden]);
  for (const [name, token] of Object.entries(wrong(locked.token))) assert.equal((await client.fail('authorize', { token })).code, forbidden, name);
  assert.equal((await client.fail('list')).code, forbidden);
  await client.call('authorize', { token: locked.token });
  assert.notEqual(valueOf(await client.call('get', { uri: volume })), 91);
  await client.call('set', { uri: volume, parameter: modify(22) });
  await client.call('tv', { words: ['help'] });
  await client.call('subscribe', { uri: volumeEvents });
});

test('--require-token: no notification reaches who has not shown it', async (t) => {
  const [client, other] = [await stranger(t, locked), await connect(t, locked)];
  await client.fail('subscribe', { uri: volumeEvents });
  await client.fail('trace', { on: true });
  await other.call('subscribe', { uri: volumeEvents });
  await other.call('set', { uri: volume, parameter: modify(64) });
  await other.call('set', { uri: volume, parameter: modify(65) });
  await other.next('notify');
  await client.ping();
  assert.equal(client.pending('notify') + client.pending('trace'), 0);
});

test('--require-token: plain HTTP needs it too, and is told which way', async (t) => {
  const body = JSON.stringify(modify(92));
  const asked = [['GET', volume], ['HEAD', volume], ['PUT', volume, body], ['POST', '/jsonrpc', JSON.stringify(rpc('get', { uri: volume }))], ['POST', '/jsonrpc', 'no JSON']];
  for (const [method, path, sent] of asked)
    for (const headers of [{}, { Authorization: 'Bearer ' + '0'.repeat(64) }, { Authorization: `Basic ${locked.token}` }]) {
      const answer = await request(locked, method, path, { headers, body: sent });
      assert.equal(answer.status, 401, `${method} ${path}`);
      assert.match(answer.headers['www-authenticate'], /^Bearer\b/, `${method} ${path}`);
    }
  assert.notEqual((await request(locked, 'GET', volume, bearer(locked.token))).json.ITEMS[0].VALUE, 92);
  assert.equal((await request(locked, 'PUT', volume, { ...bearer(locked.token), body: JSON.stringify(modify(23)) })).status, 200);
  assert.equal((await post(locked, rpc('get', { uri: volume }), bearer(locked.token))).json.result.ret, 0);
  assert.equal((await request(locked, 'GET', '/tv/nothing', bearer(locked.token))).status, 404);
});

test("--require-token: the page's files stay open", async (t) => {
  const web = join(folder(t), 'site');
  mkdirSync(web);
  writeFileSync(join(web, 'index.html'), '<!doctype html><title>page</title>');
  const open = await startHost(t, ['--require-token', '--web', web]);
  for (const path of ['/', '/index.html']) assert.equal((await request(open, 'GET', path)).status, 200, path);
  const page = await request(open, 'GET', '/');
  assert.ok(!page.text.includes(open.token) && !JSON.stringify(page.headers).includes(open.token), 'the page itself does not tell the token');
  assert.equal((await request(open, 'GET', volume)).status, 401);
});

test('no path leads to the token', async (t) => {
  for (const path of ['/token', '/../token', '/%2e%2e/token', `${host.state}/token`]) {
    const answer = await request(host, 'GET', path).catch(({ code }) => ({ status: code, text: '' }));
    assert.ok(!answer.text.includes(host.token), path);
  }
});

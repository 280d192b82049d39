// JSON-RPC by WebSocket and POST: every method, every error, batches, broken and too large messages.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { connect, dialWebSocket, frame, modify, mute, oddPlugin, post, request, slowCall, startHost, valueOf, volume, volumeEvents } from './host_support.mjs';

const version = '2.0';

test('get, set and list over WebSocket', async (t) => {
  const client = await connect(t, await startHost(t));
  assert.deepEqual(await client.call('set', { uri: volume, parameter: modify(37) }), { ret: 0 });
  assert.deepEqual(await client.call('get', { uri: volume }), {
    ret: 0,
    response: {
      URI: volume,
      STATUS: 0,
      ITEMS: [
        { NAME: 'Volume', TYPE: 'TYPE_VALUE', GROUP: 4, STATE: 1, MINIMUM: 0, MAXIMUM: 0, INCREMENT: 1, VALUE: 37 },
      ],
    },
  });
  assert.equal(valueOf(await client.call('get', { uri: volume, parameter: null })), 37);
  assert.equal(valueOf(await client.call('get', { uri: volume, parameter: { REQUEST: 'NOTHING KNOWN' } })), 37);
  const { uris } = await client.call('list');
  const rows = uris.filter((row) => row.uri === volume);
  assert.equal(rows.length, 1);
  assert.equal(rows[0].type, 'TYPE_VALUE');
});

test("a handler's failure is a result", async (t) => {
  const client = await connect(t, await startHost(t));
  // The step URIs are no values: a get of them is refused with -2, and their record is rendered all the same.
  const step = await client.call('get', { uri: '/tv/cast/volume/volume_increase' });
  assert.equal(step.ret, -2);
  assert.equal(step.response.STATUS, -2);
  // A QUERY of a plain value does not decode: the plugin gives no text.
  const { reason, ...rest } = await client.call('get', { uri: volume, parameter: { REQUEST: 'QUERY' } });
  assert.deepEqual(rest, { ret: -1, response: null });
  assert.match(reason, /takes no parameter/);
  assert.equal((await client.call('set', { uri: volume, parameter: { REQUEST: 'MODIFY' } })).ret, -1);
  assert.equal((await client.call('set', { uri: volume, parameter: {} })).ret, -1);
});

test('the parameter and the id pass through as they were written', async (t) => {
  const host = await startHost(t);
  const client = await connect(t, host);
  for (const id of ['12345678901234567890', '1.50', '"\\u00e4\\n"', 'null', '-0']) {
    client.send(`{ "jsonrpc" : "2.0" , "id" : ${id} , "method":"set","params":{"uri":"${volume}","parameter":{"REQUEST":"MODIFY","VALUE":5}}}`);
    assert.equal(await client.text(), `{"jsonrpc":"2.0","id":${id},"result":{"ret":0}}`);
  }
  // The first of two members of one name counts for the plugin: neither is removed on the way.
  await client.call('set', { uri: volume, parameter: modify(1) });
  const twice = '{"REQUEST":"MODIFY","VALUE":44,"VALUE":55}';
  await post(host, `{"jsonrpc":"2.0","id":1,"method":"set","params":{"uri":"${volume}","parameter":${twice}}}`);
  assert.equal(valueOf(await client.call('get', { uri: volume })), 44);
});

test('trace:true tells the platform calls of the request alone', async (t) => {
  const client = await connect(t, await startHost(t));
  const set = await client.call('set', { uri: volume, parameter: modify(23), trace: true });
  assert.deepEqual(set.calls.map(({ call, in: given, ret }) => ({ call, given, ret })),
    [{ call: 'a_vextvapi_volctrl_setVolume', given: { volume: 23 }, ret: 0 }]);
  const get = await client.call('get', { uri: mute, trace: true });
  assert.deepEqual(get.calls.map((line) => line.call), ['a_vextvapi_volctrl_getMute']);
  assert.ok(!('calls' in (await client.call('get', { uri: mute, trace: false }))));
});

test('trace notifications tell every platform call, until they are switched off', async (t) => {
  const host = await startHost(t, ['--no-cec']); // its devices announce themselves in the middle of a trace
  const watcher = await connect(t, host);
  const other = await connect(t, host);
  assert.deepEqual(await watcher.call('trace', { on: true }), {});
  await other.call('set', { uri: volume, parameter: modify(12) });
  // The callback comes on a thread of its own, so that its line may come before that of the call.
  const lines = [await watcher.next('trace'), await watcher.next('trace')];
  const call = lines.find((line) => line.call);
  assert.equal(call?.call, 'a_vextvapi_volctrl_setVolume');
  assert.deepEqual(call.in, { volume: 12 });
  assert.equal(lines.find((line) => line.event)?.event, 'a_vextvapi_volctrl_reg_callback');
  await watcher.call('trace', { on: false });
  await other.call('get', { uri: volume });
  await watcher.ping();
  assert.equal(watcher.pending('trace'), 0);
  assert.equal(other.pending('trace'), 0);
});

test('tv drives the virtual television and reports its errors', async (t) => {
  const client = await connect(t, await startHost(t));
  await client.call('tv', { words: ['volume', '61'] });
  assert.equal(valueOf(await client.call('get', { uri: volume })), 61);
  const { commands } = await client.call('tv', { words: ['help'] });
  for (const name of ['volume', 'mute', 'fault', 'faults']) assert.ok(commands.some((row) => row.name === name && row.help.length > 0), name);
  const error = await client.fail('tv', { words: ['no such command'] });
  assert.equal(error.code, -32004);
  assert.match(error.message, /no such command/);
  assert.equal((await client.fail('tv', { words: [] })).code, -32004);
});

test('faults are set, listed and cleared', async (t) => {
  const client = await connect(t, await startHost(t));
  const setVolume = 'a_vextvapi_volctrl_setVolume';
  await client.call('tv', { words: ['volume', '10'] });
  await client.call('tv', { words: ['fault', setVolume, '--fail', '-5'] });
  assert.equal((await client.call('set', { uri: volume, parameter: modify(90) })).ret, -5);
  assert.equal(valueOf(await client.call('get', { uri: volume })), 10);
  const { faults } = await client.call('tv', { words: ['faults'] });
  assert.deepEqual(Object.keys(faults), [setVolume]);
  assert.equal(faults[setVolume].result, -5);
  await client.call('tv', { words: ['fault', setVolume, '--clear'] });
  assert.deepEqual(await client.call('set', { uri: volume, parameter: modify(90) }), { ret: 0 });
  assert.deepEqual((await client.call('tv', { words: ['faults'] })).faults, {});

  await client.call('tv', { words: ['fault', setVolume, '--fail'] });
  assert.equal((await client.call('set', { uri: volume, parameter: modify(1) })).ret, -1);
  await client.call('tv', { words: ['fault', '--clear'] });
  assert.deepEqual(await client.call('set', { uri: volume, parameter: modify(1) }), { ret: 0 });

  const unknown = await client.fail('tv', { words: ['fault', 'a_vextvapi_volctrl_setVolum', '--fail'] });
  assert.match(unknown.message, /nearest: a_vextvapi_volctrl_setVolume/);
  for (const wrong of [['fault'], ['fault', setVolume], ['fault', setVolume, '--delay'], ['fault', setVolume, '--delay', 'long'], ['fault', setVolume, '--odd']])
    assert.equal((await client.fail('tv', { words: wrong })).code, -32004, wrong.join(' '));
});

test('requests without an id get no reply, whatever comes of them', async (t) => {
  const client = await connect(t, await startHost(t));
  client.send(JSON.stringify({ jsonrpc: version, method: 'set', params: { uri: volume, parameter: modify(8) } }));
  client.send(JSON.stringify({ jsonrpc: version, method: 'no such method' }));
  client.send(JSON.stringify({ jsonrpc: version, method: 'get', params: { uri: '/no/such/uri' } }));
  assert.equal(valueOf(await client.call('get', { uri: volume })), 8);
  await client.ping();
  assert.equal(client.pending('text'), 0);
});

test('batches answer in one array, in order, without the notifications', async (t) => {
  const host = await startHost(t);
  const client = await connect(t, host);
  const batch = [
    { jsonrpc: version, id: 'a', method: 'set', params: { uri: volume, parameter: modify(71) } },
    { jsonrpc: version, method: 'set', params: { uri: mute, parameter: modify(1) } },
    7,
    { jsonrpc: version, id: 'b', method: 'no such method' },
    { jsonrpc: version, id: 'c', method: 'get', params: { uri: volume } },
    { jsonrpc: version, id: 'd', method: 'subscribe', params: { uri: volumeEvents } },
  ];
  client.send(JSON.stringify(batch));
  const replies = JSON.parse(await client.text());
  assert.deepEqual(replies.map((reply) => [reply.id, reply.error?.code]), [['a', undefined], [null, -32600], ['b', -32601], ['c', undefined], ['d', undefined]]);
  assert.equal(valueOf(replies[3].result), 71);
  assert.equal(valueOf(await client.call('get', { uri: mute })), 1);

  client.send('[]');
  assert.equal(JSON.parse(await client.text()).error.code, -32600);
  client.send(JSON.stringify([{ jsonrpc: version, method: 'get', params: { uri: volume } }]));
  client.send('[1]');
  assert.deepEqual(JSON.parse(await client.text()).map((reply) => reply.error.code), [-32600]);
  client.send(JSON.stringify(Array(1001).fill(batch[0])));
  assert.equal(JSON.parse(await client.text()).error.code, -32003);

  client.send(JSON.stringify(Array.from({ length: 1000 }, (_, id) => ({ jsonrpc: version, id, method: 'list' }))));
  const lists = JSON.parse(await client.text());
  assert.equal(lists.length, 1000);
  assert.ok(lists[0].result.uris.length > 0);
  assert.equal(lists[999].error.code, -32003);

  const answer = await post(host, batch.slice(0, 5));
  assert.deepEqual(answer.json.map((reply) => reply.id), ['a', null, 'b', 'c']);
  assert.equal((await post(host, [batch[1]])).status, 204);
});

test('malformed JSON is always answered', async (t) => {
  const host = await startHost(t);
  const client = await connect(t, host);
  const broken = ['', '{', '{"jsonrpc":"2.0",}', 'nonsense', '{"a":01}', '"\\uzzzz"', '[1,2', '{} {}', '\u0000', '{"a":"\u0001"}', '[[[[', '"\\ud800'];
  for (const text of broken) {
    client.send(text);
    const reply = JSON.parse(await client.text());
    assert.equal(reply.id, null, text);
    assert.equal(reply.error.code, -32700, text);
    assert.match(reply.error.message, /byte \d+/);
    if (text === '') continue; // a POST without a body
    assert.equal((await post(host, text)).json.error.code, -32700, text);
  }
  client.socket.send(Buffer.from('{}'), { binary: true });
  assert.equal(JSON.parse(await client.text()).error.code, -32600);
  assert.equal((await post(host, '')).json.error.code, -32700);
  assert.equal((await client.call('get', { uri: volume })).ret, 0);
});

test('requests that are none', async (t) => {
  const host = await startHost(t);
  const ask = async (message) => (await post(host, message)).json;
  for (const message of [1, '"text"', null, {}, { id: 1 }, { jsonrpc: '1.0', id: 1, method: 'list' }, { jsonrpc: version, id: 1 }, { jsonrpc: version, id: 1, method: 5 }]) {
    const reply = await ask(message);
    assert.equal(reply.error.code, -32600, JSON.stringify(message));
    assert.equal(reply.id, message?.id ?? null, JSON.stringify(message));
  }
  for (const id of [{}, [], true]) assert.equal((await ask({ jsonrpc: version, id, method: 'list' })).error.code, -32600);
  const unknown = (await ask({ jsonrpc: version, id: 1, method: 'Get', params: {} })).error;
  assert.equal(unknown.code, -32601);
  assert.deepEqual(unknown.data.methods.sort(), ['authorize', 'get', 'list', 'ping', 'set', 'subscribe', 'trace', 'tv', 'unsubscribe']);
});

test('wrong parameters: which member, and what is wanted', async (t) => {
  const client = await connect(t, await startHost(t));
  const wrong = [
    ['get', {}, 'uri'], ['get', { uri: 5 }, 'uri'], ['get', { uri: null }, 'uri'], ['get', [volume], 'params'], ['get', 'text', 'params'],
    ['get', { uri: volume, parameter: 5 }, 'parameter'], ['get', { uri: volume, parameter: [] }, 'parameter'],
    ['get', { uri: volume, trace: 'yes' }, 'trace'], ['set', { uri: volume }, 'parameter'],
    ['set', { uri: volume, parameter: null }, 'parameter'], ['set', { uri: volume, parameter: 'text' }, 'parameter'],
    ['subscribe', {}, 'uri'], ['subscribe', { uri: volume }, 'uri'], ['unsubscribe', { uri: {} }, 'uri'],
    ['trace', {}, 'on'], ['trace', { on: 1 }, 'on'], ['tv', {}, 'words'], ['authorize', {}, 'token'], ['authorize', { token: 5 }, 'token'], ['tv', { words: 'volume up' }, 'words'], ['tv', { words: ['volume', 1] }, 'words'],
  ];
  for (const [method, params, member] of wrong) {
    const error = await client.fail(method, params);
    assert.equal(error.code, -32602, JSON.stringify([method, params]));
    assert.equal(error.data.member, member, JSON.stringify([method, params]));
    assert.ok(error.data.wanted.length > 0);
  }
  const misspelt = await client.fail('get', { uri: volume, parameters: {} });
  assert.equal(misspelt.code, -32602);
  assert.match(misspelt.message, /"parameters"/);
});

test('an unknown URI names the nearest ones', async (t) => {
  const client = await connect(t, await startHost(t));
  for (const method of ['get', 'set', 'subscribe', 'unsubscribe']) {
    const error = await client.fail(method, { uri: '/tv/cast/volume/volumee', ...(method === 'set' && { parameter: {} }) });
    assert.equal(error.code, -32001);
    assert.equal(error.data.uri, '/tv/cast/volume/volumee');
    assert.equal(error.data.nearest[0], volume);
  }
  for (const uri of ['', '/', '/TV/CAST/VOLUME/VOLUME', `${volume}\u0000`, `${volume} `, 'ä'.repeat(5000)])
    assert.equal((await client.fail('get', { uri })).code, -32001, uri.slice(0, 40));
  client.send('{"jsonrpc":"2.0","id":"escaped","method":"g\\u0065t","p\\u0061rams":{"uri":"\\/tv\\/cast\\/volume\\/volume"}}');
  assert.equal(JSON.parse(await client.text()).result.ret, 0);
});

test('limits: subscriptions, requests that wait, message size', async (t) => {
  const host = await startHost(t, ['--max-subscriptions', '2', '--max-requests', '4', '--max-message', '100000']);
  const client = await connect(t, host);
  await client.call('subscribe', { uri: volumeEvents });
  await client.call('subscribe', { uri: volumeEvents });
  await client.call('subscribe', { uri: '/tv/ws/notify/usb_detect' });
  const full = await client.fail('subscribe', { uri: '/tv/ws/notify/network' });
  assert.equal(full.code, -32003);
  assert.equal(full.data.limit, 2);
  await client.call('unsubscribe', { uri: '/tv/ws/notify/usb_detect' });
  await client.call('subscribe', { uri: '/tv/ws/notify/network' });

  await client.call('tv', { words: ['fault', slowCall, '--delay', '700'] });
  const replies = await Promise.all(Array.from({ length: 12 }, () => client.ask('get', { uri: volume })));
  const busy = replies.filter((reply) => reply.error);
  assert.ok(busy.length >= 7, `${busy.length} were refused`);
  assert.ok(busy.every((reply) => reply.error.code === -32005 && reply.error.data.waiting >= 4));
  assert.equal(replies[0].result.ret, 0);
  await client.call('tv', { words: ['fault', '--clear'] });

  const long = JSON.stringify({ jsonrpc: version, id: 1, method: 'set', params: { uri: volume, parameter: { REQUEST: 'x'.repeat(100000) } } });
  client.send(long);
  assert.equal(await client.closed(), 1009);
  assert.equal((await post(host, long)).status, 413);
  assert.equal((await (await connect(t, host)).call('get', { uri: volume })).ret, 0);
});

test('big and deep parameters', async (t) => {
  const host = await startHost(t);
  const client = await connect(t, host);
  const big = await client.ask('set', { uri: volume, parameter: { REQUEST: 'MODIFY', VALUE: 'x'.repeat(1_000_000) } });
  assert.equal(typeof big.result.ret, 'number');
  const nested = (depth) => `{"REQUEST":"QUERY","VALUE":${'['.repeat(depth)}${']'.repeat(depth)}}`;
  const ask = async (depth) => (await post(host, `{"jsonrpc":"2.0","id":1,"method":"get","params":{"uri":"${volume}","parameter":${nested(depth)}}}`)).json;
  for (const depth of [10, 500, 900]) assert.equal((await ask(depth)).result.ret, -1, `${depth}`);
  for (const depth of [5000, 500_000]) {
    const { error } = await ask(depth);
    assert.equal(error.code, -32700);
    assert.match(error.message, /deeper than/);
  }
  client.send('['.repeat(1_000_000));
  assert.equal(JSON.parse(await client.text()).error.code, -32700);
  assert.equal((await client.call('get', { uri: volume })).ret, 0);
});

test('a message in many pieces, and control frames between them', async (t) => {
  const host = await startHost(t);
  const line = await dialWebSocket(t, host);
  const text = JSON.stringify({ jsonrpc: version, id: 99, method: 'get', params: { uri: volume } });
  for (let at = 0; at < text.length; ++at) {
    line.socket.write(frame(text[at], { opcode: at === 0 ? 1 : 0, final: at === text.length - 1 }));
    if (at === 20) line.socket.write(frame('are you there', { opcode: 9 }));
  }
  await line.until((bytes) => bytes.includes('are you there') && bytes.includes('"id":99'), 'pong and reply');
});

test('broken frames end the connection and harm nobody else', async (t) => {
  const host = await startHost(t);
  const broken = [
    Buffer.from([0x81, 0x02, 0x7b, 0x7d]), // not masked
    Buffer.from([0xf1, 0x80, 0, 0, 0, 0]), // reserved bits
    Buffer.from([0x83, 0x80, 0, 0, 0, 0]), // unknown opcode
    Buffer.concat([Buffer.from([0x89, 0xfe, 0x01, 0x00, 0, 0, 0, 0]), Buffer.alloc(256)]), // long ping
    Buffer.from([0x80, 0x82, 0, 0, 0, 0, 0x7b, 0x7d]), // continues nothing
    Buffer.from([0x81, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0, 0, 0, 0]), // absurd length
  ];
  for (const bytes of broken) {
    const line = await dialWebSocket(t, host);
    line.socket.write(bytes);
    line.socket.end();
    await line.closed();
  }
  const garbage = await dialWebSocket(t, host);
  garbage.socket.write(Buffer.from(Array.from({ length: 4096 }, (_, i) => (i * 37 + 11) & 255)));
  garbage.socket.end();
  await garbage.closed();
  assert.equal((await (await connect(t, host)).call('get', { uri: volume })).ret, 0);
});

test("the plugin's text is checked before it is passed on", async (t) => {
  const host = await startHost(t, ['--plugin', oddPlugin]);
  const client = await connect(t, host);
  const cut = await client.fail('get', { uri: '/odd/cut' });
  assert.equal(cut.code, -32002);
  assert.equal(cut.data.length, 16383);
  assert.match(cut.message, /cut/);
  for (const uri of ['/odd/broken', '/odd/latin1']) {
    const error = await client.fail('get', { uri });
    assert.equal(error.code, -32002, uri);
    assert.ok(error.data.length > 0);
  }
  client.send('{"jsonrpc":"2.0","id":"x","method":"get","params":{"uri":"/odd/spaced"}}');
  assert.equal(await client.text(), '{"jsonrpc":"2.0","id":"x","result":{"ret":0,"response":{ "a" : 1e2 , "b":"\\u00e4" }}}');
  // The stand-in answers with the text it was given.
  client.send('{"jsonrpc":"2.0","id":"x","method":"get","params":{"uri":"/odd/echo","parameter": { "z" :1.0,"a":"\\u0041" ,"a":[ ] } }}');
  assert.equal(await client.text(), '{"jsonrpc":"2.0","id":"x","result":{"ret":0,"response":{"PARAMETER":{ "z" :1.0,"a":"\\u0041" ,"a":[ ] }}}}');
  assert.deepEqual(await client.call('get', { uri: '/odd/echo' }), { ret: 0, response: null });

  const { status, json } = await request(host, 'GET', '/odd/cut');
  assert.equal(status, 502);
  assert.match(json.error, /cut/);
});

test('POST: subscriptions need a WebSocket, notifications give 204', async (t) => {
  const host = await startHost(t);
  for (const [method, params] of [['subscribe', { uri: volumeEvents }], ['unsubscribe', { uri: volumeEvents }], ['trace', { on: true }]]) {
    const { error } = (await post(host, { jsonrpc: version, id: 1, method, params })).json;
    assert.equal(error.code, -32600);
    assert.match(error.message, /WebSocket/);
  }
  const silent = await post(host, { jsonrpc: version, method: 'set', params: { uri: volume, parameter: modify(19) } });
  assert.equal(silent.status, 204);
  assert.equal(silent.text, '');
  assert.equal(valueOf((await post(host, { jsonrpc: version, id: 1, method: 'get', params: { uri: volume } })).json.result), 19);
});

// dtvctl against a made-up host: what it sends, and what it does with right and wrong answers.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { createServer } from 'node:net';
import { test } from 'node:test';

import { closeFrame, ctl, dtvctl, fakeHost, notification, result, start } from './cli_support.mjs';

const volume = '/tv/cast/volume/volume';
const volumeNotify = '/tv/ws/notify/volume_ctrl';
const description = JSON.stringify({
  uris: [
    { uri: volume, id: 0x401, group: 'VOLUME', record: 1, type: 'TYPE_VALUE', get: true, set: true, notify: false },
    { uri: '/tv/act', id: 0x1001, group: 'X', record: 1, type: 'TYPE_ACTION', get: false, set: true, notify: false },
    { uri: '/tv/text', id: 0x1002, group: 'X', record: 2, type: 'TYPE_TEXT', get: true, set: true, notify: false },
    { uri: '/tv/time', id: 0x1003, group: 'X', record: 3, type: 'TYPE_TIME', get: true, set: true, notify: false },
    { uri: '/tv/wlan', id: 0x1004, group: 'X', record: 4, type: 'TYPE_WLAN_ASSOCIATE', get: false, set: true, notify: false },
    { uri: '/tv/event', id: 0x1005, group: 'X', record: 5, type: 'TYPE_EVENT_INFO', get: true, set: false, notify: false },
    { uri: '/tv/filter', id: 0x1006, group: 'X', record: 6, type: 'TYPE_EVENT_INFO', get: true, set: false, notify: false },
    { uri: volumeNotify, id: 0x160e, group: 'WS_NFY', record: 14, type: 'TYPE_VOL_CTRL_NOTIFY', get: false, set: false, notify: true },
  ],
  types: {
    TYPE_VALUE: { query: null, set: { request: 'MODIFY', fields: [{ key: 'VALUE', kind: 'int32' }] }, response: [], notify: null },
    TYPE_ACTION: { query: null, set: { request: 'ACTION', fields: [] }, response: [], notify: null },
    TYPE_TEXT: {
      query: [{ key: 'VALUE', kind: 'text', limit: 1023 }],
      set: { request: 'MODIFY', fields: [{ key: 'VALUE', kind: 'text', limit: 1023 }] },
      response: [],
      notify: null,
    },
    TYPE_TIME: {
      query: [
        { key: 'VALUE', kind: 'int64' },
        { key: 'DTG', kind: 'object', fields: [{ key: 'YEAR', kind: 'uint16' }, { key: 'MONTH', kind: 'uint8' }] },
      ],
      set: { request: 'MODIFY', fields: [{ key: 'VALUE', kind: 'int64' }] },
      response: [],
      notify: null,
    },
    TYPE_WLAN_ASSOCIATE: {
      query: null,
      set: { request: 'ASSOCIATE', fields: [{ key: 'BSSID', kind: 'text' }, { key: 'SSID', kind: 'text' }] },
      response: null,
      notify: null,
    },
    TYPE_EVENT_INFO: {
      query: [
        { key: 'CH_ID', kind: 'int32' },
        { key: 'NAME', kind: 'text', uri: '/tv/event' },
        { key: 'NAME', kind: 'int32', uri: '/tv/filter' },
        { key: 'CH_ID', kind: 'int32', uri: '/tv/filter' },
        { key: 'LIST', kind: 'int32_array', uri: '/tv/filter', count: 8 },
      ],
      set: null,
      response: null,
      notify: null,
    },
  },
  kinds: ['int32', 'uint8', 'uint16', 'int64']
    .map((kind) => ({ kind, json: 'number' }))
    .concat({ kind: 'text', json: 'string' }, { kind: 'int32_array', json: 'array' }),
});

// Answers list, and everything else with a success.
const friendly = (request, send) => send(result(request.id, request.method === 'list' ? description : '{"ret":0}'));

test('requests are JSON-RPC 2.0 at /jsonrpc', async (t) => {
  const host = await fakeHost(t, friendly);
  const { code, stderr } = await ctl(['--host', host.address, 'get', volume]);
  assert.equal(code, 0, stderr);
  assert.equal(host.seen.headers.path, '/jsonrpc');
  assert.equal(host.seen.headers.host, host.address);
  assert.equal(host.seen.headers.origin, undefined);
  assert.deepEqual(JSON.parse(host.seen.requests[0]), { jsonrpc: '2.0', id: 1, method: 'get', params: { uri: volume } });
});

test('DTV_HOST names the host, --host goes before it', async (t) => {
  const host = await fakeHost(t, friendly);
  assert.equal((await ctl(['get', volume], { env: { DTV_HOST: host.address } })).code, 0);
  assert.equal((await ctl(['--host', host.address, 'get', volume], { env: { DTV_HOST: '127.0.0.1:1' } })).code, 0);
});

test('words become parameters by the type of the item', async (t) => {
  const host = await fakeHost(t, friendly);
  const cases = [
    ['get', ['/tv/text', 'VALUE=3'], '{"REQUEST":"QUERY","VALUE":"3"}'],
    ['get', ['/tv/time', 'VALUE=5', 'DTG.YEAR=2024', 'DTG.MONTH=2'], '{"REQUEST":"QUERY","VALUE":5,"DTG":{"YEAR":2024,"MONTH":2}}'],
    ['get', ['/tv/text', '{ "REQUEST" : "OTHER", "x":1.50 }'], '{ "REQUEST" : "OTHER", "x":1.50 }'],
    ['set', ['/tv/act'], '{"REQUEST":"ACTION"}'],
    ['set', [volume, '23'], '{"REQUEST":"MODIFY","VALUE":23}'],
    ['set', [volume, '-5'], '{"REQUEST":"MODIFY","VALUE":-5}'],
    ['set', [volume, '1.5'], '{"REQUEST":"MODIFY","VALUE":1.5E0}'],
    ['set', ['/tv/text', '23'], '{"REQUEST":"MODIFY","VALUE":"23"}'],
    ['set', ['/tv/text', 'say "ä"'], '{"REQUEST":"MODIFY","VALUE":"say \\"ä\\""}'],
    ['set', ['/tv/text', 'a=b'], '{"REQUEST":"MODIFY","VALUE":"a=b"}'],
    ['set', ['/tv/text', 'VALUE=a=b'], '{"REQUEST":"MODIFY","VALUE":"a=b"}'],
    ['set', ['/tv/wlan', 'SSID=home', 'BSSID=00:11'], '{"REQUEST":"ASSOCIATE","SSID":"home","BSSID":"00:11"}'],
    ['get', ['/tv/event', 'CH_ID=7', 'NAME=8'], '{"REQUEST":"QUERY","CH_ID":7,"NAME":"8"}'],
    ['get', ['/tv/filter', 'CH_ID=7', 'NAME=8', 'LIST=[1,2]'], '{"REQUEST":"QUERY","CH_ID":7,"NAME":8,"LIST":[1,2]}'],
    ['set', [volume, 'REQUEST=SET', 'INDEX=2', 'WORD=x'], '{"REQUEST":"SET","INDEX":2,"WORD":"x"}'],
  ];
  for (const [command, words, parameter] of cases) {
    host.seen.requests.length = 0;
    const { code, stderr } = await ctl(['--host', host.address, command, ...words]);
    assert.equal(code, 0, `${words}: ${stderr}`);
    const sent = host.seen.requests.at(-1);
    assert.ok(sent.endsWith(`,"method":"${command}","params":{"uri":"${words[0]}","parameter":${parameter}}}`), sent);
  }
});

test('members of another URI, and a number in the place of an array, are refused', async (t) => {
  const host = await fakeHost(t, friendly);
  const refused = [
    [['/tv/event', 'LIST=[1]'], 'TYPE_EVENT_INFO has no member LIST in a QUERY; it has: CH_ID, NAME.'],
    [['/tv/filter', 'WORD=1'], 'TYPE_EVENT_INFO has no member WORD in a QUERY; it has: CH_ID, NAME, LIST.'],
    [['/tv/filter', 'LIST=1'], 'LIST is an array such as [1,2], not "1"'],
  ];
  for (const [words, message] of refused) {
    const { code, stderr } = await ctl(['--host', host.address, 'get', ...words]);
    assert.equal(code, 2, stderr);
    assert.ok(stderr.includes(message), stderr);
  }
});

test('the words of tv go out one by one', async (t) => {
  const host = await fakeHost(t, (request, send) => send(result(request.id, '{}')));
  const { code, stdout } = await ctl(['--host', host.address, 'tv', 'fault', 'f', '--delay', '5', '--json', '-x']);
  assert.equal(code, 0);
  assert.equal(stdout, 'ok\n');
  assert.deepEqual(JSON.parse(host.seen.requests[0]).params, { words: ['fault', 'f', '--delay', '5', '--json', '-x'] });
});

test('texts pass byte for byte, also in pieces and with blanks', async (t) => {
  const text = '{"URI":"/x" , "STATUS":0,"ITEMS":[{"a":1e+15,"b":9.00719925474099e+15,"c":"\\u0001/\\/ä]}\\\\\\"","d":[1.0,{}]}]}';
  const host = await fakeHost(t, (request, send) => send(result(request.id, `{"ret":0, "response" :${text}}`), 7));
  const { stdout } = await ctl(['--host', host.address, '--json', 'get', volume]);
  assert.equal(stdout, `{"ret":0, "response" :${text}}\n`);
});

test('long answers', async (t) => {
  const long = JSON.stringify({ ret: 0, response: { URI: volume, STATUS: 0, ITEMS: [{ TEXT: 'x'.repeat(300000) }] } });
  const host = await fakeHost(t, (request, send) => send(result(request.id, long)));
  const { code, stdout } = await ctl(['--host', host.address, '--json', 'get', volume]);
  assert.equal(code, 0);
  assert.equal(stdout, long + '\n');
});

test('tables: several items below each other, inner objects by dots, wide items as lists', async (t) => {
  const items = [
    { NAME: 'Time', VALUE: 1, DTG: { YEAR: 2024 } },
    { NAME: 'Zweite Ä', VALUE: 2, DTG: { YEAR: 2025 } },
  ];
  const wide = [{ NAME: 'n', ...Object.fromEntries(Array.from({ length: 30 }, (_, i) => [`MEMBER_${i}`, i])) }];
  let answer = items;
  const host = await fakeHost(t, (request, send) =>
    send(result(request.id, JSON.stringify({ ret: 0, response: { URI: volume, STATUS: 0, ITEMS: answer } }))),
  );
  assert.equal(
    (await ctl(['--host', host.address, 'get', volume])).stdout,
    'NAME      VALUE  DTG.YEAR\nTime      1      2024\nZweite Ä  2      2025\n',
  );
  answer = wide;
  assert.match((await ctl(['--host', host.address, 'get', volume])).stdout, /^NAME +n\nMEMBER_0 +0\nMEMBER_1 +1\n/);
  answer = [{}];
  assert.equal((await ctl(['--host', host.address, 'get', volume])).stdout, '(no item)\n');
  answer = [{ NAME: '\u001b[31mred\u0007' }];
  assert.equal((await ctl(['--host', host.address, 'get', volume])).stdout, 'NAME\n\\x1b[31mred\\x07\n');
});

test('watch subscribes to each URI and prints notifications; other messages are not lines', async (t) => {
  const texts = ['{"URI":"a","REQUEST":"NOTIFY","ITEMS":[{"volValue":23,"muteStatus":0}]}', '{"z":1,"a":2,"n":1E5}'];
  const host = await fakeHost(t, (request, send) => {
    friendly(request, send);
    if (request.method !== 'subscribe') return;
    send(notification('overflow', '{"dropped":17}'));
    send(notification('trace', '{"call":"x"}'));
    for (const text of texts) send(notification('notify', `{"uri":"${volumeNotify}","notification":${text}}`));
    send(notification('notify', `{"uri":"${volumeNotify}","error":{"code":-32002,"message":"cut"}}`));
  });
  const { code, stdout, stderr } = await ctl(['--host', host.address, 'watch', volumeNotify, '--for', '0.5']);
  assert.equal(code, 0);
  assert.equal(stdout, texts.join('\n') + '\n');
  assert.match(stderr, /17 messages were dropped/);
  assert.match(stderr, /cannot be shown.*cut/);
  const counted = await ctl(['--host', host.address, 'watch', volumeNotify, '--count', '1']);
  assert.equal(counted.stdout, texts[0] + '\n');
});

test('trace asks for it, and prints each line', async (t) => {
  const line = '{"t":10423,"thread":2,"call":"a_vextvapi_volctrl_setVolume","in":{"volume":23},"ret":0}';
  const event = '{"t":1000000,"thread":3,"event":"reg","in":{"pv_arg1":23}}';
  const slow = '{"t":2000000,"thread":3,"call":"get_it","in":{},"out":{"count":2},"ret":-1,"duration":1500}';
  const host = await fakeHost(t, (request, send) => {
    send(result(request.id, '{}'));
    for (const text of [line, event, slow]) send(notification('trace', text));
  });
  const json = await ctl(['--host', host.address, '--json', 'trace', '--count', '3']);
  assert.equal(json.stdout, [line, event, slow, ''].join('\n'));
  assert.deepEqual(JSON.parse(host.seen.requests[0]).params, { on: true });
  const readable = await ctl(['--host', host.address, 'trace', '--count', '3']);
  assert.equal(
    readable.stdout,
    '    0.010423  [2]  -> a_vextvapi_volctrl_setVolume(volume=23) = 0\n' +
      '    1.000000  [3]  <- reg(pv_arg1=23)\n' +
      '    2.000000  [3]  -> get_it() = -1  out: count=2  1.5 ms\n',
  );
});

// A trace line with its place in the order of beginnings.
const begun = (seq) => `{"t":${seq * 10},"seq":${seq},"thread":1,"call":"f${seq}","in":{},"ret":0}`;
const numbers = (stdout) => stdout.trim().split('\n').map((line) => JSON.parse(line).seq);

// Answers the request for a trace, then sends lines with these numbers.
const traces = (t, ...numbers) =>
  fakeHost(t, (request, send) => {
    send(result(request.id, '{}'));
    for (const seq of numbers) send(notification('trace', begun(seq)));
  });

test('trace: lines stand in the order in which calls and callbacks began', async (t) => {
  const host = await traces(t, 12, 11, 14, 15, 13, 16, 18, 17);
  const json = await ctl(['--host', host.address, '--json', 'trace', '--count', '8']);
  assert.deepEqual(numbers(json.stdout), [11, 12, 13, 14, 15, 16, 17, 18]);
  const readable = await ctl(['--host', host.address, 'trace', '--count', '8']);
  assert.deepEqual(readable.stdout.match(/f\d+/g), ['f11', 'f12', 'f13', 'f14', 'f15', 'f16', 'f17', 'f18']);
});

test('trace: a call that does not return holds nothing up, and is shown when it does', async (t) => {
  let last;
  const host = await fakeHost(t, (request, send) => {
    send(result(request.id, '{}'));
    for (const seq of [1, 3, 4]) send(notification('trace', begun(seq)));
    last = () => send(notification('trace', begun(2)));
  });
  const tracing = start(dtvctl, ['--host', host.address, '--json', 'trace', '--count', '4']);
  for (const seq of [1, 3, 4]) assert.equal(JSON.parse(await tracing.line()).seq, seq);
  last();
  assert.equal(JSON.parse(await tracing.line()).seq, 2);
  assert.equal((await tracing.ended).code, 0);
});

test('trace: the end loses no line, whatever ends it', async (t) => {
  const counted = await ctl(['--host', (await traces(t, 9, 7)).address, '--json', 'trace', '--count', '2']);
  assert.deepEqual(numbers(counted.stdout), [7, 9]);
  const timed = await ctl(['--host', (await traces(t, 9, 7)).address, '--json', 'trace', '--for', '0.05']);
  assert.equal(timed.code, 0);
  assert.deepEqual(numbers(timed.stdout), [7, 9]);
  for (const signal of ['SIGINT', 'SIGTERM']) {
    let sendMore;
    const host = await fakeHost(t, (request, send) => {
      send(result(request.id, '{}'));
      send(notification('trace', begun(1)));
      sendMore = () => [9, 7].forEach((seq) => send(notification('trace', begun(seq))));
    });
    const tracing = start(dtvctl, ['--host', host.address, '--json', 'trace']);
    assert.equal(JSON.parse(await tracing.line()).seq, 1);
    sendMore();
    await new Promise((resolve) => setTimeout(resolve, 40)); // arrived, and 9 still waits for 8
    const lines = [tracing.line(), tracing.line()];
    assert.equal((await tracing.stop(signal)).code, signal);
    assert.deepEqual((await Promise.all(lines)).map((line) => JSON.parse(line).seq), [7, 9]);
  }
  const lost = await fakeHost(t, (request, send, socket) => {
    send(result(request.id, '{}'));
    for (const seq of [9, 7]) send(notification('trace', begun(seq)));
    setTimeout(() => socket.destroy(), 30);
  });
  const { code, stdout } = await ctl(['--host', lost.address, '--json', '--no-reconnect', 'trace']);
  assert.equal(code, 3);
  assert.deepEqual(numbers(stdout), [7, 9]);
});

test('no host: exit code 3, and how to start one', async () => {
  const { code, stdout, stderr } = await ctl(['--host', '127.0.0.1:1', 'get', volume]);
  assert.equal(code, 3);
  assert.equal(stdout, '');
  assert.match(stderr, /127\.0\.0\.1:1.*make run/);
});

test('an answer that is no upgrade: the status, and what a host says in the body', async (t) => {
  const http = (status, body) => `HTTP/1.1 ${status}\r\nContent-Length: ${body.length}\r\nConnection: close\r\n\r\n${body}`;
  const cases = [
    [http('403 Forbidden', '{"error":"Host \\"x\\" is not this server"}'), /\(403 Forbidden: Host "x" is not this server\)\n$/],
    [http('503 Service Unavailable', '{"error":"all connections are taken"}'), /\(503 .*: all connections are taken\)\n$/],
    [http('403 Forbidden', ''), /\(403 Forbidden\)\n$/],
    [http('200 OK', '<p>hello</p>'), /\(200 OK\)\n$/],
    [http('400 Bad Request', '{"error":5}'), /\(400 Bad Request\)\n$/],
    [http('400 Bad Request', '["error"]'), /\(400 Bad Request\)\n$/],
    [http('400 Bad Request', JSON.stringify({ error: '\u001b[2Jgone' })), /: \\x1b\[2Jgone\)\n$/],
    ['HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1:1/\r\nContent-Length: 0\r\n\r\n', /\(302 Found\)\n$/],
    ['HTTP/1.1 101 Yes\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: x\r\n\r\n', /\(.*Accept.*\)\n$/],
    ['220 a mail server\r\n\r\n', /\(.+\)\n$/],
  ];
  for (const [upgrade, says] of cases) {
    const host = await fakeHost(t, friendly, { upgrade });
    const { code, stdout, stderr } = await ctl(['--host', host.address, 'get', volume]);
    assert.equal(code, 4, stderr);
    assert.equal(stdout, '');
    assert.match(stderr, /^dtvctl: the server at [\d.:]+ is not a dtv-host, or it refuses that name /);
    assert.match(stderr, says);
  }
});

test('a program that closes without an answer is no host', async (t) => {
  for (const upgrade of ['', 'HTTP/1.1 101 Swi']) {
    const host = await fakeHost(t, friendly, { upgrade });
    const { code, stderr } = await ctl(['--host', host.address, 'get', volume]);
    assert.equal(code, 3);
    assert.match(stderr, /no host at .*make run/);
  }
});

test('connecting ends by --timeout', async (t) => {
  const silent = createServer((socket) => t.after(() => socket.destroy())).listen(0, '127.0.0.1');
  t.after(() => silent.close());
  await once(silent, 'listening');
  const begun = Date.now();
  const { code, stderr } = await ctl(['--host', `127.0.0.1:${silent.address().port}`, '--timeout', '0.3', 'get', volume]);
  assert.equal(code, 3);
  assert.match(stderr, /no answer within the --timeout from 127\.0\.0\.1:\d+: the host there hangs, or there is none.*make run/);
  assert.ok(Date.now() - begun < 5000);
});

test('every address of a name is tried', async (t) => {
  const v4 = await fakeHost(t, friendly);
  assert.equal((await ctl(['--host', `localhost:${v4.port}`, 'get', volume])).code, 0);
  let v6;
  try {
    v6 = await fakeHost(t, friendly, { at: '::1' });
  } catch (failure) {
    t.diagnostic(`no IPv6 loopback here: ${failure.code}`);
    return;
  }
  assert.equal((await ctl(['--host', v6.address, 'get', volume])).code, 0);
  assert.equal(v6.seen.headers.host, v6.address);
});

test('how a host closes', async (t) => {
  const cases = [
    [closeFrame(1009, 'message too long'), 3, /^dtvctl: the host at [\d.:]+ closed the connection \(1009 message too long\)\n$/],
    [closeFrame(1011), 3, /closed the connection \(1011\)\n$/],
    [closeFrame(4000, '\u001b[2J'), 3, /closed the connection \(4000 \\x1b\[2J\)\n$/],
    [closeFrame(1001, 'the host ends'), 3, /closed the connection\n$/],
    [closeFrame(1000), 3, /closed the connection\n$/],
    [Buffer.from([0x88, 0]), 3, /closed the connection\n$/],
    [Buffer.from([0x83, 0]), 4, /sent an invalid message/],
    [Buffer.from([0x81, 1, 0xff]), 4, /sent an invalid message/],
    [Buffer.from([0x81, 127, 0, 0, 0, 0, 0x04, 0, 0, 1]), 4, /sent an invalid message/], // 64 MiB and a byte
  ];
  for (const [bytes, expected, says] of cases) {
    const host = await fakeHost(t, (request, send, socket) => socket.end(bytes));
    for (const words of [['get', volume], ['trace']]) {
      const { code, stdout, stderr } = await ctl(['--host', host.address, ...words]);
      assert.equal(code, expected, stderr);
      assert.equal(stdout, '');
      assert.match(stderr, says);
    }
  }
});

test('a signal that is caught does not end a wait', async (t) => {
  let answer;
  const host = await fakeHost(t, (request, send) => (answer = () => send(result(request.id, '{"ret":0}'))));
  const getting = start(dtvctl, ['--host', host.address, '--json', 'get', volume]);
  while (!answer) await new Promise((resolve) => setTimeout(resolve, 20));
  for (const signal of ['SIGSTOP', 'SIGCONT', 'SIGWINCH']) {
    getting.child.kill(signal);
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
  answer();
  assert.equal(await getting.line(), '{"ret":0}');
  assert.equal((await getting.ended).code, 0);
});

test('errors and broken answers', async (t) => {
  const error = (code, message) => (request, send) =>
    send(`{"jsonrpc":"2.0","id":${request.id},"error":{"code":${code},"message":"${message}","data":{"x":1}}}`);
  const cases = [
    [error(-32001, 'not registered'), 1, /^dtvctl: not registered\n$/],
    [error(-32004, 'the set says no'), 1, /^dtvctl: the set says no\n$/],
    [error(-32602, 'wrong member'), 4, /^dtvctl: wrong member\n$/],
    [error(-32002, 'the text is cut'), 4, /^dtvctl: the text is cut\n$/],
    [(request, send) => send('not JSON'), 4, /not a JSON object: not JSON/],
    [(request, send) => send('[]'), 4, /not a JSON object/],
    [(request, send) => send(`{"jsonrpc":"2.0","id":${request.id}}`), 4, /neither a result nor an error/],
    [(request, send) => send(result(request.id, '{}')), 4, /no "ret"/],
    [(request, send) => send(result(request.id, '{"ret":"0"}')), 4, /no "ret"/],
    [(request, send) => send(`{"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"not JSON"}}`), 4, /not JSON/],
    [(request, send, socket) => socket.destroy(), 3, /closed the connection/],
  ];
  for (const [answer, expected, says] of cases) {
    const host = await fakeHost(t, answer);
    const { code, stdout, stderr } = await ctl(['--host', host.address, 'get', volume]);
    assert.equal(code, expected, stderr);
    assert.equal(stdout, '');
    assert.match(stderr, says);
  }
});

test('a list that is not as agreed is exit code 4, never a crash', async (t) => {
  for (const list of ['{}', '[]', '{"uris":[1]}', '{"uris":{}}', 'null']) {
    const host = await fakeHost(t, (request, send) => send(result(request.id, list)));
    const { code, stderr } = await ctl(['--host', host.address, 'list']);
    assert.equal(code, 4, list);
    assert.match(stderr, /^dtvctl: /);
    assert.equal((await ctl(['--host', host.address, 'set', volume, '3'])).code === 0, false);
  }
});

test('an answer that does not come ends by --timeout', async (t) => {
  const host = await fakeHost(t, () => {});
  const begun = Date.now();
  const { code, stderr } = await ctl(['--host', host.address, '--timeout', '0.3', 'get', volume]);
  assert.equal(code, 4);
  assert.match(stderr, /--timeout/);
  assert.ok(Date.now() - begun < 5000);
});

test('an answer to another request is not taken for ours', async (t) => {
  const host = await fakeHost(t, (request, send) => {
    send(result(999, '{"ret":-7}'));
    send(result(request.id, '{"ret":0}'));
  });
  assert.equal((await ctl(['--host', host.address, 'get', volume])).code, 0);
});

test('watch --no-reconnect ends with exit code 3 when the host goes away', async (t) => {
  let socket;
  const host = await fakeHost(t, (request, send, theSocket) => {
    socket = theSocket;
    friendly(request, send);
  });
  const watching = start(dtvctl, ['--host', host.address, '--no-reconnect', 'watch', volumeNotify]);
  while (host.seen.requests.length < 2) await new Promise((resolve) => setTimeout(resolve, 20));
  await new Promise((resolve) => setTimeout(resolve, 100));
  socket.destroy();
  const { code, stderr } = await watching.ended;
  assert.equal(code, 3);
  assert.match(stderr, /closed the connection/);
});

test('watch ends when nobody reads its lines any more', async (t) => {
  const host = await fakeHost(t, (request, send) => {
    friendly(request, send);
    if (request.method === 'subscribe') {
      const timer = setInterval(() => send(notification('notify', `{"uri":"${volumeNotify}","notification":{}}`)), 20);
      t.after(() => clearInterval(timer));
    }
  });
  const watching = start(dtvctl, ['--host', host.address, 'watch', volumeNotify]);
  assert.equal(await watching.line(), '{}');
  watching.child.stdout.destroy();
  const late = setTimeout(() => watching.child.kill('SIGKILL'), 10000);
  const { code } = await new Promise((resolve) => watching.child.on('exit', (code, signal) => resolve({ code: code ?? signal })));
  clearTimeout(late);
  assert.notEqual(code, 'SIGKILL');
});

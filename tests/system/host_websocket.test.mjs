// WebSocket as RFC 6455 says, over raw sockets. A row of the frame tables is what a client sends after the upgrade and what
// the server answers; the handshake's rows are fields of the upgrade request.
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { test } from 'node:test';
import { dialWebSocket, frame, modify, sharedHost, sleep, upgradeText, volume, within } from './host_support.mjs';
import { answersIn, ask, framesIn, hostLine, putText, seconds, talk, volumeOf } from './wire_support.mjs';

const limit = 65536;
const host = sharedHost(['--max-message', String(limit)]);

const opcodes = { continuation: 0, text: 1, binary: 2, close: 8, ping: 9, pong: 10 };
const key = [0x37, 0xfa, 0x21, 0x3d];
const send = (payload, options = {}) => frame(payload, { key, ...options });
const message = (id, more = '') => `{"jsonrpc":"2.0","id":${id},"method":"get","params":{"uri":"${volume}"}${more}}`;
const get = (id, options) => send(message(id), options);
const set = (value) => send(JSON.stringify({ jsonrpc: '2.0', id: 'set', method: 'set', params: { uri: volume, parameter: modify(value) } }));
const ping = (payload, options) => send(payload, { opcode: opcodes.ping, ...options });
const close = (code, reason = '', options = {}) => {
  const head = Buffer.alloc(code === undefined ? 0 : 2);
  if (code !== undefined) head.writeUInt16BE(code);
  return send(Buffer.concat([head, Buffer.from(reason)]), { opcode: opcodes.close, ...options });
};
// The fragments of one message, each a payload.
const fragments = (...payloads) =>
  payloads.map((payload, i) => send(payload, { opcode: i === 0 ? opcodes.text : opcodes.continuation, final: i === payloads.length - 1 }));
// A message of so many bytes.
const padded = (id, bytes) => message(id) + ' '.repeat(bytes - message(id).length);
// A frame's header alone, which announces a payload.
const announced = (length, opcode = opcodes.text) => {
  const bytes = Buffer.alloc(14);
  bytes[0] = 0x80 | opcode;
  bytes[1] = 0x80 | 127;
  bytes.writeBigUInt64BE(length, 2);
  return bytes;
};

// What a server's frame says, as the tables write it: "reply ID", "error CODE", "pong TEXT", "close CODE".
function said({ opcode, payload, reserved, masked, final }) {
  assert.ok(!masked && reserved === 0, 'a server neither masks nor sets reserved bits');
  if (opcode >= 8) assert.ok(final && payload.length <= 125, 'a control frame is short and whole');
  if (opcode === opcodes.close) return payload.length === 0 ? 'close' : `close ${payload.readUInt16BE(0)}`;
  if (opcode === opcodes.pong) return `pong ${payload.toString('latin1')}`;
  assert.equal(opcode, opcodes.text);
  const { id, error } = JSON.parse(payload.toString('utf8'));
  return error ? `error ${error.code}` : `reply ${id}`;
}

async function session(t) {
  const line = await dialWebSocket(t, host);
  line.socket.setNoDelay(true);
  const start = line.received().indexOf('\r\n\r\n') + 4;
  const heard = () => framesIn(line.received().subarray(start)).map(said);
  return {
    ...line,
    heard,
    until: (predicate) =>
      within(line.until(() => predicate(heard()), 'frames'), 'frames', seconds).catch(({ message: why }) => assert.fail(`${why}; heard ${JSON.stringify(heard().slice(-5))}`)),
    ended: () => within(line.closed(), 'end of the connection', seconds),
  };
}

// One row. A set behind what ends the connection is not carried out; a connection that stays answers another get. Of
// several kinds of answers, each kind comes in its order. expected may be a list of lists, of which one holds.
async function check(t, sent, expected) {
  const choices = Array.isArray(expected[0]) ? expected : [expected];
  const ends = choices[0].at(-1)?.startsWith('close') ?? false;
  if (ends) await ask(t, host, putText(host, 20));
  const client = await session(t);
  for (const bytes of [...sent, ends ? set(77) : get('"last"')]) client.socket.write(bytes);
  const last = ends ? (heard) => heard.some((one) => one.startsWith('close')) : (heard) => heard.includes('reply last');
  await client.until(last);
  if (['close 1002', 'close 1007', 'close 1009'].includes(choices[0].at(-1))) client.socket.end(); // after a protocol error the client must close
  if (ends) await client.ended();
  const heard = client.heard();
  const kind = (text) => text.split(' ')[0].replace('error', 'reply');
  const ordered = (list) => Object.fromEntries(['reply', 'pong', 'close'].map((name) => [name, list.filter((one) => kind(one) === name)]));
  const wanted = choices.map((choice) => (ends ? choice : [...choice, 'reply last']));
  if (!wanted.some((choice) => JSON.stringify(ordered(choice)) === JSON.stringify(ordered(heard)))) assert.deepEqual(ordered(heard), ordered(wanted[0]));
  if (ends) assert.match(heard.at(-1), /^close/, 'nothing follows a close frame');
  if (ends) assert.equal(await volumeOf(t, host), 20, 'a set behind the end was carried out');
}

function rows(group, table) {
  for (const [name, [sent, ...expected]] of Object.entries(table))
    test(`${group}: ${name}`, (t) => check(t, Array.isArray(sent) ? sent : [sent], expected));
}
const each = (list, row) => Object.fromEntries(list.map(row));

rows('framing', {
  'a text without a mask': [get(1, { masked: false }), 'close 1002'],
  'an empty text without a mask': [send('', { masked: false }), 'close 1002'],
  'a binary frame without a mask': [send('{}', { masked: false, opcode: opcodes.binary }), 'close 1002'],
  'a ping without a mask': [ping('a', { masked: false }), 'close 1002'],
  'a pong without a mask': [send('a', { masked: false, opcode: opcodes.pong }), 'close 1002'],
  'a close without a mask': [close(1000, '', { masked: false }), 'close 1002'],
  'a continuation without a mask': [[send('{', { final: false }), send('}', { opcode: opcodes.continuation, masked: false })], 'close 1002'],
  'a text without a mask behind a good one': [[get(1), get(2, { masked: false })], ['reply 1', 'close 1002'], ['close 1002']],
  ...each([1, 2, 3, 4, 5, 6, 7], (bits) => [`reserved bits ${bits} of a text`, [get(1, { reserved: bits }), 'close 1002']]),
  ...each([1, 2, 4], (bits) => [`reserved bits ${bits} of a ping`, [ping('a', { reserved: bits }), 'close 1002']]),
  'a reserved bit of a close': [close(1000, '', { reserved: 4 }), 'close 1002'],
  'a reserved bit of a binary frame': [send('{}', { reserved: 4, opcode: opcodes.binary }), 'close 1002'],
  'a reserved bit of a continuation': [[send('{', { final: false }), send('}', { opcode: opcodes.continuation, reserved: 4 })], 'close 1002'],
  ...each([3, 4, 5, 6, 7, 11, 12, 13, 14, 15], (opcode) => [`opcode ${opcode}`, [send('{}', { opcode }), 'close 1002']]),
  'an unknown opcode without a payload': [send('', { opcode: 3 }), 'close 1002'],
  'an unknown opcode that is not final': [send('{}', { opcode: 7, final: false }), 'close 1002'],
  'an unknown opcode between fragments': [[send('{', { final: false }), send('', { opcode: 11 })], 'close 1002'],
  ...each([0, 1, 125], (length) => [`16 bits for a length of ${length}`, [send('x'.repeat(length), { form: 16 }), 'close 1002']]),
  ...each([0, 125, 126, 65535], (length) => [`64 bits for a length of ${length}`, [send('x'.repeat(length), { form: 64 }), 'close 1002']]),
  '16 bits for the length of a ping': [ping('a', { form: 16 }), 'close 1002'],
  '64 bits for the length of a ping': [ping('a', { form: 64 }), 'close 1002'],
  '16 bits for the length of a close': [close(1000, '', { form: 16 }), 'close 1002'],
  '16 bits for a short continuation': [[send('{', { final: false }), send('}', { opcode: opcodes.continuation, form: 16 })], 'close 1002'],
  'a length with its highest bit': [announced(1n << 63n), 'close 1009'],
  'a length with all its bits': [announced((1n << 64n) - 1n), 'close 1009'],
  'a message one byte too long, by its header': [announced(BigInt(limit + 1)), 'close 1009'],
  'a message one byte too long, whole': [send(padded(1, limit + 1)), 'close 1009'],
  'a message of four gigabytes, by its header': [announced(1n << 32n), 'close 1009'],
  'a message of the greatest length, by its header': [announced((1n << 63n) - 1n), 'close 1009'],
  'a binary message that is too long, by its header': [announced(BigInt(limit + 1), opcodes.binary), 'close 1009'],
  'fragments that are too long together': [fragments(padded(1, limit - 10), ' '.repeat(11)), 'close 1009'],
  'a continuation that is too long, by its header': [[send('{', { final: false }), announced(BigInt(limit), opcodes.continuation)], 'close 1009'],
  'a message of the greatest size': [send(padded(1, limit)), 'reply 1'],
  'fragments of the greatest size together': [fragments(padded(1, limit - 10), ' '.repeat(10)), 'reply 1'],
  'two messages of the greatest size': [[send(padded(1, limit)), send(padded(2, limit))], 'reply 1', 'reply 2'],
  ...each([125, 126, 127, 128, 255, 256, 32767, 32768, 65534, 65535], (length) => [`a message of ${length} bytes`, [send(padded(1, length)), 'reply 1']]),
  'a key of zeros': [get(1, { key: [0, 0, 0, 0] }), 'reply 1'],
  'a key of ones': [get(1, { key: [255, 255, 255, 255] }), 'reply 1'],
  'another key for each frame': [Array.from({ length: 20 }, (_, i) => get(i, { key: [i, 255 - i, i * 7, i ^ 85] })), ...Array.from({ length: 20 }, (_, i) => `reply ${i}`)],
  'two hundred messages in one write': [Buffer.concat(Array.from({ length: 200 }, (_, i) => get(i))), ...Array.from({ length: 200 }, (_, i) => `reply ${i}`)],
  'messages and pings in one write': [
    Buffer.concat(Array.from({ length: 50 }, (_, i) => [get(i), ping(String(i))]).flat()),
    ...Array.from({ length: 50 }, (_, i) => [`reply ${i}`, `pong ${i}`]).flat(),
  ],
  'a binary message': [send(message(1), { opcode: opcodes.binary }), 'error -32600'],
  'an empty binary message': [send('', { opcode: opcodes.binary }), 'error -32600'],
  'bytes of no text in a binary message': [send(Buffer.from([0xff, 0xc0, 0x00]), { opcode: opcodes.binary }), 'error -32600'],
  'an empty message': [send(''), 'error -32700'],
});

const between = (...frames) => [send('{"jsonrpc":"2.0",', { final: false }), ...frames, send('"id":1,"method":"list"}', { opcode: opcodes.continuation })];
rows('fragmentation', {
  'two fragments': [fragments(message(1).slice(0, 20), message(1).slice(20)), 'reply 1'],
  'a fragment for each byte': [fragments(...message(1)), 'reply 1'],
  'an empty first fragment': [fragments('', message(1)), 'reply 1'],
  'an empty last fragment': [fragments(message(1), ''), 'reply 1'],
  'empty fragments between': [fragments(message(1).slice(0, 20), '', '', message(1).slice(20)), 'reply 1'],
  'a thousand empty fragments': [Buffer.concat(fragments(message(1).slice(0, 20), ...Array(1000).fill(''), message(1).slice(20))), 'reply 1'],
  'empty fragments alone': [fragments('', '', ''), 'error -32700'],
  'two fragmented messages': [[...fragments(message(1).slice(0, 9), message(1).slice(9)), ...fragments(message(2).slice(0, 30), message(2).slice(30))], 'reply 1', 'reply 2'],
  'a whole message behind a fragmented one': [[...fragments(message(1).slice(0, 9), message(1).slice(9)), get(2)], 'reply 1', 'reply 2'],
  'a fragmented binary message': [[send('{', { opcode: opcodes.binary, final: false }), send('}', { opcode: opcodes.continuation })], 'error -32600'],
  'a continuation of nothing': [send('{}', { opcode: opcodes.continuation }), 'close 1002'],
  'a continuation of nothing that is not final': [send('{}', { opcode: opcodes.continuation, final: false }), 'close 1002'],
  'an empty continuation of nothing': [send('', { opcode: opcodes.continuation }), 'close 1002'],
  'a continuation of a whole message': [[get(1), send(' ', { opcode: opcodes.continuation })], ['reply 1', 'close 1002'], ['close 1002']],
  'a continuation behind the last one': [[...fragments(message(1), ' '), send(' ', { opcode: opcodes.continuation })], ['reply 1', 'close 1002'], ['close 1002']],
  'a continuation of a ping': [[ping('a'), send('b', { opcode: opcodes.continuation })], ['pong a', 'close 1002'], ['close 1002']],
  'a text inside of a message': [[send('{', { final: false }), get(1)], 'close 1002'],
  'the beginning of a text inside of a message': [[send('{', { final: false }), send('{', { final: false })], 'close 1002'],
  'a binary frame inside of a message': [[send('{', { final: false }), send('{}', { opcode: opcodes.binary })], 'close 1002'],
  'a text inside of a binary message': [[send('{', { opcode: opcodes.binary, final: false }), get(1)], 'close 1002'],
  'a ping between fragments': [between(ping('a')), 'reply 1', 'pong a'],
  'pings between fragments': [between(ping('a'), ping(''), ping('b')), 'reply 1', 'pong a', 'pong ', 'pong b'],
  'a pong between fragments': [between(send('a', { opcode: opcodes.pong })), 'reply 1'],
  'a close between fragments': [[send('{', { final: false }), close(1000)], 'close 1000'],
  'a ping that is a fragment': [ping('a', { final: false }), 'close 1002'],
  'a pong that is a fragment': [send('a', { opcode: opcodes.pong, final: false }), 'close 1002'],
  'a close that is a fragment': [close(1000, '', { final: false }), 'close 1002'],
  'a ping between fragments that is a fragment': [[send('{', { final: false }), ping('a', { final: false })], 'close 1002'],
});

test('fragmentation: a ping between fragments is answered before the message ends', async (t) => {
  const client = await session(t);
  const [first, ...rest] = between();
  client.socket.write(Buffer.concat([first, ping('now')]));
  await client.until((heard) => heard.includes('pong now'));
  for (const bytes of rest) client.socket.write(bytes);
  await client.until((heard) => heard.includes('reply 1'));
});

// A message with these bytes in its method.
const method = (bytes) => Buffer.concat([Buffer.from('{"jsonrpc":"2.0","id":1,"method":"'), Buffer.from(bytes), Buffer.from('"}')]);
const invalid = {
  'a continuation byte alone': [0x80],
  'the last continuation byte alone': [0xbf],
  'two bytes for NUL': [0xc0, 0x80],
  'two bytes for a slash': [0xc0, 0xaf],
  'two bytes for the last of ASCII': [0xc1, 0xbf],
  'three bytes for a slash': [0xe0, 0x80, 0xaf],
  'three bytes for the last of two': [0xe0, 0x9f, 0xbf],
  'four bytes for a slash': [0xf0, 0x80, 0x80, 0xaf],
  'four bytes for the last of three': [0xf0, 0x8f, 0xbf, 0xbf],
  'the first surrogate': [0xed, 0xa0, 0x80],
  'the last surrogate': [0xed, 0xbf, 0xbf],
  'a pair of surrogates': [0xed, 0xa0, 0xbd, 0xed, 0xb8, 0x80],
  'beyond U+10FFFF': [0xf4, 0x90, 0x80, 0x80],
  'U+140000': [0xf5, 0x80, 0x80, 0x80],
  'a sequence of five bytes': [0xf8, 0x88, 0x80, 0x80, 0x80],
  'a sequence of six bytes': [0xfc, 0x84, 0x80, 0x80, 0x80, 0x80],
  'the byte FE': [0xfe],
  'the byte FF': [0xff],
  'a byte of Latin-1': [0xe9],
  'one byte of two': [0xc3, 0x28],
  'one byte of three': [0xe2, 0x28, 0xa1],
  'two bytes of three': [0xe2, 0x82, 0x28],
  'one byte of four': [0xf0, 0x28, 0x8c, 0xbc],
  'three bytes of four': [0xf0, 0x9f, 0x98, 0x28],
  'a continuation byte too many': [0xc3, 0xa4, 0xa4],
};
const cut = (bytes, at) => fragments(method(bytes).subarray(0, 34 + at), method(bytes).subarray(34 + at));
rows('UTF-8', {
  ...each(Object.entries(invalid), ([name, bytes]) => [name, [send(method(bytes)), 'close 1007']]),
  ...each(Object.entries(invalid), ([name, bytes]) => [`${name}, in two fragments`, [cut(bytes, Math.ceil(bytes.length / 2)), 'close 1007']]),
  'a message that ends in one byte of two': [send(Buffer.from([0x22, 0xc3])), 'close 1007'],
  'a message that ends in two bytes of three': [send(Buffer.from([0x22, 0xe2, 0x82])), 'close 1007'],
  'a message that ends in three bytes of four': [send(Buffer.from([0x22, 0xf0, 0x9f, 0x98])), 'close 1007'],
  'fragments that end in three bytes of four': [fragments(Buffer.from([0x22, 0xf0, 0x9f]), Buffer.from([0x98])), 'close 1007'],
  'a sequence across two messages': [[send(Buffer.from([0x22, 0xc3])), send(Buffer.from([0xa4, 0x22]))], 'close 1007'],
  'U+0080': [send(method('\u0080')), 'error -32601'],
  'U+07FF': [send(method('\u07ff')), 'error -32601'],
  'U+0800': [send(method('\u0800')), 'error -32601'],
  'U+D7FF': [send(method('\ud7ff')), 'error -32601'],
  'U+E000': [send(method('\ue000')), 'error -32601'],
  'U+FFFD': [send(method('\ufffd')), 'error -32601'],
  'U+FFFF': [send(method('\uffff')), 'error -32601'],
  'U+10000': [send(method('\u{10000}')), 'error -32601'],
  'U+10FFFF': [send(method('\u{10ffff}')), 'error -32601'],
  'a face': [send(method('\u{1f600}')), 'error -32601'],
  ...each([1, 2, 3], (at) => [`a face cut behind byte ${at}`, [cut(Buffer.from('\u{1f600}'), at), 'error -32601']]),
  ...each([1, 2], (at) => [`a euro sign cut behind byte ${at}`, [cut(Buffer.from('€'), at), 'error -32601']]),
  'an umlaut cut in the middle': [cut(Buffer.from('ä'), 1), 'error -32601'],
  'a face cut by a ping': [[...cut(Buffer.from('\u{1f600}'), 2).slice(0, 1), ping('a'), ...cut(Buffer.from('\u{1f600}'), 2).slice(1)], 'error -32601', 'pong a'],
  'a byte order mark': [send('\ufeff' + message(1)), ['reply 1'], ['error -32700']],
  'a NUL byte': [send(method('\0')), 'error -32700'],
  'an escaped NUL': [send(method('\\u0000')), 'error -32601'],
});

const most = Buffer.from(Array.from({ length: 125 }, (_, i) => 255 - i)); // no UTF-8, which a ping need not be
rows('control frames', {
  'a ping without a payload': [ping(''), 'pong '],
  'a ping with a payload': [ping('are you there'), 'pong are you there'],
  'a ping of 125 bytes': [ping(most), `pong ${most.toString('latin1')}`],
  'a ping of 126 bytes': [ping('x'.repeat(126)), 'close 1002'],
  'a ping of 70,000 bytes': [ping('x'.repeat(70_000)), 'close 1002'],
  'a pong of 126 bytes': [send('x'.repeat(126), { opcode: opcodes.pong }), 'close 1002'],
  'ten pings in one write': [Buffer.concat([...'0123456789'].map((digit) => ping(digit))), ...[...'0123456789'].map((digit) => `pong ${digit}`)],
  'ten pings in ten writes': [[...'0123456789'].map((digit) => ping(digit)), ...[...'0123456789'].map((digit) => `pong ${digit}`)],
  'ten equal pings': [Buffer.concat(Array(10).fill(ping('same'))), ...Array(10).fill('pong same')],
  'a ping that looks like a message': [ping(message(1)), `pong ${message(1)}`],
  'a pong that nobody asked for': [send('', { opcode: opcodes.pong })],
  'pongs with payloads': [[send('a', { opcode: opcodes.pong }), send(most, { opcode: opcodes.pong })]],
  'a ping before and behind a message': [[ping('a'), get(1), ping('b')], 'reply 1', 'pong a', 'pong b'],
  'a ping before a close': [[ping('a'), close(1000)], 'pong a', 'close 1000'],
});

rows('closing', {
  'without a code': [close(), ['close'], ['close 1000']],
  ...each([1000, 1001, 1002, 1003, 1007, 1008, 1009, 1010, 1011, 3000, 3999, 4000, 4999], (code) => [`code ${code}`, [close(code), `close ${code}`]]),
  ...each([0, 1, 999, 1004, 1005, 1006, 1015, 1016, 1100, 2000, 2999, 5000, 9999, 65535], (code) => [`code ${code}`, [close(code), 'close 1002']]),
  'half a code': [send('\x03', { opcode: opcodes.close }), 'close 1002'],
  'a reason': [close(1000, 'done'), 'close 1000'],
  'the longest reason': [close(1000, 'x'.repeat(123)), 'close 1000'],
  'a reason that is too long': [close(1000, 'x'.repeat(124)), 'close 1002'],
  'a reason beyond ASCII': [close(1000, 'für\u{1f600}'), 'close 1000'],
  'a reason that is no UTF-8': [close(1000, Buffer.from([0xc0, 0x80])), 'close 1002'],
  'a reason with a surrogate': [close(1000, Buffer.from([0xed, 0xa0, 0x80])), 'close 1002'],
  'a reason that ends in a sequence': [close(1000, Buffer.from([0x61, 0xe2, 0x82])), 'close 1002'],
  'twice': [[close(1000), close(1001)], 'close 1000'],
  'a ping behind it': [[close(1000), ping('late')], 'close 1000'],
  'a message behind it': [[close(1000), get(1)], 'close 1000'],
  'a broken frame behind it': [[close(1000), send('', { opcode: 3, masked: false })], 'close 1000'],
  'a close in the bytes of a message': [Buffer.concat([get(1), close(1000), get(2)]), ['reply 1', 'close 1000'], ['close 1000']],
});

test('closing: the server ends the connection after the close frames', async (t) => {
  const client = await session(t);
  client.socket.write(close(1000));
  await client.ended(); // the client's own side is still open
  assert.deepEqual(client.heard(), ['close 1000']);
});

test('closing: a client that goes without a word harms nobody', async (t) => {
  for (const bytes of [get(1), get(1).subarray(0, 1), get(1).subarray(0, 7), send('{', { final: false })]) {
    const client = await session(t);
    client.socket.end(bytes);
    await client.ended();
  }
  assert.equal((await ask(t, host, putText(host, 20))).status, 200);
});

// A session of everything but its end: a message, one of fragments with a ping between them, a ping, another message.
const story = () => Buffer.concat([get(1), ...between(ping('a')), ping(''), get(2)]);
const told = ['pong ', 'pong a', 'reply 1', 'reply 1', 'reply 2'];

// Sends the pieces, the first as the connection's first bytes, then waits for the answers and ends.
async function tell(t, pieces, what) {
  const line = await talk(t, host);
  for (const piece of pieces) {
    line.write(piece);
    if (pieces.length === 2) await sleep(1);
    else await new Promise(setImmediate);
  }
  const heard = () => {
    const start = line.received().indexOf('\r\n\r\n') + 4;
    return start < 4 ? [] : framesIn(line.received().subarray(start)).map(said);
  };
  const all = line.until(() => heard().length >= told.length, 'answers');
  await within(all, 'answers', seconds).catch(({ message: why }) => assert.fail(`${what}: ${why}; heard ${JSON.stringify(heard())}`));
  line.write(close(4000, 'bye'));
  await line.ended();
  assert.deepEqual([heard().slice(0, -1).sort(), heard().at(-1)], [told, 'close 4000'], what);
}

test('splitting: an upgrade and a session behind it in one write', (t) => tell(t, [Buffer.concat([Buffer.from(upgradeText(host)), story()])], 'whole'));

test('splitting: an upgrade and a session behind it, cut at every byte', async (t) => {
  const whole = Buffer.concat([Buffer.from(upgradeText(host)), story()]);
  for (let at = 1; at < whole.length; ++at) await tell(t, [whole.subarray(0, at), whole.subarray(at)], `cut at ${at}`);
});

test('splitting: an upgrade and a session behind it, byte by byte', (t) =>
  tell(t, Array.from(Buffer.concat([Buffer.from(upgradeText(host)), story()]), (byte) => Buffer.from([byte])), 'byte by byte'));

// Fields of an upgrade request; a list is several fields of one name, null leaves it out.
const usual = { Host: () => `127.0.0.1:${host.port}`, Upgrade: 'websocket', Connection: 'Upgrade', 'Sec-WebSocket-Key': 'MDEyMzQ1Njc4OWFiY2RlZg==', 'Sec-WebSocket-Version': '13' };
function handshake(changes, first = 'GET /jsonrpc HTTP/1.1', rest = '') {
  const fields = Object.entries({ ...usual, ...changes }).flatMap(([name, value]) => {
    if (value === null) return [];
    return (Array.isArray(value) ? value : [typeof value === 'function' ? value() : value]).map((one) => `${name}: ${one}\r\n`);
  });
  return `${first}\r\n${fields.join('')}\r\n${rest}`;
}
const accepted = (given) => createHash('sha1').update(`${given}258EAFA5-E914-47DA-95CA-C5AB0DC85B11`).digest('base64');

// The headers of a 101, after which the connection answers a ping.
async function upgraded(t, text) {
  const line = await talk(t, host, text);
  const [answer] = await line.answers(1);
  assert.equal(answer.status, 101, answer.text);
  assert.match(answer.headers.upgrade, /^websocket$/i);
  assert.match(answer.headers.connection, /^upgrade$/i);
  line.write(ping('here'));
  const start = line.received().indexOf('\r\n\r\n') + 4;
  await within(line.until((bytes) => framesIn(bytes.subarray(start)).some((one) => said(one) === 'pong here'), 'pong'), 'pong', seconds);
  return answer.headers;
}

const welcome = {
  'the usual fields': {},
  'Upgrade: WebSocket': { Upgrade: 'WebSocket' },
  'Upgrade: WEBSOCKET': { Upgrade: 'WEBSOCKET' },
  'Connection: upgrade': { Connection: 'upgrade' },
  'Connection: UPGRADE': { Connection: 'UPGRADE' },
  'Connection: keep-alive, Upgrade': { Connection: 'keep-alive, Upgrade' },
  'Connection: Upgrade,keep-alive': { Connection: 'Upgrade,keep-alive' },
  'two Connection fields': { Connection: ['keep-alive', 'Upgrade'] },
  'names in lower case': { Upgrade: null, Connection: null, 'Sec-WebSocket-Key': null, 'Sec-WebSocket-Version': null, upgrade: 'websocket', connection: 'upgrade', 'sec-websocket-key': 'MDEyMzQ1Njc4OWFiY2RlZg==', 'sec-websocket-version': '13' },
  'the fields of a browser': { Pragma: 'no-cache', 'Cache-Control': 'no-cache', 'User-Agent': 'Mozilla/5.0', 'Accept-Encoding': 'gzip, deflate', 'Accept-Language': 'de', Origin: () => `http://127.0.0.1:${host.port}`, 'Sec-WebSocket-Extensions': 'permessage-deflate; client_max_window_bits' },
};
for (const [name, changes] of Object.entries(welcome)) test(`handshake: ${name}`, (t) => upgraded(t, handshake(changes)));
test('handshake: a query is passed over', (t) => upgraded(t, handshake({}, 'GET /jsonrpc?x=1 HTTP/1.1')));

test('handshake: Sec-WebSocket-Accept follows from the key', async (t) => {
  // The first is the example that the standard gives with its answer.
  assert.equal(accepted('dGhlIHNhbXBsZSBub25jZQ=='), 's3pPLMBiTxaQ9kYGzzhZRbK+xOo=');
  for (const given of ['dGhlIHNhbXBsZSBub25jZQ==', 'AAAAAAAAAAAAAAAAAAAAAA==', '/////////////////////w==', '+/+/+/+/+/+/+/+/+/+/+w==', 'MDEyMzQ1Njc4OWFiY2RlZg=='])
    assert.equal((await upgraded(t, handshake({ 'Sec-WebSocket-Key': given })))['sec-websocket-accept'], accepted(given));
});

const protocols = {
  'none': [null, undefined],
  'jsonrpc': ['jsonrpc', 'jsonrpc'],
  'foo, jsonrpc': ['foo, jsonrpc', 'jsonrpc'],
  'jsonrpc,foo': ['jsonrpc,foo', 'jsonrpc'],
  'two fields': [['foo', 'jsonrpc'], 'jsonrpc'],
  'an unknown one': ['foo', undefined],
  'unknown ones': ['foo, bar', undefined],
  'names that contain it': ['xjsonrpc, jsonrpcx, json, rpc', undefined],
  'upper case': ['JSONRPC', undefined],
};
for (const [name, [offered, selected]] of Object.entries(protocols))
  test(`handshake: subprotocols: ${name}`, async (t) => {
    assert.equal((await upgraded(t, handshake({ 'Sec-WebSocket-Protocol': offered })))['sec-websocket-protocol'], selected);
  });

const extensions = ['permessage-deflate', 'permessage-deflate; client_max_window_bits', 'x-webkit-deflate-frame', 'foo, bar; a=1'];
for (const offered of extensions)
  test(`handshake: extension ${offered} is not accepted`, async (t) => {
    assert.equal((await upgraded(t, handshake({ 'Sec-WebSocket-Extensions': offered })))['sec-websocket-extensions'], undefined);
  });

const version = [400, 426];
const turnedAway = {
  'no version': [version, { 'Sec-WebSocket-Version': null }],
  'an empty version': [version, { 'Sec-WebSocket-Version': '' }],
  'version 0': [version, { 'Sec-WebSocket-Version': '0' }],
  'version 8': [version, { 'Sec-WebSocket-Version': '8' }],
  'version 12': [version, { 'Sec-WebSocket-Version': '12' }],
  'version 14': [version, { 'Sec-WebSocket-Version': '14' }],
  'version 130': [version, { 'Sec-WebSocket-Version': '130' }],
  'a version of letters': [version, { 'Sec-WebSocket-Version': 'abc' }],
  'two versions': [version, { 'Sec-WebSocket-Version': '13, 8' }],
  'no key': [[400], { 'Sec-WebSocket-Key': null }],
  'an empty key': [[400], { 'Sec-WebSocket-Key': '' }],
  'a key of 15 bytes': [[400], { 'Sec-WebSocket-Key': 'MDEyMzQ1Njc4OWFiY2Rl' }],
  'a key of 17 bytes': [[400], { 'Sec-WebSocket-Key': 'MDEyMzQ1Njc4OWFiY2RlZmc=' }],
  'a key of 18 bytes': [[400], { 'Sec-WebSocket-Key': 'MDEyMzQ1Njc4OWFiY2RlZmdo' }],
  'a short key': [[400], { 'Sec-WebSocket-Key': 'MDEy' }],
  'a long key': [[400], { 'Sec-WebSocket-Key': 'MDEy'.repeat(100) }],
  'a key that is no base64': [[400], { 'Sec-WebSocket-Key': 'MDEyMzQ1Njc4OWFi*2RlZg==' }],
  'a key without its padding': [[400], { 'Sec-WebSocket-Key': 'MDEyMzQ1Njc4OWFiY2RlZg' }],
  'two keys': [[400], { 'Sec-WebSocket-Key': ['MDEyMzQ1Njc4OWFiY2RlZg==', 'AAAAAAAAAAAAAAAAAAAAAA=='] }],
  'another path': [[404], {}, 'GET / HTTP/1.1'],
  'a URI': [[404, 400], {}, `GET ${volume} HTTP/1.1`],
  'a path below': [[404], {}, 'GET /jsonrpc/x HTTP/1.1'],
  'POST': [[400, 405], {}, 'POST /jsonrpc HTTP/1.1'],
  'PUT': [[400, 405], {}, 'PUT /jsonrpc HTTP/1.1'],
  'HEAD': [[400, 405], {}, 'HEAD /jsonrpc HTTP/1.1'],
  'a body': [[400], { 'Content-Length': '13' }],
  'a body in chunks': [[400], { 'Transfer-Encoding': 'chunked' }],
  'HTTP/1.0': [[400, 405, 426, 505], {}, 'GET /jsonrpc HTTP/1.0'],
  'HTTP/2.0': [[400], {}, 'GET /jsonrpc HTTP/2.0'],
  'no Upgrade': [[400, 405, 426], { Upgrade: null }],
  'another Upgrade': [[400, 405, 426], { Upgrade: 'h2c' }],
  'an Upgrade that contains it': [[400, 405, 426], { Upgrade: 'websockets' }],
  'no Connection': [[400, 405, 426], { Connection: null }],
  'another Connection': [[400, 405, 426], { Connection: 'keep-alive' }],
  'a Connection that contains it': [[400, 405, 426], { Connection: 'upgrades' }],
  'another Host': [[403], { Host: 'evil.example' }],
  'no Host': [[400], { Host: null }],
  'another Origin': [[403], { Origin: 'http://evil.example' }],
  'Origin: null': [[403], { Origin: 'null' }],
};
for (const [name, [statuses, changes, first]] of Object.entries(turnedAway))
  test(`handshake: refused: ${name}`, async (t) => {
    await ask(t, host, putText(host, 20));
    const line = await talk(t, host, Buffer.concat([Buffer.from(handshake(changes, first)), set(77)]));
    await within(line.until((bytes) => bytes.includes('\r\n\r\n'), 'answer'), 'answer', seconds);
    const head = line.received().toString('latin1').split('\r\n\r\n')[0];
    const status = Number(/^HTTP\/1\.[01] (\d+)/.exec(head)?.[1]);
    assert.ok(statuses.includes(status), head);
    if (status === 426) assert.match(head, /\r\nsec-websocket-version: 13(\r\n|$)/i);
    assert.equal(await volumeOf(t, host), 20);
  });

test('handshake: a compressed frame after an offer is refused', async (t) => {
  const line = await talk(t, host, handshake({ 'Sec-WebSocket-Extensions': 'permessage-deflate' }));
  await line.answers(1);
  line.write(get(1, { reserved: 4 }));
  const start = line.received().indexOf('\r\n\r\n') + 4;
  await within(line.until((bytes) => framesIn(bytes.subarray(start)).length > 0, 'close frame'), 'close frame', seconds);
  assert.deepEqual(framesIn(line.received().subarray(start)).map(said), ['close 1002']);
});

test('handshake: behind a request on one connection', async (t) => {
  const line = await talk(t, host, `GET ${volume} HTTP/1.1\r\n${hostLine(host)}\r\n${handshake({})}`);
  const answers = await within(line.until((bytes) => bytes.includes(' 101 '), 'upgrade').then(() => answersIn(line.received())), 'upgrade', seconds);
  assert.deepEqual(answers.map(({ status }) => status), [200, 101]);
});

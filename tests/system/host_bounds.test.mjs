// How long a request may take to arrive, what slow and greedy clients cost the others, and that control commands get through.
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import { once } from 'node:events';
import { join } from 'node:path';
import { test } from 'node:test';
import { build, connect, descriptors, dialWebSocket, frame, modify, mute, sanitized, sleep, slowCall, startHost, volume, within } from './host_support.mjs';
import { answersIn, ask, getText, hostLine, putText, refuses, resident, seconds, talk, volumeOf } from './wire_support.mjs';

const dtvctl = join(build, 'bin/dtvctl');
const setCall = 'a_vextvapi_volctrl_setVolume';
const get = JSON.stringify({ jsonrpc: '2.0', id: 'x', method: 'get', params: { uri: volume } });

// What arrives too slowly: the times are total, so that a byte now and then does not renew them.
const slow = {
  'a header that stops': { begin: (host) => `GET ${volume} HTTP/1.1\r\n${hostLine(host)}X-Foo: a`, more: '', statuses: [408, 400] },
  'a request line that stops': { begin: () => 'GET /tv', more: '', statuses: [408, 400] },
  'a header of a byte now and then': { begin: (host) => `GET ${volume} HTTP/1.1\r\n${hostLine(host)}X-Foo: a`, more: 'b', statuses: [408, 400] },
  'fields without an end': { begin: (host) => `GET ${volume} HTTP/1.1\r\n${hostLine(host)}`, more: 'X: y\r\n', statuses: [408, 400] },
  'a body that stops': { begin: (host) => putText(host, 77).slice(0, -5), more: '', statuses: [408] },
  'a body that does not come': { begin: (host) => putText(host, 77).split('\r\n\r\n')[0] + '\r\n\r\n', more: '', statuses: [408] },
  'a body of a byte now and then': { begin: (host) => `PUT ${volume} HTTP/1.1\r\n${hostLine(host)}Content-Length: 1000\r\n\r\n`, more: ' ', statuses: [408] },
  'a chunk that stops': { begin: (host) => `PUT ${volume} HTTP/1.1\r\n${hostLine(host)}Transfer-Encoding: chunked\r\n\r\n1f\r\n{"REQUEST"`, more: '', statuses: [408] },
  'chunks of a byte now and then': { begin: (host) => `PUT ${volume} HTTP/1.1\r\n${hostLine(host)}Transfer-Encoding: chunked\r\n\r\n`, more: '1\r\n \r\n', statuses: [408] },
  'trailers without an end': { begin: (host) => `PUT ${volume} HTTP/1.1\r\n${hostLine(host)}Transfer-Encoding: chunked\r\n\r\n0\r\n`, more: 'X: y\r\n', statuses: [408] },
  'a body after 100': { begin: (host) => `PUT ${volume} HTTP/1.1\r\n${hostLine(host)}Expect: 100-continue\r\nContent-Length: 31\r\n\r\n`, more: '', statuses: [408] },
};
test('what arrives too slowly is 408 and the end', async (t) => {
  const host = await startHost(t, ['--header-time', '1', '--body-time', '1']);
  const wait = async ([name, { begin, more, statuses }]) => {
    const begun = performance.now();
    const line = await talk(t, host, begin(host));
    const drip = setInterval(() => more && line.write(more), 100);
    await line.ended(seconds + 5).catch(({ message }) => assert.fail(`${name}: ${message}; ${line.shown()}`)).finally(() => clearInterval(drip));
    const took = performance.now() - begun;
    const answers = answersIn(line.received()).filter(({ status }) => status !== 100);
    assert.deepEqual(answers.map(({ status }) => statuses.includes(status)), [true], `${name}: ${line.shown()}`);
    assert.match(answers[0].headers.connection ?? '', /^close$/i, name);
    assert.ok(took > 800 && took < (sanitized ? 15_000 : 9000), `${name}: ${took} ms`); // without the options 10 s and more
  };
  await Promise.all(Object.entries(slow).map(wait));
  assert.notEqual(await volumeOf(t, host), 77);
});

test('what arrives within its time is served', async (t) => {
  const host = await startHost(t, ['--header-time', '4', '--body-time', '4']);
  const line = await talk(t, host);
  const text = putText(host, 45);
  const end = text.indexOf('\r\n\r\n') + 4;
  // Together longer than either time, each part well within its own.
  for (const [piece, pause] of [[text.slice(0, 20), 2200], [text.slice(20, end), 1100], [text.slice(end, -3), 1100], [text.slice(-3), 0]]) {
    line.write(piece);
    await sleep(pause);
  }
  assert.equal((await line.answers(1))[0].status, 200);
  assert.equal(await volumeOf(t, host), 45);
});

const chunked = (host, body) => `PUT ${volume} HTTP/1.1\r\n${hostLine(host)}Transfer-Encoding: chunked\r\n\r\n${body}`;
const text = JSON.stringify(modify(77));
const size = text.length.toString(16);
const badChunks = {
  'not hexadecimal': `zz\r\n${text}\r\n0\r\n\r\n`,
  'negative': `-${size}\r\n${text}\r\n0\r\n\r\n`,
  'a plus sign': `+${size}\r\n${text}\r\n0\r\n\r\n`,
  'a prefix': `0x${size}\r\n${text}\r\n0\r\n\r\n`,
  'no size': `\r\n${text}\r\n0\r\n\r\n`,
  'an extension alone': `;a=b\r\n${text}\r\n0\r\n\r\n`,
  'a space before the size': ` ${size}\r\n${text}\r\n0\r\n\r\n`,
  'two sizes': `${size} ${size}\r\n${text}\r\n0\r\n\r\n`,
  'a size behind the digits of an integer': `1${'0'.repeat(16 - size.length)}${size}\r\n${text}\r\n0\r\n\r\n`,
  'thirty digits': `${'f'.repeat(30)}\r\n${text}\r\n0\r\n\r\n`,
  'the greatest integer': `${'f'.repeat(16)}\r\n${text}\r\n0\r\n\r\n`,
  'no CR LF after the chunk': `${size}\r\n${text}0\r\n\r\n`,
  'other bytes after the chunk': `${size}\r\n${text}XX0\r\n\r\n`,
  'a chunk longer than its size': `${(text.length - 2).toString(16)}\r\n${text}\r\n0\r\n\r\n`,
  'a bare LF after the size': `${size}\n${text}\r\n0\r\n\r\n`,
  'a bare LF after the chunk': `${size}\r\n${text}\n0\r\n\r\n`,
  'bare LFs alone': `${size}\n${text}\n0\n\n`,
  'a bare CR after the size': `${size}\r${text}\r\n0\r\n\r\n`,
  'a bare LF in an extension': `${size};a\nb\r\n${text}\r\n0\r\n\r\n`,
  'a control character in an extension': `${size};a\x01b\r\n${text}\r\n0\r\n\r\n`,
  'a bare LF after the last chunk': `${size}\r\n${text}\r\n0\n\r\n`,
  'a trailer without a colon': `${size}\r\n${text}\r\n0\r\nX-Foo\r\n\r\n`,
  'a trailer with a space before the colon': `${size}\r\n${text}\r\n0\r\nX-Foo : a\r\n\r\n`,
  'a trailer that continues': `${size}\r\n${text}\r\n0\r\n X-Foo: a\r\n\r\n`,
  'a control character in a trailer': `${size}\r\n${text}\r\n0\r\nX-Foo: \x01\r\n\r\n`,
};
test('invalid chunks are refused, and nothing after them is carried out', async (t) => {
  const host = await startHost(t, ['--header-time', '1', '--body-time', '1']);
  await ask(t, host, putText(host, 20));
  const rows = Object.entries(badChunks).map(([name, body]) =>
    refuses(t, host, chunked(host, body), [400, 408, 413], { reset: false }).catch(({ message }) => assert.fail(`${name}: ${message}`)));
  const failed = (await Promise.allSettled(rows)).filter(({ status }) => status === 'rejected').map(({ reason }) => reason.message);
  assert.deepEqual(failed, []);
});

test('a reply that is not read is dropped after a time', async (t) => {
  const host = await startHost(t, ['--reply-time', '1']);
  const list = JSON.stringify({ jsonrpc: '2.0', id: 1, method: 'list' });
  const posts = `POST /jsonrpc HTTP/1.1\r\n${hostLine(host)}Content-Length: ${list.length}\r\n\r\n${list}`.repeat(400);
  const http = await talk(t, host);
  const gets = await talk(t, host);
  const webSocket = await dialWebSocket(t, host);
  const lines = [http, gets, webSocket];
  for (const line of lines) line.socket.pause();
  http.write(posts);
  gets.write(`GET /list.json HTTP/1.1\r\n${hostLine(host)}\r\n`.repeat(400));
  for (let i = 0; i < 400; ++i) webSocket.socket.write(frame(list));
  const open = descriptors(host);
  for (let i = 0; i < 600 && descriptors(host) > open - lines.length; ++i) await sleep(100); // until the host has closed all
  const whole = 400 * (await ask(t, host, posts.slice(0, posts.length / 400))).body.length;
  for (const line of lines) {
    line.socket.resume();
    await within(line.closed(), 'end of the connection', seconds);
    assert.ok(line.received().length < whole, `${line.received().length} of ${whole} bytes were sent`);
  }
});

// More connections than there may be, each with a request that never ends.
const endless = {
  'bodies': (host) => `PUT ${volume} HTTP/1.1\r\n${hostLine(host)}Content-Length: 1000\r\n\r\n `,
  'headers': (host) => `PUT ${volume} HTTP/1.1\r\n${hostLine(host)}X-Foo: `,
  'request lines': () => 'G',
};
for (const [name, begin] of Object.entries(endless))
  test(`260 clients send ${name} of a byte a second: others are served at once`, async (t) => {
    const host = await startHost(t);
    const friend = await connect(t, host);
    const lines = await Promise.all(Array.from({ length: 260 }, () => talk(t, host, begin(host))));
    const drip = setInterval(() => lines.forEach((line) => line.socket.writable && line.write(' ')), 1000);
    t.after(() => clearInterval(drip));
    await sleep(200);
    for (let i = 0; i < 3; ++i) {
      const begun = performance.now();
      assert.equal((await ask(t, host, getText(host))).status, 200);
      assert.equal((await connect(t, host).then((client) => client.call('get', { uri: volume }))).ret, 0);
      const took = performance.now() - begun;
      assert.ok(took < 1000 * (sanitized ? 10 : 4), `${took} ms`);
      await sleep(400);
    }
    assert.equal((await friend.call('get', { uri: volume })).ret, 0, 'an earlier connection stays');
  });

test('a client with a thousand sets waiting delays the get of another by a few', async (t) => {
  const host = await startHost(t);
  const [tv, greedy, other] = [await connect(t, host), await connect(t, host), await connect(t, host)];
  await tv.call('tv', { words: ['fault', setCall, '--delay', '5'] });
  for (let i = 0; i < 1000; ++i) greedy.send(JSON.stringify({ jsonrpc: '2.0', id: `set ${i}`, method: 'set', params: { uri: volume, parameter: modify(i % 100) } }));
  await sleep(100);
  const times = [];
  for (let i = 0; i < 10; ++i) {
    const begun = performance.now();
    await other.call('get', { uri: mute });
    times.push(performance.now() - begun);
  }
  t.diagnostic(`gets took ${times.map((ms) => ms.toFixed(1)).join(', ')} ms; a set takes 5 ms`);
  assert.ok(Math.max(...times) < 2500, `${Math.max(...times)} ms; all sets take 5 s`);
  await tv.call('tv', { words: ['fault', '--clear'] });
});

test('forty clients with sets waiting: another has its turn', async (t) => {
  const host = await startHost(t);
  const [tv, other] = [await connect(t, host), await connect(t, host)];
  const greedy = await Promise.all(Array.from({ length: 40 }, () => connect(t, host)));
  await tv.call('tv', { words: ['fault', setCall, '--delay', '2'] });
  for (const client of greedy)
    for (let i = 0; i < 200; ++i) client.send(JSON.stringify({ jsonrpc: '2.0', id: `set ${i}`, method: 'set', params: { uri: volume, parameter: modify(i % 100) } }));
  await sleep(100);
  const times = [];
  for (let i = 0; i < 5; ++i) {
    const begun = performance.now();
    await other.call('get', { uri: mute });
    times.push(performance.now() - begun);
  }
  t.diagnostic(`gets took ${times.map((ms) => ms.toFixed(1)).join(', ')} ms; a turn of all takes 80 ms and more`);
  assert.ok(Math.max(...times) < 5000, `${Math.max(...times)} ms; all sets take 16 s`);
  await tv.call('tv', { words: ['fault', '--clear'] });
});

test('a batch of unknown URIs delays nobody', async (t) => {
  const host = await startHost(t);
  const [asker, other] = [await connect(t, host), await connect(t, host)];
  const unknown = (_, id) => ({ jsonrpc: '2.0', id, method: 'get', params: { uri: '/tv/menu/common_setting/sys_info_on_idab' } });
  const batch = JSON.stringify(Array.from({ length: 1000 }, unknown));
  for (let i = 0; i < 5; ++i) asker.send(batch);
  await sleep(20);
  const begun = performance.now();
  await other.call('get', { uri: mute });
  const took = performance.now() - begun;
  assert.ok(took < (sanitized ? 5000 : 2000), `${took} ms`);
  const replies = JSON.parse(await asker.text());
  assert.deepEqual(replies.map(({ id, error }) => [id, error.code]), Array.from({ length: 1000 }, (_, id) => [id, -32001]));
  assert.equal(replies.filter(({ error }) => error.data.nearest.length > 0).length, 8, 'a message searches for so many');
  assert.ok(replies[0].error.data.nearest.includes('/tv/menu/common_setting/sys_info_on_id'));
});

test('while the platform hangs and gets wait, control commands get through', async (t) => {
  const host = await startHost(t);
  const tv = await connect(t, host);
  await tv.call('tv', { words: ['fault', slowCall, '--delay', '20000'] });
  const lines = await Promise.all(Array.from({ length: 20 }, () => dialWebSocket(t, host)));
  const thousand = Buffer.concat(Array(1000).fill(frame(get)));
  for (const line of lines) line.socket.write(thousand);
  await sleep(500);
  const begun = performance.now();
  assert.ok(await tv.call('tv', { words: ['faults'] }));
  await tv.call('tv', { words: ['fault', '--clear'] });
  const took = performance.now() - begun;
  assert.ok(took < 10_000, `${took} ms; the platform's call takes 20 s`);
});

test('a body is not kept while its call waits', async (t) => {
  const host = await startHost(t);
  const tv = await connect(t, host);
  await tv.call('tv', { words: ['fault', slowCall, '--delay', '20000'] });
  const before = resident(host.child.pid);
  const body = `[${get},${get}${' '.repeat((1 << 20) - 2 * get.length - 3)}]`;
  for (let i = 0; i < 100; ++i) {
    const line = await talk(t, host, `POST /jsonrpc HTTP/1.1\r\n${hostLine(host)}Content-Length: ${body.length}\r\nExpect: 100-continue\r\n\r\n`);
    await line.until((bytes) => bytes.includes(' 100 '), '100');
    line.write(body);
    await tv.call('tv', { words: ['faults'] });
  }
  let after = resident(host.child.pid);
  for (let i = 0; i < 100 && after >= before + 40; ++i) {
    await sleep(100);
    after = resident(host.child.pid);
  }
  t.diagnostic(`${before.toFixed(0)} MiB before, ${after.toFixed(0)} MiB with 100 bodies of 1 MiB`);
  assert.ok(sanitized || after < before + 40, `${after} MiB`);
});

const bearer = (host) => ({ headers: { Authorization: `Bearer ${host.token}` }, authorize: false });

// Takes every connection with gets that hang. The host closes a connection whose get it has not read yet in favour of a new
// one, so each line that replaces a closed one gets time to be read before the next probe.
async function takeAll(t, host, count) {
  const lines = await Promise.all(Array.from({ length: count }, () => talk(t, host, getText(host))));
  const last = performance.now() + 4 * seconds * 1000;
  while ((await ask(t, host, getText(host, { path: '/tv/none' }))).status !== 503) {
    assert.ok(performance.now() < last, 'connections are taken until none is left');
    lines.push(await talk(t, host, getText(host)));
    await sleep(50);
  }
  return lines;
}

test('a client with the token is served when every connection is taken', async (t) => {
  const host = await startHost(t, ['--max-connections', '4']);
  for (let i = 0; i < 4; ++i) await connect(t, host, { authorize: false });
  assert.equal((await ask(t, host, getText(host))).status, 503);
  assert.equal((await ask(t, host, getText(host, { more: `Authorization: Bearer ${'0'.repeat(64)}\r\n` }))).status, 503);
  assert.equal((await ask(t, host, getText(host, { more: `Authorization: Bearer ${host.token}\r\n` }))).status, 200);
  await assert.rejects(connect(t, host, { authorize: false }), ({ status }) => status === 503);
  const owner = await connect(t, host, bearer(host));
  assert.ok(await owner.call('tv', { words: ['state'] }));
});

test('dtvctl clears a fault while clients with gets that hang have every connection', async (t) => {
  const host = await startHost(t);
  const tv = await connect(t, host);
  await tv.call('tv', { words: ['fault', slowCall, '--delay', '20000'] });
  const lines = await takeAll(t, host, 255);
  const ended = once(spawn(dtvctl, ['--host', `127.0.0.1:${host.port}`, '--state', host.state, 'tv', 'fault', '--clear']), 'exit');
  assert.deepEqual(await within(ended, 'end of dtvctl', seconds), [0, null]);
  for (const line of lines) line.socket.destroy();
});

test('connections beyond the maximum that come at once each get a 503', async (t) => {
  const host = await startHost(t, ['--max-connections', '4']);
  for (let i = 0; i < 4; ++i) await connect(t, host);
  const dialled = await Promise.all(Array.from({ length: 20 }, () => talk(t, host)));
  const told = dialled.map(async (line) => {
    line.write(getText(host));
    return (await line.answers(1))[0].status;
  });
  assert.deepEqual(await Promise.all(told), Array(20).fill(503));
});

test('clients that have left while the platform hangs take no place', async (t) => {
  const host = await startHost(t, ['--max-connections', '8']);
  const tv = await connect(t, host);
  await tv.call('tv', { words: ['fault', slowCall, '--delay', '20000'] });
  const lines = await takeAll(t, host, 7);
  for (const line of lines) line.socket.destroy();
  await Promise.all(lines.map((line) => line.ended()));
  for (let i = 0; i < 10; ++i) assert.equal((await ask(t, host, getText(host, { path: '/tv/none' }))).status, 404);
});

test('an idle connection is probed within half a minute, so that one whose machine is gone does not stay', async (t) => {
  const host = await startHost(t);
  await connect(t, host);
  const timers = () => execFileSync('ss', ['-tnoH', 'state', 'established', `sport = :${host.port}`], { encoding: 'utf8' });
  // Another timer runs until the client's machine has acknowledged the last reply.
  let found;
  for (let i = 0; i < 100 && !found; ++i) {
    await sleep(100);
    found = /timer:\(keepalive,([\d.]+)sec,0\)/.exec(timers());
  }
  assert.ok(found && Number(found[1]) <= 30, timers());
});

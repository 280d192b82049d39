// Notifications, many clients, slow platform calls, clients that do not keep up, starting and stopping.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import net from 'node:net';
import { test } from 'node:test';
import { build, callRuns, connect, dialWebSocket, dtvHost, folder, frame, modify, mute, oddPlugin, request, slowCall, sleep, startHost, valueOf, volume, volumeEvents, within } from './host_support.mjs';

const told = (volValue, muteStatus = 0) => ({ URI: volumeEvents, REQUEST: 'NOTIFY', ITEMS: [{ volValue, muteStatus }] });
const notification = async (client) => (await client.next('notify')).notification;

// Waits for the notification with this volume; a notification of the volume replaces one that was not fetched yet.
async function volumeTold(client, value) {
  for (;;) {
    const { ITEMS } = await notification(client);
    if (ITEMS[0].volValue === value) return;
  }
}

test('a subscriber is notified of every change, whichever client made it', async (t) => {
  const host = await startHost(t);
  const client = await connect(t, host);
  assert.deepEqual(await client.call('subscribe', { uri: volumeEvents }), {});
  await client.call('set', { uri: volume, parameter: modify(33) });
  const first = await client.next('notify');
  assert.equal(first.uri, volumeEvents);
  assert.deepEqual(first.notification, told(33));
  // The message has the plugin's text exactly as the plugin wrote it.
  assert.ok(first.text.includes(`"notification":${JSON.stringify(told(33))}}`));
  await client.call('tv', { words: ['volume', '34'] });
  assert.deepEqual(await notification(client), told(34));
  await request(host, 'PUT', mute, { body: JSON.stringify(modify(1)) });
  assert.deepEqual(await notification(client), told(34, 1));
});

test('each of several clients gets every notification until it unsubscribes', async (t) => {
  const host = await startHost(t);
  const clients = [];
  for (let i = 0; i < 5; ++i) clients.push(await connect(t, host));
  for (const client of clients) await client.call('subscribe', { uri: volumeEvents });
  await clients[0].call('subscribe', { uri: volumeEvents });
  for (let value = 1; value <= 5; ++value) {
    await clients[value - 1].call('set', { uri: volume, parameter: modify(value) });
    for (const client of clients) assert.deepEqual(await notification(client), told(value));
  }
  await clients[0].call('unsubscribe', { uri: volumeEvents });
  await clients[0].call('unsubscribe', { uri: volumeEvents });
  await clients[0].call('set', { uri: volume, parameter: modify(9) });
  for (const client of clients.slice(1)) assert.deepEqual(await notification(client), told(9));
  await clients[0].ping();
  assert.equal(clients[0].pending('notify'), 0);
});

test('a client that vanishes is unsubscribed, and the plugin with the last one', async (t) => {
  const host = await startHost(t);
  const stays = await connect(t, host);
  const goes = await connect(t, host);
  await goes.call('subscribe', { uri: volumeEvents });
  await goes.call('trace', { on: true });
  goes.socket.terminate();
  await stays.call('set', { uri: volume, parameter: modify(50) });
  // The set found no subscriber, or its text was dropped with the last subscription: a new one starts without it.
  await sleep(200);
  await stays.call('subscribe', { uri: volumeEvents });
  await stays.call('set', { uri: volume, parameter: modify(51) });
  assert.deepEqual(await notification(stays), told(51));
  assert.equal(stays.pending('notify'), 0);
});

test('a slow platform call delays nobody else', async (t) => {
  const host = await startHost(t);
  const slow = await connect(t, host);
  const other = await connect(t, host);
  const tv = await connect(t, host);
  const delay = 10_000;
  await tv.call('tv', { words: ['fault', slowCall, '--delay', String(delay)] });

  let answered = false;
  const begun = performance.now();
  const reply = slow.call('get', { uri: volume }).then((result) => {
    answered = true;
    return result;
  });
  const behind = slow.call('get', { uri: mute });
  await sleep(50);

  assert.deepEqual(await other.call('subscribe', { uri: volumeEvents }), {});
  await other.ping();
  assert.equal((await other.fail('get', { uri: '/no/such/uri' })).code, -32001);
  assert.equal((await other.fail('no such method', {})).code, -32601);
  await other.call('list');
  await tv.call('tv', { words: ['volume', '77'] });
  await volumeTold(other, 77);
  const late = await connect(t, host);
  await late.call('trace', { on: true });
  await late.call('trace', { on: false });
  await slow.ping();
  assert.equal((await request(host, 'GET', '/no/such/page')).status, 404);
  const took = performance.now() - begun;
  assert.ok(!answered, `all of this took ${took} ms, and the slow call ${delay} ms`);

  assert.equal((await reply).ret, 0);
  assert.ok(performance.now() - begun >= delay);
  assert.equal((await behind).ret, 0);
  await tv.call('tv', { words: ['fault', '--clear'] });
  assert.equal(valueOf(await slow.call('get', { uri: volume })), 77);
});

test('slow calls one after another, from many clients', async (t) => {
  const host = await startHost(t);
  const clients = [];
  for (let i = 0; i < 6; ++i) clients.push(await connect(t, host));
  await clients[0].call('tv', { words: ['volume', '5'] });
  await clients[0].call('tv', { words: ['fault', slowCall, '--delay', '30'] });
  const results = await Promise.all(clients.flatMap((client) => [0, 1, 2].map(() => client.call('get', { uri: volume }))));
  assert.deepEqual(results.map(valueOf), Array(18).fill(5));
});

test('calls about as long as a slow one begins to be, from clients that come and go', async (t) => {
  const host = await startHost(t);
  const stays = await connect(t, host);
  await stays.call('tv', { words: ['fault', slowCall, '--delay', '2'] });
  await stays.call('subscribe', { uri: volumeEvents });
  const work = async (client, round) => {
    const results = await Promise.all([
      client.call('get', { uri: volume }),
      client.call('get', { uri: mute }),
      client.call('set', { uri: volume, parameter: modify(round) }),
      client.call('tv', { words: ['state'] }),
      client.call('get', { uri: volume, trace: true }),
    ]);
    assert.equal(results[4].calls.length, 1);
    assert.equal(valueOf(results[4]), results[4].calls[0].ret);
  };
  for (let round = 1; round <= 15; ++round) {
    const others = await Promise.all(Array.from({ length: 4 }, () => connect(t, host)));
    for (const client of others) client.call('subscribe', { uri: volumeEvents }).catch(() => {});
    await Promise.all([stays, ...others].map((client) => work(client, round)));
    for (const client of others) {
      client.send(JSON.stringify({ jsonrpc: '2.0', id: 'unread', method: 'get', params: { uri: volume } }));
      client.socket.terminate();
    }
  }
  await stays.call('tv', { words: ['fault', '--clear'] });
  await stays.call('tv', { words: ['volume', '99'] });
  await volumeTold(stays, 99);
});

test('a client that goes while its call runs', async (t) => {
  const host = await startHost(t);
  const tv = await connect(t, host);
  await tv.call('tv', { words: ['fault', slowCall, '--delay', '300'] });
  const goes = await connect(t, host);
  goes.send(JSON.stringify({ jsonrpc: '2.0', id: 'x', method: 'get', params: { uri: volume } }));
  goes.send(JSON.stringify([{ jsonrpc: '2.0', id: 'y', method: 'get', params: { uri: volume } }]));
  const asked = request(host, 'GET', volume);
  await callRuns(goes);
  goes.socket.terminate();
  assert.equal((await asked).status, 200);
  await tv.call('tv', { words: ['fault', '--clear'] });
  assert.equal((await tv.call('get', { uri: volume })).ret, 0);
});

test('a client that does not read: notifications are dropped, it gets their number, others go on', async (t) => {
  // The devices of CEC would add lines of their own; the client reads late, on a slow machine very late.
  const host = await startHost(t, ['--no-cec', '--reply-time', '600']);
  const busy = await connect(t, host);
  const deaf = await dialWebSocket(t, host);
  deaf.socket.write(frame(JSON.stringify({ jsonrpc: '2.0', id: 1, method: 'trace', params: { on: true } })));
  await deaf.until((bytes) => bytes.includes('"result":{}'), 'reply to trace');
  deaf.socket.pause();
  // Trace lines of about 100 bytes fill the socket's buffers, then the queue; more than that are dropped.
  const batch = JSON.stringify(Array(1000).fill({ jsonrpc: '2.0', id: 1, method: 'get', params: { uri: volume } }));
  const rounds = 150;
  for (let i = 0; i < rounds; ++i) {
    busy.send(batch);
    assert.equal(JSON.parse(await busy.text()).length, 1000);
  }
  deaf.socket.resume();
  await deaf.until((received) => received.includes('"method":"overflow"'), 'overflow');
  // What was dropped and what came make up everything. One line for each get, and none for anything else.
  const text = () => deaf.received().toString('latin1');
  const dropped = () => [...text().matchAll(/"method":"overflow","params":\{"dropped":(\d+)\}/g)].reduce((sum, [, count]) => sum + Number(count), 0);
  const lines = () => text().split('"method":"trace"').length - 1;
  await deaf.until(() => lines() + dropped() === rounds * 1000, 'all the rest');
  assert.ok(dropped() < rounds * 1000);
});

test('replies are never dropped: a client that does not read is not read from', async (t) => {
  const host = await startHost(t);
  const deaf = await dialWebSocket(t, host);
  deaf.socket.pause();
  const requests = 300;
  const { received } = deaf;
  for (let id = 1; id <= requests; ++id) deaf.socket.write(frame(JSON.stringify({ jsonrpc: '2.0', id, method: 'list' })));
  await sleep(300);
  const size = Number(/VmRSS:\s+(\d+) kB/.exec(readFileSync(`/proc/${host.child.pid}/status`, 'utf8'))[1]);
  const listed = (await request(host, 'POST', '/jsonrpc', { body: '{"jsonrpc":"2.0","id":1,"method":"list"}' })).text.length;
  assert.ok(requests * listed > 20_000_000, 'more than sockets buffer');
  deaf.socket.resume();
  await within((async () => {
    while (received().length < requests * listed) await sleep(20);
  })(), 'all replies', 60);
  const text = received().toString('latin1');
  const replies = new Set([...text.matchAll(/\{"jsonrpc":"2\.0","id":(\d+),"result"/g)].map(([, id]) => Number(id)));
  for (let id = 1; id <= requests; ++id) assert.ok(replies.has(id), `reply ${id}`);
  t.diagnostic(`resident while nothing was read: ${size} kB, for ${Math.round((requests * listed) / 1024)} kB of replies`);
});

test('64 requests in flight, and 64 clients', async (t) => {
  const host = await startHost(t);
  const client = await connect(t, host);
  for (let round = 0; round < 10; ++round)
    assert.deepEqual((await Promise.all(Array.from({ length: 64 }, () => client.call('get', { uri: volume })))).map((result) => result.ret), Array(64).fill(0));
  const clients = await Promise.all(Array.from({ length: 64 }, () => connect(t, host)));
  for (let round = 0; round < 5; ++round) await Promise.all(clients.map((one) => one.call('get', { uri: mute })));
});

test('without a tap, listener buffers are polled', async (t) => {
  const host = await startHost(t, ['--no-tap']);
  const client = await connect(t, host);
  const other = await connect(t, host);
  await client.call('subscribe', { uri: volumeEvents });
  for (const value of [21, 22, 23]) {
    await other.call('set', { uri: volume, parameter: modify(value) });
    assert.deepEqual(await notification(client), told(value));
  }
  assert.equal((await client.fail('trace', { on: true })).code, -32004);
  assert.equal((await client.fail('tv', { words: ['faults'] })).code, -32004);
  assert.deepEqual((await client.call('get', { uri: volume, trace: true })).calls, []);
});

test("a notification that is not whole arrives as an error", async (t) => {
  const host = await startHost(t, ['--plugin', oddPlugin, '--no-tap']);
  const client = await connect(t, host);
  await client.call('subscribe', { uri: '/odd/notify' });
  const { uri, error, notification: text } = await client.next('notify');
  assert.equal(uri, '/odd/notify');
  assert.equal(error.code, -32002);
  assert.equal(error.data.length, 12);
  assert.equal(text, undefined);
});

test('what was set is there after kill -9', async (t) => {
  const state = folder(t);
  for (const value of [11, 22, 33]) {
    const host = await startHost(t, [], { state });
    const client = await connect(t, host);
    await client.call('set', { uri: volume, parameter: modify(value) });
    await client.call('set', { uri: mute, parameter: modify(value % 2) });
    await host.stop('SIGKILL');
    const again = await startHost(t, [], { state });
    assert.equal((await request(again, 'GET', volume)).json.ITEMS[0].VALUE, value);
    assert.equal((await request(again, 'GET', mute)).json.ITEMS[0].VALUE, value % 2);
    await again.stop();
  }
});

for (const signal of ['SIGINT', 'SIGTERM'])
  test(`${signal} stops cleanly`, async (t) => {
    const host = await startHost(t);
    const client = await connect(t, host);
    await client.call('subscribe', { uri: volumeEvents });
    const { code, signal: killed, output } = await host.stop(signal);
    assert.equal(code, 0, `${killed ?? ''} ${output}`);
    assert.equal(await client.closed(), 1001);
    assert.doesNotMatch(output, /ERROR|ending without/);
  });

test('a signal that comes twice at once counts as one', async (t) => {
  for (const pause of [0, 1, 3, 10]) {
    const host = await startHost(t);
    const client = await connect(t, host);
    host.child.kill('SIGINT');
    if (pause > 0) await sleep(pause);
    host.child.kill('SIGINT');
    const { code, output } = await within(host.ended, 'end of the host');
    assert.equal(code, 0);
    assert.equal(await client.closed(), 1001);
    assert.doesNotMatch(output, /ending without/);
  }
});

test('two signals at once during a slow call wait for it; a later third one does not', async (t) => {
  const host = await startHost(t, [], { env: { TSAN_OPTIONS: `${process.env.TSAN_OPTIONS ?? ''} report_thread_leaks=0` } });
  const client = await connect(t, host);
  await client.call('tv', { words: ['fault', slowCall, '--delay', '60000'] });
  client.send(JSON.stringify({ jsonrpc: '2.0', id: 'x', method: 'get', params: { uri: volume } }));
  await callRuns(client);
  const begun = performance.now();
  host.child.kill('SIGINT');
  await sleep(20);
  host.child.kill('SIGINT');
  await sleep(1500);
  assert.equal(host.child.exitCode, null);
  const { code, output } = await host.stop('SIGINT');
  assert.equal(code, 0, output);
  assert.match(output, /another signal/);
  assert.doesNotMatch(output, /does not return/);
  assert.ok(performance.now() - begun < 30_000, 'the call takes 60 s');
});

test('stopping during a slow call waits for it', async (t) => {
  const host = await startHost(t);
  const client = await connect(t, host);
  await client.call('tv', { words: ['fault', slowCall, '--delay', '500'] });
  client.send(JSON.stringify({ jsonrpc: '2.0', id: 'x', method: 'get', params: { uri: volume } }));
  await callRuns(client);
  const { code, output } = await host.stop();
  assert.equal(code, 0, output);
  assert.doesNotMatch(output, /ending without/);
});

test('stopping during a call that hangs does not hang', async (t) => {
  // The thread in the call is left behind, which a thread sanitizer would report.
  const host = await startHost(t, [], { env: { TSAN_OPTIONS: `${process.env.TSAN_OPTIONS ?? ''} report_thread_leaks=0` } });
  const client = await connect(t, host);
  await client.call('tv', { words: ['fault', slowCall, '--delay', '60000'] });
  client.send(JSON.stringify({ jsonrpc: '2.0', id: 'x', method: 'get', params: { uri: volume } }));
  await callRuns(client);
  const { code, output } = await host.stop();
  assert.equal(code, 0, output);
  assert.match(output, /ending without/);
});

const tryHost = (t, args) => {
  const { status, stdout, stderr } = spawnSync(dtvHost, ['--state', folder(t), ...args], { encoding: 'utf8', timeout: 60_000 });
  return { status, stdout, stderr };
};

test('a port that is taken is said to be', async (t) => {
  const taken = net.createServer();
  await new Promise((resolve) => taken.listen(0, '127.0.0.1', resolve));
  t.after(() => taken.close());
  const { port } = taken.address();
  const { status, stdout, stderr } = tryHost(t, ['--listen', `127.0.0.1:${port}`]);
  assert.equal(status, 1);
  assert.match(stderr, new RegExp(`127\\.0\\.0\\.1:${port}.*in use`, 'i'));
  assert.doesNotMatch(stdout, /^dtv-host: http/m);
});

test('options that are wrong, and what is missing', (t) => {
  for (const args of [['--no-such-option'], ['--listen'], ['--listen', 'nowhere'], ['--allow-origin', 'foo'], ['--max-connections', 'many'], ['--max-message', '0'], ['--header-time', 'soon'], ['--body-time', '0'], ['--reply-time', '-1'], ['--require-token=yes'], ['left over']]) {
    const { status, stderr } = tryHost(t, args);
    assert.equal(status, 2, args.join(' '));
    assert.ok(stderr.length > 0);
  }
  for (const option of ['--plugin', '--tap', '--platform']) {
    const { status, stderr } = tryHost(t, [option, '/nonexistent/lib.so']);
    assert.equal(status, 1, option);
    assert.match(stderr, new RegExp(`${option.slice(2)}.*/nonexistent/lib.so`));
  }
  const { HOME, XDG_STATE_HOME, ...homeless } = process.env;
  const { status, stderr } = spawnSync(dtvHost, ['--listen', '127.0.0.1:0'], { encoding: 'utf8', timeout: 60_000, env: homeless });
  assert.equal(status, 1);
  assert.match(stderr, /HOME.*--state/);
  const help = tryHost(t, ['--help']);
  assert.equal(help.status, 0);
  for (const option of ['--listen', '--allow-origin', '--web', '--state', '--plugin', '--platform', '--tap', '--no-tap', '--require-token', '--header-time', '--body-time', '--reply-time', '--quiet']) assert.match(help.stdout, new RegExp(option));
  assert.match(tryHost(t, ['--version']).stdout, /^dtv-host \d+\.\d+\.\d+\n$/);
});

// Processor time of a process in clock ticks, of which there are 100 a second.
const ticks = (pid) => {
  const fields = readFileSync(`/proc/${pid}/stat`, 'utf8').split(') ')[1].split(' ');
  return Number(fields[11]) + Number(fields[12]);
};
// Voluntary context switches of all threads: how often they woke up.
const wakes = (pid) => Number(spawnSync('sh', ['-c', `cat /proc/${pid}/task/*/status`], { encoding: 'utf8' }).stdout.match(/^voluntary_ctxt_switches:\s+\d+/gm).reduce((sum, line) => sum + Number(line.split(/\s+/)[1]), 0));

test('an idle host with a subscriber sleeps', { skip: /san$/.test(build) && 'a sanitizer has threads of its own' }, async (t) => {
  const host = await startHost(t, ['--no-cec']);  // which looks for devices for some seconds
  const client = await connect(t, host);
  await client.call('subscribe', { uri: volumeEvents });
  await client.call('get', { uri: volume });
  const seconds = 5;
  const idle = async () => {
    await sleep(500);
    const before = { ticks: ticks(host.child.pid), wakes: wakes(host.child.pid) };
    await sleep(seconds * 1000);
    return { used: ticks(host.child.pid) - before.ticks, woken: wakes(host.child.pid) - before.wakes };
  };
  // What the start has left to do may come late on a busy machine.
  let found = await idle();
  for (let i = 0; i < 3 && (found.used > 1 || found.woken > 5 * seconds); ++i) found = await idle();
  t.diagnostic(`${found.used} ticks, ${found.woken} wake-ups in ${seconds} s`);
  assert.ok(found.used <= 1, `${found.used} ticks of processor time in ${seconds} s`);
  assert.ok(found.woken <= 5 * seconds, `${found.woken} wake-ups in ${seconds} s`);
});

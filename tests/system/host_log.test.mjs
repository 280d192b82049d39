// The host's output when nobody reads it, and when each request prints a line.
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { closeSync, constants, openSync, readSync, writeSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import { connect, dtvHost, folder, sleep, startHost, valueOf, volume, within } from './host_support.mjs';

const shop = '/tv/menu/misc/jump_ebanner';
const portal = '/tv/menu/misc/start_portal';
const requests = 5000;

const letters = (number) => String(number).replace(/\d/g, (digit) => 'abcdefghij'[digit]);

// A pipe whose reader is this test; it reads when read() is called and not before.
function quietPipe(path) {
  assert.equal(spawnSync('mkfifo', [path]).status, 0);
  const reader = openSync(path, constants.O_RDWR | constants.O_NONBLOCK);
  const writer = openSync(path, constants.O_WRONLY);
  const until = (done) => {
    try {
      while (!done());
    } catch (error) {
      assert.equal(error.code, 'EAGAIN');
    }
  };
  return {
    writer,
    fill: () => [4096, 1].forEach((size) => until(() => writeSync(reader, Buffer.alloc(size, '\n')) === 0)),
    read: () => {
      const piece = Buffer.alloc(65536);
      let text = '';
      until(() => {
        text += piece.toString('utf8', 0, readSync(reader, piece));
        return false;
      });
      return text;
    },
    close: () => [reader, writer].forEach(closeSync),
  };
}

async function startUnreadHost(t) {
  const place = folder(t);
  const out = quietPipe(join(place, 'out'));
  const err = quietPipe(join(place, 'err'));
  const child = spawn(dtvHost, ['--listen', '127.0.0.1:0', '--state', join(place, 'state')], {
    stdio: ['ignore', out.writer, err.writer],
  });
  const ended = new Promise((resolve) => child.on('exit', (code, signal) => resolve({ code, signal })));
  t.after(async () => {
    if (child.exitCode === null && child.signalCode === null) child.kill('SIGKILL');
    await ended;
    out.close();
    err.close();
  });
  let told = '';
  let found = null;
  const limit = Date.now() + 30_000;
  while ((found = /^dtv-host: http:\/\/127\.0\.0\.1:(\d+)\//m.exec(told)) === null) {
    assert.ok(Date.now() < limit, told);
    await sleep(20);
    told += out.read();
  }
  return { child, ended, out, err, port: Number(found[1]) };
}

// Sends requests that fail and print lines of different kinds, on both streams.
async function failOften(client, count) {
  let sent = 0;
  const sender = async () => {
    while (sent < count) {
      const name = `${letters(++sent)}${'x'.repeat(200)}`;
      const { ret } =
        sent % 2 === 0
          ? await client.call('get', { uri: shop, parameter: { REQUEST: 'QUERY', PATH: `/none/${name}` } })
          : await client.call('set', { uri: portal, parameter: { REQUEST: 'SET', appMode: name, edfuUrl: name } });
      assert.notEqual(ret, 0);
    }
  };
  await Promise.all(Array.from({ length: 16 }, sender));
}

// Makes one get after another until stopped, then returns the 99th percentile of their times in milliseconds.
function measure(client) {
  const times = [];
  let stopped = false;
  const end = (async () => {
    while (!stopped) {
      const begun = performance.now();
      valueOf(await client.call('get', { uri: volume }));
      times.push(performance.now() - begun);
    }
  })();
  return async () => {
    stopped = true;
    await end;
    times.sort((a, b) => a - b);
    assert.ok(times.length > 100, `${times.length} times`);
    return times[Math.floor(times.length * 0.99)];
  };
}

test('output that nobody reads stops no request and no end', async (t) => {
  const host = await startUnreadHost(t);
  const failing = await connect(t, host);
  const other = await connect(t, host);
  const reading = setInterval(() => [host.out, host.err].forEach((pipe) => pipe.read()), 5);
  const read = measure(other);
  await failOften(failing, requests);
  const before = await read();
  const limit = Math.max(1000, 2 * before); // as slow as this machine is now; a host that waits for its reader waits for ever
  clearInterval(reading);
  host.out.fill();
  host.err.fill();
  const unread = measure(other);
  await failOften(failing, requests);
  const time = await unread();
  t.diagnostic(`99th percentile of a get: ${before.toFixed(1)} ms with a reader, ${time.toFixed(1)} ms without`);
  assert.ok(time < limit, `a get of another client takes ${time} ms, ${limit} at most`);
  host.child.kill('SIGTERM');
  assert.deepEqual(await within(host.ended, 'end of the host'), { code: 0, signal: null });
});

test('a reader that comes back learns what was left out', async (t) => {
  const host = await startUnreadHost(t);
  host.out.fill();
  host.err.fill();
  await failOften(await connect(t, host), requests);
  const told = { out: '', err: '' };
  const read = () => {
    told.out += host.out.read();
    told.err += host.err.read();
  };
  host.child.kill('SIGTERM');
  const reading = setInterval(read, 5);
  assert.deepEqual(await within(host.ended, 'end of the host'), { code: 0, signal: null });
  clearInterval(reading);
  read();
  for (const text of Object.values(told)) {
    assert.match(text, /^dtv-host: \d+ lines (of many other kinds are left out|were lost, since nobody read them)$/m);
  }
});

test('a request that fails again and again prints a few lines and a count', async (t) => {
  const host = await startHost(t);
  const client = await connect(t, host);
  const begun = performance.now();
  for (let i = 0; i < requests; i += 100) {
    const calls = Array.from({ length: 100 }, () => client.call('get', { uri: shop }));
    for (const { ret } of await Promise.all(calls)) assert.notEqual(ret, 0);
  }
  const windows = Math.ceil((performance.now() - begun) / 10_000) + 1;
  const { code, output } = await host.stop();
  assert.equal(code, 0);
  const path = output.split('\n').filter((line) => /usb_path/.test(line));
  const passed = path.filter((line) => !line.startsWith('dtv-host: '));
  const counted = path.filter((line) => line.startsWith('dtv-host: '));
  assert.ok(passed.length >= 20 && passed.length <= 20 * windows, `${passed.length} lines`);
  const more = counted.map((line) => Number(/ came (\d+) times more$/.exec(line)[1]));
  assert.equal(passed.length + more.reduce((a, b) => a + b), requests);
});

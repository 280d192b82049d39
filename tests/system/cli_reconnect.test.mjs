// dtvctl and a host that hangs, dies and comes back, or that the network cuts off.
import assert from 'node:assert/strict';
import { describe, test } from 'node:test';

import { ctl, dtvctl, fakeHost, notification, result, run, start } from './cli_support.mjs';
import { folder, sleep, startHost, within } from './host_support.mjs';
import { hostInNamespace, missingNamespace } from './namespace_support.mjs';

const volume = '/tv/cast/volume/volume';
const volumeNotify = '/tv/ws/notify/volume_ctrl';
const isGap = (line) => line.startsWith('{"gap":');

const address = (host) => `127.0.0.1:${host.port}`;
const environmentOf = (host) => ({ DTV_HOST: address(host), DTV_TOKEN: host.token });

// A program that ends with its test.
function started(t, host, ...words) {
  const program = start(dtvctl, words, { env: environmentOf(host) });
  t.after(() => program.stop('SIGKILL'));
  return program;
}

// The next line for which the predicate holds, while change() makes the set notify again and again.
async function lineOf(program, predicate, change) {
  let done = false;
  const changing = (async () => {
    for (let value = 1; !done; value = (value % 90) + 1) {
      await change(value);
      await sleep(100);
    }
  })();
  try {
    for (;;) {
      const line = await program.line(60);
      if (predicate(line)) return line;
    }
  } finally {
    done = true;
    await changing;
  }
}

const set = (host) => (value) => ctl(['set', volume, String(value)], { env: environmentOf(host) });
const stopped = (program) => Promise.race([program.ended.then(() => true), sleep(300).then(() => false)]);

// At the same time, since most of it is waiting.
describe('dtvctl and its host', { concurrency: 4 }, () => {
  test('watch subscribes again at a host that was killed, and prints the gap', async (t) => {
    const state = folder(t);
    const first = await startHost(t, [], { state });
    const watching = started(t, first, 'watch', volumeNotify);
    await lineOf(watching, (line) => line.includes('volValue'), set(first));
    const killed = Date.now();
    await first.stop('SIGKILL');
    await sleep(700); // several attempts fail
    const again = Date.now();
    const second = await startHost(t, ['--listen', address(first)], { state });
    const gap = JSON.parse(await lineOf(watching, isGap, async () => {})).gap;
    const [from, to] = [Date.parse(gap.from), Date.parse(gap.to)];
    assert.match(gap.from, /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$/);
    assert.ok(from <= killed + 5 && from > killed - 20_000, `${gap.from} is before the host was killed`);
    assert.ok(to >= again && to <= Date.now(), `${gap.to} is behind its start`);
    await lineOf(watching, (line) => line.includes('volValue'), set(second));
    const { code, stderr } = await watching.stop('SIGINT');
    assert.equal(code, 'SIGINT');
    assert.match(stderr, /closed the connection.*Ctrl-C ends it\ndtvctl: connected again; .*is missing\n$/);
  });

  test('trace is requested again; its line for the gap is for people unless --json', async (t) => {
    const state = folder(t);
    const first = await startHost(t, [], { state });
    const people = started(t, first, 'trace');
    const json = started(t, first, '--json', 'trace');
    for (const tracing of [people, json]) await lineOf(tracing, (line) => line.includes('setVolume'), set(first));
    await first.stop('SIGTERM');
    const second = await startHost(t, ['--listen', address(first)], { state });
    assert.match(await lineOf(people, (line) => line.startsWith('-- '), async () => {}), /^-- not connected from \S+Z to \S+Z$/);
    await lineOf(json, isGap, async () => {});
    for (const tracing of [people, json]) await lineOf(tracing, (line) => line.includes('setVolume'), set(second));
  });

  test('--no-reconnect: exit code 3', async (t) => {
    const host = await startHost(t);
    const watching = started(t, host, '--no-reconnect', 'watch', volumeNotify);
    await lineOf(watching, (line) => line.includes('volValue'), set(host));
    await host.stop('SIGKILL');
    const { code, stderr } = await within(watching.ended, 'end of watch');
    assert.equal(code, 3);
    assert.match(stderr, /closed the connection\n$/);
  });

  test('--for ends the attempts to connect, with exit code 3', async (t) => {
    const host = await startHost(t);
    const watching = started(t, host, '--for', '2', 'watch', volumeNotify);
    await sleep(300);
    await host.stop('SIGKILL');
    assert.equal((await within(watching.ended, 'end of watch')).code, 3);
  });

  test('a host that hangs is noticed in 10 seconds, and found again when it goes on', async (t) => {
    const host = await startHost(t);
    const watching = started(t, host, 'watch', volumeNotify);
    const strict = started(t, host, '--no-reconnect', 'watch', volumeNotify);
    await lineOf(watching, (line) => line.includes('volValue'), set(host));
    const began = Date.now();
    host.child.kill('SIGSTOP');
    const { code, stderr } = await within(strict.ended, 'notice of the silence', 60);
    const seconds = (Date.now() - began) / 1000;
    assert.equal(code, 3);
    assert.match(stderr, /no sign of life for 9 seconds\n$/);
    assert.ok(seconds > 5, `${seconds} s: the host has 9 s`);
    t.diagnostic(`noticed after ${seconds.toFixed(1)} s`);
    host.child.kill('SIGCONT');
    await lineOf(watching, isGap, async () => {});
    await lineOf(watching, (line) => line.includes('volValue'), set(host));
  });

  test('an idle host that answers stays connected', async (t) => {
    const host = await startHost(t);
    const watching = started(t, host, '--for', '14', 'watch', volumeNotify);
    const { code, stderr } = await within(watching.ended, 'end of watch', 60);
    assert.deepEqual([code, stderr, watching.more()], [0, '', 0]);
  });

  test('a host without ping counts as alive', async (t) => {
    let pings = 0;
    const host = await fakeHost(t, ({ id, method }, send) => {
      if (method === 'ping') {
        ++pings;
        return send(`{"jsonrpc":"2.0","id":${id},"error":{"code":-32601,"message":"unknown method"}}`);
      }
      if (method !== 'list') return send(result(id, '{}'));
      send(result(id, JSON.stringify({ uris: [{ uri: volumeNotify, notify: true }] })));
    });
    const { code, stderr } = await ctl(['--host', host.address, '--for', '14', 'watch', volumeNotify]);
    assert.deepEqual([code, stderr], [0, '']);
    assert.ok(pings >= 2, `${pings} pings`);
  });

  test('what a stopped watch has not read yet is no silence', async (t) => {
    const host = await startHost(t);
    const watching = started(t, host, '--no-reconnect', 'watch', volumeNotify);
    await lineOf(watching, (line) => line.includes('volValue'), set(host));
    watching.child.kill('SIGSTOP');
    await sleep(11_000);
    watching.child.kill('SIGCONT');
    await lineOf(watching, (line) => line.includes('volValue'), set(host));
  });

  test('a followed action of a host that hangs ends with the message', async (t) => {
    let asked = 0;
    const host = await fakeHost(t, ({ id, params }, send) => {
      if (params.words?.[0] !== 'scan' || ++asked > 2) return; // hangs, also for ping
      send(result(id, JSON.stringify({ state: 'running', percent: 1, watch: { words: ['scan'], cancel: ['scan', 'cancel'] } })));
    });
    const { code, stderr } = await ctl(['--host', host.address, 'tv', 'scan', 'all']);
    assert.equal(code, 3);
    assert.match(stderr, /no sign of life for 9 seconds\n$/);
  });

  test('Ctrl-C ends dtvctl in every state', async (t) => {
    const host = await startHost(t);
    const silent = await fakeHost(t, () => {});
    const scanning = await fakeHost(t, ({ id, params }, send) => {
      if (params.words?.join(' ') !== 'scan all') return;
      send(result(id, JSON.stringify({ state: 'running', percent: 1, watch: { words: ['scan'], cancel: ['scan', 'cancel'] } })));
    });
    const idle = started(t, host, 'watch', volumeNotify);
    const hanging = started(t, host, 'watch', volumeNotify);
    const dead = await startHost(t);
    const trying = started(t, dead, 'watch', volumeNotify);
    const asking = start(dtvctl, ['--host', silent.address, 'get', volume]);
    const following = start(dtvctl, ['--host', scanning.address, 'tv', 'scan', 'all']);
    await sleep(500);
    await dead.stop('SIGKILL');
    await sleep(1500);
    for (const [name, program] of Object.entries({ idle, trying, asking, following })) {
      assert.equal(await stopped(program), false, name);
      program.child.kill('SIGINT');
      assert.equal((await within(program.ended, `end of ${name}`, 8)).code, 'SIGINT', name);
    }
    host.child.kill('SIGSTOP');
    await sleep(200);
    hanging.child.kill('SIGINT');
    assert.equal((await within(hanging.ended, 'end of hanging', 8)).code, 'SIGINT');
    host.child.kill('SIGCONT');
  });

  test('on a terminal, dtvctl says after a second that it waits', async (t) => {
    const slow = await fakeHost(t, ({ id }, send) => void setTimeout(() => send(result(id, '{"ret":0}')), 2500));
    const fast = await fakeHost(t, ({ id }, send) => send(result(id, '{"ret":0}')));
    const onTerminal = (host) => run('script', ['-qec', `'${dtvctl}' --host ${host.address} --json get ${volume}`, '/dev/null'], { env: { TERM: 'xterm' } });
    const waited = await onTerminal(slow);
    assert.match(waited.stdout, /waiting for the host at \S+ to answer; Ctrl-C ends it\r\n\{"ret":0\}/);
    assert.equal((await onTerminal(fast)).stdout, '{"ret":0}\r\n');
    const piped = await ctl(['--host', slow.address, '--json', 'get', volume]);
    assert.deepEqual([piped.stdout, piped.stderr], ['{"ret":0}\n', '']);
  });

  test('lines of a trace that wait for an earlier one are printed before the gap', async (t) => {
    let connections = 0;
    const host = await fakeHost(t, ({ id }, send, socket) => {
      send(result(id, '{}'));
      const call = (seq) => notification('trace', JSON.stringify({ seq, t: seq, thread: 1, call: `call${seq}`, in: {}, ret: 0 }));
      for (const seq of ++connections === 1 ? [9, 7] : [1]) send(call(seq));
      if (connections === 1) setTimeout(() => socket.destroy(), 20);
    });
    const { stdout } = await ctl(['--host', host.address, '--json', '--count', '3', 'trace']);
    assert.deepEqual(stdout.trimEnd().split('\n').map((line) => JSON.parse(line).seq ?? 'gap'), [7, 9, 'gap', 1]);
  });

  const link = ['ip link set lo up'];
  test('a cut network is noticed, and watch goes on when it is back', { skip: missingNamespace(link) }, async (t) => {
    const host = await hostInNamespace(t, link);
    const [program, words] = host.inside(dtvctl, ['watch', volumeNotify]);
    const watching = start(program, words, { env: host.env });
    t.after(() => watching.stop('SIGKILL'));
    const change = (value) => host.done(dtvctl, 'set', volume, String(value));
    await lineOf(watching, (line) => line.includes('volValue'), change);
    await host.done('ip', 'link', 'set', 'lo', 'down');
    const silence = (async () => {
      while (!watching.told().includes('no sign of life')) await sleep(200);
    })();
    const began = Date.now();
    await within(silence, 'notice of the cut', 60);
    t.diagnostic(`noticed after ${((Date.now() - began) / 1000).toFixed(1)} s`);
    await host.done('ip', 'link', 'set', 'lo', 'up');
    await lineOf(watching, isGap, async () => {});
    await lineOf(watching, (line) => line.includes('volValue'), change);
  });
});

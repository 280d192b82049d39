// dtvctl against the running host: what one shell changes, another one sees.
import assert from 'node:assert/strict';
import { join } from 'node:path';
import { test } from 'node:test';

import { build, ctl, dtvctl, start, stateFolder } from './cli_support.mjs';

const volume = '/tv/cast/volume/volume';
const volumeNotify = '/tv/ws/notify/volume_ctrl';
const notifyText = (value, muted) =>
  `{"URI":"${volumeNotify}","REQUEST":"NOTIFY","ITEMS":[{"volValue":${value},"muteStatus":${muted}}]}`;

// A host on a free port with a set of its own, and dtvctl bound to it. Without HDMI-CEC, whose devices announce themselves
// in the middle of a trace.
async function host(t, state = stateFolder(t)) {
  const server = start(join(build, 'bin/dtv-host'), ['--listen', '127.0.0.1:0', '--no-cec', '--state', state]);
  t.after(() => server.stop('SIGKILL'));
  const address = (await server.line()).match(/127\.0\.0\.1:\d+/)[0];
  const env = { DTV_HOST: address };
  return {
    server,
    address,
    ctl: (...words) => ctl(['--state', state, ...words], { env }),
    start: (...words) => start(dtvctl, ['--state', state, ...words], { env }),
  };
}

async function done(promise) {
  const { code, stdout, stderr } = await promise;
  assert.equal(code, 0, stderr);
  return stdout;
}

// Returns when watch has printed the volume that was set last: no older line can follow. Whether watch has subscribed
// cannot be seen from outside, so that this sets one volume after the other until a line comes.
async function ready(set, watching) {
  for (let value = 40; value < 90; ++value) {
    await done(set.ctl('tv', 'volume', String(value)));
    for (let waits = 0; waits < 20; ++waits) {
      while (watching.more() > 0) if ((await watching.line()) === notifyText(value, 0)) return;
      await new Promise((resolve) => setTimeout(resolve, 25));
    }
  }
  assert.fail('watch prints nothing');
}

test('set in one shell, get in the next', async (t) => {
  const set = await host(t);
  assert.equal(await done(set.ctl('set', volume, '23')), 'ok\n');
  const { ret, response } = JSON.parse(await done(set.ctl('--json', 'get', volume)));
  assert.equal(ret, 0);
  assert.deepEqual(response.ITEMS[0].VALUE, 23);
  assert.equal(await done(set.ctl('--json', 'tv', 'volume')), '{"volume":23,"mute":false}\n');
});

test('watch prints what the remote control and another shell change', async (t) => {
  const set = await host(t);
  const watching = set.start('watch', volumeNotify);
  await ready(set, watching);
  await done(set.ctl('tv', 'volume', '10'));
  assert.equal(await watching.line(), notifyText(10, 0));
  await done(set.ctl('set', '/tv/cast/volume/mute', '1'));
  assert.equal(await watching.line(), notifyText(10, 1));
  assert.equal((await watching.stop('SIGINT')).code, 'SIGINT');
});

test('several watchers each get every notification', async (t) => {
  const set = await host(t);
  const watchers = [set.start('watch', volumeNotify), set.start('watch', volumeNotify), set.start('watch', volumeNotify)];
  for (const watching of watchers) await ready(set, watching);
  await done(set.ctl('tv', 'volume', '10'));
  await done(set.ctl('tv', 'volume', '11'));
  // Those that were ready early have lines of what made the others ready.
  for (const watching of watchers) {
    let line = '';
    while (line !== notifyText(10, 0)) line = await watching.line();
    assert.equal(await watching.line(), notifyText(11, 0));
  }
  for (const watching of watchers) await watching.stop();
});

test('watch with a command, in one', async (t) => {
  const set = await host(t);
  assert.equal((await set.ctl('watch', '--count', '1', volumeNotify, '--', 'tv', 'volume', 'up')).stdout, notifyText(21, 0) + '\n');
});

test('trace shows the platform calls that another shell causes', async (t) => {
  const set = await host(t);
  const tracing = set.start('--json', 'trace');
  for (let i = 0; i < 100 && tracing.more() === 0; ++i) {
    await done(set.ctl('get', volume));
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
  await done(set.ctl('set', volume, '33'));
  let call = { call: 'a_vextvapi_volctrl_getVolume' };
  while (call.call === 'a_vextvapi_volctrl_getVolume') call = JSON.parse(await tracing.line());
  const event = JSON.parse(await tracing.line());
  assert.deepEqual([call.call, call.in], ['a_vextvapi_volctrl_setVolume', { volume: 33 }]);
  assert.deepEqual([event.event, event.in.pv_arg1], ['a_vextvapi_volctrl_reg_callback', 33]);
  await tracing.stop();
});

test('list is the same as that of a local set', async (t) => {
  const set = await host(t);
  const folder = stateFolder(t);
  assert.equal(await done(set.ctl('--json', 'list')), await done(ctl(['--local', '--state', folder, '--json', 'list'])));
});

test('faults: a failing, a slow and a silent platform', async (t) => {
  const set = await host(t);
  const setVolume = 'a_vextvapi_volctrl_setVolume';
  await done(set.ctl('tv', 'fault', setVolume, '--fail', '-3'));
  const refused = await set.ctl('set', volume, '40');
  assert.equal(refused.code, 1);
  assert.match(refused.stderr, /-3/);
  assert.match(await done(set.ctl('tv', 'faults')), new RegExp(`^FUNCTION +FAULT\\s*\n${setVolume} +--fail -3\n$`));
  assert.equal(await done(set.ctl('tv', 'fault', setVolume, '--delay', '400')), `replaces the earlier fault of ${setVolume}: --fail -3\n`);
  const begun = Date.now();
  await done(set.ctl('set', volume, '40'));
  assert.ok(Date.now() - begun >= 400);
  await done(set.ctl('tv', 'fault', '--clear'));
  await done(set.ctl('tv', 'fault', 'a_vextvapi_volctrl_reg_callback', '--drop-callback'));
  assert.equal((await set.ctl('watch', '--for', '0.5', volumeNotify, '--', 'tv', 'volume', 'up')).stdout, '');
  await done(set.ctl('tv', 'fault', '--clear'));
  assert.equal(
    (await set.ctl('watch', '--count', '1', volumeNotify, '--', 'tv', 'volume', 'up')).stdout,
    notifyText(42, 0) + '\n',
  );
});

test('trace and watch also run a program, which finds the host, until it has ended', async (t) => {
  const set = await host(t);
  const program = `"${dtvctl}" set ${volume} 27; sleep 0.7; "${dtvctl}" set ${volume} 28; exit 5`;
  const traced = await set.ctl('--json', 'trace', '--', 'sh', '-c', program);
  assert.equal(traced.code, 5, traced.stderr);
  const calls = traced.stdout.trimEnd().split('\n').map((line) => JSON.parse(line));
  assert.deepEqual(calls.filter(({ call }) => call).map(({ in: { volume: value } }) => value), [27, 28]);
  assert.equal(traced.stderr, 'ok\nok\n'); // the program's own output
  const watched = await set.ctl('watch', volumeNotify, '--', 'sh', '-c', program);
  assert.deepEqual([watched.code, watched.stdout], [5, notifyText(27, 0) + '\n' + notifyText(28, 0) + '\n']);
  const missing = await set.ctl('trace', '--', './no-such-program');
  assert.equal(missing.code, 127);
  assert.match(missing.stderr, /cannot run .\/no-such-program.*a program, or get, set or tv/);
  const local = await ctl(['--local', '--state', stateFolder(t), 'trace', '--', 'ls']);
  assert.equal(local.code, 2);
  assert.match(local.stderr, /with --local, the command after -- must be get, set or tv/);
});

test('refusals are exit code 1', async (t) => {
  const set = await host(t);
  for (const [words, says] of [
    [['get', '/tv/cast/volume/volum'], /\/tv\/cast\/volume\/volume/],
    [['set', volume, '101'], /-1/],
    [['tv', 'dance'], /dance/],
    [['tv', 'fault', 'no_function', '--fail'], /no_function/],
  ]) {
    const { code, stderr } = await set.ctl(...words);
    assert.equal(code, 1, stderr);
    assert.match(stderr, says);
  }
});

test('a host that is killed loses nothing', async (t) => {
  const state = stateFolder(t);
  const first = await host(t, state);
  await done(first.ctl('set', volume, '61'));
  assert.equal((await first.server.stop('SIGKILL')).code, 'SIGKILL');
  const gone = await first.ctl('get', volume);
  assert.equal(gone.code, 3);
  assert.match(gone.stderr, /make run/);
  const second = await host(t, state);
  assert.equal(await done(second.ctl('--json', 'tv', 'volume')), '{"volume":61,"mute":false}\n');
});

test('a local set does not share the folder of a running one', async (t) => {
  const state = stateFolder(t);
  const set = await host(t, state);
  const { code, stderr } = await ctl(['--local', '--state', state, 'get', volume]);
  assert.equal(code, 3);
  assert.match(stderr, /another process/);
  await done(set.ctl('get', volume));
});

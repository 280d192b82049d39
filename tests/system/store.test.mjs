// The state folder from end to end: its permissions, and moving it away under a running host.
import assert from 'node:assert/strict';
import { chmodSync, chownSync, mkdirSync, renameSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import { connect, folder, modify, startHost, valueOf, volume } from './host_support.mjs';

const modeOf = (path) => (statSync(path).mode & 0o7777).toString(8);
const gone = /deleted, renamed or replaced while the set was on; put it back, or start the set again/;

async function television(t, state) {
  const host = await startHost(t, [], { state });
  const client = await connect(t, host);
  return {
    host,
    client,
    set: async (value) => (await client.call('set', { uri: volume, parameter: modify(value) })).ret,
    get: async () => valueOf(await client.call('get', { uri: volume })),
    refused: async (...words) => {
      const { code, message } = await client.fail('tv', { words });
      assert.equal(code, -32004, words.join(' '));
      assert.match(message, /could not be saved/);
    },
  };
}

test('the state folder and missing parents are created for their owner alone', async (t) => {
  const home = folder(t);
  const state = join(home, 'some', 'state');
  await television(t, state);
  assert.equal(modeOf(join(home, 'some')), '700');
  assert.equal(modeOf(state), '700');
  assert.equal(modeOf(join(state, 'tv.sqlite')), '600');
  assert.equal(modeOf(join(state, 'tv.sqlite-wal')), '600');
});

test('access of other users to a state folder is removed', async (t) => {
  const state = join(folder(t), 'state');
  mkdirSync(state);
  const first = await television(t, state);
  assert.equal(await first.set(64), 0);
  await first.host.stop();
  chmodSync(state, 0o755);
  chmodSync(join(state, 'tv.sqlite'), 0o644);
  const again = await television(t, state);
  assert.equal(await again.get(), 64);
  assert.equal(modeOf(state), '700');
  assert.equal(modeOf(join(state, 'tv.sqlite')), '600');
});

test("a world-writable folder or another user's is refused and not changed", async (t) => {
  const state = join(folder(t), 'state');
  mkdirSync(state);
  chmodSync(state, 0o1777);
  await assert.rejects(startHost(t, [], { state }), /is open to other users/);
  assert.equal(modeOf(state), '1777');
  if (process.getuid() !== 0) return;
  chmodSync(state, 0o777);
  chownSync(state, 65534, 65534);
  await assert.rejects(startHost(t, [], { state }), /belongs to user 65534/);
  assert.equal(modeOf(state), '777');
});

test('changes are refused after the folder was renamed; a second host cannot use it', async (t) => {
  const home = folder(t);
  const state = join(home, 'state');
  const elsewhere = join(home, 'elsewhere');
  const tv = await television(t, state);
  assert.equal(await tv.set(64), 0);
  renameSync(state, elsewhere);

  assert.equal(await tv.set(33), -1);
  for (const words of [['volume', 'up'], ['key', 'SOURCE'], ['config', 'g_video__brightness', '11'], ['reset']]) await tv.refused(...words);
  assert.equal(await tv.get(), 64);
  await assert.rejects(startHost(t, [], { state: elsewhere }), /another process runs the set in this folder/);

  renameSync(elsewhere, state);
  assert.equal(await tv.set(65), 0);
  assert.match((await tv.host.stop('SIGKILL')).output, gone);
  assert.equal(await (await television(t, state)).get(), 65);
});

test('changes are refused after the folder was deleted or the database replaced', async (t) => {
  const state = join(folder(t), 'state');
  const first = await television(t, state);
  rmSync(state, { recursive: true });
  assert.equal(await first.set(33), -1);
  assert.match((await first.host.stop()).output, gone);

  const second = await television(t, state);
  assert.equal(await second.get(), 20);
  rmSync(join(state, 'tv.sqlite'));
  writeFileSync(join(state, 'tv.sqlite'), '');
  assert.equal(await second.set(33), -1);
  assert.equal(await second.get(), 20);
  await assert.rejects(startHost(t, [], { state }), /another process runs the set in this folder/);
});

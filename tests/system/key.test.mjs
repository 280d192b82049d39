// Keys of the remote control from end to end: the plugin types their commands into the command device, and the virtual
// television carries them out.
import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import { test } from 'node:test';
import { connect, modify, mute, startHost, valueOf, volume, volumeEvents } from './host_support.mjs';

const keys = '/tv/key/irrc';

async function television(t, args) {
  const host = await startHost(t, args);
  const client = await connect(t, host);
  return {
    host,
    client,
    press: async (name, by = client) => (await by.call('set', { uri: keys, parameter: modify(name) })).ret,
    read: async (uri) => valueOf(await client.call('get', { uri })),
  };
}

test('the volume keys change the volume, and applications are notified', async (t) => {
  const tv = await television(t);
  await tv.client.call('subscribe', { uri: volumeEvents });
  const at = await tv.read(volume);
  assert.equal(await tv.press('VOL+'), 0);
  assert.equal(await tv.read(volume), at + 1);
  assert.equal((await tv.client.next('notify')).notification.ITEMS[0].volValue, at + 1);
  assert.equal(await tv.press('VOL-'), 0);
  assert.equal(await tv.read(volume), at);
  assert.equal(await tv.press('MUTE'), 0);
  assert.equal(await tv.read(mute), 1);
});

test('keys pressed at the same time do not mix', async (t) => {
  const tv = await television(t);
  const at = await tv.read(volume);
  const clients = await Promise.all([0, 1, 2].map(() => connect(t, tv.host)));
  const pressed = clients.flatMap((client) => Array.from({ length: 10 }, () => tv.press('VOL+', client)));
  assert.deepEqual(await Promise.all(pressed), Array(30).fill(0));
  assert.equal(await tv.read(volume), at + 30);
});

test('an unknown key does nothing', async (t) => {
  const tv = await television(t);
  const at = await tv.read(volume);
  for (const name of ['vol+', 'VOL', 'CUSTOMKEY', '0x6f000']) assert.equal(await tv.press(name), -2, name);
  assert.equal((await tv.client.call('set', { uri: '/tv/key/keyboard', parameter: modify('VOL+') })).ret, -3);
  assert.equal(await tv.read(volume), at);
});

test('without the device no key is pressed', { skip: existsSync('/dev/cli') && 'this machine has the device' }, async (t) => {
  const tv = await television(t, ['--no-private-paths']);
  const at = await tv.read(volume);
  assert.equal(await tv.press('VOL+'), -1);
  assert.equal(await tv.read(volume), at);
  assert.match((await tv.host.stop()).output, /^Can not open the cli device $/m);
});

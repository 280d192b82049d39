// Network events from end to end. The host and dtvctl run in a network namespace of the test, which is always removed when
// the test ends.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { dtvctl, start } from './cli_support.mjs';
import { hostInNamespace, missingNamespace } from './namespace_support.mjs';

const updates = '/tv/ws/notify/network';
const tag = 0x118224;
const unplugged = 2;
const addressChanged = 3;
const wlanGone = 15;

const wires = [
  'ip link set lo up',
  'ip link add far0 type veth peer name eth0',
  'ip link add far1 type veth peer name wlan0',
  // Automatic addresses would raise events.
  'for each in all default; do echo 1 2>/dev/null >/proc/sys/net/ipv6/conf/$each/disable_ipv6 || true; done',
];

const skip = missingNamespace(wires);

async function television(t) {
  const { done, inside, env } = await hostInNamespace(t, wires);
  return {
    ip: (...words) => done('ip', ...words),
    network: async (...words) => JSON.parse(await done(dtvctl, '--json', 'tv', 'network', ...words)),
    index: async (name) => JSON.parse(await done('ip', '-json', 'link', 'show', name))[0].ifindex,
    shown: (...words) => done(dtvctl, 'tv', ...words),
    // Resolves when dtvctl receives notifications: it has pulled and restored the cable itself, and read both events.
    watch: async () => {
      const watching = start(...inside(dtvctl, ['watch', '--for', '60', updates, '--', 'tv', 'network', 'lose']), { env });
      t.after(() => watching.stop());
      const next = async () => {
        const { URI, REQUEST, ITEMS } = JSON.parse(await watching.line());
        assert.deepEqual([URI, REQUEST, ITEMS.length, ITEMS[0].TAG], [updates, 'NOTIFY', 1, tag]);
        return [ITEMS[0].ID, ITEMS[0].PARAM];
      };
      const lost = await next();
      await done(dtvctl, 'tv', 'network', 'restore');
      return { next, lost, restored: await next() };
    },
  };
}

test('an address added in the namespace reaches the application', { skip }, async (t) => {
  const tv = await television(t);
  const { next } = await tv.watch();
  const eth0 = await tv.index('eth0');
  const wlan0 = await tv.index('wlan0');
  await tv.ip('address', 'add', '192.0.2.7/24', 'dev', 'eth0');
  assert.deepEqual(await next(), [addressChanged, eth0]);
  assert.deepEqual((await tv.network()).interfaces.eth0.addresses, ['192.0.2.7/24']);
  await tv.ip('address', 'del', '192.0.2.7/24', 'dev', 'eth0');
  assert.deepEqual(await next(), [addressChanged, eth0]);
  await tv.ip('address', 'add', '198.51.100.7/24', 'dev', 'wlan0');
  assert.deepEqual(await next(), [addressChanged, wlan0]);
});

test('pulling a cable and removing an adapter are reported', { skip }, async (t) => {
  const tv = await television(t);
  const { next } = await tv.watch();
  const eth0 = await tv.index('eth0');
  const wlan0 = await tv.index('wlan0');
  await tv.ip('link', 'set', 'far1', 'up'); // an Ethernet interface, too; not plugged until its other end is up
  await tv.ip('link', 'set', 'eth0', 'up');
  await tv.ip('link', 'set', 'far0', 'up'); // the application receives no "plugged" event
  await tv.ip('address', 'add', '192.0.2.7/24', 'dev', 'eth0');
  assert.deepEqual(await next(), [addressChanged, eth0]);
  while ((await tv.network()).interfaces.eth0.state !== 'plugged');
  await tv.ip('link', 'set', 'eth0', 'down');
  const [id, param] = await next();
  assert.equal(id, unplugged);
  assert.ok([eth0, await tv.index('far0')].includes(param));
  // The kernel reports the wire's other end up to a second later, and that event would replace the next one.
  while ((await tv.network()).interfaces.far0.state !== 'unplugged');
  await tv.ip('link', 'del', 'wlan0');
  let event;
  do event = await next();
  while (event[0] === unplugged); // the wire's other end
  assert.deepEqual(event, [wlanGone, wlan0]);
});

test('a viewer simulates a pulled cable', { skip }, async (t) => {
  const tv = await television(t);
  const { lost, restored } = await tv.watch();
  assert.deepEqual([lost, restored], [[unplugged, 0], [addressChanged, 0]]); // no interface has a cable
  assert.equal((await tv.network('lose')).cable, 'pulled');
  assert.match(await tv.shown('network'), /^interfaces\.eth0\.state\s+unplugged$/m);
  assert.match(await tv.shown('state'), /^network\s+lost$/m);
  assert.equal((await tv.network('restore')).cable, 'as the machine has it');
});

// HDMI-CEC from end to end: a device on the virtual television's bus, the plugin, a subscriber.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { shell } from './cli_support.mjs';
import { connect, startHost } from './host_support.mjs';

const events = '/tv/ws/notify/cec_detect';
const activeSource = 0x82;
const standby = 0x36;

async function television(t, { args = [], ...options } = {}) {
  const host = await startHost(t, args, options);
  const { run, done, json } = shell(host);
  const cec = (...words) => json('tv', 'cec', ...words);
  return {
    host,
    run,
    done,
    json,
    cec,
    devices: async () => (await cec()).devices,
    state: async () => (await json('get', '/tv/cec/cfg_get')).response.ITEMS[0].cecm_func_statu,
    set: (on) => done('set', '/tv/cec/cfg_set', JSON.stringify({ REQUEST: 'SET', CECMFUNC: on })),
    carried: async (frame) => {
      for (;;) {
        const found = (await cec('frames')).frames.findLast((each) => each.frame === frame);
        if (found) return found.heard;
      }
    },
  };
}

// Returns the next event for which the predicate is true; skips those before it.
async function next(client, predicate) {
  for (;;) {
    const { notification } = await client.next('notify');
    assert.equal(notification.URI, events);
    assert.equal(notification.ITEMS.length, 1);
    if (predicate(notification.ITEMS[0])) return notification.ITEMS[0];
  }
}
const message = (opcode) => (item) => item.NOTIFY_TYPE === 0 && item.U_CODE_OPCODE === opcode;
const deviceList = (item) => item.NOTIFY_TYPE === 1 && item.U_CODE_MSGCODE === 1;

test('starting the host discovers the devices', async (t) => {
  const tv = await television(t);
  const client = await connect(t, tv.host);
  await client.call('subscribe', { uri: events });
  const list = await next(client, deviceList);
  assert.equal(list.ATTR, (1 << 4) | (1 << 5));
  assert.deepEqual([list.DEV_NFY_LST_STS, list.DEV_NFY_START_LA, list.DEV_NFY_STOP_LA], [1, 1, 14]);
  assert.equal(await tv.state(), 1);
});

test('one touch play, standby, and unplugging', async (t) => {
  const tv = await television(t);
  const client = await connect(t, tv.host);
  await client.call('subscribe', { uri: events });
  await next(client, deviceList);

  await tv.cec('play', 'player');
  assert.equal((await next(client, message(0x04))).ONETOUCH_UI2_PA, 0x2000);
  const played = await next(client, message(activeSource));
  assert.equal(played.SENTLA, 4);
  assert.equal(played.U_CODE_OPCODE, 130);
  assert.equal(played.BRDCAST_TYPE, 1);
  assert.deepEqual([played.ACTSRC_UI2PA, played.ACTSRC_EPA, played.ACTSRC_COMPID], [0x2000, 2, 2]);
  const player = (await tv.devices()).find(({ device }) => device === 'player');
  assert.deepEqual([player.address, player.power, player.active], ['2.0.0.0', 'on', true]);
  assert.equal((await tv.json('tv', 'state')).cec.player.active, true);

  await tv.cec('standby', 'player');
  assert.equal((await next(client, message(0x9d))).U_DATA_UI2PA, 0x2000);

  await tv.cec('unplug', 'amplifier');
  const lost = await next(client, (item) => item.NOTIFY_TYPE === 1 && item.U_CODE_MSGCODE === 2);
  assert.deepEqual([lost['5VPWR_5VPWR'], lost['5VPWR_COMPID']], [0, 1]);
  assert.equal((await next(client, deviceList)).ATTR, 1 << 4);

  await tv.cec('send', 'player', '64', '40', '48', '69');
  const text = await next(client, message(0x64));
  assert.equal(text.OSDSTRING_DIAPLAY, 0x40);
  assert.deepEqual(text.OSDSTRING_STRING, [0x48, 0x69, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0]);
});

test('no events while CEC is off; switching it on starts a discovery', async (t) => {
  const tv = await television(t);
  const client = await connect(t, tv.host);
  await client.call('subscribe', { uri: events });
  await next(client, deviceList);

  await tv.set(0);
  assert.equal(await tv.state(), 0);
  assert.equal((await tv.json('tv', 'config', 'g_misc__cec_enable')).value, false);
  await tv.cec('play', 'player');
  await tv.carried('4F:82:20:00');
  assert.equal(await tv.carried('40:04'), false);
  assert.equal(client.pending('notify'), 0);

  await tv.set(257);
  assert.equal(await tv.state(), 1);
  // Events are not delayed: messages sent while CEC was off are lost. A message that comes soon after another replaces it
  // in the listener, so only the list, the last event of a discovery, is certain to be received.
  await next(client, (item) => {
    assert.notEqual(item.U_CODE_OPCODE, 0x04);
    return deviceList(item);
  });
});

test('the switch survives kill -9; starting CEC switches it on', async (t) => {
  const first = await television(t);
  await first.set(0);
  await first.host.stop('SIGKILL');

  const second = await television(t, { args: ['--no-cec'], state: first.host.state });
  const client = await connect(t, second.host);
  await client.call('subscribe', { uri: events });
  assert.equal(await second.state(), 0);
  await second.cec('send', 'player', standby.toString(16));
  assert.equal(await second.carried('40:36'), false);
  assert.equal(client.pending('notify'), 0);
  await second.host.stop('SIGKILL');

  const third = await television(t, { state: first.host.state });
  assert.equal(await third.state(), 1);
});

test('dtvctl lists the devices and reports errors', async (t) => {
  const tv = await television(t);
  assert.match(await tv.done('tv', 'cec'), /^player\s+Disc Player\s+4\s+2\.0\.0\.0\s+true\s+standby\s+false$/m);
  const refused = await tv.run('tv', 'cec', 'play', 'radio');
  assert.notEqual(refused.code, 0);
  assert.match(refused.stderr, /"radio"; the devices are: amplifier, player/);
});

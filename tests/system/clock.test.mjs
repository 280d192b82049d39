// Clock, sleep timer, portal and the remote control from end to end: dtvctl, the plugin, the virtual television.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { shell } from './cli_support.mjs';
import { connect, modify, sleep, startHost } from './host_support.mjs';

const setting = (name) => `/tv/menu/common_setting/${name}`;
const misc = (name) => `/tv/menu/misc/${name}`;
const summerStarts = 1774746000; // 2026-03-29 01:00 UTC, in Berlin 2:00, then 3:00
const winterStarts = 1792890000; // 2026-10-25 01:00 UTC, in Berlin 3:00, then 2:00

async function television(t, options) {
  const host = await startHost(t, [], options);
  const { run, done, json } = shell(host);
  return {
    host,
    run,
    get: async (uri, query) => {
      const words = query ? [JSON.stringify({ REQUEST: 'QUERY', ...query })] : [];
      return (await json('get', uri, ...words)).response.ITEMS[0];
    },
    set: (uri, param) => done('set', uri, JSON.stringify(param)),
    tv: (...words) => json('tv', ...words),
  };
}

const near = (actual, expected, most = 20) =>
  assert.ok(actual >= expected && actual <= expected + most, `${actual} is not within ${most} s after ${expected}`);

const dtg = ({ DTG }) => `${DTG.YEAR}-${DTG.MONTH}-${DTG.DAY} ${DTG.HOUR}:${DTG.MINUTE}:${DTG.SECOND} ${DTG.WEEK} ${DTG.GMT} ${DTG.DST}`;

test('the clock and its zone, set by an application and by a viewer', async (t) => {
  const tv = await television(t);
  const now = Math.floor(Date.now() / 1000);
  near((await tv.get(setting('utc_time'))).VALUE, now - 1);
  await tv.set(setting('utc_time'), modify(summerStarts));
  near((await tv.get(setting('utc_time'))).VALUE, summerStarts);
  near((await tv.get(setting('broadcast_time'))).VALUE, summerStarts);
  near((await tv.get(setting('local_time'))).VALUE, summerStarts + 7200);
  assert.equal((await tv.get(setting('time_zone'))).VALUE, 3600);
  assert.equal((await tv.get(setting('time_offset'))).VALUE, 7200);
  const shown = await tv.tv('clock');
  assert.match(shown.local, /^2026-03-29T03:00:\d\d\+02:00$/);
  assert.deepEqual([shown.zone, shown.offset_seconds, shown.summer, shown.sleep_seconds], ['Europe/Berlin', 7200, true, 0]);

  // The set reads its zone from its configuration itself, so the plugin makes no call for it.
  const client = await connect(t, tv.host);
  const { calls } = await client.call('get', { uri: setting('local_time'), trace: true });
  assert.deepEqual(calls.map(({ call }) => call), ['a_vextvapi_time_get_utc_time', 'a_vextvapi_time_convert_utc_to_local_time']);

  await tv.tv('clock', 'zone', 'America/New_York');
  assert.equal((await tv.get(setting('time_zone'))).VALUE, -18000);
  assert.equal((await tv.get(setting('time_offset'))).VALUE, -14400); // summer time began three weeks ago there
  await tv.tv('clock', 'set', '2026-12-24T18:00:00');
  near((await tv.get(setting('utc_time'))).VALUE, Date.UTC(2026, 11, 24, 23) / 1000);
  const refused = await tv.run('tv', 'clock', 'zone', 'Europe/Atlantis');
  assert.notEqual(refused.code, 0);
  assert.match(refused.stderr, /no time zone "Europe\/Atlantis"/);

  await tv.host.stop('SIGKILL');
  const second = await television(t, { state: tv.host.state });
  near((await second.get(setting('utc_time'))).VALUE, Date.UTC(2026, 11, 24, 23) / 1000, 60);
  assert.equal((await second.get(setting('time_zone'))).VALUE, -18000);
});

test('conversions', async (t) => {
  const tv = await television(t);
  const local = async (utc) => (await tv.get(setting('convert_utc_to_local_time'), { VALUE: utc })).VALUE;
  assert.equal(await local(summerStarts - 1), summerStarts - 1 + 3600);
  assert.equal(await local(summerStarts), summerStarts + 7200);
  const date = async (utc) => dtg(await tv.get(setting('convert_millis_to_local_time'), { VALUE: utc * 1000 }));
  assert.equal(await date(summerStarts), '2026-3-29 3:0:0 0 0 1');
  assert.equal(await date(winterStarts), '2026-10-25 2:0:0 0 0 0');
  const millis = async (DTG) => (await tv.get(setting('convert_local_time_to_millis'), { DTG })).VALUE;
  const twice = { YEAR: 2026, MONTH: 10, DAY: 25, HOUR: 2, MINUTE: 30, SECOND: 0, GMT: 0 };
  assert.equal(await millis({ ...twice, DST: 1 }), (winterStarts - 1800) * 1000);
  assert.equal(await millis({ ...twice, DST: 0 }), (winterStarts + 1800) * 1000);
  assert.equal(await millis({ ...twice, GMT: 1 }), Date.UTC(2026, 9, 25, 2, 30));
  assert.equal(await millis({ ...twice, DAY: 32 }), 0); // no such day: the result is empty
});

test('the sleep timer puts the set in standby, any key wakes it', async (t) => {
  const tv = await television(t);
  const timer = setting('sleep_timer');
  assert.equal((await tv.get(timer)).VALUE, 0);
  await tv.set(timer, modify(600));
  const { VALUE } = await tv.get(timer);
  assert.ok(VALUE > 580 && VALUE <= 600, `${VALUE}`);
  await tv.set(timer, modify(-1)); // refused by the set, which the plugin does not report
  assert.ok((await tv.get(timer)).VALUE > 570);
  const start = Date.now();
  await tv.set(timer, modify(2));
  while ((await tv.tv('state')).power === 'on' && Date.now() - start < 30000) await sleep(20);
  assert.ok(Date.now() - start >= 2000);
  assert.equal((await tv.tv('state')).power, 'standby');
  assert.equal((await tv.get(timer)).VALUE, 0);
  await tv.tv('key', 'VOL+');
  assert.equal((await tv.tv('state')).power, 'standby');
  await tv.tv('key', 'MENU');
  const { power, key, volume } = await tv.tv('state');
  assert.deepEqual([power, key, volume], ['on', 'MENU', 20]);
});

test("portal, HbbTV and the set's own applications", async (t) => {
  const tv = await television(t);
  const mode = async () => (await tv.get(misc('get_portal_app_mode'))).appMode;
  assert.equal(await mode(), 'UNKNOWN');
  await tv.set(misc('start_portal'), { REQUEST: 'SET', appMode: 'ipepg' });
  assert.equal(await mode(), 'IPEPG');
  await tv.set(misc('start_portal'), { REQUEST: 'SET', appMode: 'EDFU', edfuUrl: 'http://portal.example/e' });
  assert.equal(await mode(), 'EDFU');
  assert.equal((await tv.tv('state')).portal, 'EDFU');
  await tv.set(misc('exit_portal'), { REQUEST: 'SET', exitReason: 'change_source' });
  assert.equal(await mode(), 'UNKNOWN');
  const again = await tv.run('set', misc('exit_portal'), '{"REQUEST":"SET"}');
  assert.equal(again.code, 1);
  assert.deepEqual((await tv.tv('app')).portal, {
    mode: '',
    last_exit: 'CHANGE_SOURCE',
    edfu_url: 'http://portal.example/e',
  });

  const hbbtv = (member) => tv.set(misc('hbbtv_function'), { REQUEST: 'SET', ...member });
  await hbbtv({ funcType: 4, appType: 2, appUri: 'http://app.example/' });
  assert.deepEqual((await tv.tv('app')).hbbtv, { enabled: true, type: 2, uri: 'http://app.example/' });
  await hbbtv({ funcType: 1, enableHbbtv: 0 });
  assert.deepEqual((await tv.tv('app')).hbbtv, { enabled: false, type: 0, uri: '' });
  assert.equal((await tv.tv('config', 'g_hbbtv__enable')).value, false);

  await tv.set(misc('start_native_app'), modify('guide'));
  assert.equal((await tv.tv('app')).native_app, 'GUIDE');
  await tv.set(misc('clean_all'), { REQUEST: 'ACTION' });
  const { hbbtv: cleaned, native_app } = await tv.tv('app');
  assert.deepEqual([cleaned.enabled, native_app], [true, '']);
});

test('a key of the remote control raises the notification of its change', async (t) => {
  const tv = await television(t);
  const client = await connect(t, tv.host);
  await client.call('subscribe', { uri: '/tv/ws/notify/volume_ctrl' });
  await client.call('subscribe', { uri: '/tv/ws/notify/config_update' });
  await tv.tv('key', 'VOL-');
  assert.equal((await client.next('notify')).uri, '/tv/ws/notify/volume_ctrl');
  await tv.tv('key', 'SUBTITLE');
  assert.equal((await client.next('notify')).notification.ITEMS[0].ARG2, 'g_misc__dvb_subtitle_enabled');
  const { keys } = await tv.tv('key');
  assert.equal(keys.length, 58);
  for (const name of ['1', '2', 'SOURCE']) await tv.tv('key', name);
  const { channel, source } = await tv.tv('state');
  assert.deepEqual([channel, source], [null, 'HDMI 1']);
});

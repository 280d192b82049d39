// The menu's language from end to end: the configuration, the plugin's look-up, the language libraries. Also how the host
// provides the absolute paths that the plugin opens.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { chmodSync, chownSync, cpSync, existsSync, mkdirSync, readFileSync, readdirSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { after, test } from 'node:test';
import { ctl } from './cli_support.mjs';
import { build, connect, folder, modify, oddPlugin, request, sleep, startHost, valueOf, volume } from './host_support.mjs';

const text = '/tv/config/language_string';
const number = '/tv/config/value_number';
const updates = '/tv/ws/notify/config_update';
const language = 'g_gui_lang__gui_language';
const german = 0x64657500;
const noPaths = /^dtv-host: no language strings and no keys, .*$/gm;

const paths = ['/3rd', '/dev/cli'];
const before = paths.filter((path) => existsSync(path));
const left = () => paths.filter((path) => existsSync(path) && !before.includes(path));
after(() => assert.deepEqual(left(), [], 'left behind on the machine'));

// Waits until the plugin has received the change: only then does it close the previous language's library.
async function television(t, ...options) {
  const host = await startHost(t, ...options);
  const client = await connect(t, host);
  await client.call('subscribe', { uri: updates });
  const changed = async () => assert.equal((await client.next('notify')).notification.ITEMS.at(-1).ARG2, language);
  const ask = async (langId) => {
    const { ret, response } = await client.call('get', { uri: text, parameter: { REQUEST: 'QUERY', langId } });
    return ret === 0 ? response.ITEMS[0].langString : ret;
  };
  return {
    host,
    client,
    ask,
    volume: async () => valueOf(await client.call('get', { uri: volume })),
    set: async (valueInt) => {
      await client.call('set', { uri: number, parameter: { REQUEST: 'SET', cfgId: language, valueInt } });
      await changed();
    },
    choose: async (code) => {
      const { code: exit, stderr } = await ctl(['tv', 'config', language, code], { env: { DTV_HOST: `127.0.0.1:${host.port}`, DTV_TOKEN: host.token } });
      assert.equal(exit, 0, stderr);
      await changed();
    },
  };
}

test('the texts follow the language, which survives kill -9', async (t) => {
  const tv = await television(t);
  assert.equal(await tv.ask('IDS_VOLUME'), 'Volume');
  await tv.set(german);
  assert.equal(await tv.ask('IDS_VOLUME'), 'Lautstärke');
  for (const [code, expected] of [['fra', 'Aucun signal'], ['spa', 'Sin señal'], ['tur', 'Sinyal yok']]) {
    await tv.choose(code);
    assert.equal(await tv.ask('IDS_NO_SIGNAL'), expected);
  }
  await tv.host.stop('SIGKILL');

  const again = await television(t, [], { state: tv.host.state });
  assert.equal(await again.ask('IDS_VOLUME'), 'Ses düzeyi');
});

test('a language without a library is English; an unknown id has an empty text', async (t) => {
  const tv = await television(t);
  await tv.set(german);
  assert.equal(await tv.ask('IDS_SETTINGS'), 'Einstellungen');
  await tv.choose('pol');
  assert.equal(await tv.ask('IDS_SETTINGS'), 'Settings');
  assert.equal(await tv.ask('IDS_NO_SUCH_TEXT'), '');
  assert.ok((await tv.ask('')) < 0);
});

// A copy of the host and its libraries that all users may read, wherever the build folder is.
function hostCopy(t) {
  const home = folder(t);
  chmodSync(home, 0o755);
  mkdirSync(join(home, 'bin'));
  cpSync(join(build, 'bin/dtv-host'), join(home, 'bin/dtv-host'));
  for (const name of readdirSync(join(build, 'lib')))
    if (/^(libdtv_(js_plugin|tap|tv)\.so|i18n$)/.test(name)) cpSync(join(build, 'lib', name), join(home, 'lib', name), { recursive: true, dereference: true });
  return home;
}

test('a truncated or invalid language library is replaced by English', async (t) => {
  const home = hostCopy(t);
  const library = (code) => join(home, 'lib/i18n', `${code}.so`);
  const beginning = readFileSync(library('DEU')).subarray(0, 8192);
  writeFileSync(library('DEU'), beginning);
  writeFileSync(library('FRA'), '');
  writeFileSync(library('SPA'), 'no library');
  rmSync(library('TUR'));
  assert.equal(spawnSync('mkfifo', [library('TUR')]).status, 0);
  const tv = await television(t, [], { program: [join(home, 'bin/dtv-host')] });
  for (const code of ['deu', 'fra', 'spa', 'tur']) {
    await tv.choose(code);
    assert.equal(await tv.ask('IDS_SETTINGS'), 'Settings', code);
  }

  // If English is invalid too there is no text, but the television works.
  rmSync(library('ENG')); // a new file, since the host has the old one open
  writeFileSync(library('ENG'), beginning);
  await tv.choose('deu');
  assert.ok((await tv.ask('IDS_SETTINGS')) < 0);
  assert.equal(await tv.volume(), 20);
});

test('only the host’s process sees the paths; they can be left out', async (t) => {
  const tv = await television(t);
  assert.equal(await tv.ask('IDS_OK'), 'OK');
  assert.deepEqual(left(), []);
  assert.doesNotMatch((await tv.host.stop()).output, noPaths);

  // A state folder that would be lost with the process is refused.
  if (!before.length) await assert.rejects(startHost(t, [], { state: '/' }), /the state folder \/ cannot be written/);

  const without = await television(t, ['--no-private-paths']);
  assert.ok(before.includes('/3rd') || (await without.ask('IDS_OK')) < 0);
  assert.equal(await without.volume(), 20);
  assert.doesNotMatch((await without.host.stop()).output, noPaths);
});

test('HDMI-CEC is started unless an option forbids it; a failure is reported', async (t) => {
  const started = /\[tvc_ctrl_cec_detect_init\]/;
  const failed = /^dtv-host: HDMI-CEC does not start; going on without it$/m;
  const output = async (host) => (await host.stop()).output;
  assert.match(await output((await television(t)).host), started);
  assert.doesNotMatch(await output((await television(t, ['--no-cec'])).host), started);
  const odd = await startHost(t, ['--plugin', oddPlugin]);
  assert.equal((await request(odd, 'GET', '/odd/echo')).status, 200);
  assert.match(await output(odd), failed);
  assert.doesNotMatch(await output(await startHost(t, ['--plugin', oddPlugin, '--no-cec'])), failed);
});

test('results of channel changes are subscribed to unless an option forbids it; a failure is reported', async (t) => {
  const failed = /^dtv-host: the platform does not report the results of channel changes; going on without them$/m;
  const output = async (...args) => (await (await startHost(t, ['--plugin', oddPlugin, '--no-cec', ...args])).stop()).output;
  assert.match(await output(), failed);
  assert.doesNotMatch(await output('--no-broadcast-init'), failed);
});

// Why a process without superuser rights cannot create its namespaces here, or false.
const namespaces = (words) => {
  if (process.env.TSAN_OPTIONS) return 'the thread sanitizer’s own thread keeps a process out of a new user namespace';
  const { status, error, stderr } = spawnSync(words[0], [...words.slice(1), 'unshare', '--user', 'true'], { encoding: 'utf8' });
  return status === 0 ? false : `no user namespaces here: ${error ?? stderr.trim()}`;
};
const nobody = 65534;
const asNobody = process.getuid() === 0 ? ['setpriv', `--reuid=${nobody}`, `--regid=${nobody}`, '--clear-groups'] : [];

test('an ordinary user gets the paths too', { skip: namespaces([...asNobody, 'env']) }, async (t) => {
  const home = hostCopy(t);
  const own = join(home, 'own');
  mkdirSync(own);
  if (asNobody.length) chownSync(own, nobody, nobody);

  const options = { program: [...asNobody, join(home, 'bin/dtv-host')], cwd: own, state: 'deep/state' };
  const tv = await television(t, [], options);
  await tv.set(german);
  assert.equal(await tv.ask('IDS_VOLUME'), 'Lautstärke');
  await tv.client.call('set', { uri: volume, parameter: modify(33) });
  await tv.client.call('set', { uri: '/tv/key/irrc', parameter: modify('VOL+') });
  const user = statSync(own).uid;
  for (const file of ['deep', 'deep/state', 'deep/state/tv.sqlite']) assert.equal(statSync(join(own, file)).uid, user, file);
  assert.equal((await tv.host.stop('SIGTERM')).code, 0);

  const again = await television(t, [], options);
  assert.equal(await again.ask('IDS_VOLUME'), 'Lautstärke');
  assert.equal(await again.volume(), 34);

  // The process has no more rights than the user.
  await again.host.stop();
  chmodSync(join(own, 'deep'), 0o500);
  await assert.rejects(startHost(t, [], { ...options, state: 'deep/other' }), /cannot make the state folder deep\/other/);
});

const forbid = ['unshare', '--user', '--map-root-user', 'sh', '-c', 'echo 0 >/proc/sys/user/max_mnt_namespaces && exec "$@"', 'sh'];

test('if the machine forbids namespaces, the host reports it and goes on', { skip: namespaces(['env']) }, async (t) => {
  const tv = await television(t, [], { program: [...forbid, join(build, 'bin/dtv-host')] });
  assert.ok(before.includes('/3rd') || (await tv.ask('IDS_OK')) < 0);
  assert.equal(await tv.volume(), 20);
  await sleep(100); // time for any further output
  assert.deepEqual(tv.host.told().match(noPaths)?.length, 1, tv.host.told());
});

// What dtvctl prints about URIs and commands, and about a request that was refused.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { ctl, dtvctl, fakeHost, result, run, stateFolder } from './cli_support.mjs';
import { sanitized, sharedHost } from './host_support.mjs';

const volume = '/tv/cast/volume/volume';
const mute = '/tv/cast/volume/mute';
const volumeNotify = '/tv/ws/notify/volume_ctrl';

const host = sharedHost();
const at = (...words) => ctl(words, { env: { DTV_HOST: `127.0.0.1:${host.port}`, DTV_TOKEN: host.token } });

async function done(...words) {
  const { code, stdout, stderr } = await at(...words);
  assert.deepEqual([code, stderr], [0, ''], words.join(' '));
  return stdout;
}

test('describe: help, values, members with ranges, and a line to copy for each request', async () => {
  const text = await done('describe', mute);
  assert.match(text, /^\/tv\/cast\/volume\/mute +TYPE_VALUE +0x0404\n {2}Whether the sound is muted\.\n/);
  assert.match(text, /^ {2}Values: 0: not muted, 1: muted$/m);
  assert.match(text, /^set\ntakes\n {2}VALUE +int32, -2147483648 to 2147483647 +\S.*$/m);
  assert.match(text, /^ {2}dtvctl get \/tv\/cast\/volume\/mute$/m);
  assert.match(text, /^ {2}dtvctl set \/tv\/cast\/volume\/mute 0$/m);
  assert.match(await done('describe', '/tv/menu/common_setting/utc_time'), /^ {2}Unit: s$/m);
  assert.match(await done('describe', volumeNotify), /^notify\nsends\n {2}volValue [^]*^ {2}dtvctl watch \/tv\/ws\/notify\/volume_ctrl$/m);
  // Of the members, those of other operations are named with their condition.
  assert.match(await done('describe', '/tv/cbrowser/playback_operator'), /^ {2}seek_time .*\(only with operator=timeSeek\)$/m);
  assert.match(await done('describe', '/tv/brdcast/chg_channel'), /^ {2}dtvctl set \/tv\/brdcast\/chg_channel CH_ID=1$/m);
  assert.match(await done('describe', '/tv/config/value_string'), /^ {2}dtvctl get \/tv\/config\/value_string cfgId=g_misc__tv_network_name$/m);
  // What a request needs, and the range of what the set receives.
  assert.match(await done('describe', volume), /^set\ntakes\n {2}VALUE +int32, -32768 to 32767 /m);
  const number = await done('describe', '/tv/config/value_number');
  assert.match(number, /^set\ntakes\n {2}cfgId .* needed without cfgItem: .*\n {2}cfgItem .* needed without cfgId: .*\n {2}valueInt .* needed: /m);
  assert.match(number, /^ {2}dtvctl set \/tv\/config\/value_number cfgId=g_video__brightness valueInt=1$/m);
  assert.match(await done('describe', '/tv/menu/common_setting/blue_mute'), /accepted, without effect/);
  assert.match(await done('describe', '/tv/menu/sys_info/device_name'), /Nothing serves this URI/);
});

test('describe: several URIs; an unknown one is exit code 1 and does not keep the others back', async () => {
  const { code, stdout, stderr } = await at('describe', mute, '/tv/cast/volume/volum', volume);
  assert.equal(code, 1);
  assert.match(stderr, /^dtvctl: there is no URI \/tv\/cast\/volume\/volum; nearest: \/tv\/cast\/volume\/volume/);
  assert.match(stdout, /^\/tv\/cast\/volume\/mute [^]*\n\n\/tv\/cast\/volume\/volume /);
  const shown = JSON.parse(await done('--json', 'describe', mute));
  assert.deepEqual([shown.uri, shown.of_type.set.request, shown.examples.set], [mute, 'MODIFY', `dtvctl set ${mute} 0`]);
});

test('every example is a line that dtvctl and the set understand', async (t) => {
  const folder = stateFolder(t);
  const rows = (await done('--json', 'list')).trim().split('\n').map(JSON.parse);
  const described = (await done('--json', 'describe', ...new Set(rows.map(({ uri }) => uri)))).trim().split('\n').map(JSON.parse);
  const examples = described.flatMap(({ examples }) => Object.values(examples));
  assert.ok(examples.length > 200, `${examples.length} examples`);
  // The requests go to a host that only looks at them.
  const list = JSON.stringify({ ...(await description()), results: [] });
  const looking = await fakeHost(t, ({ id, method }, send) => send(result(id, method === 'list' ? list : '{"ret":0,"response":null}')));
  // In the build with the thread sanitizer each program sleeps for a second at its end, and all run the same code.
  const lines = examples.filter((line) => !line.startsWith('dtvctl watch')).filter((_, index) => !sanitized || index % 12 === 0);
  const script = lines.map((line) => `${line} >/dev/null || echo "$? ${line.replaceAll('"', '')}"`).join('\n');
  const env = { DTV_HOST: looking.address, PATH: `${dtvctl.replace(/\/[^/]*$/, '')}:${process.env.PATH}`, HOME: folder };
  const { code, stdout, stderr } = await run('bash', ['-c', script], { env, seconds: 180 });
  assert.deepEqual([code, stdout, stderr], [0, '', '']);
  // No member is unknown to the set: the host warns of such.
  const reads = lines.filter((line) => line.startsWith('dtvctl get')).map((line) => line.replace('dtvctl ', 'dtvctl --strict '));
  const real = { ...env, DTV_HOST: `127.0.0.1:${host.port}` };
  assert.doesNotMatch((await run('bash', ['-c', reads.join('\n')], { env: real })).stderr, /is no member/);
});

async function description() {
  const reply = await fetch(`${host.url}/jsonrpc`, { method: 'POST', body: '{"jsonrpc":"2.0","id":1,"method":"list"}' });
  return (await reply.json()).result;
}

test('several URIs in one get: a refused one does not keep the others back', async () => {
  const each = [await done('get', volume), await done('get', mute)];
  assert.equal(await done('get', volume, mute), each.join(''));
  const refused = '/tv/cast/volume/volume_increase';
  const { code, stdout, stderr } = await at('get', volume, refused, '/tv/x', mute);
  assert.deepEqual([code, stdout], [1, each.join('')]);
  assert.match(stderr, /^dtvctl: \/tv\/cast\/volume\/volume_increase: .*\(the set answered -2\)\ndtvctl: \/tv\/x: .*\n$/);
  const lines = (await at('--json', 'get', volume, refused, mute)).stdout.trim().split('\n').map(JSON.parse);
  assert.deepEqual(lines.map(({ ret }) => ret), [0, -2, 0]);
  const late = await at('get', volume, 'INDEX=1', mute);
  assert.equal(late.code, 2);
  assert.match(late.stderr, /the URIs come first/);
});

test('a refusal: the reason on standard error, and nothing on standard output', async () => {
  const { code, stdout, stderr } = await at('set', volume, '101');
  assert.deepEqual([code, stdout], [1, '']);
  assert.match(stderr, /^dtvctl: .*0 to 100.*\(the set answered -1\)\n$/);
  const get = await at('get', '/tv/menu/sys_info/device_name');
  assert.deepEqual([get.code, get.stdout], [1, '']);
  assert.match(get.stderr, /^dtvctl: \S.*\(the set answered -\d\)\n$/);
  const raw = await at('--json', 'set', volume, '101');
  assert.equal(raw.code, 1);
  assert.match(JSON.parse(raw.stdout).reason, /0 to 100/);
});

test('a reason is printed as the host gives it; without one only the result is', async (t) => {
  for (const [reply, says] of [
    ['{"ret":-1,"reason":"line\\u001b[2J"}', 'dtvctl: line\\x1b[2J (the set answered -1)\n'],
    ['{"ret":-1,"reason":""}', 'dtvctl: the set answered -1\n'],
    ['{"ret":-3}', 'dtvctl: the set answered -3\n'],
  ]) {
    const fake = await fakeHost(t, ({ id }, send) => send(result(id, reply)));
    assert.deepEqual(await ctl(['--host', fake.address, 'get', volume]), { code: 1, stdout: '', stderr: says });
  }
});

test('warnings are on standard error; --strict refuses instead', async () => {
  const bent = '{"REQUEST":"MODIFY","VALUE":22.7,"LEVEL":1}';
  await done('set', volume, '10');
  const strict = await at('--strict', 'set', volume, bent);
  assert.deepEqual([strict.code, strict.stdout], [1, '']);
  assert.match(strict.stderr, /^dtvctl: not sent to the set, because of --strict: .*22.*; .*LEVEL/);
  assert.equal(JSON.parse(await done('--json', 'get', volume)).response.ITEMS[0].VALUE, 10);
  const warned = await at('set', volume, bent);
  assert.deepEqual([warned.code, warned.stdout], [0, 'ok\n']);
  assert.match(warned.stderr, /^dtvctl: warning: .*22.*\ndtvctl: warning: .*LEVEL.*\n$/);
  assert.equal(await done('--strict', 'set', volume, '11'), 'ok\n');
});

test('list names the keys of the configuration, and describe explains one with lines that work', async () => {
  const { code, stdout, stderr } = await at('list', 'brightness');
  assert.equal(code, 0);
  assert.match(stdout, /^\/tv\/config\/value_number /m);
  assert.equal(stderr, 'dtvctl: configuration keys: g_video__brightness; see "dtvctl describe g_video__brightness"\n');
  assert.match((await at('list', 'video')).stderr, /^dtvctl: configuration keys: (g_\w+, ){9}g_\w+ and \d+ more; see/m);
  assert.doesNotMatch((await at('list', 'brightness', 'volume')).stderr, /configuration keys/);
  const withoutToken = await ctl(['list', 'brightness'], { env: { DTV_HOST: `127.0.0.1:${host.port}` } });
  assert.deepEqual([withoutToken.code, withoutToken.stderr], [0, '']);

  for (const [key, says, count] of [
    ['g_video__brightness', /^ {2}Brightness\n {2}Values: 0 to 100\n {2}Now 50, of a new set 50$/m, 3],
    ['g_audio__type', /^ {2}Values: 0: normal, 1: hearing impaired, 2: audio description$/m, 3],
    ['g_audio__speakers', /^ {2}Now true, of a new set true$/m, 3],
    ['g_misc__tv_network_name', /^ {2}Values: a text of at most 64 bytes$/m, 3],
    ['g_gui_lang__gui_language', /^ {2}Language of the menus$/m, 2],
  ]) {
    const text = await done('describe', key);
    assert.match(text, says);
    const lines = text.match(/^ {2}dtvctl .*$/gm);
    assert.equal(lines.length, count, text);
    for (const line of lines) {
      const ran = await run('bash', ['-c', line.replace('dtvctl', dtvctl)], { env: { DTV_HOST: `127.0.0.1:${host.port}`, DTV_TOKEN: host.token } });
      assert.deepEqual([ran.code, ran.stderr], [0, ''], line);
    }
    assert.equal(JSON.parse(await done('--json', 'describe', key)).key, key);
  }
  const unknown = await at('describe', 'g_no_such__key', mute);
  assert.equal(unknown.code, 1);
  assert.match(unknown.stderr, /no.* key "?g_no_such__key/);
  assert.match(unknown.stdout, /^\/tv\/cast\/volume\/mute /);
});

test('--trace shows the platform calls and the log of the request', async () => {
  const { code, stdout, stderr } = await at('--trace', 'set', volume, '101');
  assert.deepEqual([code, stdout], [1, '']);
  assert.match(stderr, /-> a_vextvapi_volctrl_setVolume\(volume=101\) = -1\ndtv_tv: .*\ndtvctl: /);
});

test('--local explains as a host does', async (t) => {
  const local = ['--local', '--state', stateFolder(t)];
  for (const words of [['set', volume, '101'], ['get', '/tv/menu/sys_info/device_name'], ['--strict', 'set', volume, '{"REQUEST":"MODIFY","VALUE":"x"}']]) {
    const [here, there] = [await ctl([...local, ...words]), await at(...words)];
    assert.equal(here.code, 1);
    assert.ok(here.stderr.endsWith(there.stderr), `${here.stderr} is not ${there.stderr}`);
  }
  const { stderr } = await ctl([...local, 'set', volume, '{"REQUEST":"MODIFY","VALUE":22.7}']);
  assert.match(stderr, /dtvctl: warning: .*22/);
});

test('the help of a television command, wherever --help stands, without a host', async (t) => {
  const env = { DTV_HOST: '127.0.0.1:1', HOME: stateFolder(t) };
  const [first, ...others] = await Promise.all(
    [['tv', 'scan', '--help'], ['--help', 'tv', 'scan'], ['tv', '--help', 'scan'], ['tv', 'scan', 'all', '-h'], ['help', 'tv', 'scan'], ['--local', 'tv', 'scan', '--help']].map((words) => ctl(words, { env })),
  );
  assert.match(first.stdout, /^Usage: dtvctl tv scan \[/);
  for (const other of others) assert.deepEqual(other, first);
  const all = await ctl(['--json', 'tv', 'help'], { env });
  const names = JSON.parse(all.stdout).commands.map(({ name }) => name);
  for (const name of ['volume', 'scan', 'fault', 'help']) assert.ok(names.includes(name), name);
  assert.equal((await ctl(['tv', 'state'], { env })).code, 3);
});

test('--host that is no address and port is exit code 2, and says what would be', async () => {
  for (const wrong of [':::', 'a:b:c', 'a:', 'a:0', 'a:99999', 'a:-1', '::1', '[::1', '[::1]8080', '[a]:80', 'http://a:80', ' ', ':80']) {
    const { code, stdout, stderr } = await ctl(['--host', wrong, 'get', volume]);
    assert.deepEqual([code, stdout], [2, ''], wrong);
    assert.ok(stderr.startsWith(`dtvctl: the host "${wrong}" is not ADDR:PORT, for example 127.0.0.1:8080`), stderr);
  }
  assert.equal((await ctl(['--host', '', 'get', volume])).code, 2);
  assert.equal((await ctl(['get', volume], { env: { DTV_HOST: ':::' } })).code, 2);
});

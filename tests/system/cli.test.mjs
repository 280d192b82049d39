// dtvctl with --local: the plugin and the virtual television in its own process. Also its messages about wrong words.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';

import { ctl, dtvctl, environment, root, run, start, stateFolder } from './cli_support.mjs';

const volume = '/tv/cast/volume/volume';
const mute = '/tv/cast/volume/mute';
const volumeNotify = '/tv/ws/notify/volume_ctrl';

// The set's answer to a get of the volume.
const volumeText = (value) =>
  `{"URI":"${volume}","STATUS":0,"ITEMS":[{"NAME":"Volume","TYPE":"TYPE_VALUE","GROUP":4,"STATE":1,"MINIMUM":0,"MAXIMUM":0,"INCREMENT":1,"VALUE":${value}}]}`;
const notifyText = (value, muted) =>
  `{"URI":"${volumeNotify}","REQUEST":"NOTIFY","ITEMS":[{"volValue":${value},"muteStatus":${muted}}]}`;

const local = (folder, ...words) => ctl(['--local', '--state', folder, ...words]);

async function done(promise) {
  const { code, stdout, stderr } = await promise;
  assert.equal(code, 0, stderr);
  assert.equal(stderr, '');
  return stdout;
}

test('--help names every command, option and exit code', async () => {
  const text = await done(ctl(['--help']));
  for (const word of ['get', 'set', 'watch', 'list', 'describe', 'functions', 'trace', 'tv', 'help', '--host', 'DTV_HOST', 'DTV_TOKEN', '--local', '--state', '--json', '--count', '--for', '--can', '--strict', '--trace', '--no-reconnect', '--version', 'make run', 'dtvctl.bash']) {
    assert.ok(text.includes(word), `${word} is missing`);
  }
  for (const code of ['0', '1', '2', '3', '4', '5']) assert.match(text, new RegExp(`Exit codes:[^]*\\b${code} `));
  assert.equal(await done(ctl(['-h'])), text);
});

test('each command has a help of its own, with an example', async () => {
  for (const command of ['get', 'set', 'watch', 'list', 'describe', 'functions', 'trace', 'tv']) {
    const text = await done(ctl([command, '-h']));
    assert.match(text, new RegExp(`^Usage: dtvctl \\[OPTIONS\\] ${command} `));
    assert.match(text, new RegExp(`\n  dtvctl .*${command}`));
    assert.match(text, /\nOptions:\n {2}--/);
    assert.equal(await done(ctl([command, '--help'])), text);
    assert.equal(await done(ctl(['--help', command])), text);
    assert.equal(await done(ctl(['help', command])), text);
  }
});

test('--version', async () => {
  const project = readFileSync(join(root, 'CMakeLists.txt'), 'utf8').match(/project\(\w+ VERSION ([\d.]+)/)[1];
  assert.equal(await done(ctl(['--version'])), `dtvctl ${project}\n`);
});

test('wrong words: exit code 2 and what would be right', async () => {
  const cases = [
    [[], /which command/],
    [['gett'], /gett.*did you mean get/],
    [['--jsn', 'list'], /--jsn.*did you mean --json/],
    [['--json=1', 'list'], /--json takes no value/],
    [['--host'], /--host wants ADDR:PORT/],
    [['--host', 'here:there', 'list'], /here:there/],
    [['--host', '127.0.0.1:99999', 'list'], /99999/],
    [['--host', '', 'list'], /--host wants ADDR:PORT/],
    [['get'], /which URI/],
    [['get', 'volume'], /slash/],
    [['watch'], /which URI/],
    [['watch', '--count', '0', volumeNotify], /--count wants N, not "0"/],
    [['watch', '--for', 'ever', volumeNotify], /--for wants SECONDS, not "ever"/],
    [['watch', volumeNotify, '--', 'list'], /get, set or tv, or a program/],
    [['record', 'r.jsonl', '--', 'watch', volumeNotify], /get, set or tv, or a program/],
    [['record', 'r.jsonl', '--', 'set', 'volume'], /slash/],
    [['trace', '--'], /which command, after --/],
    [['trace', 'now'], /now/],
    [['tv'], /tv help/],
  ];
  for (const [words, says] of cases) {
    const { code, stdout, stderr } = await ctl(words);
    assert.equal(code, 2, words.join(' '));
    assert.equal(stdout, '');
    assert.match(stderr, says);
    assert.match(stderr, /^dtvctl: /);
  }
});

test('get and set: a value set is read back, also by the next process', async (t) => {
  const folder = stateFolder(t);
  assert.equal(await done(local(folder, '--json', 'get', volume)), `{"ret":0,"response":${volumeText(20)}}\n`);
  assert.equal(await done(local(folder, 'set', volume, '23')), 'ok\n');
  assert.equal(await done(local(folder, '--json', 'get', volume)), `{"ret":0,"response":${volumeText(23)}}\n`);
  assert.equal(await done(local(folder, '--json', 'set', mute, 'VALUE=1')), '{"ret":0}\n');
  assert.equal(await done(local(folder, 'set', volume, '--', '25')), 'ok\n');
  assert.equal(await done(local(folder, 'set', volume, '{"REQUEST":"MODIFY","VALUE":24}')), 'ok\n');
  assert.equal(await done(local(folder, '--json', 'tv', 'volume')), '{"volume":24,"mute":true}\n');
});

test('get: a table of the item for people', async (t) => {
  const lines = (await done(local(stateFolder(t), 'get', volume))).trimEnd().split('\n');
  assert.deepEqual(
    lines.map((line) => line.split(/ +/)),
    [
      ['NAME', 'TYPE', 'GROUP', 'STATE', 'MINIMUM', 'MAXIMUM', 'INCREMENT', 'VALUE'],
      ['Volume', 'TYPE_VALUE', '4', '1', '0', '0', '1', '20'],
    ],
  );
});

test('get and set: what the set refuses is exit code 1', async (t) => {
  const folder = stateFolder(t);
  const refusals = [
    [['set', volume, '101'], /^dtvctl: .*0 to 100.*answered -1\)\n$/m],
    [['set', volume, '-5'], /0 to 100.*answered -1/],
    [['set', '/tv/cast/volume/volume_increase'], /answered -2/], // an action gets no record, and volume wants one
    [['get', '/tv/cast/volume/volume_increase'], /answered -2/],
    [['get', '/tv/cast/volume/volum'], /there is no URI .*nearest: \/tv\/cast\/volume\/volume/],
    [['set', '/tv/cast/volume/volum', '3'], /there is no URI .*nearest: \/tv\/cast\/volume\/volume/],
    [['set', '/tv/cast/volume/volum', '{"REQUEST":"MODIFY","VALUE":3}'], /there is no URI/],
    [['set', volumeNotify, '5'], /volume_ctrl only notifies; "dtvctl watch \/tv\/ws\/notify\/volume_ctrl"/],
    [['set', volumeNotify], /only notifies/],
    [['set', volumeNotify, 'VALUE=5'], /only notifies/],
    [['get', volumeNotify, 'VALUE=5'], /only notifies/],
    [['get', volumeNotify], /only notifies; subscribe to it \(the set answered -1\)/],
    [['set', volumeNotify, '{"REQUEST":"MODIFY","VALUE":5}'], /only notifies; subscribe to it \(the set answered -1\)/],
    [['watch', '/tv/ws/notify/volume_ctr'], /there is no URI .*volume_ctrl/],
    [['tv', 'dance'], /dance.*: (\w+, )*volume, mute, state, reset, help, fault, faults, capture\n/], // as "tv help" lists them
    [['tv', 'volume', 'loud'], /up, down or a number from 0 to 100/],
    [['tv', 'fault', 'no_function', '--fail'], /no_function/],
  ];
  for (const [words, says] of refusals) {
    const { code, stderr } = await local(folder, ...words);
    assert.equal(code, 1, `${words.join(' ')}: ${stderr}`);
    assert.match(stderr, says);
  }
  assert.equal(await done(local(folder, '--json', 'tv', 'volume')), '{"volume":20,"mute":false}\n');
});

test('--json prints the answer of a refusal, too', async (t) => {
  const { code, stdout, stderr } = await local(stateFolder(t), '--json', 'set', volume, '101');
  assert.equal(code, 1);
  const { ret, reason } = JSON.parse(stdout);
  assert.equal(ret, -1);
  assert.match(reason, /0 to 100/);
  assert.match(stderr, /answered -1/);
});

test('set: words that do not fit the item are exit code 2 and change nothing', async (t) => {
  const folder = stateFolder(t);
  const cases = [
    [['set', volume], /wants a value.*VALUE/],
    [['set', volume, 'loud'], /VALUE is a number, not "loud"/],
    [['set', volume, 'LEVEL=3'], /no member LEVEL.*VALUE/],
    [['set', volume, '3', '4'], /"3" is not KEY=VALUE/],
    [['set', volume, '{"REQUEST":'], /not a JSON object/],
    [['get', volume, 'INDEX=3'], /no member/],
    [['watch', volume], /never notifies/],
  ];
  for (const [words, says] of cases) {
    const { code, stderr } = await local(folder, ...words);
    assert.equal(code, 2, `${words.join(' ')}: ${stderr}`);
    assert.match(stderr, says);
  }
  assert.equal(await done(local(folder, '--json', 'tv', 'volume')), '{"volume":20,"mute":false}\n');
});

test('set: the words become the parameters, whatever the type', async (t) => {
  // What the plugin was sent is seen in the platform call that it made.
  const folder = stateFolder(t);
  for (const [words, passed] of [
    [['7'], 7],
    [['VALUE=8'], 8],
    [['REQUEST=MODIFY', 'VALUE=9'], 9],
    [['{"REQUEST":"MODIFY","VALUE":10}'], 10],
    [['11'], 11],
    [['65548'], 12], // the low 16 bits count
  ]) {
    const { stdout } = await local(folder, '--json', 'trace', '--', 'set', volume, ...words);
    const calls = stdout.trim().split('\n').map(JSON.parse).filter((line) => line.call);
    assert.deepEqual(calls.map((line) => [line.call, line.in]), [['a_vextvapi_volctrl_setVolume', { volume: passed }]]);
  }
});

test('watch prints what a key of the remote control causes, exactly as the set wrote it', async (t) => {
  const folder = stateFolder(t);
  const first = await local(folder, 'watch', '--count', '1', volumeNotify, '--', 'tv', 'volume', 'up');
  assert.equal(first.code, 0, first.stderr);
  assert.equal(first.stdout, notifyText(21, 0) + '\n');
  assert.match(first.stderr, /volume +21/);
  assert.equal((await local(folder, '--json', 'watch', '--count=1', volumeNotify, '--', 'set', mute, '1')).stdout, notifyText(21, 1) + '\n');
});

test('watch ends by --for, by --count, and by Ctrl-C', async (t) => {
  const folder = stateFolder(t);
  const begun = Date.now();
  assert.equal(await done(local(folder, 'watch', volumeNotify, '--for', '0.4')), '');
  assert.ok(Date.now() - begun >= 400);
  const watching = start(dtvctl, ['--local', '--state', folder, 'watch', volumeNotify]);
  await new Promise((resolve) => setTimeout(resolve, 300));
  assert.equal(watching.child.exitCode, null);
  assert.equal((await watching.stop('SIGINT')).code, 'SIGINT');
});

test('watch: a set to the same value is not notified', async (t) => {
  const { code, stdout } = await local(stateFolder(t), 'watch', volumeNotify, '--', 'tv', 'volume', '20');
  assert.equal(code, 0);
  assert.equal(stdout, '');
});

test('trace shows the calls and callbacks that a command causes', async (t) => {
  const folder = stateFolder(t);
  const { code, stdout } = await local(folder, '--json', 'trace', '--count', '2', '--', 'set', volume, '33');
  assert.equal(code, 0);
  const lines = stdout.trim().split('\n').map(JSON.parse);
  assert.equal(lines.length, 2);
  const [call, event] = lines; // the callback may return before the call that caused it
  assert.equal(call.call, 'a_vextvapi_volctrl_setVolume');
  assert.equal(event.event, 'a_vextvapi_volctrl_reg_callback');
  assert.ok(call.seq < event.seq);
  assert.equal(call.ret, 0);
  assert.equal(event.in.pv_arg1, 33);
  assert.notEqual(call.thread, event.thread);
  const readable = (await local(folder, 'trace', '--', 'get', volume)).stdout;
  // A call that took a millisecond or more says so.
  assert.match(readable, /^ +\d+\.\d{6}  \[\d+\]  -> a_vextvapi_volctrl_getVolume\(\) = 33(  \d+\.\d ms)?\n$/);
});

test('list finds URIs by name, type, identifier and ability', async (t) => {
  const folder = stateFolder(t);
  const uris = async (...words) => (await done(local(folder, '--json', 'list', ...words))).trim().split('\n').filter(Boolean).map(JSON.parse);
  assert.deepEqual((await uris('/tv/cast/volume/')).map((row) => row.uri).sort(), [
    mute,
    volume,
    '/tv/cast/volume/volume_decrease',
    '/tv/cast/volume/volume_increase',
  ]);
  assert.deepEqual((await uris('0x0401')).map((row) => row.uri), [volume]);
  assert.deepEqual((await uris('VOLUME', 'notify')).map((row) => row.uri), [volumeNotify]);
  assert.ok((await uris('type_action')).every((row) => row.type === 'TYPE_ACTION'));
  assert.equal((await uris()).length, 402);
  const none = await local(folder, 'list', 'volume', 'no such thing');
  assert.deepEqual([none.code, none.stdout], [0, '']);
  assert.match(none.stderr, /^dtvctl: there is no URI with "volume" and "no such thing"\n$/);
  const table = (await done(local(folder, 'list', volume))).split('\n')[0];
  assert.deepEqual(table.split(/ +/), ['URI', 'TYPE', 'CAN', 'ID', 'HELP']);
  assert.ok((await uris('master volume')).some((row) => row.uri === volume), 'by its help');
});

test('list --can names the URIs of which that has an effect', async (t) => {
  const folder = stateFolder(t);
  const uris = async (...words) => (await done(local(folder, '--json', 'list', ...words))).trim().split('\n').map(JSON.parse);
  const all = await uris();
  for (const use of ['get', 'set', 'notify']) {
    const able = await uris('--can', use);
    assert.deepEqual(able, all.filter((row) => row[use]));
    assert.ok(able.length > 0 && able.length < all.length);
  }
  const readable = (await uris('--can', 'get')).map(({ uri }) => uri);
  assert.ok(readable.includes(volume));
  assert.ok(!readable.includes('/tv/menu/common_setting/blue_mute'), 'accepted, but without effect');
  assert.deepEqual((await uris('--can', 'get', '/tv/cec')).map(({ uri }) => uri), ['/tv/cec/cfg_get']);
  const wrong = await local(folder, 'list', '--can', 'fly');
  assert.equal(wrong.code, 2);
  assert.match(wrong.stderr, /--can wants get\|set\|notify, not "fly"/);
});

test('functions lists the TV API, without a set', async () => {
  const functions = async (...words) => (await done(ctl(['--json', 'functions', ...words]))).trim().split('\n').map(JSON.parse);
  const [setVolume, ...others] = await functions('volctrl', 'setvol');
  assert.deepEqual(others, []);
  assert.deepEqual([setVolume.name, setVolume.params], ['a_vextvapi_volctrl_setVolume', ['volume']]);
  const names = (await functions()).map((row) => row.name);
  assert.ok(names.includes('a_vextvapi_volctrl_reg_callback'));
  assert.match(await done(ctl(['functions', 'setVolume'])), /^FUNCTION +PARAMETERS +CALLBACK\na_vextvapi_volctrl_setVolume +volume +\n$/);
  const registered = await done(ctl(['functions', 'volctrl_reg']));
  assert.match(registered, /^a_vextvapi_volctrl_reg_callback +callback, tag +callback_type, pv_tag, pv_arg1, pv_arg2, pv_arg3, pv_arg4$/m);
  const none = await ctl(['functions', 'nothing']);
  assert.deepEqual([none.code, none.stdout], [0, '']);
  assert.match(none.stderr, /no function with "nothing"/);
});

// Runs dtvctl with its output into a file or a pipe of the shell's.
const shell = (script, ...words) => run('bash', ['-c', script, dtvctl, ...words]);

test('results that cannot be written are exit code 5, with a message', async (t) => {
  const folder = stateFolder(t);
  const local = ['--local', '--state', folder];
  for (const words of [
    ['--help'],
    ['get', '--help'],
    ['--version'],
    ['functions'],
    [...local, 'list'],
    [...local, '--json', 'get', volume],
    [...local, 'set', volume, '30'],
    [...local, 'watch', volumeNotify, '--count', '1', '--', 'tv', 'volume', 'up'],
    [...local, 'trace', '--', 'get', volume],
  ]) {
    const { code, stderr } = await shell('"$0" "$@" >/dev/full', ...words);
    assert.equal(code, 5, `${words.join(' ')}: ${stderr}`);
    assert.match(stderr, /dtvctl: cannot write the results: No space left on device\n$/);
  }
});

test('a pipe that nobody reads ends quietly', async (t) => {
  // The reader has ended before dtvctl begins. SIGPIPE ends dtvctl, as it ends every program of a pipe: 128 + 13.
  const script = 'exec 3> >(true); wait $!; "$0" "$@" >&3; echo "code $?" >&2';
  for (const words of [['--help'], ['--local', '--state', stateFolder(t), 'list']]) {
    const { stderr } = await shell(script, ...words);
    assert.equal(stderr.replace(/^bash: .*Broken pipe.*\n/m, ''), 'code 141\n', words.join(' '));
  }
});

test('tv: the words go to the virtual television unchanged', async (t) => {
  const folder = stateFolder(t);
  assert.equal(await done(local(folder, '--json', 'tv', 'volume', '42')), '{"volume":42,"mute":false}\n');
  assert.equal(await done(local(folder, 'tv', 'mute', 'on')), 'volume  42\nmute    true\n');
  assert.match(await done(local(folder, 'tv', 'help')), /^volume \[N\|up\|down\]\n    Sets the volume .*\n/m);
  // Beside a table, the other members come first.
  assert.match(await done(local(folder, 'tv', 'source')), /^current +0\n\nsources\nnumber +name .*\n0 +TV /);
  assert.equal(await done(local(folder, 'tv', 'fault', 'a_vextvapi_volctrl_setVolume', '--fail', '-3')), 'ok\n');
  assert.equal(await done(local(folder, 'tv', 'faults')), 'no faults\n'); // another process, another set
});

test('a set that does not start is exit code 3 and says why', async (t) => {
  const folder = stateFolder(t);
  writeFileSync(join(folder, 'tv.sqlite'), 'this is not a database, but long enough to be looked at'.repeat(100));
  const { code, stderr } = await local(folder, 'get', volume);
  assert.equal(code, 3);
  assert.match(stderr, /damaged.*kept as/);
  assert.equal(await done(local(folder, 'set', volume, '3')), 'ok\n');
});

test('colours come on a terminal only, and not with NO_COLOR', (t) => {
  const folder = stateFolder(t);
  const onTerminal = (env) =>
    spawnSync('script', ['-qec', `'${dtvctl}' --local --state '${folder}' list volume_ctrl`, '/dev/null'], {
      env: environment({ TERM: 'xterm', ...env }),
      encoding: 'utf8',
    });
  const coloured = onTerminal({});
  assert.equal(coloured.status, 0, coloured.error ?? coloured.stderr);
  assert.match(coloured.stdout, /\x1b\[/);
  const plain = onTerminal({ NO_COLOR: '1' });
  assert.match(plain.stdout, /volume_ctrl/);
  assert.doesNotMatch(plain.stdout, /\x1b\[/);
});

test('a local set has its language strings and its command device', async (t) => {
  const folder = stateFolder(t);
  const text = (await local(folder, '--json', 'get', '/tv/config/language_string', 'langId=IDS_VOLUME')).stdout;
  assert.equal(JSON.parse(text).response.ITEMS[0].langString, 'Volume');
  assert.equal(await done(local(folder, 'set', '/tv/key/irrc', 'VOL+')), 'ok\n');
  assert.equal(await done(local(folder, '--json', 'tv', 'volume')), '{"volume":21,"mute":false}\n');
});

test('an argument that is not UTF-8 is said to be the one', async (t) => {
  const line = `"$1" --local --state "$2" tv key "$(printf '\\377')"`;
  const { code, stderr } = await run('bash', ['-c', line, 'bash', dtvctl, stateFolder(t)]);
  assert.equal(code, 2);
  assert.match(stderr, /argument 6 is not UTF-8/);
});

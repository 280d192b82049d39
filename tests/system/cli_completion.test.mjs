// What the Tab key offers in bash, with a host and without one.
import assert from 'node:assert/strict';
import { mkdirSync, readdirSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';

import { ctl, dtvctl, root, run, stateFolder } from './cli_support.mjs';
import { startHost } from './host_support.mjs';

const volume = '/tv/cast/volume/volume';
const volumeNotify = '/tv/ws/notify/volume_ctrl';
const noHost = { DTV_HOST: '127.0.0.1:1' };

// What bash offers for the last word of a line. bash splits a line at blanks, and at ":" and "=".
async function complete(line, { env = noHost, cwd } = {}) {
  const script = `
    source "${join(root, 'cli/dtvctl.bash')}"
    COMP_LINE=$1
    shift
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    $(complete -p dtvctl | sed 's/.*-F \\([^ ]*\\) .*/\\1/')
    printf '%s\\n' "\${COMPREPLY[@]}"`;
  const words = line.split(/(?<!\\) /).flatMap((word) => (word === '' ? [''] : word.match(/[:=]+|[^:=]+/g)));
  const { stdout, stderr } = await run('bash', ['--norc', '-c', script, 'bash', line, ...words], { env, cwd });
  assert.equal(stderr, '', line);
  return stdout.split('\n').filter(Boolean).sort();
}

const after = (words, options) => complete(`${dtvctl} ${words}`, options);

test('commands, options and their values', async () => {
  assert.deepEqual(await after(''), ['case', 'describe', 'functions', 'get', 'help', 'list', 'record', 'replay', 'set', 'trace', 'tv', 'watch']);
  assert.deepEqual(await after('t'), ['trace', 'tv']);
  assert.deepEqual(await after('help w'), ['watch']);
  assert.deepEqual(await after('--j'), ['--json']);
  assert.deepEqual(await after('watch --no'), ['--no-reconnect']);
  assert.deepEqual(await after('list --can '), ['get', 'notify', 'set']);
  assert.deepEqual(await after('--count '), []);
  assert.deepEqual(await after(`replay ${join(root, 'ARCH')}`), [join(root, 'ARCHITECTURE.md')]);
  assert.deepEqual(await after(`--state ${join(root, 'cl')}`), [join(root, 'cli')]);
});

test('files and folders whose names have blanks and other odd characters', async (t) => {
  const folder = stateFolder(t);
  for (const name of ['my photos', 'my films [2]']) mkdirSync(join(folder, name));
  writeFileSync(join(folder, 'my record.jsonl'), '');
  assert.deepEqual(await after('tv stick insert m', { cwd: folder, env: noHost }), ['my films [2]', 'my photos']);
  assert.deepEqual(await after('tv stick insert my\\ p', { cwd: folder, env: noHost }), ['my photos']);
  assert.deepEqual(await after('replay my\\ r', { cwd: folder, env: noHost }), ['my record.jsonl']);
  // readline puts the backslashes.
  const session = `{ printf 'source "${join(root, 'cli/dtvctl.bash')}"\\n'; sleep 1; printf '${dtvctl} replay my\\\\ r\\t'; sleep 3; printf '\\001printf "[%%s]" \\005\\nexit\\n'; } | script -qec 'bash --norc -i' /dev/null`;
  const { stdout } = await run('bash', ['-c', session], { env: { ...noHost, TERM: 'dumb' }, cwd: folder });
  assert.ok(stdout.includes('[replay][my record.jsonl]'), stdout);
});

test('URIs', async () => {
  assert.deepEqual(await after('get /tv/cast/volume/vol'), [volume, '/tv/cast/volume/volume_decrease', '/tv/cast/volume/volume_increase']);
  assert.deepEqual(await after(`get ${volume} /tv/cast/volume/m`), ['/tv/cast/volume/mute']);
  assert.deepEqual(await after(`describe ${volume} /tv/cast/volume/m`), ['/tv/cast/volume/mute']);
  assert.deepEqual(await after('describe g_gui_lang'), ['g_gui_lang__gui_language']);
  assert.deepEqual(await after('--host 127.0.0.1:1 watch /tv/ws/notify/vol'), [volumeNotify]);
  assert.deepEqual(await after('--host=127.0.0.1:1 watch /tv/ws/notify/vol'), [volumeNotify]);
});

test('named values, members and configuration keys', async () => {
  assert.deepEqual(await after('set /tv/cast/volume/mute '), ['0', '1']);
  assert.deepEqual(await after('set /tv/multiview/audio_focus '), ['main', 'sub']);
  assert.deepEqual(await after('set /tv/key/irrc VOL+'), ['VOL+']);
  assert.deepEqual(await after(`set ${volume} `), ['VALUE=']);
  assert.deepEqual(await after('get /tv/config/value_string cfgI'), ['cfgId=', 'cfgItem=']);
  // bash replaces only what stands behind the "=".
  assert.deepEqual(await after('get /tv/config/value_string cfgId=g_gui_lang'), ['g_gui_lang__gui_language']);
  assert.deepEqual(await after('tv key VO'), ['VOL+', 'VOL-', 'VOL_UI']);
  assert.deepEqual(await after('tv config g_gui_lang'), ['g_gui_lang__gui_language']);
  assert.deepEqual(await after('tv config g_gui_lang__gui_language '), ['deu', 'eng', 'fra', 'spa', 'tur']);
  assert.deepEqual(await after('tv config g_audio__speakers '), ['off', 'on']);
  assert.deepEqual(await after('tv config g_audio__digital_output '), ['PCM', 'automatic', 'off']);
  assert.deepEqual(await after('tv config g_audio__type h'), ['hearing\\ impaired']);
  assert.deepEqual(await after('tv config g_audio__key_tone '), ['0', '1', '2', '3']);
});

test('behind -- stands get, set or tv, and no option', async () => {
  assert.deepEqual(await after(`watch ${volumeNotify} -- `), ['get', 'set', 'tv']);
  assert.deepEqual(await after('trace --count 1 -- '), ['get', 'set', 'tv']);
  assert.deepEqual(await after('record r.jsonl -- '), ['get', 'set', 'tv']);
  assert.deepEqual(await after('record r.jsonl -- get /tv/cast/volume/m'), ['/tv/cast/volume/mute']);
  assert.deepEqual(await after('trace -- --j'), []);
  assert.deepEqual(await after('trace -- get /tv/cast/volume/m'), ['/tv/cast/volume/mute']);
  assert.deepEqual(await after('trace -- tv volume '), ['down', 'up']);
});

test('the commands of the television', async (t) => {
  const { stdout } = await ctl(['--local', '--state', stateFolder(t), '--json', 'tv', 'help']);
  const names = JSON.parse(stdout).commands.map(({ name }) => name);
  assert.ok(names.length > 10);
  assert.deepEqual(await after('tv '), [...new Set(names)].sort());
  assert.deepEqual(await after('tv mute t'), ['toggle']);
  assert.deepEqual(await after('help tv vol'), ['volume']);
  assert.deepEqual(await after('tv stick '), ['folders', 'insert', 'list', 'remove']);
  assert.deepEqual(await after('tv stick remove a'), ['all']);
  assert.deepEqual(await after(`tv stick insert ${join(root, 'cl')}`), [join(root, 'cli')]);
  assert.deepEqual(await after('tv dance '), []);
  const setVolume = 'a_vextvapi_volctrl_setVolume';
  assert.deepEqual(await after('tv fault a_vextvapi_volctrl_setV'), [setVolume]);
  assert.deepEqual(await after('trace -- tv fault a_vextvapi_volctrl_setV'), [setVolume]);
  assert.deepEqual(await after('tv fault --'), ['--clear']);
  assert.deepEqual(await after('tv faults '), ['functions']);
  assert.deepEqual(await after('tv capture '), ['case', 'start', 'status', 'stop']);
  assert.deepEqual(await after('tv fault f --d'), ['--delay', '--drop-callback']);
});

test('by any path, and on a terminal', async () => {
  const here = join(dtvctl, '..');
  assert.deepEqual(await complete('./dtvctl tv mute t', { cwd: here }), ['toggle']);
  assert.deepEqual(await complete('dtvctl tv mute t', { env: { ...noHost, PATH: `${here}:${process.env.PATH}` } }), ['toggle']);
  // readline itself, which finds the function for a path by its last part.
  const typed = (program) => `${program} tv key VOL_\\t`;
  for (const program of ['./dtvctl', dtvctl]) {
    const session = `{ printf 'source "${join(root, 'cli/dtvctl.bash')}"\\n'; sleep 1; printf '${typed(program)}'; sleep 3; printf '\\001echo "[\\005]"\\nexit\\n'; } | script -qec 'bash --norc -i' /dev/null`;
    const { stdout } = await run('bash', ['-c', session], { env: { ...noHost, TERM: 'dumb' }, cwd: here });
    assert.ok(stdout.includes(`\n[${program} tv key VOL_UI ]`), stdout);
  }
});

test('the host is asked first; without one, no set is started and no file is made', async (t) => {
  const folder = stateFolder(t);
  const home = stateFolder(t);
  const env = { ...noHost, HOME: home, XDG_STATE_HOME: home, XDG_CACHE_HOME: home, TMPDIR: home };
  assert.deepEqual(await after('tv key VOL_', { env }), ['VOL_UI']);
  assert.deepEqual(await after('get /tv/cast/volume/m', { env }), ['/tv/cast/volume/mute']);
  assert.deepEqual(readdirSync(home), []);
  const host = await startHost(t, [], { state: folder });
  assert.deepEqual(await after('tv mute t', { env: { DTV_HOST: `127.0.0.1:${host.port}`, DTV_TOKEN: host.token } }), ['toggle']);
});

// dtvctl and the token of a host: where it finds the token, which hosts receive it, and what a refusal says.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { chmodSync, mkdirSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';

import { ctl, dtvctl, fakeHost, notification, result, root, run, start, stateFolder } from './cli_support.mjs';

const volume = '/tv/cast/volume/volume';
const token = '0123456789abcdef'.repeat(4);
const other = 'f'.repeat(64);

// own: options of unshare; an ordinary user becomes superuser in a user namespace. powerless: a command that drops the
// superuser's capabilities, with which it could read every file.
const own = process.getuid() === 0 ? ['--net'] : ['--user', '--map-root-user', '--net'];
const powerless = process.getuid() === 0 ? ['setpriv', '--bounding-set=-all', '--inh-caps=-all'] : ['env'];

function missing(program, words) {
  const tried = spawnSync(program, words, { encoding: 'utf8' });
  return (tried.error || tried.status !== 0) && `${program} does not work here: ${tried.error?.message ?? tried.stderr.trim()}`;
}

const error = (id, code, message) => JSON.stringify({ jsonrpc: '2.0', id, error: { code, message } });

// A host that wants the token for tv, and keeps what it is shown. What it does with authorize can be replaced.
async function guarded(t, authorize) {
  let known = false;
  const shown = [];
  const host = await fakeHost(t, (request, send) => {
    if (request.method === 'authorize') {
      shown.push(request.params.token);
      if (authorize) return authorize(request, send);
      known = request.params.token === token;
      send(known ? result(request.id, '{}') : error(request.id, -32006, 'forbidden'));
    } else if (request.method === 'tv' && !known) {
      send(error(request.id, -32006, 'forbidden'));
    } else {
      send(result(request.id, '{"ret":0}'));
    }
  });
  return { ...host, shown, methods: () => host.seen.requests.map((text) => JSON.parse(text).method) };
}

function folderWith(t, text) {
  const folder = stateFolder(t);
  writeFileSync(join(folder, 'token'), text, { mode: 0o600 });
  return folder;
}

const wants = (address) => `dtvctl: the host at ${address} wants its token for this; give its state folder with --state, or the token in DTV_TOKEN`;

async function refused(host, words, env, because = '') {
  const { code, stdout, stderr } = await ctl(['--host', host.address, ...words, 'tv', 'volume', 'up'], { env });
  assert.equal(code, 1, stderr);
  assert.equal(stdout, '');
  assert.equal(stderr, `${wants(host.address)}${because}\n`);
}

async function accepted(host, words, env) {
  const { code, stderr } = await ctl(['--host', host.address, ...words, 'tv', 'volume', 'up'], { env });
  assert.equal(code, 0, stderr);
}

test('the token of --state goes out before the first request', async (t) => {
  const host = await guarded(t);
  await accepted(host, ['--state', folderWith(t, `${token}\n`)]);
  assert.deepEqual(host.methods(), ['authorize', 'tv']);
  assert.deepEqual(JSON.parse(host.seen.requests[0]), { jsonrpc: '2.0', id: 1, method: 'authorize', params: { token } });
});

test('a file of the token without its line feed, or one that others can read, is used', async (t) => {
  const host = await guarded(t);
  const folder = folderWith(t, token);
  chmodSync(join(folder, 'token'), 0o644);
  await accepted(host, ['--state', folder]);
});

test('the token of the usual state folder', async (t) => {
  const host = await guarded(t);
  const base = stateFolder(t);
  mkdirSync(join(base, 'dtv_js_plugin'));
  writeFileSync(join(base, 'dtv_js_plugin/token'), `${token}\n`);
  await accepted(host, [], { XDG_STATE_HOME: base });
  const home = stateFolder(t);
  mkdirSync(join(home, '.local/state/dtv_js_plugin'), { recursive: true });
  writeFileSync(join(home, '.local/state/dtv_js_plugin/token'), `${token}\n`);
  await accepted(host, [], { XDG_STATE_HOME: '', HOME: home });
});

test('DTV_TOKEN goes before the usual folder, --state before DTV_TOKEN', async (t) => {
  const host = await guarded(t);
  await accepted(host, [], { DTV_TOKEN: token });
  const base = stateFolder(t);
  mkdirSync(join(base, 'dtv_js_plugin'));
  writeFileSync(join(base, 'dtv_js_plugin/token'), `${other}\n`);
  await accepted(host, [], { DTV_TOKEN: token, XDG_STATE_HOME: base });
  await accepted(host, ['--state', folderWith(t, `${token}\n`)], { DTV_TOKEN: other });
  assert.deepEqual(host.shown, [token, token, token]);
});

test('without a token nothing is shown, and what needs none works', async (t) => {
  const host = await guarded(t);
  await refused(host, [], {});
  await refused(host, [], { DTV_TOKEN: '' });
  assert.deepEqual(host.shown, []);
  assert.equal((await ctl(['--host', host.address, 'get', volume])).code, 0);
});

test('a token that is refused is no failure by itself', async (t) => {
  const host = await guarded(t);
  const folder = folderWith(t, `${other}\n`);
  const { code, stderr } = await ctl(['--host', host.address, '--state', folder, 'get', volume]);
  assert.deepEqual([code, stderr], [0, '']);
  assert.deepEqual(host.shown, [other]);
  await refused(host, ['--state', folder], {}, " (the token that was found is another host's)");
});

test('a host that knows no tokens', async (t) => {
  const unknown = await guarded(t, (request, send) => send(error(request.id, -32601, 'unknown method')));
  const folder = folderWith(t, `${token}\n`);
  const { code, stderr } = await ctl(['--host', unknown.address, '--state', folder, 'get', volume]);
  assert.deepEqual([code, stderr], [0, '']);
});

test('a reply to the token that never comes, or late, holds nothing up', async (t) => {
  const folder = folderWith(t, `${token}\n`);
  const silent = await guarded(t, () => {});
  assert.equal((await ctl(['--host', silent.address, '--state', folder, '--timeout', '5', 'get', volume])).code, 0);
  const notifying = await guarded(t, (request, send) => {
    send(notification('trace', '{"call":"f","in":{},"ret":0,"seq":1}'));
    setTimeout(() => send(result(request.id, '{}')), 100);
  });
  const tracing = start(dtvctl, ['--host', notifying.address, '--state', folder, '--json', 'trace', '--for', '0.5']);
  assert.equal(JSON.parse(await tracing.line()).call, 'f');
  assert.equal((await tracing.ended).code, 0);
});

test('every request can be refused for want of the token', async (t) => {
  const closed = await fakeHost(t, (request, send) => send(error(request.id, -32006, 'forbidden')));
  for (const words of [['get', volume], ['set', volume, '{"REQUEST":"MODIFY"}'], ['list'], ['trace'], ['watch', volume]]) {
    const { code, stdout, stderr } = await ctl(['--host', closed.address, ...words]);
    assert.equal(code, 1, words[0]);
    assert.equal(stdout, '');
    assert.equal(stderr, `${wants(closed.address)}\n`);
  }
});

test('a token that is missing, unreadable or none is never shown, and the refusal says so', async (t) => {
  const host = await guarded(t);
  const empty = stateFolder(t);
  await refused(host, ['--state', empty], {}, ` (${empty}/token: No such file or directory)`);
  const folder = stateFolder(t);
  mkdirSync(join(folder, 'token'));
  await refused(host, ['--state', folder], {}, ` (${folder}/token: Is a directory)`);
  const rubbish = ['', '\n', 'secret\n', token.slice(1), `${token}0`, `${token}\n\n`, token.toUpperCase(), `${token.slice(1)}"`, '\0'.repeat(64), 'x'.repeat(100000)];
  for (const text of rubbish) {
    const state = folderWith(t, text);
    await refused(host, ['--state', state], {}, ` (${state}/token holds no token)`);
  }
  for (const text of ['secret', `${token}\n`, token.toUpperCase()])
    await refused(host, [], { DTV_TOKEN: text }, ' (DTV_TOKEN is not 64 hexadecimal digits in lower case)');
  // Whoever names a folder does not mean the environment's token.
  await refused(host, ['--state', empty], { DTV_TOKEN: token }, ` (${empty}/token: No such file or directory)`);
  assert.deepEqual(host.shown, []);
});

test('a token file without the right to read it', { skip: missing(powerless[0], [...powerless.slice(1), 'true']) }, async (t) => {
  const host = await guarded(t);
  const folder = folderWith(t, `${token}\n`);
  chmodSync(join(folder, 'token'), 0);
  const [program, ...words] = [...powerless, dtvctl, '--host', host.address, '--state', folder, 'tv', 'volume', 'up'];
  const { code, stderr } = await run(program, words);
  assert.equal(code, 1, stderr);
  assert.equal(stderr, `${wants(host.address)} (${folder}/token: Permission denied)\n`);
  assert.deepEqual(host.shown, []);
});

test('a pipe in the place of the token holds nothing up', async (t) => {
  const host = await guarded(t);
  const folder = stateFolder(t);
  assert.equal(spawnSync('mkfifo', [join(folder, 'token')]).status, 0);
  await refused(host, ['--state', folder], {}, ` (${folder}/token holds no token)`);
});

test('beyond this machine goes only a token that was named', { skip: missing('unshare', [...own, 'ip', 'link', 'set', 'lo', 'up']) }, async () => {
  // The address is the loopback interface's in a network namespace of its own, but no loopback address.
  const script = `
    import { ctl, fakeHost, result, stateFolder } from ${JSON.stringify(join(root, 'tests/system/cli_support.mjs'))};
    import { mkdirSync, writeFileSync } from 'node:fs';
    const ends = [];
    const t = { after: (end) => ends.push(end) };
    const host = await fakeHost(t, (request, send) => send(result(request.id, '{"ret":0}')), { at: '192.0.2.1' });
    const base = stateFolder(t);
    mkdirSync(base + '/dtv_js_plugin');
    writeFileSync(base + '/dtv_js_plugin/token', '${token}\\n');
    const asked = async (words, env) => {
      host.seen.requests.length = 0;
      const { code } = await ctl(['--host', host.address, ...words, 'get', '${volume}'], { env: { XDG_STATE_HOME: base, ...env } });
      console.log(code, ...host.seen.requests.map((text) => JSON.parse(text).method));
    };
    await asked([], {});
    await asked([], { DTV_TOKEN: '${other}' });
    await asked(['--state', base + '/dtv_js_plugin'], {});
    for (const end of ends) end();
  `;
  const inside = 'ip link set lo up && ip address add 192.0.2.1/32 dev lo && exec "$0" --input-type=module -e "$1"';
  const { code, stdout, stderr } = await run('unshare', [...own, 'sh', '-c', inside, process.execPath, script]);
  assert.equal(code, 0, stderr);
  assert.equal(stdout, '0 get\n0 authorize get\n0 authorize get\n');
});

// dtvctl with what goes on after its command: progress, the end, Ctrl-C; and the help of the television's commands.
import assert from 'node:assert/strict';
import { mkdtempSync, readdirSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';

import { antenna, services } from './antenna_support.mjs';
import { ctl, dtvctl, fakeHost, result, run, start, stateFolder } from './cli_support.mjs';

const watch = { words: ['scan'], cancel: ['scan', 'cancel'], shows: ['services'] };
const refusal = (id, message) => JSON.stringify({ jsonrpc: '2.0', id, error: { code: -32001, message } });

// A host whose scan has these states, one with each question; the last one stays. cancelled(count) gives the states after
// the cancelling, which came behind so many questions.
async function scanning(t, states, { cancelled } = {}) {
  let left = states;
  let asked = 0;
  const host = await fakeHost(t, ({ id, params }, send) => {
    const words = params.words.join(' ');
    if (words === 'scan all') return send(result(id, JSON.stringify({ state: 'running', percent: 0, watch })));
    if (words === 'scan cancel') {
      left = cancelled(asked);
      return send(result(id, JSON.stringify(left[0])));
    }
    assert.equal(words, 'scan');
    ++asked;
    return send(result(id, JSON.stringify(left.length > 1 ? left.shift() : left[0])));
  });
  return { ...host, questions: () => asked };
}
const at = (percent, services, seconds) => ({ state: 'running', percent, services, seconds });

test('a scan is followed to its end, in lines where no terminal is', async (t) => {
  const host = await scanning(t, [at(0, 0, 0), at(5, 1, 1), at(40, 7, 2), at(45, 7, 3), at(90, 13, 65), { state: 'done', percent: 100, services: 15, added: 15 }]);
  const { code, stdout, stderr } = await ctl(['--host', host.address, 'tv', 'scan', 'all']);
  assert.equal(code, 0, stderr);
  assert.deepEqual(stdout.trimEnd().split('\n').map((line) => line.split(/ +/)), [['state', 'done'], ['percent', '100'], ['services', '15'], ['added', '15']]);
  assert.equal(stderr, '40 %  services 7  0:02\n90 %  services 13  1:05\n');
});

test('--json prints only the result, as the set wrote it; --no-wait prints the first reply', async (t) => {
  const host = await scanning(t, [at(10, 0, 0), { state: 'done', services: 3 }]);
  assert.deepEqual(await ctl(['--host', host.address, '--json', 'tv', 'scan', 'all']), { code: 0, stdout: '{"state":"done","services":3}\n', stderr: '' });
  const begun = await ctl(['--host', host.address, 'tv', 'scan', 'all', '--no-wait']);
  assert.equal(begun.code, 0);
  assert.match(begun.stdout, /^state +running\npercent +0\n$/);
  assert.equal(host.questions(), 2);
});

test('the outcome is the exit code: failed and cancelled by somebody else are 1', async (t) => {
  for (const [state, says] of [[{ state: 'failed', error_text: 'line 4: bad' }, /it failed: line 4: bad/], [{ state: 'cancelled' }, /it was cancelled/]]) {
    const host = await scanning(t, [state]);
    const { code, stdout, stderr } = await ctl(['--host', host.address, 'tv', 'scan', 'all']);
    assert.equal(code, 1);
    assert.match(stdout, /^state /);
    assert.match(stderr, says);
  }
});

test('Ctrl-C cancels, waits for the end, and says so', async (t) => {
  for (const signal of ['SIGINT', 'SIGTERM']) {
    const host = await scanning(t, [at(10, 2, 0)], { cancelled: () => [at(11, 2, 1), { state: 'cancelled', percent: 11, services: 2 }] });
    const scan = start(dtvctl, ['--host', host.address, 'tv', 'scan', 'all']);
    while (host.questions() < 2) await new Promise((resolve) => setTimeout(resolve, 20));
    scan.child.kill(signal);
    assert.match(await scan.line(), /^state +cancelled$/);
    const { code, stderr } = await scan.ended;
    assert.equal(code, signal);
    assert.match(stderr, /dtvctl: cancelled\n$/);
    assert.equal(host.seen.requests.filter((text) => text.includes('"cancel"')).length, 1);
  }
});

test('a scan that ends before the cancelling arrives is done', async (t) => {
  const host = await scanning(t, [at(10, 2, 0)], { cancelled: () => [{ state: 'done', services: 4 }] });
  const scan = start(dtvctl, ['--host', host.address, 'tv', 'scan', 'all']);
  while (host.questions() < 1) await new Promise((resolve) => setTimeout(resolve, 20));
  scan.child.kill('SIGINT');
  assert.match(await scan.line(), /^state +done$/);
  assert.equal((await scan.ended).code, 0);
});

test('on a terminal there is a bar, which the result replaces', async (t) => {
  const host = await scanning(t, [at(50, 7, 2), { state: 'done', services: 15 }]);
  const { code, stdout } = await run('script', ['-qec', `'${dtvctl}' --host ${host.address} tv scan all`, '/dev/null'], { env: { TERM: 'xterm' } });
  assert.equal(code, 0, stdout);
  assert.ok(stdout.includes('\r[############------------] 50 %  services 7  0:02\x1b[K'), JSON.stringify(stdout));
  assert.match(stdout, /\r\x1b\[K.*state.* +done/);
});

test('what does not say how to follow it is exit code 4', async (t) => {
  for (const wrong of [{ words: 'scan', cancel: [] }, {}, { words: ['scan'] }]) {
    const host = await fakeHost(t, ({ id }, send) => send(result(id, JSON.stringify({ state: 'running', watch: wrong }))));
    assert.equal((await ctl(['--host', host.address, 'tv', 'scan', 'all'])).code, 4);
  }
  for (const reply of ['[]', '{}', '{"import":3}']) {
    const follow = { words: ['guide'], member: 'import', cancel: ['guide'] };
    const host = await fakeHost(t, ({ id, params }, send) => send(result(id, params.words.length > 1 ? JSON.stringify({ watch: follow }) : reply)));
    assert.equal((await ctl(['--host', host.address, 'tv', 'guide', 'update'])).code, 4, reply);
  }
});

test('a refusal meanwhile ends it', async (t) => {
  const host = await fakeHost(t, ({ id, params }, send) =>
    send(params.words.length > 1 ? result(id, JSON.stringify({ state: 'running', watch })) : refusal(id, 'the set is off')),
  );
  const { code, stderr } = await ctl(['--host', host.address, 'tv', 'scan', 'all']);
  assert.notEqual(code, 0);
  assert.match(stderr, /the set is off/);
});

// ---- With a set ----

const local = (folder, ...words) => ctl(['--local', '--state', folder, ...words]);

test('scan, update and import of a set in this process run to their ends', async (t) => {
  const folder = stateFolder(t);
  const set = (...words) => ctl(['--local', '--state', folder, 'tv', ...words], { env: { HOME: '/' } });
  const json = async (...words) => {
    const { code, stdout, stderr } = await set('--json', ...words);
    assert.equal(code, 0, `${words}: ${stderr}`);
    return JSON.parse(stdout);
  };
  const refused = await set('scan', 'all');
  assert.equal(refused.code, 1);
  assert.match(refused.stderr, /the antenna is not connected/);
  await json('antenna', antenna());
  const scan = await json('scan', 'all');
  assert.deepEqual([scan.state, scan.percent, scan.services], ['done', 100, services.length]);
  const { update, events } = await json('guide', 'update');
  assert.deepEqual([update.state, update.percent, update.multiplexes, update.skipped], ['done', 100, 3, undefined]);
  assert.ok(events > 1000 && update.events >= events, `${events} of ${update.events} events`);
  const file = join(folder, 'guide.xml');
  writeFileSync(file, '<tv><channel id="x"><display-name>No such channel</display-name></channel></tv>');
  const shown = await set('guide', 'import', file);
  assert.equal(shown.code, 0, shown.stderr);
  assert.match(shown.stdout, /^state +done$/m);
  assert.match(shown.stdout, /^unmatched +1$/m);
  writeFileSync(file, '<tv><channel');
  const broken = await set('guide', 'import', file);
  assert.equal(broken.code, 1);
  assert.match(broken.stderr, /it failed: .*line 1/);
});

test('--help behind a command of the television explains it and does nothing', async (t) => {
  const folder = stateFolder(t);
  const here = mkdtempSync(join(folder, 'here-'));
  for (const words of [['screen', '--help'], ['screen', '-h'], ['stick', 'insert', '--help'], ['volume', '--help', '50'], ['fault', '--help']]) {
    const { code, stdout, stderr } = await run('env', ['-C', here, dtvctl, '--local', '--state', folder, 'tv', ...words]);
    assert.equal(code, 0, `${words}: ${stderr}`);
    assert.match(stdout, new RegExp(`^Usage: dtvctl tv ${words[0]} ?[^\n]*\n\n[A-Z]`));
    assert.deepEqual(readdirSync(here), [], `${words} writes no file`);
  }
  const { commands } = JSON.parse((await local(folder, '--json', 'tv', 'help')).stdout);
  for (const name of ['volume', 'fault', 'faults', 'capture', 'help']) {
    assert.equal(commands.filter((row) => row.name === name).length, 1, name);
    const explained = await local(folder, 'tv', 'help', name);
    assert.match(explained.stdout, new RegExp(`^Usage: dtvctl tv ${name} [^\n]*\n\n[A-Z]`), explained.stderr);
    assert.equal((await local(folder, 'tv', name, '--help')).stdout, explained.stdout);
  }
  assert.match((await local(folder, 'tv', 'capture', 'start')).stderr, /a record is made by a host/);
  const unknown = await local(folder, 'tv', 'dance', '--help');
  assert.equal(unknown.code, 1);
  assert.match(unknown.stderr, /no command "dance"/);
});

test('a word that begins with a dash is an option, behind -- a word, and never a file', async (t) => {
  const folder = stateFolder(t);
  const here = mkdtempSync(join(folder, 'here-'));
  const inHere = (...words) => run('env', ['-C', here, dtvctl, '--local', '--state', folder, ...words]);
  for (const [words, says] of [
    [['tv', 'screen', '--hlp'], /no option --hlp; did you mean --help/],
    [['tv', 'screen', '-x'], /no option -x/],
    [['tv', 'screen', '--', '-x'], /"-x" would look like an option; to write it, give \.\/-x/],
    [['tv', 'stick', 'insert', '--nothing'], /no option --nothing/],
    [['watch', '/tv/ws/notify/volume_ctrl', '--', 'tv', 'screen', '--help'], /"--help" would look like an option/],
  ]) {
    const { code, stderr } = await inHere(...words);
    assert.equal(code, 2, `${words}: ${stderr}`);
    assert.match(stderr, says);
    assert.deepEqual(readdirSync(here), []);
  }
  const found = await inHere('tv', '--json', 'guide', 'search', '--', '-5 degrees', '--json');
  assert.equal(found.code, 0, found.stderr);
  assert.deepEqual(JSON.parse(found.stdout), { events: [], more: false });
  assert.equal((await inHere('tv', 'volume', '33', '--json')).stdout, '{"volume":33,"mute":false}\n');
});

test('numbers of a reply are shown as people write them', async (t) => {
  const host = await fakeHost(t, ({ id }, send) => send(result(id, '{"mhz":4.74166E2,"speed":1E0,"quarter":0.25,"seconds":-3}')));
  const { code, stdout, stderr } = await ctl(['--host', host.address, 'tv', 'state']);
  assert.equal(code, 0, stderr);
  assert.deepEqual(stdout.trimEnd().split('\n').map((line) => line.split(/ +/)), [['mhz', '474.166'], ['speed', '1'], ['quarter', '0.25'], ['seconds', '-3']]);
});

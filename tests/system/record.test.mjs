// Records: what a host writes down, its replay, and the conformance case made of it. A replay and a case must notice a
// plugin that behaves differently; that plugin is the real one with a text of its tables changed in its file.
import assert from 'node:assert/strict';
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import { ctl, run, shell, start } from './cli_support.mjs';
import { build, callRuns, connect, folder, modify, mute, request, slowCall, startHost, valueOf, volume, volumeEvents, within } from './host_support.mjs';

const conformance = join(build, 'bin/conformance');
const networkName = { REQUEST: 'QUERY', cfgId: 'g_misc__tv_network_name' };

const authorized = (host) => ({ headers: { authorization: `Bearer ${host.token}` } });
const capture = (client, action) => client.call('tv', { words: ['capture', action] });
const linesOf = (text) => text.trimEnd().split('\n').map((line) => JSON.parse(line));

// A record of requests of several item types, one of them refused, and of a notification.
async function makeRecord(t, file) {
  const host = await startHost(t);
  const client = await connect(t, host);
  await capture(client, 'start');
  await client.call('get', { uri: volume });
  await client.call('set', { uri: volume, parameter: modify(31) });
  // Its callback comes from a thread of the television, and is no notification of the subscription below.
  await within((async () => {
    while ((await capture(client, 'status')).callbacks === 0);
  })(), 'callback of the set');
  await client.call('get', { uri: mute });
  await client.call('get', { uri: '/tv/config/value_string', parameter: networkName });
  await client.call('get', { uri: '/tv/menu/misc/usb_mount_point_list' });
  const refused = await client.call('set', { uri: mute, parameter: { REQUEST: 'QUERY', VALUE: 1 } });
  assert.equal(refused.ret, -1);
  await client.call('subscribe', { uri: volumeEvents });
  await client.call('tv', { words: ['volume', 'up'] });
  const { notification } = await client.next('notify');
  assert.equal(notification.ITEMS[0].volValue, 32);
  const status = await capture(client, 'stop');
  assert.deepEqual([status.recording, status.requests, status.notifications], [false, 6, 1]);
  const record = await request(host, 'GET', '/record.jsonl', authorized(host));
  assert.equal(record.status, 200);
  writeFileSync(file, record.text);
  const made = await request(host, 'GET', '/record.case.json', authorized(host));
  assert.equal(made.status, 200);
  return { host, client, text: record.text, madeByHost: made.text };
}

// Downloads the host's record into the folder. Its replay has no difference, and a case made of it passes.
async function replaysAndPasses(host, place) {
  const { text } = await request(host, 'GET', '/record.jsonl', authorized(host));
  const [record, made] = [join(place, 'r.jsonl'), join(place, 'case.json')];
  writeFileSync(record, text);
  const replayed = await ctl(['replay', record]);
  assert.equal(replayed.code, 0, replayed.stdout);
  assert.equal((await ctl(['case', record, made])).code, 0);
  const passed = await run(conformance, [made]);
  assert.equal(passed.code, 0, passed.stdout);
}

test('a record has the start, each request, its platform calls and the notification, in one order', async (t) => {
  const { text } = await makeRecord(t, join(folder(t), 'r.jsonl'));
  const lines = linesOf(text);
  assert.equal(lines[0].record, 1);
  const bySeq = lines.slice(1).sort((one, other) => one.seq - other.seq);
  assert.equal(new Set(bySeq.map(({ seq }) => seq)).size, bySeq.length, 'no number twice');
  const starts = bySeq.filter((line) => line.start).map((line) => line.start);
  assert.deepEqual(starts, ['a_dtv_jsp_init_res', 'a_dtv_jsp_init', 'tvc_ctrl_cec_detect_init', 'tv_ctrl_broadcast_init']);
  const set = bySeq.findIndex((line) => line.set === volume);
  assert.equal(bySeq[set].param, '{"PARAMETER":{"REQUEST":"MODIFY","VALUE":31}}');
  assert.deepEqual([bySeq[set + 1].call, bySeq[set + 1].in, bySeq[set + 1].thread], ['a_vextvapi_volctrl_setVolume', { volume: 31 }, bySeq[set].thread]);
  const fetched = bySeq.findIndex((line) => line.fetch === volumeEvents);
  assert.equal(JSON.parse(bySeq[fetched].notification).ITEMS[0].volValue, 32);
  const event = bySeq.findIndex((line) => line.event === 'a_vextvapi_volctrl_reg_callback' && line.in.pv_arg1 === 32);
  const subscribed = bySeq.findIndex((line) => line.subscribe === volumeEvents);
  assert.ok(subscribed < event && event < fetched, `${subscribed} ${event} ${fetched}`);
});

test('a case of a record passes, and fails for a plugin with another notification or another platform call', async (t) => {
  const place = folder(t);
  const { madeByHost } = await makeRecord(t, join(place, 'r.jsonl'));
  const made = await ctl(['case', join(place, 'r.jsonl'), join(place, 'case.json')]);
  assert.equal(made.code, 0, made.stderr);
  writeFileSync(join(place, 'host.json'), madeByHost);
  for (const file of ['case.json', 'host.json']) {
    const passed = await run(conformance, [join(place, file)]);
    assert.equal(passed.code, 0, passed.stdout);
    assert.match(passed.stdout, /1 passed, 0 failed/);
  }
  const plugin = readFileSync(join(build, 'lib/libdtv_js_plugin.so'), 'latin1');
  for (const [was, is] of [['volValue', 'volumeIs'], ['g_misc__tv_network_name', 'g_misc__tv_network_nome']]) {
    assert.ok(plugin.includes(was));
    const library = join(place, `other-${is}.so`);
    writeFileSync(library, plugin.replaceAll(was, is), 'latin1');
    const failed = await run(conformance, ['--library', library, join(place, 'case.json')]);
    assert.equal(failed.code, 1, failed.stdout);
    assert.match(failed.stdout, new RegExp(`came[^]*${is}`));
  }
});

test('a replay gives what was recorded, and names each thing that differs', async (t) => {
  const place = folder(t);
  const file = join(place, 'r.jsonl');
  const { text } = await makeRecord(t, file);
  const same = await ctl(['replay', file]);
  assert.equal(same.code, 0, same.stdout + same.stderr);
  assert.match(same.stdout, /^6 requests, \d+ calls, 1 notifications: as recorded$/m);
  const [sum, ...none] = linesOf((await ctl(['--json', 'replay', file])).stdout);
  assert.deepEqual(none, []);
  assert.deepEqual([sum.requests, sum.notifications, sum.left_over, sum.different], [6, 1, 0, 0]);

  // One member of one line is changed at a time.
  const changed = async (choose, change, expected) => {
    const lines = linesOf(text);
    const line = lines.find(choose);
    assert.ok(line, String(choose));
    change(line, lines);
    writeFileSync(file, lines.map((each) => JSON.stringify(each) + '\n').join(''));
    const { code, stdout, stderr } = await ctl(['replay', file]);
    assert.equal(code, 1, stdout + stderr);
    assert.match(stdout, expected);
    const [step, ...rest] = linesOf((await ctl(['--json', 'replay', file])).stdout);
    assert.ok(step.step > 0 && stdout.startsWith(`step ${step.step}, ${step.name}\n  ${step.differences[0]}\n`), stdout);
    assert.equal(rest.at(-1).different, rest.length);
  };
  const other = (member, value) => (line) => (line[member] = line[member].replace(...value));
  const isSet = (line) => line.set === volume;
  const isCall = (name) => (line) => line.call === name;
  await changed(isSet, (line) => (line.ret = -1), /set \/tv\/cast\/volume\/volume\n  ret: was -1, is 0/);
  await changed((line) => line.get === volume, other('response', ['"STATUS":0', '"STATUS":5']), /response\.STATUS: was 5, is 0/);
  await changed((line) => line.fetch, other('notification', ['"volValue":32', '"volValue":33']), /notification\.ITEMS\[0\]\.volValue: was 33, is 32/);
  await changed(isSet, other('param', ['31', '35']), /call 1, a_vextvapi_volctrl_setVolume\.volume: was 31, is 35/);
  await changed(isCall('a_vextvapi_volctrl_setVolume'), (line) => (line.in.volume = 30), /setVolume\.volume: was 30, is 31/);
  await changed(isCall('a_vextvapi_volctrl_getVolume'), (line) => (line.ret = 3), /response\.ITEMS\[0\]\.VALUE: was 20, is 3/);
  await changed(isCall('a_vextvapi_config_get_str_value'), (line) => (line.out.value = 'Kitchen'), /valueString: was "Living room", is "Kitchen"/);
  await changed((line) => line.event && line.in.pv_arg1 === 32, (line) => (line.in.pv_arg1 = 44), /volValue: was 32, is 44/);
  await changed(isCall('a_vextvapi_volctrl_getVolume'), (line, lines) => lines.splice(lines.indexOf(line), 1), /call 1: was none, is a_vextvapi_volctrl_getVolume\{\}/);
  await changed(isCall('a_vextvapi_pus_init'), (line, lines) => lines.splice(lines.indexOf(line), 0, { ...line, call: 'a_vextvapi_volctrl_getVolume' }), /start a_dtv_jsp_init\n  call \d+: was a_vextvapi_volctrl_getVolume/);
});

// Slow calls overlap with callbacks, fetches and subscriptions of other clients; a replay does one thing after the other.
test('a burst of requests and changes of several clients, also with slow calls, replays and passes as a case', async (t) => {
  const place = folder(t);
  const host = await startHost(t);
  const client = await connect(t, host);
  const other = await connect(t, host);
  for (const delay of [0, 0, 15, 15]) {
    await client.call('tv', { words: ['fault', 'a_vextvapi_volctrl_getVolume', '--delay', String(delay)] });
    await capture(client, 'start');
    await client.call('subscribe', { uri: volumeEvents });
    const replies = [];
    for (let k = 0; k < 20; ++k) {
      replies.push(other.call('tv', { words: ['volume', String((delay + 7 * k) % 90)] }));
      replies.push(client.call('set', { uri: volume, parameter: modify(3 * k) }));
      replies.push(client.call('get', { uri: volume }));
      if (k % 5 === 0) replies.push(client.call('unsubscribe', { uri: volumeEvents }), client.call('subscribe', { uri: volumeEvents }));
    }
    await Promise.all(replies);
    await capture(client, 'stop');
    await client.call('unsubscribe', { uri: volumeEvents });
    await replaysAndPasses(host, place);
  }
});

test('a record of a get of every URI replays, and passes as a case', async (t) => {
  const place = folder(t);
  const host = await startHost(t, ['--record']);
  const client = await connect(t, host);
  const { uris } = await client.call('list', {});
  assert.ok(uris.length > 400);
  // Devices of HDMI-CEC and the network report what they like meanwhile.
  for (const { uri, get } of uris) if (get) await client.call('get', { uri });
  await capture(client, 'stop');
  await replaysAndPasses(host, place);
});

test('a case has the files of logos, and says what it does not have', async (t) => {
  const place = folder(t);
  const state = folder(t);
  mkdirSync(join(state, 'ChLogo/PreDef'), { recursive: true });
  writeFileSync(join(state, 'ChLogo/PreDef/news "1".png'), Buffer.from('89504e470d0a1a0a0000', 'hex'));
  const host = await startHost(t, ['--record'], { state });
  const client = await connect(t, host);
  for (const name of ['news "1"', 'none']) {
    const { response } = await client.call('get', { uri: '/tv/channelinfo/get_channel_logo_path', parameter: { REQUEST: 'QUERY', VALUE: name } });
    assert.equal(response.ITEMS[0].TEXT, name === 'none' ? '' : `/3rd_rw/ChLogo/PreDef/${name}.png`);
  }
  await client.call('get', { uri: '/tv/config/language_string', parameter: { REQUEST: 'QUERY', langId: 'IDS_VOLUME' } });
  await capture(client, 'stop');
  const record = join(place, 'r.jsonl');
  writeFileSync(record, (await request(host, 'GET', '/record.jsonl', authorized(host))).text);
  writeFileSync(join(place, 'case.json'), (await request(host, 'GET', '/record.case.json', authorized(host))).text);
  const passed = await run(conformance, [join(place, 'case.json')]);
  assert.equal(passed.code, 0, passed.stdout);
  const replayed = await ctl(['--state', state, 'replay', record]); // a record has no files, a state folder does
  assert.equal(replayed.code, 0, replayed.stdout);
  const made = await capture(client, 'case');
  assert.deepEqual(made.cases[0].files, { '/3rd_rw/ChLogo/PreDef/news "1".png': '' });
  assert.deepEqual(made.notes, ['1 requests for language strings, since a case has no language library']);
  const { stdout, stderr } = await ctl(['case', record]);
  assert.equal(stderr, `dtvctl: left out: ${made.notes[0]}\n`);
  assert.deepEqual(JSON.parse(stdout).notes, made.notes);
});

test('what is not a record is refused with its line', async (t) => {
  const file = join(folder(t), 'r.jsonl');
  for (const [text, reason] of [
    ['', /it is not a record/],
    ['{"seq":1}\n', /it is not a record/],
    ['{"record":1}\nnonsense\n', /line 2 is not a JSON object/],
    ['{"record":1}\n{"seq":1,"get":5}\n', /line 2: "get" is not a text/],
    ['{"record":1}\n{"seq":1,"call":"a_vextvapi_volctrl_getVolume"}\n', /line 2: it has no arguments "in"/],
  ]) {
    writeFileSync(file, text);
    for (const command of ['replay', 'case']) {
      const { code, stderr } = await ctl([command, file]);
      assert.equal(code, 2);
      assert.match(stderr, reason);
    }
  }
  writeFileSync(file, '{"record":1}\n');
  const { code, stderr } = await ctl(['case', file]);
  assert.equal(code, 1);
  assert.match(stderr, /does not begin with the plugin's start/);
});

test('dtvctl record saves what a program does, and passes its exit code on', async (t) => {
  const host = await startHost(t);
  const file = join(folder(t), 'r.jsonl');
  const program = `curl -s http://$DTV_HOST${volume} && exit 7`;
  const { code, stdout, stderr } = await shell(host).run('record', file, '--', 'sh', '-c', program);
  assert.equal(code, 7, stderr);
  assert.equal(JSON.parse(stdout).STATUS, 0);
  assert.match(stderr, /1 requests, 1 calls, 0 notifications/);
  assert.equal((await ctl(['replay', file])).code, 0);
  // One of dtvctl's own commands: its output is alone on standard output, too.
  const own = await shell(host).run('record', file, '--', 'set', volume, '17');
  assert.deepEqual([own.code, own.stdout], [0, 'ok\n'], own.stderr);
  assert.match(own.stderr, /1 requests, 1 calls, \d+ notifications/);
  const refused = await shell(host).run('record', file, '--', 'tv', 'fault', '--drop', 'x');
  assert.equal(refused.code, 1);
  assert.match(refused.stderr, /the function comes first/);
  const missing = await shell(host).run('record', file, '--', './no-such-program');
  assert.equal(missing.code, 127);
  assert.match(missing.stderr, /cannot run .\/no-such-program/);
});

test('dtvctl record ends by Ctrl-C, and refuses a second record at the same time', async (t) => {
  const host = await startHost(t);
  const client = await connect(t, host);
  const place = folder(t);
  const recording = start(join(build, 'bin/dtvctl'), ['--state', host.state, 'record', join(place, 'r.jsonl')], { env: { DTV_HOST: `127.0.0.1:${host.port}` } });
  await within((async () => {
    while (!(await capture(client, 'status')).recording);
  })(), 'record');
  const second = await shell(host).run('record', join(place, 'second.jsonl'));
  assert.equal(second.code, 1);
  assert.match(second.stderr, /a record is being made already/);
  await client.call('get', { uri: volume });
  const { code } = await recording.stop('SIGINT');
  assert.equal(code, 0);
  assert.match(await recording.line(), /1 requests, 1 calls/);
  assert.equal((await capture(client, 'status')).recording, false);
});

test('a record that is not saved leaves an earlier file as it was, and says so', async (t) => {
  const host = await startHost(t);
  const client = await connect(t, host);
  const file = join(folder(t), 'r.jsonl');
  writeFileSync(file, 'an earlier record');
  const recording = start(join(build, 'bin/dtvctl'), ['--state', host.state, 'record', file], { env: { DTV_HOST: `127.0.0.1:${host.port}` } });
  await within((async () => {
    while (!(await capture(client, 'status')).recording);
  })(), 'record');
  host.child.kill('SIGKILL');
  const { code, stderr } = await within(recording.ended, 'end');
  assert.equal(code, 3);
  assert.ok(stderr.includes(`; nothing was saved in ${file}`), stderr);
  assert.equal(readFileSync(file, 'utf8'), 'an earlier record');
});

test('a record needs the token and the tap, and has to have been made', async (t) => {
  const host = await startHost(t);
  for (const path of ['/record.jsonl', '/record.case.json']) {
    assert.equal((await request(host, 'GET', path)).status, 401);
    const none = await request(host, 'GET', path, authorized(host));
    assert.deepEqual([none.status, none.json], [404, { error: 'nothing has been recorded' }]);
    assert.equal((await request(host, 'PUT', path, { ...authorized(host), body: '{}' })).status, 405);
  }
  const untapped = await startHost(t, ['--no-tap']);
  const { message } = await (await connect(t, untapped)).fail('tv', { words: ['capture', 'start'] });
  assert.match(message, /a record needs the tap/);
});

test('a record from the start of the host has what came before any client', async (t) => {
  const host = await startHost(t, ['--record']);
  const client = await connect(t, host);
  assert.equal(valueOf(await client.call('get', { uri: volume })), 20);
  const status = await capture(client, 'status');
  assert.deepEqual([status.recording, status.requests], [true, 1]);
});

test('dtv-host --replay answers as recorded, raises the callbacks, and says what differs', async (t) => {
  const file = join(folder(t), 'r.jsonl');
  await makeRecord(t, file);
  const host = await startHost(t, ['--replay', file]);
  const client = await connect(t, host);
  assert.equal(valueOf(await client.call('get', { uri: volume })), 20);
  assert.equal((await client.call('set', { uri: volume, parameter: modify(31) })).ret, 0);
  // Two recorded requests are left out.
  const read = await client.call('get', { uri: '/tv/menu/misc/usb_mount_point_list' });
  assert.deepEqual(read.response.ITEMS, []);
  await client.call('subscribe', { uri: volumeEvents });
  const { notification } = await client.next('notify');
  assert.equal(notification.ITEMS[0].volValue, 32);
  // Once more than recorded, and not recorded at all.
  assert.equal(valueOf(await client.call('get', { uri: volume })), 20);
  await client.call('get', { uri: '/tv/menu/common_setting/gui_language' });
  const { replay } = await capture(client, 'status');
  assert.equal(replay.step, replay.steps);
  assert.equal(replay.different, replay.differences.length);
  const text = replay.differences.join('\n');
  assert.match(text, /usb_mount_point_list: came before 2 other recorded requests/);
  assert.match(text, /get \/tv\/cast\/volume\/volume: came once more than recorded/);
  assert.match(text, /gui_language: is not in the record/);
  // Only so many differences are kept.
  await Promise.all(Array.from({ length: 120 }, () => client.call('get', { uri: mute })));
  const late = (await capture(client, 'status')).replay;
  assert.deepEqual([late.different, late.differences.length], [replay.different + 120, 100]);
  const { output } = await host.stop();
  assert.match(output, /dtv-host: replay: .*is not in the record/);
});

// Serves these lines to a client, which does everything that was recorded. Nothing differs.
async function replayWithoutDifference(t, lines, act) {
  const file = join(folder(t), 'r.jsonl');
  writeFileSync(file, lines.map((line) => JSON.stringify(line) + '\n').join(''));
  const host = await startHost(t, ['--replay', file]);
  const client = await connect(t, host);
  await act(client, await connect(t, host));
  const { replay } = await capture(client, 'status');
  assert.deepEqual(replay.differences, []);
  assert.equal(replay.step, replay.steps);
}

test('dtv-host --replay: clients subscribe when they like, also while a request runs', async (t) => {
  const { text } = await makeRecord(t, join(folder(t), 'r.jsonl'));
  const lines = linesOf(text);
  const is = (line) => line.record || line.start || line.get === volume || line.subscribe || line.fetch || line.call === slowCall || (line.event && line.in.pv_arg1 === 32);
  const { seq: first } = lines.find((line) => line.get === volume);
  const recorded = lines.filter((line) => is(line) || line.seq < first); // with the whole start
  const whileItRuns = async (client, other) => {
    await client.call('tv', { words: ['fault', slowCall, '--delay', '1000'] });
    const slow = other.call('get', { uri: volume });
    await callRuns(client);
    await client.call('subscribe', { uri: volumeEvents });
    assert.equal(other.pending('notify'), 0);
    assert.deepEqual(Object.keys(await slow), ['ret', 'response']);
    const { notification } = await client.next('notify');
    assert.equal(notification.ITEMS[0].volValue, 32);
  };
  await replayWithoutDifference(t, recorded, whileItRuns);
  // The subscription was recorded before the get, so that the callback comes too early for the client.
  const swapped = recorded.filter((line) => line.subscribe);
  const gets = recorded.filter((line) => line.get === volume || (line.call === slowCall && line.seq > first));
  const seqs = [...swapped, ...gets].map((line) => line.seq).sort((one, other) => one - other);
  const order = [...swapped, ...gets.sort((one, other) => one.seq - other.seq)];
  const moved = new Map(order.map((line, k) => [line, { ...line, seq: seqs[k] }]));
  await replayWithoutDifference(t, recorded.map((line) => moved.get(line) ?? line), async (client) => {
    await client.call('get', { uri: volume });
    await client.call('subscribe', { uri: volumeEvents });
  });
});

test('dtv-host --replay warns of a request that the record does not have', async (t) => {
  const file = join(folder(t), 'r.jsonl');
  await makeRecord(t, file);
  const client = await connect(t, await startHost(t, ['--replay', file]));
  assert.equal((await client.call('get', { uri: volume })).warnings, undefined);
  const unknown = await client.call('get', { uri: '/tv/menu/common_setting/gui_language' });
  assert.match(unknown.warnings[0], /^the record has no such request: its platform calls were answered with 0 and wrote nothing/);
  const other = await client.call('set', { uri: volume, parameter: modify(77) });
  assert.equal(other.ret, 0);
  assert.match(other.warnings[0], /^the record has no such request/);
});

test('faults: a callback arrives as often as told, and functions are listed with their callbacks', async (t) => {
  const host = await startHost(t);
  const client = await connect(t, host);
  const tv = (...words) => client.call('tv', { words });
  assert.deepEqual(await tv('fault', 'a_vextvapi_volctrl_reg_callback', '--drop-callback'), {});
  const { replaced } = await tv('fault', 'a_vextvapi_volctrl_reg_callback', '--repeat-callback', '3');
  assert.deepEqual(replaced, { delay_ms: 0, fails: 0, result: 0, drop_callback: 1, repeat_callback: 0 });
  const { faults } = await tv('faults');
  assert.equal(faults.a_vextvapi_volctrl_reg_callback.repeat_callback, 3);
  await capture(client, 'start');
  await tv('volume', 'up');
  await within((async () => {
    while ((await capture(client, 'status')).callbacks < 3);
  })(), 'third callback');
  await tv('fault', '--clear');
  await tv('volume', 'up');
  await within((async () => {
    while ((await capture(client, 'status')).callbacks < 4);
  })(), 'callback without the fault');
  await capture(client, 'stop');
  const { text } = await request(host, 'GET', '/record.jsonl', authorized(host));
  const levels = linesOf(text).filter((line) => line.event === 'a_vextvapi_volctrl_reg_callback').map((line) => line.in.pv_arg1);
  assert.deepEqual(levels, [21, 21, 21, 22]);

  const { functions } = await tv('faults', 'functions', 'VOLCTRL', 'reg_callback');
  assert.deepEqual(functions.map(({ name, params, callback }) => [name, params, callback]), [
    ['a_vextvapi_volctrl_reg_callback', ['callback', 'tag'], ['callback_type', 'pv_tag', 'pv_arg1', 'pv_arg2', 'pv_arg3', 'pv_arg4']],
  ]);
  assert.match((await client.fail('tv', { words: ['faults', 'functions', 'volctrl_getvolumes'] })).message, /no function "volctrl_getvolumes"/);
  assert.match((await client.fail('tv', { words: ['fault', 'a_vextvapi_volctrl_getVolum2', '--fail'] })).message, /nearest: a_vextvapi_volctrl_getVolume /);
  assert.match((await client.fail('tv', { words: ['fault', 'a_vextvapi_volctrl_getVolume', '--drop-callback'] })).message, /registers no callback, .*--delay and --fail.*; a_vextvapi_volctrl_reg_callback registers one$/);
  const wrong = async (...words) => (await client.fail('tv', { words: ['fault', 'a_vextvapi_volctrl_reg_callback', ...words] })).message;
  assert.match(await wrong('--delay'), /--delay wants milliseconds, 0 or more, such as --delay 500; nothing follows/);
  assert.match(await wrong('--delay', 'soon'), /such as --delay 500, not "soon"/);
  assert.match(await wrong('--fail', 'hard'), /--fail wants the result as a number, or nothing for -1, such as --fail -3, not "hard"/);
  assert.match(await wrong('--drop-callback', '3'), /--drop-callback takes no value.*--repeat-callback takes a number/);
  assert.match(await wrong('--drop-callbacks'), /did you mean --drop-callback\?/);
  assert.match(await wrong('--drop-callback', '--repeat-callback', '3'), /--drop-callback or --repeat-callback, not both/);
  assert.match(await wrong('--fail', '--clear'), /--clear stands alone/);
  assert.match(await wrong(), /no fault given; usage: fault FUNCTION/);
  assert.match((await client.fail('tv', { words: ['fault', '--fail'] })).message, /the function comes first; usage: fault FUNCTION/);
  assert.match((await client.fail('tv', { words: ['fault', 'a_vextvapi_volctrl_reg_callback', '--repeat-callback', '1001'] })).message, /from 2 to 1000/);
});

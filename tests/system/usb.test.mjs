// USB sticks from end to end: dtvctl, the virtual television, the plugin, an application.
import assert from 'node:assert/strict';
import { mkdirSync, readFileSync, rmSync, symlinkSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import { dtvctl, run } from './cli_support.mjs';
import { connect, folder, sleep, startHost } from './host_support.mjs';

const misc = '/tv/menu/misc';
const updates = '/tv/ws/notify/usb_detect';
const tag = 0x1d0d7;
const mounted = 1;
const unmounted = 2;

// The folders that become sticks lie in the host's home folder, world.
async function television(t, { world = folder(t), ...options } = {}) {
  const host = await startHost(t, [], { ...options, env: { HOME: world } });
  const ctl = (...words) => run('env', ['-C', world, dtvctl, '--state', host.state, ...words], { env: { DTV_HOST: `127.0.0.1:${host.port}` } });
  const done = async (...words) => {
    const { code, stdout, stderr } = await ctl(...words);
    assert.equal(code, 0, stderr);
    return stdout;
  };
  const get = (uri, parameter) => ctl('--json', 'get', uri, ...(parameter ? [JSON.stringify(parameter)] : []));
  return {
    host,
    world,
    ctl,
    done,
    get,
    mountPoint: (name) => join(host.state, 'usb', name),
    list: async () => JSON.parse((await get(`${misc}/usb_mount_point_list`)).stdout),
  };
}

const item = (tv, type, device, label, port) => ({
  TYPE: type,
  TAG: tag,
  DEV: `/dev/${device}`,
  PATH: tv.mountPoint(device),
  LABEL: label,
  PORT: port,
});
const entry = ({ TYPE, TAG, ...rest }) => rest;

test('an inserted stick is reported, listed, described, still there after a restart, and removed', async (t) => {
  const first = await television(t);
  mkdirSync(join(first.world, 'Holiday'));
  writeFileSync(join(first.world, 'Holiday', 'beach.jpg'), Buffer.alloc(1_200_000));
  writeFileSync(join(first.world, 'Holiday', 'diary.txt'), 'sun');
  const client = await connect(t, first.host);
  await client.call('subscribe', { uri: updates });

  // dtvctl makes the path absolute, since the host runs in another folder.
  await first.done('tv', 'stick', 'insert', './Holiday');
  const holiday = item(first, mounted, 'sda1', 'Holiday', 1);
  assert.deepEqual((await client.next('notify')).notification, { URI: updates, REQUEST: 'NOTIFY', ITEMS: [holiday] });
  assert.deepEqual((await first.list()).response.ITEMS, [entry(holiday)]);
  assert.equal(readFileSync(join(holiday.PATH, 'diary.txt'), 'utf8'), 'sun');
  const description = await client.call('get', {
    uri: `${misc}/usb_mount_point_dev_desc`,
    parameter: { REQUEST: 'QUERY', VALUE: holiday.PATH },
  });
  assert.equal(description.ret, 0);
  assert.equal(description.response.ITEMS[0].TEXT, 'USB storage, 2 files, 1.2 MB');
  await first.host.stop('SIGKILL');

  const second = await television(t, { state: first.host.state, world: first.world });
  assert.deepEqual((await second.list()).response.ITEMS, [entry(holiday)]);
  const next = await connect(t, second.host);
  await next.call('subscribe', { uri: updates });
  await second.done('tv', 'stick', 'remove', 'Holiday');
  const removed = { ...holiday, TYPE: unmounted };
  assert.deepEqual((await next.next('notify')).notification, { URI: updates, REQUEST: 'NOTIFY', ITEMS: [removed] });
  assert.deepEqual((await second.list()).response.ITEMS, []);
  assert.equal(next.pending('notify'), 0);
});

test('events that were not fetched arrive together', async (t) => {
  const tv = await television(t);
  for (const name of ['Films', 'Müsik']) mkdirSync(join(tv.world, name));
  const client = await connect(t, tv.host);
  await client.call('subscribe', { uri: updates });
  await tv.done('tv', 'stick', 'insert', 'Films');
  await tv.done('tv', 'stick', 'insert', 'Müsik', 'Disco 2000');
  await tv.done('tv', 'stick', 'remove', './Films/../Films');
  const items = [];
  while (items.length < 3) items.push(...(await client.next('notify')).notification.ITEMS);
  assert.deepEqual(items, [
    item(tv, mounted, 'sda1', 'Films', 1),
    item(tv, mounted, 'sdb1', 'Disco 2000', 2),
    item(tv, unmounted, 'sda1', 'Films', 1),
  ]);
});

test('without a detection nothing is listed, described or reported', async (t) => {
  const tv = await television(t);
  mkdirSync(join(tv.world, 'Films'));
  const client = await connect(t, tv.host);
  await client.call('subscribe', { uri: updates });
  await tv.done('set', `${misc}/usb_detect_deinit`);
  assert.equal((await tv.list()).ret, -1);
  const described = await tv.get(`${misc}/usb_mount_point_dev_desc`, { REQUEST: 'QUERY', VALUE: tv.mountPoint('sda1') });
  assert.equal(JSON.parse(described.stdout).ret, -1);
  await tv.done('tv', 'stick', 'insert', 'Films');
  await sleep(200);
  assert.equal(client.pending('notify'), 0);

  await tv.done('set', `${misc}/usb_detect_init`);
  assert.deepEqual((await tv.list()).response.ITEMS, [entry(item(tv, mounted, 'sda1', 'Films', 1))]);
  await tv.done('tv', 'stick', 'remove', 'all');
  const { notification } = await client.next('notify');
  assert.deepEqual(notification.ITEMS, [item(tv, unmounted, 'sda1', 'Films', 1)]);
});

test('dtvctl tv stick', async (t) => {
  const tv = await television(t);
  mkdirSync(join(tv.world, 'Films'));
  writeFileSync(join(tv.world, 'a file'), '');
  assert.match(await tv.done('tv', 'help'), /\bstick\b/);
  assert.match(await tv.done('tv', 'stick', 'insert', 'Films'), /^device\s+\/dev\/sda1$/m);
  assert.match(await tv.done('tv', 'stick', 'list'), /Films/);
  assert.match(await tv.done('tv', 'state'), /^sticks\.\/dev\/sda1\s.*\/Films$/m);
  for (const [words, says] of [
    [['insert', 'Nowhere'], `"${join(tv.world, 'Nowhere')}" cannot be found`],
    [['insert', 'a file'], 'is not a folder'],
    [['insert', 'Films'], 'inserted already, as /dev/sda1'],
    [['remove', 'Nowhere'], 'there is no stick "Nowhere"'],
    [['swallow'], 'stick takes insert DIR'],
  ]) {
    const refused = await tv.ctl('tv', 'stick', ...words);
    assert.equal(refused.code, 1, refused.stderr);
    assert.ok(refused.stderr.includes(says), refused.stderr);
  }
  // A client other than dtvctl must name folders by their absolute paths.
  const client = await connect(t, tv.host);
  const error = await client.fail('tv', { words: ['stick', 'insert', 'Films'] });
  assert.match(error.message, /is not an absolute path/);
});

test('a folder outside the home folder is refused without revealing whether it exists', async (t) => {
  const tv = await television(t);
  const other = folder(t);
  mkdirSync(join(other, 'Films'));
  writeFileSync(join(other, 'a file'), '');
  symlinkSync(join(other, 'Films'), join(tv.world, 'link'));
  const said = new Set();
  for (const path of [other, join(other, 'Films'), join(other, 'a file'), join(other, 'Nowhere'), 'link', 'link/x', '..', '/', '/nowhere']) {
    const refused = await tv.ctl('tv', 'stick', 'insert', path);
    assert.equal(refused.code, 1, path);
    said.add(refused.stderr);
  }
  assert.equal(said.size, 1, [...said].join(''));
  assert.ok([...said][0].includes(`only a folder in ${tv.world} can become a USB stick`), [...said][0]);
  assert.deepEqual((await tv.list()).response.ITEMS, []);

  mkdirSync(join(tv.world, 'Films'));
  await tv.done('tv', 'stick', 'insert', 'Films');
  await tv.host.stop();
  const moved = await television(t, { state: tv.host.state, world: other });
  assert.deepEqual((await moved.list()).response.ITEMS, []);
  const { output } = await moved.host.stop();
  assert.equal(output.match(/the stick "Films" is no longer inserted: only a folder in/g)?.length, 1, output);
});

test('a stick whose folder is deleted is dropped at start, which the host reports', async (t) => {
  const first = await television(t);
  mkdirSync(join(first.world, 'Films'));
  await first.done('tv', 'stick', 'insert', 'Films');
  await first.host.stop();
  rmSync(join(first.world, 'Films'), { recursive: true });
  const second = await television(t, { state: first.host.state, world: first.world });
  assert.deepEqual((await second.list()).response.ITEMS, []);
  const { output } = await second.host.stop();
  assert.match(output, /the stick "Films" is no longer inserted: there is no folder/);
});

// Logos of channels: from a folder beside the multiplexes to the paths that applications get.
import assert from 'node:assert/strict';
import { cpSync, existsSync, mkdirSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';
import { antenna, byNumber, scan, viewer } from './antenna_support.mjs';
import { folder, startHost } from './host_support.mjs';

const uri = (name) => `/tv/channelinfo/${name}`;
const active = { NW_MASK: 1, NW_VALUE: 1 };
const png = Buffer.from('89504e470d0a1a0a0000', 'hex');
const [one, two, five] = [1, 2, 5].map(byNumber);

test('logos beside the multiplexes are found by name and by number, and nothing outside their folder is', async (t) => {
  const air = mkdtempSync(join(tmpdir(), 'dtv-logos-'));
  t.after(() => rmSync(air, { recursive: true }));
  cpSync(antenna(), air, { recursive: true });
  mkdirSync(join(air, 'logos'));
  writeFileSync(join(air, 'logos', `${one.name}.png`), png);
  writeFileSync(join(air, 'logos', '5.png'), png);
  writeFileSync(join(air, 'logos', 'no picture.png'), 'a text');
  const state = folder(t);
  const host = await startHost(t, ['--antenna', air], { state });
  const client = await viewer(t, host);
  await scan(client);

  const logoOf = async ({ id, list }) => (await client.item(uri('channel_info'), { SVL_ID: list, CH_ID: id, ...active, DIRECTION: 0 })).CH_LOGO_ID;
  const pathOf = async (name) => {
    const { ret, response } = await client.get(uri('get_channel_logo_path'), { VALUE: name });
    assert.equal(ret, response.ITEMS[0].TEXT ? 0 : -1, name);
    return response.ITEMS[0].TEXT;
  };
  assert.ok((await logoOf(one)) > 0x8000);
  assert.equal(await logoOf(five), 5);
  assert.equal(await logoOf(two), 0);
  assert.equal(await pathOf(one.name), `/3rd_rw/ChLogo/PreDef/${one.name}.png`);
  assert.equal(await pathOf('5'), '/3rd_rw/ChLogo/PreDef/5.png');
  assert.equal(await pathOf('no picture'), '');
  assert.ok(!existsSync('/3rd_rw/ChLogo'), 'the folder is visible to the host alone');

  const logos = join(state, 'ChLogo');
  writeFileSync(join(logos, 'UserDef', `${two.name}.png`), png);
  assert.equal(await pathOf(two.name), `/3rd_rw/ChLogo/UserDef/${two.name}.png`);
  assert.equal(await logoOf(two), 0, 'until somebody asks for it');
  await client.set(uri('update_channel_logo_id'), { SVL_ID: two.list, CH_ID: two.id });
  assert.ok((await logoOf(two)) > 0x8000);

  writeFileSync(join(logos, 'outside.png'), png);
  for (const name of ['../outside', '../PreDef/5', './../outside', 'x/../../outside', '..', '../../../etc/passwd'])
    assert.equal(await pathOf(name), '', name);
});

// A host whose antenna has the multiplexes of dtv-multiplexes, what these carry, and which requests a file has made.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { rmSync, statSync } from 'node:fs';
import { join } from 'node:path';
import { beforeEach, test } from 'node:test';
import { build, connect, madeOnce, root, sharedHost, sleep } from './host_support.mjs';

export const broadcastBegins = Date.UTC(2026, 2, 27, 18, 30) / 1000;

// A folder of multiplexes, made once for each dtv-multiplexes.
export function antenna() {
  const program = join(build, 'bin/dtv-multiplexes');
  return madeOnce('antenna', Math.round(statSync(program).mtimeMs), (folder) => {
    execFileSync(program, [folder, '--seconds', '6', '--date', '2026-03-27T18:30'], { stdio: 'ignore', timeout: 300_000 });
    rmSync(join(folder, '.pictures'), { recursive: true });
  });
}

// The services of the multiplexes; tests/broadcast/check_multiplexes.py has the same table. number is the channel's: service
// 203 announces 4, which service 103 has already.
const row = (stream, service, number, name, more = {}) => {
  const list = stream === 2001 ? 3 : 1;
  const frequency = { 1001: 506_000_000, 1002: 578_000_000, 2001: 11494 }[stream];
  return { stream, service, number, name, list, frequency, id: number * 2 ** 18 + list, type: 1, hidden: false, short: '', ...more };
};
const radio = { type: 2 };
export const services = [
  row(1001, 101, 1, 'Fernblick Eins', { short: 'Fernblick' }),
  row(1001, 102, 2, 'Ciné Forêt'),
  row(1001, 103, 4, 'Вечерний берег'),
  row(1001, 104, 201, 'Radio Windrad', radio),
  row(1001, 105, 90, 'Prüfbild', { hidden: true }),
  row(1002, 201, 5, 'Γαλάζιος Κόλπος'),
  row(1002, 202, 7, 'Kükenkiste'),
  row(1002, 203, 800, '朝霧ひろば'),
  row(1002, 204, 12, 'Schlüsselkino'),
  row(1002, 205, 202, 'Klangwiese', radio),
  row(2001, 301, 21, '푸른 마당'),
  row(2001, 302, 22, 'شرفة الضوء'),
  row(2001, 303, 25, 'Gökkuşağı Saz'),
  row(2001, 304, 210, '竹影之声', radio),
  row(2001, 305, 30, 'Lakeside Sport'),
];
export const byNumber = (number) => services.find((each) => each.number === number);
// The channels that are shown, in the order of their numbers: of one service list, or of all.
export const shown = (list) =>
  services.filter((each) => !each.hidden && (list === undefined || each.list === list)).sort((a, b) => a.number - b.number);

// The schedules of all services as an independent reader sees them; see tests/broadcast/list_events.py.
export const schedules = () =>
  JSON.parse(execFileSync('python3', [join(root, 'tests/broadcast/list_events.py'), antenna()], { encoding: 'utf8', maxBuffer: 64 << 20 }));

// Asks until the answer is good; the limit is generous.
export async function until(ask, good, what) {
  const end = Date.now() + 60_000;
  for (;;) {
    const answer = await ask();
    if (good(answer)) return answer;
    assert.ok(Date.now() < end, `${what}: ${JSON.stringify(answer)}`);
    await sleep(20);
  }
}

// A client of the host. used collects "get URI", "set URI" and "notify URI" of what the set has carried out.
export async function viewer(t, host, used = new Set()) {
  const client = await connect(t, host);
  const tv = (line) => client.call('tv', { words: line.split(' ') });
  const get = (uri, query) => client.call('get', query ? { uri, parameter: { REQUEST: 'QUERY', ...query } } : { uri });
  const set = async (uri, parameter) => (await client.call('set', { uri, parameter })).ret;
  const notices = new Map(); // by URI, not yet taken
  const shownBy = (request) => JSON.stringify(request ?? {});
  return {
    tv,
    get,
    // The one item of a get that succeeds.
    item: async (uri, query) => {
      const { ret, response } = await get(uri, query);
      assert.equal(ret, 0, `${uri} ${shownBy(query)}`);
      assert.equal(response.STATUS, 0);
      assert.equal(response.URI, uri);
      assert.equal(response.ITEMS.length, 1);
      used.add(`get ${uri}`);
      return response.ITEMS[0];
    },
    items: async (uri, query) => {
      const { ret, response } = await get(uri, query);
      assert.equal(ret, 0, `${uri} ${shownBy(query)}`);
      used.add(`get ${uri}`);
      return response.ITEMS;
    },
    fails: async (uri, query) => assert.equal((await get(uri, query)).ret, -1, `${uri} ${shownBy(query)}`),
    set: async (uri, parameter, request = 'SET') => {
      assert.equal(await set(uri, { REQUEST: request, ...parameter }), 0, `${uri} ${shownBy(parameter)}`);
      used.add(`set ${uri}`);
    },
    refused: async (uri, parameter, code = -1) => {
      assert.equal(await set(uri, { REQUEST: 'SET', ...parameter }), code, `${uri} ${shownBy(parameter)}`);
    },
    subscribe: (uri) => client.call('subscribe', { uri }),
    // Waits for a notification of this URI whose item, or parameter, has these members. What comes before it is dropped.
    notified: async (uri, wanted) => {
      for (;;) {
        const waiting = notices.get(uri) ?? [];
        while (waiting.length > 0) {
          const found = waiting.shift();
          if (Object.entries(wanted).every(([key, value]) => found[key] === value)) {
            used.add(`notify ${uri}`);
            return found;
          }
        }
        const { uri: about, notification } = await client.next('notify');
        const items = notification.ITEMS ?? [notification.PARAMETER];
        notices.set(about, [...(notices.get(about) ?? []), ...items]);
      }
    },
    // How many notifications have come and were not taken.
    raised: () => client.pending('notify') + [...notices.values()].flat().length,
    call: client.call,
    ask: client.ask,
  };
}

export async function scan(client, ...words) {
  await client.tv(['scan', 'all', ...words].join(' '));
  const { state, services: found } = await until(() => client.tv('scan'), (answer) => answer.state !== 'running', 'the end of the scan');
  assert.equal(state, 'done');
  assert.equal(found, services.length);
}

// The host of a file, which has scanned its antenna, and what the file's tests have used of it. Its last test, which
// everyUriIsUsed adds, fails if the set serves a URI of the groups, or raises one of the notifications, that no test has used.
export function television(groups, notifications = []) {
  const host = sharedHost(['--antenna', antenna()]);
  const used = new Set();
  const client = (t) => viewer(t, host, used);
  beforeEach(async () => {
    const cleanups = [];
    const first = await viewer({ after: (cleanup) => cleanups.push(cleanup) }, host);
    if ((await first.tv('channels')).count === 0) await scan(first);
    for (const cleanup of cleanups) cleanup();
  });
  const everyUriIsUsed = () =>
    test('every URI that the set serves has been used', async (t) => {
      const { uris } = (await (await client(t)).ask('list', {})).result;
      const served = uris.filter((each) => groups.includes(each.group)).flatMap(({ uri, get, set }) => [...(get ? [`get ${uri}`] : []), ...(set ? [`set ${uri}`] : [])]);
      assert.ok(served.length > 0);
      for (const uri of notifications) assert.ok(uris.find((each) => each.uri === uri)?.notify, uri);
      const wanted = [...served, ...notifications.map((uri) => `notify ${uri}`)];
      assert.deepEqual(wanted.filter((each) => !used.has(each)), [], 'served, but not used by a test');
      assert.deepEqual([...used].filter((each) => /^[gs]et /.test(each) && !served.includes(each)), [], 'used, but not listed as served');
    });
  return { host, client, used, everyUriIsUsed };
}

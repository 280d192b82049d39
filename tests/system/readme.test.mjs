// Runs the code blocks of README.md in their order, as a reader would. Only the address and the build folder are replaced.
// The test fails at a block that it does not know how to run.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import vm from 'node:vm';
import WebSocket from 'ws';
import { dtvctl, run, start } from './cli_support.mjs';
import { build, connect, dtvHost, folder, root, sleep, startHost, valueOf, within } from './host_support.mjs';

const readme = readFileSync(join(root, 'README.md'), 'utf8');
const blocks = [...readme.matchAll(/^```(\w*)\n(.*?)^```$/gms)].map(([whole, language, text]) => ({
  language,
  text,
  line: readme.slice(0, readme.indexOf(whole)).split('\n').length,
}));

// The host's default address, which README.md uses.
async function defaultAddress() {
  const { stdout } = await run(dtvHost, ['--help']);
  return /--listen ADDR:PORT .*\(default (\S+?);/.exec(stdout)[1];
}

// Runs a shell line of README.md, which must succeed. Returns what it printed.
async function shell(reader, line) {
  const { code, stdout, stderr } = await run('bash', ['-c', reader.translated(line)], { env: reader.env });
  assert.equal(code, 0, `${line}\n${stdout}${stderr}`);
  return stdout;
}

// Waits until the scan has ended, as a reader does who looks at what it found.
async function scanned(reader) {
  for (let waits = 0; waits < 600; ++waits) {
    const scan = await reader.client.call('tv', { words: ['scan'] });
    if (scan.state !== 'running') return assert.equal(scan.state, 'done', JSON.stringify(scan));
    await sleep(50);
  }
  assert.fail('the scan does not end');
}

const read = (reader, uri, parameter) => reader.client.call('get', { uri, parameter });

// Waits until watch has subscribed. That cannot be seen from outside, so this changes the volume until watch prints it.
async function subscribed(reader, watching) {
  for (let value = 40; value < 90; ++value) {
    await reader.client.call('tv', { words: ['volume', String(value)] });
    for (let waits = 0; waits < 20; ++waits) {
      while (watching.more() > 0) if (JSON.parse(await watching.line()).ITEMS[0].volValue === value) return;
      await sleep(25);
    }
  }
  assert.fail('watch prints nothing');
}

// How to run a shell line, by its first word, and check what README.md says about it.
const commands = {
  // A dry run: `make run` ends with what startHost does, and `make test` runs this test.
  // For a word that names a folder but no target, make prints "Nothing to be done".
  make: async (reader, line) => {
    const script = line.replace(/^make/, 'LC_ALL=C make --dry-run -C "$0"');
    const { code, stdout, stderr } = await run('bash', ['-c', script, root]);
    assert.equal(code, 0, `${line}\n${stderr}`);
    assert.doesNotMatch(stdout, /Nothing to be done/, line);
  },
  curl: async (reader, line) => {
    assert.ok(line.includes(reader.readmeAddress), `${line}: not the host's address, ${reader.readmeAddress}`);
    const answer = JSON.parse(await shell(reader, line.replace(/^curl/, 'curl --fail-with-body --silent --show-error')));
    const uri = line.split(reader.readmeAddress)[1];
    const sent = /-X PUT -d '(.*?)'/.exec(line);
    if (sent) {
      assert.deepEqual(answer, { ret: 0 }, line);
      assert.equal(valueOf(await read(reader, uri)), JSON.parse(sent[1]).VALUE, line);
    } else {
      const asked = /-G --data-urlencode 'parameter=(.*?)'/.exec(line);
      const parameter = asked ? JSON.parse(asked[1]) : undefined;
      assert.deepEqual({ ret: 0, response: answer }, await read(reader, uri, parameter), line);
      // Without the parameter the answer differs, so the host has not ignored it.
      if (parameter) assert.notDeepEqual(await read(reader, uri), { ret: 0, response: answer }, line);
    }
  },
  'build/bin/conformance': (reader, line) => shell(reader, line),
  'build/bin/dtvctl': async (reader, line) => {
    const words = line.replace(/\s+#.*$/, '').split(/\s+/).slice(1);
    if (words[0] === 'watch') {
      assert.ok(reader.watching === null, 'README.md does not show what the last watch prints');
      reader.watching = start(dtvctl, words, { env: reader.env });
      reader.t.after(() => reader.watching?.stop('SIGKILL'));
      await subscribed(reader, reader.watching);
    } else {
      await shell(reader, line);
      if (words[1] === 'scan') await scanned(reader);
      if (words[0] === 'set') assert.equal(String(valueOf(await read(reader, words[1]))), words[2], line);
    }
  },
};

// A script for the page's console. It logs the replies to its requests, and notifications.
async function requests(reader, text) {
  const logged = [];
  let sockets = 0;
  const requests = [];
  class PageSocket extends WebSocket {
    constructor(url) {
      super(url, { origin: reader.host.url });
      sockets += 1;
      reader.t.after(() => this.terminate());
    }
    send(message) {
      requests.push(JSON.parse(message));
      super.send(message);
    }
  }
  assert.ok(text.includes(`ws://${reader.readmeAddress}/`), 'not the address of the host');
  const ended = new Promise((resolve) => {
    const log = (line) => {
      logged.push(JSON.parse(line));
      const replies = logged.filter((message) => 'id' in message).length;
      if (requests.length > 0 && replies === requests.length && logged.length > replies) resolve();
    };
    vm.runInNewContext(reader.translated(text), { WebSocket: PageSocket, console: { log } });
  });
  await within(ended, 'replies and a notification');
  assert.equal(sockets, 1);

  // "`get` answers `{...}`, `set` `{...}`; notifications arrive as method `...` with `{...}`"
  const promise = /`get` answers `{(?<get>.*?)}`, `set` `{(?<set>.*?)}`;\s+notifications\s+arrive\s+as\s+method\s+`(?<method>\w+)`\s+with\s+`{(?<notification>.*?)}`/.exec(readme);
  assert.ok(promise, 'README.md says nothing about the answers');
  const { method, notification } = promise.groups;
  const shapes = { get: promise.groups.get.split(', '), set: promise.groups.set.split(', '), subscribe: [] };
  for (const request of requests) {
    const { result, error } = logged.find((message) => message.id === request.id);
    assert.equal(error, undefined, JSON.stringify(request));
    assert.ok(Object.hasOwn(shapes, request.method), `this test does not know the reply to ${request.method}`);
    assert.deepEqual(Object.keys(result), shapes[request.method], JSON.stringify(result));
    if ('ret' in result) assert.equal(result.ret, 0);
  }
  const { uri, parameter } = requests.find((request) => request.method === 'set').params;
  const get = requests.find((request) => request.method === 'get');
  assert.equal(get.params.uri, uri);
  assert.equal(valueOf(logged.find((message) => message.id === get.id).result), parameter.VALUE);
  assert.equal(valueOf(await read(reader, uri)), parameter.VALUE);
  const told = logged.filter((message) => !('id' in message));
  assert.deepEqual(told.map((message) => message.method), [method]);
  assert.deepEqual(Object.keys(told[0].params), notification.split(', '));
  assert.equal(told[0].params.notification.ITEMS[0].volValue, parameter.VALUE);
}

// A script that logs notifications, and connects again when its connection ends and when the host hangs. Its clock and its
// timers are FASTER times as fast.
async function keepsFollowing(reader, text) {
  const FASTER = 10;
  const logged = [];
  const sockets = [];
  const timers = [];
  let over = false;
  class PageSocket extends WebSocket {
    constructor(url) {
      super(url, { origin: reader.host.url });
      sockets.push(this);
    }
  }
  const end = () => {
    over = true;
    timers.forEach((timer) => clearInterval(timer));
    sockets.forEach((socket) => socket.terminate());
  };
  const faster = (begin) => (run, time, ...words) => {
    if (!over) timers.push(begin(run, time / FASTER, ...words));
    return timers.at(-1);
  };
  reader.t.after(end);
  assert.ok(text.includes(`ws://${reader.readmeAddress}/`), 'not the address of the host');
  vm.runInNewContext(reader.translated(text), {
    WebSocket: PageSocket,
    Date: { now: () => Date.now() * FASTER },
    setInterval: faster(setInterval),
    setTimeout: faster(setTimeout),
    clearInterval,
    console: { log: (line) => logged.push(JSON.parse(line).ITEMS[0]), error: (...words) => assert.fail(words.join(' ')) },
  });
  const isNotification = (item) => Object.keys(item).join() === 'volValue,muteStatus';
  const count = (kind) => logged.filter(kind).length;
  const values = () => count((item) => item.NAME === 'Volume' && Number.isInteger(item.VALUE));
  // A new connection reads the present value. Each change is another one, until one is reported.
  let value = 0;
  let valuesBefore = 0;
  const notified = async () => {
    for (const before = count(isNotification); count(isNotification) === before || values() === valuesBefore; await sleep(50)) {
      value = (value + 1) % 100;
      await reader.client.call('tv', { words: ['volume', String(value)] });
    }
    valuesBefore = values();
  };
  const another = async (count) => {
    while (sockets.length === count) await sleep(20);
  };
  await within(notified(), 'notification');
  let connections = sockets.length;
  sockets.at(-1).terminate();
  await within(another(connections), 'new connection after an end');
  await within(notified(), 'notification after an end');
  connections = sockets.length;
  reader.host.child.kill('SIGSTOP');
  await within(another(connections), 'new connection while the host hangs');
  reader.host.child.kill('SIGCONT');
  await within(notified(), 'notification after the host has gone on');
  end();
}

// By the language of a block.
const languages = {
  sh: async (reader, text) => {
    const lines = text.split('\n').filter((line) => line.trim() && !line.startsWith('#'));
    assert.ok(lines.length > 0, 'an empty block');
    for (const line of lines) {
      const [word] = line.split(' ');
      assert.ok(Object.hasOwn(commands, word), `this test does not know how to run: ${line}`);
      await commands[word](reader, line);
    }
  },

  // The lines that the last watch prints for the commands since then.
  json: async (reader, text) => {
    assert.ok(reader.watching, 'no command before this block prints lines');
    for (const expected of text.trimEnd().split('\n')) assert.equal(await reader.watching.line(), expected);
    assert.equal(reader.watching.more(), 0, 'more lines than README.md shows');
    await reader.watching.stop();
    reader.watching = null;
  },

  js: (reader, text) => (text.includes('"ping"') ? keepsFollowing : requests)(reader, text),
};

test('README.md does what it says', async (t) => {
  const files = folder(t);
  const antenna = join(files, 'antenna'); // what make run gives the host, but short
  const made = await run(join(build, 'bin/dtv-multiplexes'), [antenna, '--seconds', '4', '--days', '1'], { seconds: 300 });
  assert.equal(made.code, 0, made.stderr);
  // As if the reader had cloned the project in the home folder.
  const host = await startHost(t, ['--antenna', antenna], { env: { HOME: root } });
  const address = `127.0.0.1:${host.port}`;
  const readmeAddress = await defaultAddress();
  const reader = {
    t,
    host,
    client: await connect(t, host),
    env: { DTV_HOST: address, DTV_TOKEN: host.token }, // a reader's host has the usual state folder, where dtvctl looks
    readmeAddress,
    translated: (text) =>
      text
        .replaceAll(readmeAddress, address)
        .replaceAll('build/bin/', `${build}/bin/`)
        .replaceAll(' picture.jpg', ` ${join(files, 'picture.jpg')}`),
    watching: null, // the watch whose lines README.md has not shown yet
  };
  assert.ok(blocks.length > 0, 'no code blocks');
  for (const { language, text, line } of blocks) {
    await t.test(`README.md:${line} ${text.split('\n')[0]}`, async () => {
      assert.ok(Object.hasOwn(languages, language), `this test does not know how to run a block of "${language}"`);
      await languages[language](reader, text);
    });
  }
  assert.ok(reader.watching === null, 'README.md does not show what watch prints');
});

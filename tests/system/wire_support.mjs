// What the wire tests share: requests as text, and answers split into their parts.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { readFileSync } from 'node:fs';
import { Worker } from 'node:worker_threads';
import { dial, modify, sanitized, volume, within } from './host_support.mjs';

// How long an answer that comes at once may take.
export const seconds = sanitized ? 30 : 5;

export const hostLine = (host) => `Host: 127.0.0.1:${host.port}\r\n`;
export const getText = (host, { path = volume, more = '' } = {}) => `GET ${path} HTTP/1.1\r\n${hostLine(host)}${more}\r\n`;
export const putText = (host, value, { path = volume, more = '', version = '1.1' } = {}) => {
  const body = JSON.stringify(modify(value));
  return `PUT ${path} HTTP/${version}\r\n${hostLine(host)}${more}Content-Length: ${body.length}\r\n\r\n${body}`;
};

// Splits what a server sent into its answers: {status, headers, body, text}. Names of headers are in lower case, values of
// one name are joined. methods are those of the requests in order, where one is a HEAD. An answer that is not whole yet is left out.
export function answersIn(bytes, methods = []) {
  const answers = [];
  let final = 0; // answers that are not 1xx
  for (let at = 0; at < bytes.length; ) {
    const end = bytes.indexOf('\r\n\r\n', at);
    if (end < 0) break;
    const [first, ...lines] = bytes.toString('latin1', at, end).split('\r\n');
    const status = Number(/^HTTP\/1\.[01] (\d{3})(?: |$)/.exec(first)?.[1]);
    assert.ok(status >= 100, `no status line: ${first}`);
    const headers = {};
    for (const line of lines) {
      const [, name, value] = /^([^:\s]+):[ \t]*(.*?)[ \t]*$/.exec(line) ?? assert.fail(`no header: ${line}`);
      headers[name.toLowerCase()] = name.toLowerCase() in headers ? `${headers[name.toLowerCase()]}, ${value}` : value;
    }
    at = end + 4;
    const informs = status < 200;
    const bare = informs || status === 204 || status === 304 || methods[final] === 'HEAD';
    let length = bare ? 0 : Number(headers['content-length']);
    assert.ok(!Number.isNaN(length), `an answer ${status} without a length`);
    if (at + length > bytes.length) break;
    const body = bytes.subarray(at, at + length);
    answers.push({ status, headers, body, text: body.toString('utf8') });
    at += length;
    if (!informs) ++final;
  }
  return answers;
}

// A connection of bytes that knows HTTP. answers(n) waits for n answers and gives all that came.
export async function talk(t, host, text = '') {
  const line = await dial(t, host);
  line.shown = () => `received ${JSON.stringify(line.received().toString('latin1').slice(0, 300))}`;
  line.socket.setNoDelay(true);
  if (text.length > 0) line.socket.write(Buffer.isBuffer(text) ? text : Buffer.from(text, 'latin1'));
  const answers = async (count, methods) => {
    const come = line.until((bytes) => answersIn(bytes, methods).length >= count, `${count} answers`);
    await within(come, `${count} answers`, seconds).catch(({ message }) => assert.fail(`${message}; ${line.shown()}`));
    return answersIn(line.received(), methods);
  };
  return {
    ...line,
    write: (more) => line.socket.write(Buffer.isBuffer(more) ? more : Buffer.from(more, 'latin1')),
    answers,
    ended: (limit = seconds) => within(line.closed(), 'end of the connection', limit),
  };
}

// One request by a connection of its own.
export async function ask(t, host, text) {
  const line = await talk(t, host, text);
  const [answer] = await line.answers(1);
  line.socket.destroy();
  return answer;
}

export const volumeOf = async (t, host) => JSON.parse((await ask(t, host, getText(host))).text).ITEMS[0].VALUE;

// Sends what must be refused, and behind it a set that must not be carried out. Checks that there is one answer, with one of
// the statuses and "Connection: close", that the connection ends, and that the volume is still 20. reset sets it to 20 first.
export async function refuses(t, host, text, statuses = [400], { behind = putText(host, 77), reset = true } = {}) {
  if (reset) await ask(t, host, putText(host, 20));
  const line = await talk(t, host, Buffer.concat([Buffer.from(text, 'latin1'), Buffer.from(behind)]));
  const shown = `sent ${JSON.stringify(text.slice(0, 200))}`;
  await line.ended().catch(({ message }) => assert.fail(`${message}; ${line.shown()}; ${shown}`));
  const answers = answersIn(line.received());
  assert.equal(await volumeOf(t, host), 20, `what was behind it was carried out; ${shown}`);
  assert.deepEqual(answers.map(({ status }) => statuses.includes(status)), [true], `answered ${answers.map(({ status }) => status)}; ${shown}`);
  assert.match(answers[0].headers.connection ?? '', /^close$/i, shown);
  return answers[0];
}

// Processor time of a process in seconds.
export function processorTime(pid) {
  const fields = readFileSync(`/proc/${pid}/stat`, 'utf8').split(') ').at(-1).split(' ');
  return (Number(fields[11]) + Number(fields[12])) / 100;
}

// Resident memory of a process in MiB.
export const resident = (pid) => Number(/VmRSS:\s+(\d+) kB/.exec(readFileSync(`/proc/${pid}/status`, 'utf8'))[1]) / 1024;

// Another client. times(during) are those of its gets while the promise is pending.
export async function prober(t, host, params) {
  const worker = new Worker(new URL('./load_probe.mjs', import.meta.url), { workerData: { port: host.port, token: host.token, params } });
  t.after(() => worker.terminate());
  await within(once(worker, 'message'), 'connection of the probe');
  return {
    async times(during) {
      worker.postMessage('begin');
      await during.finally(() => worker.postMessage('end'));
      const [times] = await within(once(worker, 'message'), 'reply to a get of another client');
      return times;
    },
  };
}

// Splits what a server sent on a WebSocket into its frames: {opcode, final, reserved, masked, payload}.
export function framesIn(bytes) {
  const frames = [];
  for (let at = 0; at + 2 <= bytes.length; ) {
    const short = bytes[at + 1] & 127;
    const extra = short === 126 ? 2 : short === 127 ? 8 : 0;
    const start = at + 2 + extra;
    if (start > bytes.length) break;
    const length = extra === 2 ? bytes.readUInt16BE(at + 2) : extra === 8 ? Number(bytes.readBigUInt64BE(at + 2)) : short;
    if (start + length > bytes.length) break;
    frames.push({
      opcode: bytes[at] & 15,
      final: bytes[at] >= 128,
      reserved: (bytes[at] >> 4) & 7,
      masked: bytes[at + 1] >= 128,
      payload: bytes.subarray(start, start + length),
    });
    at = start + length;
  }
  return frames;
}

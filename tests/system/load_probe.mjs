// A worker: a client that asks one get after another, on a thread of its own, so that the test's other sockets do not
// delay it. "begin" starts it, "end" stops it; it then reports the gets' median and 99th percentile in ms, and how many there were.
import { parentPort, workerData } from 'node:worker_threads';
import WebSocket from 'ws';

const { port, token, params } = workerData;
const socket = new WebSocket(`ws://127.0.0.1:${port}/jsonrpc`, { perMessageDeflate: false });
let replied;
let lastId = 0;
socket.on('message', (data) => {
  if (JSON.parse(data).id === lastId) replied();
});
const ask = (method, given) =>
  new Promise((resolve) => {
    replied = resolve;
    socket.send(JSON.stringify({ jsonrpc: '2.0', id: ++lastId, method, params: given }));
  });

let going = false;
async function probe() {
  const times = [];
  do {
    const begun = performance.now();
    await ask('get', params);
    times.push(performance.now() - begun);
    await new Promise(setImmediate); // for "end"
  } while (going);
  times.sort((a, b) => a - b);
  const at = (part) => times[Math.floor(times.length * part)];
  parentPort.postMessage({ median: at(0.5), p99: at(0.99), count: times.length });
}
socket.on('error', (error) => {
  throw error;
});
socket.on('open', async () => {
  if (token !== undefined) await ask('authorize', { token });
  parentPort.on('message', (word) => {
    going = word === 'begin';
    if (going) probe();
    if (word === 'leave') process.exit();
  });
  parentPort.postMessage('open');
});

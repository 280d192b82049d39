// The set as a renderer of the home network from end to end: a controller finds it by a search, drives it, and receives its
// events. In the first test an application plays, in the others the set itself.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { createSocket } from 'node:dgram';
import { createReadStream, statSync } from 'node:fs';
import http from 'node:http';
import { join } from 'node:path';
import { before, test } from 'node:test';
import MediaRendererClient from 'upnp-mediarenderer-client';
import { until, viewer } from './antenna_support.mjs';
import { folder, sharedHost, within } from './host_support.mjs';

// The controller's library takes Node's own agent, and would wait for connections that are kept open.
http.globalAgent.keepAlive = false;
http.globalAgent.options.keepAlive = false;

const uri = (name) => `/tv/cbrowser/dlna/${name}`;
const notices = '/tv/ws/notify/dlna_dmr';
const asked = { load: 1, play: 2, pause: 3, stop: 4, seek: 5 };
const state = { stopped: 1, playing: 3, paused: 4 };
const renderers = 'urn:schemas-upnp-org:device:MediaRenderer:1';

const host = sharedHost();

// ---- A controller ----

// What the device at a location says about itself.
async function describe(location) {
  const text = await (await fetch(location)).text();
  const element = (name) => new RegExp(`<${name}>(.*?)</${name}>`).exec(text)?.[1];
  return { location, name: element('friendlyName'), udn: element('UDN') };
}

// Searches on the loopback for the renderer of this name: other tests' hosts have renderers there, too. Resolves with its
// description, or with undefined after a search in which it did not answer.
function search(name, { seconds = 20 } = {}) {
  return new Promise((resolve, reject) => {
    const socket = createSocket('udp4');
    const message = ['M-SEARCH * HTTP/1.1', 'HOST: 239.255.255.250:1900', 'MAN: "ssdp:discover"', 'MX: 1', `ST: ${renderers}`, '', ''].join('\r\n');
    const again = setInterval(() => socket.send(message, 1900, '239.255.255.250'), 500);
    let ended = false;
    const end = (result) => {
      if (ended) return;
      ended = true;
      clearInterval(again);
      clearTimeout(limit);
      socket.close();
      resolve(result);
    };
    const limit = setTimeout(() => end(undefined), seconds * 1000);
    const asked = new Set();
    socket.on('error', reject);
    socket.on('message', (answer) => {
      const text = answer.toString();
      const location = /^LOCATION: *(\S+)/im.exec(text)?.[1];
      if (!location || !text.includes(renderers) || asked.has(location)) return;
      asked.add(location);
      const forget = () => asked.delete(location); // another test's renderer may have gone before it was asked
      describe(location).then((device) => device.name === name && end(device), forget);
    });
    socket.bind(0, '127.0.0.1', () => {
      socket.setMulticastInterface('127.0.0.1');
      socket.send(message, 1900, '239.255.255.250');
    });
  });
}

// Collects what renderers announce on the loopback: {udn, what}.
function announcements(t) {
  const collected = [];
  const socket = createSocket({ type: 'udp4', reuseAddr: true });
  t.after(() => socket.close());
  socket.on('message', (message) => {
    const text = message.toString();
    if (!text.startsWith('NOTIFY') || !text.includes(renderers)) return;
    collected.push({ udn: /^USN: *(uuid:[^:\s]+)/im.exec(text)?.[1], what: /^NTS: *(\S+)/im.exec(text)?.[1] });
  });
  return new Promise((resolve) => {
    socket.bind(1900, '239.255.255.250', () => {
      socket.addMembership('239.255.255.250', '127.0.0.1');
      resolve(collected);
    });
  });
}

// Gives the set a name that no other test's set has.
async function nameTheSet(client) {
  const unique = `set-${process.pid}`;
  await client.tv(`config g_misc__tv_network_name ${unique}`);
  return unique;
}

function controller(location) {
  const client = new MediaRendererClient(location);
  const promised = (name) => (...words) =>
    within(new Promise((resolve, reject) => client[name](...words, (error, result) => (error ? reject(error) : resolve(result)))), name);
  return Object.fromEntries(
    ['load', 'play', 'pause', 'stop', 'seek', 'getPosition', 'getDuration', 'getVolume', 'setVolume', 'getTransportInfo', 'getSupportedProtocols'].map((name) => [name, promised(name)]),
  );
}

// Subscribes to a service's events. next(good) resolves with the first event's variables that are good; LastChange's are
// among them.
async function subscribe(t, location, service) {
  const waiting = [];
  const events = [];
  const variables = (body) => {
    const plain = (text) => text.replaceAll('&lt;', '<').replaceAll('&gt;', '>').replaceAll('&quot;', '"').replaceAll('&amp;', '&');
    const change = plain(/<LastChange>(.*)<\/LastChange>/s.exec(body)?.[1] ?? '');
    return Object.fromEntries([...change.matchAll(/<(\w+)(?: channel="Master")? val="([^"]*)"\/>/g)].map(([, name, value]) => [name, plain(value)]));
  };
  const server = http.createServer((request, response) => {
    const pieces = [];
    request.on('data', (piece) => pieces.push(piece));
    request.on('end', () => {
      response.end();
      events.push({ number: Number(request.headers.seq), method: request.method, ...variables(Buffer.concat(pieces).toString()) });
      for (const look of [...waiting]) look();
    });
  });
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  t.after(() => server.close());
  const { hostname, port } = new URL(location);
  const answer = await within(
    new Promise((resolve, reject) => {
      const headers = { CALLBACK: `<http://127.0.0.1:${server.address().port}/>`, NT: 'upnp:event', TIMEOUT: 'Second-300' };
      http.request({ hostname, port, path: `/${service}/events`, method: 'SUBSCRIBE', headers }, resolve).on('error', reject).end();
    }),
    'answer to SUBSCRIBE',
  );
  answer.resume();
  assert.equal(answer.statusCode, 200);
  let taken = 0;
  const next = (good, what) =>
    within(
      new Promise((resolve) => {
        const look = () => {
          while (taken < events.length) {
            const event = events[taken++];
            assert.equal(event.method, 'NOTIFY');
            assert.equal(event.number, taken - 1);
            if (!good(event)) continue;
            waiting.splice(waiting.indexOf(look), 1);
            return resolve(event);
          }
        };
        waiting.push(look);
        look();
      }),
      what,
      60,
    );
  return { next, is: (name, value) => next((event) => event[name] === value, `${name} ${value}`) };
}

// ---- An application plays ----

test('a controller drives an application, which tells it how it plays', async (t) => {
  const application = await viewer(t, host);
  const heard = await announcements(t);
  const name = await nameTheSet(application);
  assert.equal(await search(name, { seconds: 3 }), undefined);
  await application.subscribe(notices);
  const { instance } = await application.item(uri('dmr_init'));
  assert.ok(instance > 0);
  const { location, udn } = await search(name);
  assert.match(location, /^http:\/\/127\.0\.0\.1:\d+\/description\.xml$/);
  const remote = controller(location);
  const transport = await subscribe(t, location, 'AVTransport');
  const rendering = await subscribe(t, location, 'RenderingControl');
  await transport.is('TransportState', 'NO_MEDIA_PRESENT');
  assert.ok((await remote.getSupportedProtocols()).some(({ contentFormat }) => contentFormat === 'video/mp4'));

  const url = 'http://127.0.0.1:9/films/night.mp4';
  await remote.load(url, { autoplay: true, contentType: 'video/mp4', metadata: { title: 'One night', creator: 'A. Person', type: 'video' } });
  const loaded = await application.notified(notices, { TYPE: asked.load });
  assert.deepEqual([loaded.TAG, loaded.URL, loaded.PROTOCOL_INFO, loaded.ARG1], [instance, url, 'http-get:*:video/mp4:*', 3]);
  await application.notified(notices, { TYPE: asked.play, URL: url });
  const facts = await application.item(uri('dmr_get_media_info'), { instance });
  assert.deepEqual([facts.mediaName, facts.mediaAuthor, facts.mediaType, facts.mediaExtension], ['One night', 'A. Person', 3, 'mp4']);
  await transport.is('TransportState', 'TRANSITIONING');

  const report = (playState) => application.set(uri('dmr_sync_play_state'), { instance, playState, url, value: 0 });
  await report(state.playing);
  await application.set(uri('dmr_sync_progress'), { instance, position: 17, duration: 5400 });
  await transport.is('TransportState', 'PLAYING');
  assert.equal((await remote.getTransportInfo()).CurrentTransportState, 'PLAYING');
  assert.deepEqual([await remote.getPosition(), await remote.getDuration()], [17, 5400]);

  await remote.pause();
  await application.notified(notices, { TYPE: asked.pause, URL: url });
  await report(state.paused);
  await transport.is('TransportState', 'PAUSED_PLAYBACK');
  await remote.seek(3661);
  await application.notified(notices, { TYPE: asked.seek, ARG1: 3661 });
  await remote.setVolume(33);
  assert.equal((await application.get('/tv/cast/volume/volume')).response.ITEMS[0].VALUE, 33);
  await rendering.is('Volume', '33');
  await application.tv('key VOL+');
  await rendering.is('Volume', '34');
  assert.equal(await remote.getVolume(), 34);
  await remote.stop();
  await application.notified(notices, { TYPE: asked.stop, URL: url });
  await report(state.stopped);
  await transport.is('TransportState', 'STOPPED');

  await application.set(uri('dmr_deinit'), { instance });
  await application.refused(uri('dmr_sync_play_state'), { instance, playState: state.stopped, url: '', value: 0 });
  const announced = () => heard.filter((each) => each.udn === udn).map(({ what }) => what);
  await until(announced, (all) => all.includes('ssdp:byebye'), 'the announcement that the renderer has gone');
  assert.ok(announced().includes('ssdp:alive'));
  await assert.rejects(remote.getTransportInfo());
});

// ---- The set itself plays ----

const films = {};

// Serves the films on the loopback, also in parts, and records the requests.
async function serve(t) {
  const server = http.createServer((request, response) => {
    const path = films[request.url.slice(1)];
    if (!path) return response.writeHead(404).end();
    const { size } = statSync(path);
    const [, from = '0', to = ''] = /bytes=(\d*)-(\d*)/.exec(request.headers.range ?? '') ?? [];
    const last = to === '' ? size - 1 : Number(to);
    const headers = { 'Content-Type': 'video/mp4', 'Accept-Ranges': 'bytes', 'Content-Length': last - Number(from) + 1 };
    if (request.headers.range) headers['Content-Range'] = `bytes ${from}-${last}/${size}`;
    response.writeHead(request.headers.range ? 206 : 200, headers);
    if (request.method === 'HEAD') return response.end();
    createReadStream(path, { start: Number(from), end: last }).on('error', () => response.destroy()).pipe(response);
  });
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  t.after(() => {
    server.closeAllConnections();
    server.close();
  });
  return (name) => `http://127.0.0.1:${server.address().port}/${name}`;
}

before((t) => {
  const made = folder({ after: (cleanup) => process.on('exit', cleanup) });
  for (const [name, seconds] of [['long.mp4', 60], ['short.mp4', 2]]) {
    films[name] = join(made, name);
    execFileSync('ffmpeg', ['-loglevel', 'error', '-f', 'lavfi', '-i', `testsrc2=size=320x180:rate=10:duration=${seconds}`, '-f', 'lavfi', '-i', `sine=duration=${seconds}`, '-pix_fmt', 'yuv420p', '-c:v', 'libx264', '-preset', 'ultrafast', '-c:a', 'aac', '-movflags', '+faststart', films[name]]);
  }
});

async function renderer(t) {
  const client = await viewer(t, host);
  const name = await nameTheSet(client);
  await client.tv('renderer on');
  const { description } = await until(() => client.tv('renderer'), (shown) => shown.description, 'the renderer');
  return { client, name, location: description, remote: controller(description) };
}

test('the set plays what a controller sends, and the controller follows it', async (t) => {
  const film = await serve(t);
  const { client, name, location, remote } = await renderer(t);
  assert.equal((await search(name)).location, location);
  const transport = await subscribe(t, location, 'AVTransport');
  await remote.load(film('long.mp4'), { autoplay: true, contentType: 'video/mp4', metadata: { title: 'A test picture', type: 'video' } });
  await transport.is('TransportState', 'PLAYING');
  const shown = await until(() => client.tv('renderer'), ({ position }) => position > 0, 'the position');
  assert.deepEqual([shown.state, shown.url, shown.title, shown.controller], ['playing', film('long.mp4'), 'A test picture', '127.0.0.1']);
  assert.equal((await client.tv('player')).path, film('long.mp4'));
  await until(() => remote.getDuration(), (seconds) => seconds === 60, 'the duration');

  await remote.pause();
  await transport.is('TransportState', 'PAUSED_PLAYBACK');
  assert.equal((await client.tv('player')).state, 'paused');
  await remote.seek(40);
  await until(() => remote.getPosition(), (seconds) => seconds >= 39 && seconds <= 41, 'the new position');
  await remote.play();
  await transport.is('TransportState', 'PLAYING');
  await client.tv('player pause'); // by the viewer
  await transport.is('TransportState', 'PAUSED_PLAYBACK');
  await remote.stop();
  await transport.is('TransportState', 'STOPPED');
  assert.notEqual((await client.tv('player')).state, 'playing');
  await assert.rejects(remote.pause(), /701|not/);
  assert.equal((await client.tv('renderer off')).description, undefined);
  await assert.rejects(remote.getTransportInfo());
});

test('the next item follows at the end of one, and a file that is missing is an error', async (t) => {
  const film = await serve(t);
  const { client, location, remote } = await renderer(t);
  const transport = await subscribe(t, location, 'AVTransport');
  await remote.load(film('short.mp4'), { contentType: 'video/mp4' });
  const body = `<s:Envelope xmlns:s="http://schemas.xmlsoap.org/soap/envelope/"><s:Body><u:SetNextAVTransportURI xmlns:u="urn:schemas-upnp-org:service:AVTransport:1"><InstanceID>0</InstanceID><NextURI>${film('long.mp4')}</NextURI><NextURIMetaData></NextURIMetaData></u:SetNextAVTransportURI></s:Body></s:Envelope>`;
  const sent = await fetch(new URL('/AVTransport/control', location), {
    method: 'POST',
    headers: { 'Content-Type': 'text/xml', SOAPACTION: '"urn:schemas-upnp-org:service:AVTransport:1#SetNextAVTransportURI"' },
    body,
  });
  assert.equal(sent.status, 200, await sent.text());
  await remote.play();
  await transport.is('AVTransportURI', film('long.mp4'));
  await until(() => client.tv('renderer'), ({ state: now, url }) => now === 'playing' && url === film('long.mp4'), 'the next item');
  await remote.load(film('missing.mp4'), { contentType: 'video/mp4', autoplay: true }).catch(() => {});
  const failed = await until(() => client.tv('renderer'), ({ reason }) => reason, 'the reason');
  assert.equal(failed.state, 'stopped');
  assert.equal((await remote.getTransportInfo()).CurrentTransportStatus, 'ERROR_OCCURRED');
});

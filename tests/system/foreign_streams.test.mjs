// Broadcasts that other software has made: ffmpeg's muxer, with PIDs, packets, codecs and tables that differ from those of
// dtv-multiplexes. What a scan finds in them is compared with what ffprobe and an example program of biTStream say.
import assert from 'node:assert/strict';
import { execFile, execFileSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { basename, join } from 'node:path';
import { after, before, test } from 'node:test';
import { promisify } from 'node:util';
import { until, viewer } from './antenna_support.mjs';
import { root, startHost } from './host_support.mjs';

const run = promisify(execFile);
const video = (size, source = 'testsrc2') => ['-f', 'lavfi', '-i', `${source}=size=${size}:rate=25`];
const sound = (pitch) => ['-f', 'lavfi', '-i', `sine=${pitch}`];
const h264 = (track, rate) => [`-c:v:${track}`, 'libx264', '-preset:v', 'ultrafast', '-pix_fmt', 'yuv420p', `-b:v:${track}`, rate];
const words = (text) => text.split(' ');

// Words of ffmpeg's command lines, by the name of the file.
const multiplexes = {
  // DVB's forms with a constant rate: interlaced H.264, sound in LATM, a network table, the highest PIDs but a few.
  'interlaced.ts': [
    ...video('720x576'), ...sound(440), ...h264(0, '900k'),
    ...words('-flags +ilme+ildct -x264opts tff=1 -g 25 -c:a aac -b:a 96k -metadata:s:a:0 language=tur'),
    '-metadata', 'service_name=Ελεύθερος Ουρανός', '-metadata', 'service_provider=Δίκτυο Ένα',
    ...words('-mpegts_flags +latm+nit+system_b+pat_pmt_at_frames -mpegts_service_type advanced_codec_digital_hdtv'),
    ...words('-mpegts_service_id 4711 -mpegts_transport_stream_id 300 -mpegts_original_network_id 8468'),
    ...words('-mpegts_pmt_start_pid 0x1ff0 -mpegts_start_pid 0x1e00 -tables_version 17 -muxrate 3M'),
  ],
  // Packets of 192 bytes, as on discs: HEVC and AC-3.
  'hevc.m2ts': [
    ...video('640x360'), ...sound(440), ...words('-c:v libx265 -x265-params log-level=error:keyint=25 -preset ultrafast -b:v 600k'),
    ...words('-c:a ac3 -metadata:s:a:0 language=kor -mpegts_service_id 9 -mpegts_service_type hevc_digital_hdtv'),
    '-metadata', 'service_name=하늘 방송', '-metadata', 'service_provider=서울',
    ...words('-mpegts_transport_stream_id 301 -mpegts_m2ts_mode 1'),
  ],
  // Three programs at a varying rate, in the American form: AC-3 and E-AC-3 have stream types of their own.
  'many.ts': [
    ...video('352x288'), ...sound(440), ...video('640x360', 'testsrc'), ...sound(880),
    ...words('-map 0 -map 1 -map 3 -map 2 -map 1 -map 3 -c:v:0 mpeg2video -b:v:0 700k'), ...h264(1, '600k'),
    ...words('-g 12 -c:a:0 mp2 -c:a:1 ac3 -c:a:2 eac3 -c:a:3 aac -metadata:s:a:0 language=jpn -metadata:s:a:1 language=eng'),
    '-program', 'title=朝の窓:program_num=1:st=0:st=1:st=2',
    '-program', 'title=Полярная звезда:program_num=40000:st=3:st=4',
    '-program', 'title=Radio Foehn:program_num=65535:st=5',
    '-metadata:p:0', 'service_provider=日本',
    ...words('-mpegts_flags +resend_headers -pcr_period 20 -pat_period 0.5 -mpegts_transport_stream_id 302'),
  ],
};
const files = Object.keys(multiplexes).sort();

let antenna; // the folder
let announced; // by biTStream's program: rows of network, stream, service, type, name, provider, pmt, streams
const probed = {}; // by ffprobe: the programs of each file

before(async () => {
  antenna = mkdtempSync(join(tmpdir(), 'dtv-foreign-'));
  const make = (name) => run('ffmpeg', ['-nostdin', '-v', 'error', '-t', '8', ...multiplexes[name], '-t', '8', '-f', 'mpegts', join(antenna, name)]);
  await Promise.all(files.map(make));
  const paths = files.map((name) => join(antenna, name));
  announced = Object.values(JSON.parse((await run('python3', [join(root, 'tests/broadcast/print_si.py'), ...paths])).stdout)).flat();
  for (const path of paths) probed[basename(path)] = await programs(path);
});
after(() => antenna && rmSync(antenna, { recursive: true }));

// What ffprobe says of a file: number, name and streams of each program.
async function programs(path) {
  const { stdout } = await run('ffprobe', ['-v', 'error', '-print_format', 'json', '-show_programs', path]);
  return JSON.parse(stdout).programs.map(({ program_num, pmt_pid, tags, streams }) => ({
    service: program_num,
    pmt: pmt_pid,
    name: tags?.service_name,
    provider: tags?.service_provider,
    streams: streams.map(({ id, codec_type, codec_name, width, height, field_order, tags: its }) => ({
      pid: Number(id), kind: codec_type, codec: codec_name, width, height, interlaced: field_order && field_order !== 'progressive', language: its?.language ?? '',
    })),
  }));
}

test('the files are what they are meant to be', () => {
  assert.equal(readFileSync(join(antenna, 'hevc.m2ts'))[4], 0x47);
  const ofProbe = files.flatMap((name) => probed[name]).map(({ service, pmt, name, provider, streams }) => [service, pmt, name, provider, streams.map(({ pid }) => pid)]);
  const ofPrinter = announced.map(({ service, pmt, name, provider, streams }) => [service, pmt, name, provider, streams]);
  assert.deepEqual(ofProbe.sort(), ofPrinter.sort());
  const codecs = files.flatMap((name) => probed[name]).map(({ service, streams }) => [service, ...streams.map(({ codec }) => codec)]);
  assert.deepEqual(codecs, [[9, 'hevc', 'ac3'], [4711, 'h264', 'aac_latm'], [1, 'mpeg2video', 'mp2', 'ac3'], [40000, 'h264', 'eac3'], [65535, 'aac']]);
  assert.equal(probed['interlaced.ts'][0].streams[0].interlaced, true);
});

test('a scan finds the services of foreign multiplexes; they are shown and recorded', async (t) => {
  const host = await startHost(t, ['--antenna', antenna]);
  const client = await viewer(t, host);
  const shown = await until(() => client.tv('antenna'), ({ multiplexes: its }) => its.length === files.length, 'the multiplexes');
  assert.deepEqual(shown.refused, []);
  await client.tv('scan all');
  const { state, services, messages } = await until(() => client.tv('scan'), (scan) => scan.state !== 'running', 'the end of the scan');
  assert.deepEqual([state, services, messages], ['done', announced.length, []]);

  const channels = [];
  for (const { number } of (await client.tv('channels')).channels) channels.push(await client.tv(`channel ${number}`));
  const facts = ({ network, stream, service, type, name, provider }) => [network, stream, service, type, name, provider].join(', ');
  assert.deepEqual(channels.map(facts).sort(), announced.map(facts).sort());

  for (const [name, its] of Object.entries(probed))
    for (const { service, streams } of its) {
      const { number } = channels.find((channel) => channel.service === service);
      const where = `${name}, service ${service}`;
      await client.tv(`tune ${number}`);
      const wanted = streams.some(({ kind }) => kind === 'video') ? 'picture' : 'audio only';
      const tuned = await until(() => client.tv('tuner'), (tuner) => tuner.multiplex.service === service && tuner.result !== null, where);
      assert.equal(tuned.result, wanted, where);
      const heard = streams.filter(({ kind }) => kind === 'audio').map(({ codec, language }) => [codec.replace('_latm', ''), language]);
      assert.deepEqual(tuned.audio.map(({ codec, language }) => [codec, language]), heard, where);
      if (wanted === 'picture') await moves(client, host, where);
      await records(client, host, where, service, streams);
    }
  assert.equal((await host.stop()).code, 0);
});

// The picture is there, and is not always the same one. A banner that comes and goes accounts for two pictures.
async function moves(client, host, where) {
  await until(() => client.tv('screen'), (screen) => screen.shown, `a picture of ${where}`);
  const frames = new Set();
  const ask = async () => {
    const answer = await fetch(`${host.url}/screen.jpg`, { headers: { authorization: `Bearer ${host.token}` } });
    assert.equal(answer.status, 200);
    frames.add(Buffer.from(await answer.arrayBuffer()).toString('base64'));
    return frames.size;
  };
  await until(ask, (count) => count >= 5, `frames of ${where}`);
}

// Two seconds or more of the service, as a file in which ffprobe finds the same streams.
async function records(client, host, where, service, streams) {
  const { id, file } = await client.tv('record now 5');
  const path = join(host.state, file);
  const seconds = () => {
    try {
      return Number(execFileSync('ffprobe', ['-v', 'quiet', '-show_entries', 'format=duration', '-of', 'csv=p=0', path], { encoding: 'utf8' }));
    } catch {
      return 0; // no packet has been written yet
    }
  };
  await until(seconds, (length) => length >= 2, `the recording of ${where}`);
  await client.tv(`record stop ${id}`);
  const [program, ...others] = await programs(path);
  assert.deepEqual(others, [], where);
  assert.equal(program.service, service);
  const listed = (all) => all.map(({ pid, codec, language, width, height }) => [pid, codec, language, width, height].join(' '));
  assert.deepEqual(listed(program.streams), listed(streams), where);
}

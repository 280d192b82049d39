// USB sticks full of media: files that ffmpeg makes, files of Debian packages, and a host that has them as sticks.
import assert from 'node:assert/strict';
import { execFile, execFileSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import { copyFileSync, lstatSync, mkdirSync, mkdtempSync, readdirSync, readFileSync, readlinkSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { basename, dirname, join } from 'node:path';
import { after, beforeEach } from 'node:test';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { until, viewer } from './antenna_support.mjs';
import { build, madeOnce, sharedHost } from './host_support.mjs';
import { resident } from './wire_support.mjs';

export const kind = { photo: 1, music: 2, video: 3, folder: 4, playlist: 5, shop: 6 };
export const uri = (name) => `/tv/cbrowser/${name}`;

const ffmpeg = (...words) => execFileSync('ffmpeg', ['-nostdin', '-v', 'error', '-y', ...words], { stdio: ['ignore', 'ignore', 'inherit'], timeout: 120_000 });
const tagged = (tags) => Object.entries(tags).flatMap(([key, value]) => ['-metadata', `${key}=${value}`]);
const tone = (hertz, seconds) => ['-f', 'lavfi', '-i', `sine=frequency=${hertz}:duration=${seconds}`];
const colour = (name, seconds, size = '320x180') => ['-f', 'lavfi', '-i', `color=c=${name}:s=${size}:r=25:d=${seconds}`];
const h264 = ['-c:v', 'libx264', '-preset', 'ultrafast', '-pix_fmt', 'yuv420p', '-g', '25'];

// Four quadrants of a picture: red, green on top, blue, white below.
export const quadrants = [['red', 'lime'], ['blue', 'white']];

// The film of the player's tests: ten seconds each of red, green and blue, in chapters; two sounds; subtitles in a file.
export const film = {
  title: 'Three colours',
  director: 'Ida Bergholm',
  seconds: 30,
  colours: ['red', 'lime', 'blue'],
  chapters: ['Dawn', 'Noon', 'Dusk'],
  sounds: ['eng', 'fra'],
  width: 320,
  height: 180,
};

const quarters = (seconds, size) => quadrants.flat().flatMap((name) => colour(name, seconds, size));
const grid = '[0:v][1:v]hstack[a];[2:v][3:v]hstack[b];[a][b]vstack';

const subtitles = (text) => `1\n00:00:01,000 --> 00:00:09,000\n${text}\n\n2\n00:00:21,000 --> 00:00:29,000\n${text}\n`;
export const russian = 'Зелёный берег\nИ тихая вода';
export const koi8 = (text) => execFileSync('iconv', ['-f', 'UTF-8', '-t', 'KOI8-R'], { input: text });

function makeFilms(place) {
  mkdirSync(place, { recursive: true });
  const chapters = join(place, 'chapters.txt');
  const marks = film.chapters.map((title, i) => `[CHAPTER]\nTIMEBASE=1/1\nSTART=${i * 10}\nEND=${(i + 1) * 10}\ntitle=${title}\n`);
  writeFileSync(chapters, `;FFMETADATA1\n${marks.join('')}`);
  const inputs = film.colours.flatMap((name) => colour(name, 10));
  const tags = tagged({ title: film.title, director: film.director, date: '2019' });
  const languages = film.sounds.flatMap((language, i) => [`-metadata:s:a:${i}`, `language=${language}`]);
  ffmpeg(...inputs, ...tone(440, 30), ...tone(880, 30), '-i', chapters, '-filter_complex', '[0:v][1:v][2:v]concat=n=3[v]', '-map', '[v]', '-map', '3:a', '-map', '4:a',
    '-map_metadata', '5', '-map_chapters', '5', ...tags, ...languages, ...h264, '-c:a', 'aac', '-b:a', '64k', join(place, 'colours.mkv'));
  rmSync(chapters);
  writeFileSync(join(place, 'colours.srt'), subtitles('White on a colour'));
  // The same pictures twice, one with its subtitles in KOI8-R.
  ffmpeg(...colour('black', 12), ...tone(300, 12), ...h264, '-c:a', 'aac', join(place, 'plain.mp4'));
  copyFileSync(join(place, 'plain.mp4'), join(place, 'koi.mp4'));
  writeFileSync(join(place, 'plain.srt'), subtitles(russian));
  writeFileSync(join(place, 'koi.srt'), koi8(subtitles(russian)));
  ffmpeg(...quarters(8, '160x90'), '-filter_complex', `${grid}[v]`, '-map', '[v]', ...h264, join(place, 'quadrants.mp4'));
  ffmpeg(...colour('white', 3), ...h264, ...tagged({ title: 'A short film', date: '2001' }), join(place, 'short.mp4'));
}

// What the music's files are tagged with. The names are there for the order of a list.
export const songs = [
  ...['Zebra', 'apfel 10', 'Äpfel 9', 'apfel 2', 'Birne', 'élan', 'Elano', 'mond'].map((name, i) => ({
    name, artist: 'Anna Lind', album: i < 4 ? 'Obst' : 'Tiere', genre: 'Folk', track: i + 1, title: `Lied ${i + 1}`,
  })),
  ...Array.from({ length: 22 }, (_, i) => ({
    name: `take ${i + 1}`, artist: i < 11 ? 'Čeněk' : 'The Quiet Ones', album: 'Studio', genre: i % 2 ? 'Jazz' : 'Blues', track: i + 1, title: `Take no. ${String(i + 1).padStart(2, '0')}`,
  })),
].map((song, i) => ({ ...song, file: `${song.name}.${i % 3 === 0 ? 'mp3' : i % 3 === 1 ? 'flac' : 'ogg'}`, seconds: 1 + (i % 4) }));

function makeMusic(place) {
  mkdirSync(place, { recursive: true });
  const outputs = songs.flatMap(({ file, seconds, artist, album, genre, track, title }) =>
    ['-map', '0:a', '-map_metadata', '-1', '-t', `${seconds}`, ...tagged({ artist, album, genre, track, title }), join(place, file)]);
  ffmpeg(...tone(500, 5), ...outputs);
  ffmpeg(...tone(700, 4), ...colour('yellow', 0.04, '200x200'), '-map', '0', '-map', '1', '-c:v', 'mjpeg', '-disposition:v', 'attached_pic', '-id3v2_version', '3',
    ...tagged({ title: 'Yellow cover', artist: 'Solo' }), join(place, 'cover.mp3'));
}

function makePhotos(place) {
  mkdirSync(place, { recursive: true });
  const plain = join(place, 'quadrants.jpg');
  ffmpeg(...quarters(0.04, '200x150'), '-filter_complex', `${grid},format=yuvj444p`, '-q:v', '1', '-frames:v', '1', plain);
  ffmpeg(...quarters(0.04, '200x150'), '-filter_complex', `${grid},format=rgb24`, '-frames:v', '1', join(place, 'quadrants.png'));
  for (let orientation = 1; orientation <= 8; ++orientation)
    writeFileSync(join(place, `turned ${orientation}.jpg`), withExif(readFileSync(plain), { orientation, taken: `2015:06:0${orientation} 07:08:09` }));
  const sizes = Array.from({ length: 20 }, (_, i) => ['-map', '0', '-s', `${40 + 2 * i}x${30 + i}`, '-frames:v', '1', join(place, `snap ${i + 1}.jpg`)]);
  ffmpeg(...colour('orange', 0.04), ...sizes.flat());
}

// The JPEG with an EXIF block of its own: when it was taken, and how it is to be turned.
export function withExif(jpeg, { orientation, taken }) {
  const text = Buffer.from(`${taken}\0`, 'latin1');
  const tiff = Buffer.alloc(8 + 2 + 2 * 12 + 4 + 2 + 12 + 4 + text.length);
  const entry = (at, tag, type, count, value) => {
    tiff.writeUInt16BE(tag, at);
    tiff.writeUInt16BE(type, at + 2);
    tiff.writeUInt32BE(count, at + 4);
    if (type === 3) tiff.writeUInt16BE(value, at + 8);
    else tiff.writeUInt32BE(value, at + 8);
  };
  tiff.write('MM\0*', 0, 'latin1');
  tiff.writeUInt32BE(8, 4);
  tiff.writeUInt16BE(2, 8);
  entry(10, 0x0112, 3, 1, orientation);
  entry(22, 0x8769, 4, 1, 38); // the EXIF directory
  tiff.writeUInt16BE(1, 38);
  entry(40, 0x9003, 2, text.length, 56); // DateTimeOriginal
  text.copy(tiff, 56);
  const head = Buffer.from([0xff, 0xe1, 0, 0, ...Buffer.from('Exif\0\0', 'latin1')]);
  head.writeUInt16BE(8 + tiff.length, 2);
  return Buffer.concat([jpeg.subarray(0, 2), head, tiff, jpeg.subarray(2)]);
}

// A folder of made media: Films, Music, Photos. It is made once for each version of this file.
export function madeMedia() {
  const version = createHash('sha256').update(readFileSync(fileURLToPath(import.meta.url))).digest('hex').slice(0, 12);
  return madeOnce('media', version, (folder) => {
    makeFilms(join(folder, 'Films'));
    makeMusic(join(folder, 'Music'));
    makePhotos(join(folder, 'Photos'));
  });
}

export const copyInto = (from, to) => execFileSync('cp', ['-rT', '--preserve=timestamps', from, to]);

// Files that nobody made for these tests. Those whose names begin alike lie in folders of their own.
const packages = ['forensics-samples-files', 'libtest-corpus-audio-mpd-perl', 'golang-github-rwcarlsen-goexif-dev', 'gnome-user-docs', 'asc-music', 'gdk-pixbuf-tests'];
const media = /\.(jpe?g|png|gif|bmp|tiff?|webp|mp3|ogg|wav|flac|mp4|avi|mpeg|webm|m3u)$/i;
const installed = (name) => {
  try {
    return execFileSync('dpkg-query', ['-L', name], { encoding: 'utf8', stdio: ['ignore', 'pipe', 'ignore'], maxBuffer: 64 << 20 }).split('\n');
  } catch {
    return [];
  }
};

// Copies the media files of the packages into a folder, one folder each; gives the packages that are missing.
export function copyPackages(place) {
  const missing = [];
  for (const name of packages) {
    const files = installed(name).filter((path) => media.test(path) && !/\/share\/help\/(?!C\/)/.test(path) && lstatSync(path).isFile());
    if (files.length === 0) missing.push(name);
    const common = (files[0] ?? '/').split('/').slice(0, 5).join('/');
    for (const path of files) {
      const target = join(place, name, path.startsWith(`${common}/`) ? path.slice(common.length) : basename(path));
      mkdirSync(dirname(target), { recursive: true });
      copyFileSync(path, target);
    }
  }
  return missing;
}

export const filesIn = (place) => readdirSync(place, { recursive: true }).map((name) => join(place, name)).filter((path) => lstatSync(path).isFile()).sort();

const execute = promisify(execFile);
// The results of doing something with each, in their order, a few at a time.
export async function each(all, work) {
  const results = [];
  let next = 0;
  const worker = async () => {
    for (let i = next++; i < all.length; i = next++) results[i] = await work(all[i]);
  };
  await Promise.all(Array.from({ length: 4 }, worker));
  return results;
}

// What ffprobe says of a file: its kind, tags, duration and dimensions. Undefined: it contains no picture and no sound. A
// photo is a file of images without sound. A tag of the file counts before one of a stream.
const images = /^(image2|gif|ico|apng|\w+_pipe)$/;
export async function probed(file) {
  const words = ['-v', 'quiet', '-of', 'json', '-show_format', '-show_streams', `file:${file}`];
  const { stdout } = await execute('ffprobe', words, { timeout: 60_000, maxBuffer: 16 << 20 }).catch(() => ({ stdout: '{}' }));
  const { streams = [], format = {} } = JSON.parse(stdout);
  const video = streams.find(({ codec_type: type, disposition }) => type === 'video' && !disposition.attached_pic);
  const sound = streams.find(({ codec_type: type }) => type === 'audio');
  const tags = {};
  for (const found of [format.tags, video?.tags, sound?.tags]) for (const [key, value] of Object.entries(found ?? {})) tags[key.toLowerCase()] ??= value;
  if (!video && !sound) return undefined;
  const photo = video && !sound && images.test(format.format_name);
  const cover = streams.some(({ disposition }) => disposition.attached_pic);
  return { kind: photo ? 'photo' : video ? 'video' : 'music', tags, cover, duration: Number(format.duration ?? 0), width: video?.width ?? 0, height: video?.height ?? 0 };
}

// What the program exif says: when the photo was taken, as in the file, and whether its orientation turns it on its side.
export async function exif(file) {
  const read = (tag) => execute('exif', ['-m', `--tag=${tag}`, file], { encoding: 'latin1' }).then(({ stdout }) => stdout.trim(), () => undefined);
  const [original, digitized, changed, orientation] = await Promise.all(['0x9003', '0x9004', '0x0132', '0x0112'].map(read));
  return { taken: [original, digitized, changed].find((text) => /^\d{4}:\d\d:\d\d \d\d:\d\d:\d\d$/.test(text ?? '')), onSide: /^(left|right)-/i.test(orientation ?? '') };
}

// A host for all tests of a file, with a home folder in which sticks are made. stick(name, fill) makes the folder; it is
// inserted and scanned when it is first asked for, and again in a host that has replaced one. The set's time zone is UTC.
export function television(args = []) {
  const world = mkdtempSync(join(tmpdir(), 'dtv-media-test-'));
  const used = new Set();
  const host = sharedHost(args, { env: { HOME: world } });
  after(() => rmSync(world, { recursive: true, force: true }));
  const client = async (t) => {
    const made = await viewer(t, host, used);
    const tv = (...words) => made.call('tv', { words });
    await tv('clock', 'zone', 'Etc/UTC');
    const fails = async (...words) => {
      const { result, error } = await made.ask('tv', { words });
      assert.equal(result, undefined, `${words.join(' ')}: ${JSON.stringify(result)}`);
      return error.message;
    };
    return {
      ...made,
      tv,
      refuses: fails,
      // The scan's state of a stick when it is over.
      scanned: async (mount) => {
        const { sticks } = await until(() => tv('media'), (shown) => !['waiting', 'running'].includes(shown.sticks.find(({ path }) => path === mount)?.scan.state), 'the end of the scan');
        return sticks.find(({ path }) => path === mount);
      },
      // The folder of the home folder as a stick: its mount point, when it has been scanned.
      async stick(name) {
        const found = (await tv('media')).sticks.find(({ label }) => label === name);
        if (!found) await tv('stick', 'insert', join(world, name));
        const { path } = found ?? (await tv('media')).sticks.find(({ label }) => label === name);
        await this.scanned(path);
        return path;
      },
      remove: (name) => tv('stick', 'remove', join(world, name)),
      // All entries of a list, page by page.
      async list(what, path, ...sort) {
        const entries = [];
        for (;;) {
          const page = await tv('media', 'list', what, path, ...(sort.length ? sort : ['name']), `${entries.length}`, '200');
          entries.push(...page.entries);
          if (page.entries.length === 0 || entries.length >= page.total) return entries;
        }
      },
    };
  };
  const everyUriIsUsed = async (t, names) => {
    const { uris } = (await (await client(t)).ask('list', {})).result;
    const served = uris.filter(({ uri: each }) => names.test(each));
    assert.ok(served.length > 0);
    const wanted = served.flatMap((each) => [...(each.get ? [`get ${each.uri}`] : []), ...(each.set ? [`set ${each.uri}`] : [])]);
    assert.deepEqual(wanted.filter((each) => !used.has(each)), [], 'served, but not used by a test');
  };
  return { host, world, client, used, everyUriIsUsed };
}

// The processes of the host: itself, and what it has started.
function processes(root) {
  const parents = new Map();
  for (const pid of readdirSync('/proc').filter((name) => /^\d+$/.test(name))) {
    try {
      parents.set(Number(pid), Number(readFileSync(`/proc/${pid}/stat`, 'utf8').split(') ').at(-1).split(' ')[1]));
    } catch {
      // It has ended.
    }
  }
  const found = [root];
  for (let i = 0; i < found.length; ++i) for (const [pid, parent] of parents) if (parent === found[i]) found.push(pid);
  return found;
}
// Resident memory of these processes in MiB. A child that has not yet executed its own program shares its parent's pages,
// and would count them twice.
export function memory(host) {
  const root = host.child.pid;
  const program = readlinkSync(`/proc/${root}/exe`);
  let sum = 0;
  for (const pid of processes(root)) {
    try {
      if (pid === root || readlinkSync(`/proc/${pid}/exe`) !== program) sum += resident(pid);
    } catch {
      // It has ended.
    }
  }
  return sum;
}

// The red, green and blue of points of the set's newest frame, which has 640x360 pixels: at([[x, y], ...]).
export async function frame(host) {
  const reply = await fetch(`${host.url}/screen.jpg`, { headers: { authorization: `Bearer ${host.token}` } });
  assert.equal(reply.status, 200);
  const jpeg = Buffer.from(await reply.arrayBuffer());
  const bytes = execFileSync('ffmpeg', ['-v', 'error', '-f', 'mjpeg', '-i', '-', '-f', 'rawvideo', '-pix_fmt', 'rgb24', '-'], { input: jpeg, maxBuffer: 4 << 20 });
  assert.equal(bytes.length, 640 * 360 * 3);
  return { bytes, at: (x, y) => [...bytes.subarray(3 * (640 * y + x), 3 * (640 * y + x) + 3)] };
}

const colours = { red: [255, 0, 0], lime: [0, 255, 0], blue: [0, 0, 255], white: [255, 255, 255], black: [0, 0, 0], yellow: [255, 255, 0], orange: [255, 165, 0] };
// Video has fewer colours than the screen; far from every other colour of this table counts.
export const looks = (pixel, name) => pixel.every((value, i) => Math.abs(value - colours[name][i]) < 70);
export const shownColour = (pixel) => Object.keys(colours).find((name) => looks(pixel, name)) ?? pixel.join(',');

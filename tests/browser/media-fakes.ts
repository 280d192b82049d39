import type { Page } from "@playwright/test";

/** A set with media in its replies only: the page's commands about media are answered here, all others by the host. */

export const stick = "/usb/sda1";
export const many = 10_000;
const pageOf = 200;

/** A blue picture. */
const jpeg =
  "/9j/4AAQSkZJRgABAgAAAQABAAD//gAQTGF2YzU5LjM3LjEwMAD/2wBDAAgoKC8oLzc3Nzc3N0E8QUNDQ0FBQUFDQ0NISEhVVVVISEhDQ0hIUFBVVVxfXFdXVVdfX2RkZHh4c3OMjJGsrM//xABNAAEBAAAAAAAAAAAAAAAAAAAABQEBAQEAAAAAAAAAAAAAAAAAAAUGEAEAAAAAAAAAAAAAAAAAAAAAEQEAAAAAAAAAAAAAAAAAAAAA/8AAEQgAGAAgAwEiAAIRAAMRAP/aAAwDAQACEQMRAD8AiANIgAAAAAAP/9k=";

type Json = Record<string, unknown>;

export interface Fakes {
  /** The page's commands about media, in their order. */
  commands: string[];
  /** Replies that a test changes. */
  stick: Json & { scan: Json };
  player: Json;
  photo: Json;
  servers: Json[];
  searching: boolean;
  renderer: Json;
  download: Json;
  /** The stick is inserted. */
  inserted: boolean;
  /** Photos whose picture is not made yet, by how often that is still said. */
  pending: Map<string, number>;
  favourites: Set<string>;
  /** By command: why the set refuses it. */
  refused: Map<string, string>;
  prepare: (page: Page) => Promise<void>;
}

const photoEntry = (index: number): Json => ({
  path: `${stick}/Photos/photo ${String(index).padStart(5, "0")}.jpg`,
  name: `photo ${String(index).padStart(5, "0")}.jpg`,
  kind: "photo",
  width: 4000,
  height: 3000,
  size: 3_400_000 + index,
  date: "2026-08-01T10:30:00",
  favourite: false,
});

const folderEntry = (name: string): Json => ({ path: `${stick}/${name}`, name, kind: "folder" });

export const film: Json = {
  path: `${stick}/Films/harbour.mkv`,
  name: "harbour.mkv",
  kind: "video",
  title: "The Harbour",
  year: 2024,
  duration: 5025,
  width: 1920,
  height: 1080,
  size: 1_900_000_000,
  date: "2026-10-05T18:00:00",
  favourite: false,
};

const song: Json = {
  path: `${stick}/Music/north wind.mp3`,
  name: "north wind.mp3",
  kind: "music",
  title: "North Wind",
  artist: "The Example Band",
  album: "Weather",
  genre: "Folk",
  year: 2019,
  duration: 201,
  size: 4_800_000,
  date: "2026-01-05T18:00:00",
  favourite: false,
};

/** What the player plays after "player play" of the film. */
export const played = (): Json => ({
  state: "playing",
  path: film["path"],
  title: "The Harbour",
  position: 61,
  duration: 5025,
  speed: 1,
  repeat: "off",
  application: false,
  video: { width: 1920, height: 1080, aspect: 1.78, codec: "h264" },
  tracks: [
    { kind: "audio", number: 1, language: "eng", title: "Stereo", codec: "aac", chosen: true },
    { kind: "audio", number: 2, language: "deu", title: "", codec: "ac3", chosen: false },
    { kind: "subtitle", number: 1, language: "fra", title: "", codec: "subrip", chosen: false },
  ],
  chapters: [
    { number: 1, title: "Arrival", start: 0 },
    { number: 2, title: "", start: 1200 },
  ],
  chapter: 1,
});

const serverItems: Json[] = [
  { object: 7, kind: "folder", name: "Concerts", children: 3 },
  { object: 8, kind: "video", name: "Summer in the mountains", duration: 3725, size: 700_000_000 },
  { object: 9, kind: "music", name: "Slow Train", artist: "The Example Band", album: "Live", duration: 240, size: 6_000_000 },
];

export function mediaFakes(): Fakes {
  const fakes: Fakes = {
    commands: [],
    stick: {
      device: "/dev/sda1",
      label: "HOLIDAY",
      path: stick,
      photos: many,
      music: 1,
      videos: 1,
      playlists: 0,
      folders: 3,
      bytes: 64_000_000_000,
      scan: { state: "done", files: many + 2, of: many + 2, progress: 1, left_out: 2 },
    },
    player: { state: "none" },
    photo: { state: "none" },
    servers: [],
    searching: false,
    renderer: { on: false, name: "Virtual television", application: false, state: "stopped" },
    download: { state: "none", bytes: 0, of: 0 },
    inserted: true,
    pending: new Map(),
    favourites: new Set(),
    refused: new Map(),
    prepare: (page) => fakeMedia(page, fakes),
  };
  return fakes;
}

function withFavourite(fakes: Fakes, entry: Json): Json {
  return { ...entry, favourite: fakes.favourites.has(String(entry["path"])) };
}

/** A part of a list of so many entries. */
function part(total: number, entryAt: (index: number) => Json, first: string | undefined, count: string | undefined): Json {
  const index = Number(first ?? 0);
  const entries: Json[] = [];
  for (let at = index; at < Math.min(total, index + Math.min(Number(count ?? 50), pageOf)); at++) entries.push(entryAt(at));
  return { total, index, entries };
}

function answerMedia(fakes: Fakes, [word, ...rest]: string[]): Json {
  if (word === undefined) return { sticks: fakes.inserted ? [fakes.stick] : [] };
  if (word === "list") {
    const [kind, path, , index, count] = rest;
    const tops = [folderEntry("Films"), folderEntry("Music"), folderEntry("Photos")];
    const lists: Record<string, Json[]> = { video: [film], music: [song], playlist: [] };
    if (kind === "photo" || (kind === "all" && path === `${stick}/Photos`)) {
      return part(many, (at) => withFavourite(fakes, photoEntry(at)), index, count);
    }
    const listed = kind !== "all" ? lists[kind!]! : path === stick ? tops : path === `${stick}/Films` ? [film] : [song];
    return part(listed.length, (at) => withFavourite(fakes, listed[at]!), index, count);
  }
  if (word === "search") {
    const [text = "", , index, count] = rest;
    const found = [film, song].filter(({ title }) => String(title).toLowerCase().includes(text.toLowerCase()));
    return part(found.length, (at) => found[at]!, index, count);
  }
  if (word === "thumbnails") {
    const thumbnails = rest.map((path) => {
      const waits = fakes.pending.get(path) ?? 0;
      if (waits > 0) fakes.pending.set(path, waits - 1);
      if (waits > 0) return { path, pending: true };
      return path.endsWith(".mp3") ? { path, none: "the file has no cover" } : { path, jpeg };
    });
    return { thumbnails };
  }
  if (word === "favourite") {
    const path = rest[0]!;
    if (rest[1] === "on") fakes.favourites.add(path);
    else fakes.favourites.delete(path);
    const entry = [film, song].find((each) => each["path"] === path) ?? { ...photoEntry(0), path, name: path.split("/").at(-1) };
    return withFavourite(fakes, entry);
  }
  if (word === "scan") {
    fakes.stick.scan = rest[1] === "cancel"
      ? { ...fakes.stick.scan, state: "cancelled" }
      : { state: "running", files: 0, of: many, progress: 0, left_out: 0 };
    return fakes.stick;
  }
  if (word === "problems") {
    return {
      problems: [
        { path: `${stick}/broken.jpg`, why: "the picture is damaged" },
        { path: `${stick}/pipe`, why: "it is no file" },
      ],
    };
  }
  throw new Error(`media ${word}`);
}

function answerPlayer(fakes: Fakes, [word, value]: string[]): Json {
  const { player } = fakes;
  if (word === undefined) return player;
  const tracks = (player["tracks"] ?? []) as { kind: string; number: number; chosen: boolean }[];
  const choose = (kind: string) =>
    tracks.map((track) => (track.kind === kind ? { ...track, chosen: String(track.number) === value } : track));
  const changes: Record<string, () => Json> = {
    play: () => played(),
    pause: () => ({ ...player, state: "paused" }),
    resume: () => ({ ...player, state: "playing" }),
    stop: () => ({ state: "none" }),
    seek: () => ({ ...player, position: Number(value) }),
    speed: () => ({ ...player, speed: Number(value) }),
    repeat: () => ({ ...player, repeat: value }),
    chapter: () => ({ ...player, chapter: Number(value), position: 1200 }),
    audio: () => ({ ...player, tracks: choose("audio") }),
    subtitle: () => ({ ...player, tracks: choose("subtitle") }),
  };
  return (fakes.player = (changes[word] ?? (() => player))());
}

function answerPhoto(fakes: Fakes, [word, value]: string[]): Json {
  const { photo } = fakes;
  const changes: Record<string, () => Json> = {
    show: () => ({ state: "shown", path: value, width: 4000, height: 3000, orientation: 1, rotation: 0, zoom: 100, slide_show: false, application: false, index: 1, of: many }),
    next: () => ({ ...photo, index: Number(photo["index"]) + 1, path: `${stick}/Photos/photo 00001.jpg` }),
    previous: () => ({ ...photo, index: Number(photo["index"]) - 1 }),
    rotate: () => ({ ...photo, rotation: (Number(photo["rotation"]) + 90) % 360 }),
    zoom: () => ({ ...photo, zoom: Number(value) }),
    slideshow: () => ({ ...photo, slide_show: value === "on" }),
    close: () => ({ state: "none" }),
  };
  return word === undefined ? photo : (fakes.photo = changes[word]!());
}

function answerServers(fakes: Fakes, [word, server, object, last]: string[]): Json {
  const known = () => ({ searching: fakes.searching, servers: fakes.servers });
  if (word === undefined || word === "wake") return known();
  if (word === "search") {
    fakes.searching = server === "on";
    return known();
  }
  if (word === "forget") {
    fakes.servers = fakes.servers.filter(({ id }) => String(id) !== server);
    return known();
  }
  if (word === "list") return object === "0" ? part(serverItems.length, (at) => serverItems[at]!, "0", "50") : part(0, () => ({}), "0", "50");
  if (word === "search_for") return part(1, () => serverItems[2]!, "0", "50");
  if (word === "play") return (fakes.player = { ...played(), path: "http://192.0.2.7/8", title: "Summer in the mountains" });
  if (word === "download") {
    if (last === "cancel") fakes.download = { ...fakes.download, state: "cancelled" };
    else if (fakes.download["state"] === "none") fakes.download = { state: "running", bytes: 70_000_000, of: 700_000_000 };
    return fakes.download;
  }
  throw new Error(`servers ${word}`);
}

function answerStick(fakes: Fakes, [word, folder]: string[]): Json {
  fakes.inserted = word === "insert";
  return { device: "/dev/sda1", label: "HOLIDAY", folder };
}

function answer(fakes: Fakes, [command, ...rest]: string[]): Json {
  switch (command) {
    case "media":
      return answerMedia(fakes, rest);
    case "player":
      return answerPlayer(fakes, rest);
    case "photo":
      return answerPhoto(fakes, rest);
    case "servers":
      return answerServers(fakes, rest);
    case "stick":
      return answerStick(fakes, rest);
    default:
      if (rest.length > 0) fakes.renderer = { ...fakes.renderer, on: rest[0] === "on" };
      return fakes.renderer;
  }
}

const faked = ["media", "player", "photo", "servers", "renderer", "stick"];

const fakeMedia = (page: Page, fakes: Fakes): Promise<void> =>
  page.routeWebSocket("**/jsonrpc", (socket) => {
    const server = socket.connectToServer();
    socket.onMessage((text) => {
      const { id, method, params } = JSON.parse(String(text)) as { id: number; method: string; params: { words: string[] } };
      const command = params?.words?.join(" ") ?? "";
      // The folders to choose a stick from are the host's own.
      if (method !== "tv" || !faked.includes(params.words[0]!) || command.startsWith("stick folders")) return server.send(text);
      fakes.commands.push(command);
      const refusal = [...fakes.refused].find(([begin]) => command.startsWith(begin))?.[1];
      const reply = refusal === undefined ? { result: answer(fakes, params.words) } : { error: { code: -32001, message: refusal } };
      socket.send(JSON.stringify({ jsonrpc: "2.0", id, ...reply }));
    });
  });

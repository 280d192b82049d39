import { batch, signal } from "@preact/signals";
import { attempt } from "../../app/commands";
import { createListing, type Listing, type Page } from "../../app/listing";
import { television } from "../../app/session";
import { takePlayer, type Player } from "../player/player";

/** The media servers of the home network, and the set as a renderer of it. */

export interface Server {
  id: number;
  name: string;
  udn: string;
  address: string;
  online: boolean;
  /** It can be woken while it is not reachable. */
  wakable: boolean;
}

export interface Item {
  object: number;
  kind: "folder" | "photo" | "music" | "video" | "other";
  name: string;
  artist?: string;
  album?: string;
  /** Seconds. */
  duration?: number;
  size?: number;
  /** Of a folder. */
  children?: number;
}

export interface Renderer {
  on: boolean;
  /** The name under which controllers find the set. */
  name: string;
  /** An application is the renderer. */
  application: boolean;
  controller?: string;
  /** What a controller has sent. */
  url?: string;
  title?: string;
  state?: string;
}

export interface Download {
  server: number;
  object: number;
  name: string;
  state: string;
  bytes: number;
  /** 0: unknown. */
  of: number;
  /** Where the file is, when it is complete. */
  path?: string;
  reason?: string;
}

/** Null until they are known. */
export const servers = signal<readonly Server[] | null>(null);
export const searching = signal(false);
export const renderer = signal<Renderer | null>(null);

// Kept while another view is shown.
/** The server that is open; null: none. */
export const opened = signal<number | null>(null);
/** From the server's root to the folder that is shown. */
export const place = signal<readonly { object: number; name: string }[]>([]);
export const search = signal("");
/** The download that was started last. */
export const download = signal<Download | null>(null);
export const listing = signal<Listing<Item> | null>(null);
/** Why the latest action failed. */
export const problem = signal("");

const searchingMs = 1000;
const idleMs = 2000;
export const pauseMs = (): number => (searching.peek() || downloads() ? searchingMs : idleMs);

interface ServersReply {
  searching: boolean;
  servers: Server[];
}

function takeServers(reply: ServersReply) {
  batch(() => {
    servers.value = reply.servers;
    searching.value = reply.searching;
    if (!reply.servers.some(({ id }) => id === opened.peek())) openServer(null);
  });
}

export async function readServers() {
  const [found, rendering] = await Promise.all([television("servers"), television("renderer")]);
  batch(() => {
    takeServers(found as unknown as ServersReply);
    renderer.value = rendering as unknown as Renderer;
  });
  if (downloads()) await readDownload();
}

export function openServer(server: Server | null) {
  batch(() => {
    opened.value = server ? server.id : null;
    place.value = server ? [{ object: 0, name: server.name }] : [];
    search.value = "";
  });
}

export function openFolder(object: number, name: string) {
  batch(() => {
    const at = place.peek().findIndex((each) => each.object === object);
    place.value = at < 0 ? [...place.peek(), { object, name }] : place.peek().slice(0, at + 1);
    search.value = "";
  });
}

/** Starts to read the list of a folder or of a search. Returns a function that ends it. */
export function openListing(server: number, object: number, text: string): () => void {
  const words = text
    ? ["servers", "search_for", String(server), text]
    : ["servers", "list", String(server), String(object)];
  const created = createListing<Item>(async (index, count) => {
    const reply = await television(...words, String(index), String(count));
    return reply as unknown as Page<Item>;
  });
  listing.value = created;
  return () => {
    created.close();
    if (listing.peek() === created) listing.value = null;
  };
}

export async function changeServers(...words: string[]) {
  const reply = await attempt<ServersReply>(problem, "servers", ...words);
  if (reply) takeServers(reply);
}

export async function changeRenderer(on: boolean) {
  const reply = await attempt<Renderer>(problem, "renderer", on ? "on" : "off");
  if (reply) renderer.value = reply;
}

export async function play(server: number, { object }: Item) {
  const reply = await attempt<Player>(problem, "servers", "play", String(server), String(object));
  if (reply) takePlayer(reply);
}

// ---- the download

type DownloadReply = Pick<Download, "state" | "bytes" | "of" | "path" | "reason">;

/** Whether a download runs. */
export function downloads(): boolean {
  const state = download.peek()?.state;
  return state === "running" || state === "waiting";
}

export async function startDownload(server: number, { object, name }: Item) {
  const reply = await attempt<DownloadReply>(problem, "servers", "download", String(server), String(object));
  if (reply) download.value = { ...reply, server, object, name };
}

async function readDownload() {
  const { server, object, name } = download.peek()!;
  const reply = (await television("servers", "download", String(server), String(object))) as unknown as DownloadReply;
  if (download.peek()?.object === object) download.value = { ...reply, server, object, name };
}

export async function cancelDownload({ server, object, name }: Download) {
  const reply = await attempt<DownloadReply>(problem, "servers", "download", String(server), String(object), "cancel");
  if (reply) download.value = { ...reply, server, object, name };
}

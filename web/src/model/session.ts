import { batch, computed, effect, signal } from "@preact/signals";
import {
  createClient,
  type ConnectionState,
  type GetResult,
  type Json,
  type JsonObject,
  type ListResult,
  type SetResult,
  type TapLine,
} from "../rpc";
import { groupRows } from "./catalogue";
import { isObject } from "./json";
import { createLog } from "./log";
import { createVolume, type VolumeState } from "./volume";

/** The page's one connection to the host, and all that is known through it. */

const volumeUri = "/tv/cast/volume/volume";
const muteUri = "/tv/cast/volume/mute";
export const volumeNotifyUri = "/tv/ws/notify/volume_ctrl";

export type View = "uris" | "request" | "live";

export type LogValue = { uri: string; notification: Json } | { warning: string };

/** The last answer that a URI gave on this page. */
export interface Outcome {
  method: "get" | "set";
  millis: number;
  /** Counts up with each request, so that an equal answer is seen to be new. */
  number: number;
  answer: GetResult | SetResult | { error: Error };
}

export const connection = signal<ConnectionState>({ name: "connecting" });
export const list = signal<ListResult | null>(null);
export const groups = computed(() => (list.value ? groupRows(list.value.uris) : []));
export const view = signal<View>("uris");
export const notice = signal<{ text: string; number: number } | null>(null);
export const outcomes = signal<ReadonlyMap<string, Outcome>>(new Map());
export const notifications = createLog<LogValue>(500);
export const calls = createLog<TapLine>(500);
export const tracing = signal(false);

let notices = 0;
let requests = 0;

export function tell(text: string) {
  notice.value = { text, number: ++notices };
}

const textOf = (reason: unknown): string => (reason instanceof Error ? reason.message : String(reason));
const tellError = (reason: unknown) => tell(textOf(reason));

// The page's own address, as ws: or wss:.
const socketUrl = new URL("/jsonrpc", location.href);
socketUrl.protocol = socketUrl.protocol.replace("http", "ws");

const client = createClient({
  url: socketUrl.href,
  onState(state) {
    connection.value = state;
    if (state.name === "open") onOpen();
    else if (state.name === "waiting") volume.forget();
  },
  onOverflow: (dropped) =>
    notifications.add({ warning: `${dropped} ${dropped === 1 ? "message was" : "messages were"} lost: the queue overflowed.` }),
  onBrokenNotification: (uri, message) => notifications.add({ warning: `${uri}: ${message}` }),
  onTrace: (line) => calls.add(line),
  onSubscribeError(uri, error) {
    tell(`No subscription to ${uri}: ${error.message}`);
    setWatched(uri, false);
  },
});

// A page that comes back to the front should not wait for the rest of a pause.
document.addEventListener("visibilitychange", () => {
  if (document.visibilityState === "visible") client.reconnectNow();
});

function onOpen() {
  client.call("list").then((result) => (list.value = result), tellError);
  volume.refresh();
  if (tracing.value) client.call("trace", { on: true }).catch(tellError);
}

export const reconnectNow = () => client.reconnectNow();

// ---- the selected URI, kept in the address

function uriFromHash(): string {
  const hash = location.hash.slice(1);
  try {
    return decodeURIComponent(hash);
  } catch {
    return hash;
  }
}

export const selectedUri = signal(uriFromHash());
if (selectedUri.value) view.value = "request";

addEventListener("hashchange", () => {
  batch(() => {
    selectedUri.value = uriFromHash();
    if (selectedUri.value) view.value = "request";
  });
});

// A URI may stand in the registry twice; look-ups find the first row.
export const selectedRow = computed(() => list.value?.uris.find((row) => row.uri === selectedUri.value) ?? null);
export const selectedType = computed(() => (selectedRow.value && list.value?.types[selectedRow.value.type]) || null);

// ---- requests

export async function request(method: "get" | "set", uri: string, parameter: JsonObject | undefined) {
  const start = performance.now();
  let answer: Outcome["answer"];
  try {
    answer =
      method === "get"
        ? await client.call("get", { uri, ...(parameter ? { parameter } : {}), trace: true })
        : await client.call("set", { uri, parameter: parameter ?? {}, trace: true });
  } catch (reason) {
    answer = { error: reason instanceof Error ? reason : new Error(String(reason)) };
  }
  const outcome: Outcome = { method, millis: performance.now() - start, number: ++requests, answer };
  outcomes.value = new Map(outcomes.value).set(uri, outcome);
}

/** Presses a key of the television's remote control. */
export function remote(...words: string[]) {
  client.call("tv", { words }).catch(tellError);
}

// ---- notification URIs shown in the log

const storageKey = "dtv.watched";

function storedUris(): string[] {
  try {
    const stored: unknown = JSON.parse(localStorage.getItem(storageKey) ?? "null");
    if (Array.isArray(stored)) return stored.filter((uri): uri is string => typeof uri === "string");
  } catch {
    // Storage may be refused or hold something else; the page works without.
  }
  return [volumeNotifyUri];
}

const unwatch = new Map<string, () => void>();
export const watched = signal<ReadonlySet<string>>(new Set());

export function setWatched(uri: string, on: boolean) {
  if (on === unwatch.has(uri)) return;
  if (on) {
    unwatch.set(uri, client.subscribe(uri, (notification) => notifications.add({ uri, notification })));
  } else {
    unwatch.get(uri)?.();
    unwatch.delete(uri);
  }
  watched.value = new Set(unwatch.keys());
  try {
    localStorage.setItem(storageKey, JSON.stringify([...unwatch.keys()]));
  } catch {
    // As above.
  }
}

// ---- platform calls

export function setTracing(on: boolean) {
  tracing.value = on;
  client.call("trace", { on }).catch((reason: unknown) => {
    tracing.value = false;
    tellError(reason);
  });
}

// ---- the volume control

function firstItem(text: Json): JsonObject {
  const items = isObject(text) ? text["ITEMS"] : undefined;
  const item = Array.isArray(items) ? items[0] : undefined;
  return isObject(item) ? item : {};
}

async function readValue(uri: string): Promise<number> {
  const { ret, response } = await client.call("get", { uri });
  const value = firstItem(response)["VALUE"];
  if (ret !== 0 || typeof value !== "number") throw new Error(`${uri} cannot be read (ret ${ret}).`);
  return value;
}

async function modify(uri: string, value: number): Promise<void> {
  const { ret } = await client.call("set", { uri, parameter: { REQUEST: "MODIFY", VALUE: value } });
  if (ret !== 0) throw new Error(`${uri} was not set (ret ${ret}).`);
}

export const volume = createVolume({
  async read(): Promise<VolumeState> {
    const [level, mute] = await Promise.all([readValue(volumeUri), readValue(muteUri)]);
    return { volume: level, muted: mute !== 0 };
  },
  setVolume: (level) => modify(volumeUri, level),
  setMute: (muted) => modify(muteUri, muted ? 1 : 0),
  onError: tellError,
});

client.subscribe(volumeNotifyUri, (notification) => {
  const { volValue, muteStatus } = firstItem(notification);
  if (typeof volValue === "number") volume.heard({ volume: volValue, muted: muteStatus !== 0 });
});

for (const uri of storedUris()) setWatched(uri, true);

effect(() => {
  document.title = selectedUri.value ? `${selectedUri.value} · dtv inspector` : "dtv inspector";
});

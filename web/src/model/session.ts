import { batch, computed, effect, signal } from "@preact/signals";
import {
  createClient,
  isForbidden,
  type ConnectionState,
  type Field,
  type GetResult,
  type Json,
  type JsonObject,
  type Kind,
  type ListResult,
  type SetResult,
  type TapLine,
} from "../rpc";
import { groupRows } from "./catalogue";
import { itemsOf } from "./json";
import { createLog } from "./log";
import { addressHasToken, dropToken, token } from "./token";
import { createVolume, type VolumeState } from "./volume";

/** The page's one connection to the host, and all that is known through it. */

const volumeUri = "/tv/cast/volume/volume";
const muteUri = "/tv/cast/volume/mute";
export const volumeNotifyUri = "/tv/ws/notify/volume_ctrl";
export const configNotifyUri = "/tv/ws/notify/config_update";

/** On a wide screen the URIs, the selected one's request and the live log are one view. */
export type View = "uris" | "request" | "configuration" | "remote" | "live";

/** What the host lets this page do, as far as it has refused it: control the set, only look, or neither. */
export type Access = "control" | "look" | "none";

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
export const access = signal<Access>("control");
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

export const textOf = (reason: unknown): string => (reason instanceof Error ? reason.message : String(reason));

/** The page shows a refusal for want of the token for as long as it lasts, by `access`. */
export function tellError(reason: unknown) {
  if (!isForbidden(reason)) tell(textOf(reason));
}

// The page's own address, as ws: or wss:.
const socketUrl = new URL("/jsonrpc", location.href);
socketUrl.protocol = socketUrl.protocol.replace("http", "ws");

const client = createClient({
  url: socketUrl.href,
  token,
  onTokenRefused: dropToken,
  onForbidden(method) {
    // The set is controlled by one method; a host that refuses another one refuses all.
    if (method !== "tv") access.value = "none";
    else if (access.value === "control") access.value = "look";
  },
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
    if (isForbidden(error)) return;
    tell(`No subscription to ${uri}: ${error.message}`);
    setWatched(uri, false);
  },
});

// A page that comes back to the front should not wait for the rest of a pause.
document.addEventListener("visibilitychange", () => {
  if (document.visibilityState === "visible") client.reconnectNow();
});

function onOpen() {
  access.value = "control";
  client.call("list").then((result) => (list.value = result), tellError);
  volume.refresh();
  if (tracing.value) client.call("trace", { on: true }).catch(tellError);
}

export const reconnectNow = () => client.reconnectNow();

// ---- the view and the selected URI, kept in the address

/** Views with an address of their own; no URI is written like one. */
const isPlace = (text: string): text is View => text === "configuration" || text === "remote";

function textOfHash(): string {
  const hash = location.hash.slice(1);
  try {
    return decodeURIComponent(hash);
  } catch {
    return hash;
  }
}

export const selectedUri = signal("");

function followHash() {
  if (addressHasToken()) {
    location.reload();
    return;
  }
  const text = textOfHash();
  batch(() => {
    if (isPlace(text)) {
      view.value = text;
      return;
    }
    selectedUri.value = text;
    if (text) view.value = "request";
    else if (isPlace(view.value)) view.value = "uris";
  });
}

followHash();
addEventListener("hashchange", followHash);

export function show(next: View) {
  view.value = next;
  const hash = isPlace(next) ? next : selectedUri.value;
  if (next === "live" || hash === textOfHash()) return;
  history.pushState(null, "", hash ? `#${hash}` : location.pathname);
}

// A URI may stand in the registry twice; look-ups find the first row.
export const selectedRow = computed(() => list.value?.uris.find((row) => row.uri === selectedUri.value) ?? null);
/** The description of a field's kind. */
const kinds = computed(() => new Map(list.value?.kinds.map((row) => [row.kind, row])));
export const kindOf = (field: Field): Kind | undefined => kinds.value.get(field.kind);

/** What a request's "ret" means; a result that the plugin does not list is the platform's own. */
export const meaningOf = (ret: number): string =>
  list.value?.results.find((row) => row.result === ret)?.help ?? "a result of the platform's own";

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

/** A request was answered with a status below 0. */
export class RefusedError extends Error {
  constructor(
    uri: string,
    readonly ret: number,
  ) {
    super(`${uri} was refused: ${meaningOf(ret)} (ret ${ret}).`);
    this.name = "RefusedError";
  }
}

/** The first item of a URI's answer. */
export async function getItem(uri: string, parameter?: JsonObject): Promise<JsonObject> {
  const { ret, response } = await client.call("get", { uri, ...(parameter ? { parameter } : {}) });
  if (ret < 0) throw new RefusedError(uri, ret);
  return itemsOf(response)[0] ?? {};
}

export async function setItem(uri: string, parameter: JsonObject): Promise<void> {
  const { ret } = await client.call("set", { uri, parameter });
  if (ret < 0) throw new RefusedError(uri, ret);
}

/** A command of the virtual television. */
export const television = (...words: string[]): Promise<JsonObject> => client.call("tv", { words });

/** Calls the listener for each item of the URI's notifications until the returned function is called. */
export const listen = (uri: string, listener: (item: JsonObject) => void): (() => void) =>
  client.subscribe(uri, (notification) => itemsOf(notification).forEach(listener));

// ---- notification URIs shown in the log

const storageKey = "dtv.watched";

function storedUris(): string[] {
  try {
    const stored: unknown = JSON.parse(localStorage.getItem(storageKey) ?? "null");
    if (Array.isArray(stored)) return stored.filter((uri): uri is string => typeof uri === "string");
  } catch {
    // Storage may be refused or hold something else; the page works without.
  }
  return [volumeNotifyUri, configNotifyUri];
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

async function readNumber(uri: string): Promise<number> {
  const value = (await getItem(uri))["VALUE"];
  if (typeof value !== "number") throw new Error(`${uri} has no VALUE.`);
  return value;
}

const modify = (uri: string, value: number): Promise<void> => setItem(uri, { REQUEST: "MODIFY", VALUE: value });

export const volume = createVolume({
  async read(): Promise<VolumeState> {
    const [level, mute] = await Promise.all([readNumber(volumeUri), readNumber(muteUri)]);
    return { volume: level, muted: mute !== 0 };
  },
  setVolume: (level) => modify(volumeUri, level),
  setMute: (muted) => modify(muteUri, muted ? 1 : 0),
  onError: tellError,
});

listen(volumeNotifyUri, ({ volValue, muteStatus }) => {
  if (typeof volValue === "number") volume.heard({ volume: volValue, muted: muteStatus !== 0 });
});

for (const uri of storedUris()) setWatched(uri, true);

effect(() => {
  document.title = selectedUri.value ? `${selectedUri.value} · dtv inspector` : "dtv inspector";
});

import { batch, computed, signal } from "@preact/signals";
import { itemsOf, type Json, type JsonObject } from "../lib/json";
import { clock, createLog } from "../lib/log";
import { readStored, store } from "../lib/stored";
import type { TapLine } from "../lib/tap-line";
import { dropToken, token } from "../lib/token";
import { tell } from "../ui/notice";
import { groupRows } from "./catalogue";
import { fetchList, listTimeoutMs } from "./listed";
import type { Field, Kind, ListResult, SetResult } from "./protocol";
import { ConnectionError, createClient, isForbidden, type ConnectionState } from "./rpc";
import { wordNow } from "./words";

/** The page's one connection to the host, and the state that several features share. */

export const volumeNotifyUri = "/tv/ws/notify/volume_ctrl";
export const configNotifyUri = "/tv/ws/notify/config_update";

/** What the host lets this page call, judged by its refusals: everything, everything but "tv", or nothing. */
export type Access = "control" | "look" | "none";

/** A line of the log that the page itself has written. */
export interface LogWarning {
  warning: string;
}
export type LogValue = { uri: string; notification: Json } | LogWarning;

// A notification may have 256 KiB, so a number of entries alone would not bound the memory.
const logLimits = { entries: 10_000, characters: 16_000_000 };

export const connection = signal<ConnectionState>({ name: "connecting" });
/** The connection is open, but the host does not answer. */
export const silent = signal(false);
export const access = signal<Access>("control");
export const list = signal<ListResult | null>(null);
export const groups = computed(() => (list.value ? groupRows(list.value) : []));
export const notifications = createLog<LogValue>(logLimits);
export const calls = createLog<TapLine | LogWarning>(logLimits);
export const tracing = signal(false);

export const textOf = (reason: unknown): string => (reason instanceof Error ? reason.message : String(reason));

/** Shows an error, except a missing token: the page shows that through `access` for as long as it lasts. */
export function tellError(reason: unknown) {
  if (!isForbidden(reason)) tell(textOf(reason));
}

// The origin of the page, with ws: or wss:.
const socketUrl = new URL("/jsonrpc", location.href);
socketUrl.protocol = socketUrl.protocol.replace("http", "ws");

const client = createClient({
  url: socketUrl.href,
  token,
  onTokenRefused: dropToken,
  onForbidden(method) {
    // Without the token every host refuses "tv". One that refuses another method refuses them all.
    if (method !== "tv") access.value = "none";
    else if (access.value === "control") access.value = "look";
  },
  onState(state) {
    batch(() => {
      if (state.name === "open") access.value = "control";
      connection.value = state;
    });
    if (state.name === "waiting") gapFrom ??= state.lostAt;
    if (state.name === "open") onOpen();
  },
  onSilent: (now) => (silent.value = now),
  onOverflow(dropped) {
    notifications.add({ warning: dropped === 1 ? wordNow("IDS_DROPPED_ONE") : wordNow("IDS_DROPPED", dropped) });
  },
  onBrokenNotification: (uri, message) => notifications.add({ warning: `${uri}: ${message}` }),
  onTrace: (line) => calls.add(line),
  onSubscribeError(uri, error) {
    if (isForbidden(error)) return;
    tell(wordNow("IDS_CANNOT_SUBSCRIBE", uri, error.message));
    setWatched(uri, false);
  },
});

// A page that becomes visible reconnects without waiting for the rest of the pause.
document.addEventListener("visibilitychange", () => {
  if (document.visibilityState === "visible") client.reconnectNow();
});

// When the connection was lost that is not open again yet. It may never have been open.
let gapFrom: number | null = null;
let wasOpen = false;

/** Writes into the logs from when to when they miss something. */
function logGap() {
  if (gapFrom !== null && wasOpen) {
    const to = Date.now();
    const warning = wordNow("IDS_GAP", clock(gapFrom), clock(to), ((to - gapFrom) / 1000).toFixed(1));
    if (watched.value.size > 0) notifications.add({ warning }, true);
    if (tracing.value) calls.add({ warning }, true);
  }
  gapFrom = null;
  wasOpen = true;
}

// The first list is requested before the connection is there, which takes a line's delay several times.
let early: Promise<ListResult | null> | undefined = fetchList();
let listReads = 0;

async function readList() {
  const read = ++listReads;
  const fetching = early ?? fetchList();
  early = undefined;
  try {
    const fetched = await fetching;
    if (read !== listReads) return;
    list.value = fetched ?? (await client.call("list", undefined, { timeoutMs: listTimeoutMs }));
  } catch (reason) {
    // After a lost connection the next one requests the list again.
    if (connection.peek().name === "open") tellError(reason);
  }
}

let listRead = Promise.resolve();

/** Until the list of URIs is there, or has failed. What the first view can do without waits for it. */
export const afterList = () => listRead;

function onOpen() {
  logGap();
  listRead = readList();
  if (tracing.value) client.call("trace", { on: true }).catch(tellError);
}

export const reconnectNow = () => client.reconnectNow();
export const call = client.call;

// ---- what the list describes

const kinds = computed(() => new Map(list.value?.kinds.map((row) => [row.kind, row])));
/** The description of a field's kind. */
export const kindOf = (field: Field): Kind | undefined => kinds.value.get(field.kind);

/** What the "ret" of a response means. The platform has results that the plugin does not list. */
const meaningOf = (ret: number): string =>
  list.value?.results.find((row) => row.result === ret)?.help ?? wordNow("IDS_RESULT_OF_PLATFORM");

// ---- requests

/** Why a result is not 0, by the host's words; of a host that gives none, the meaning of the number. */
export const reasonOf = ({ ret, reason }: SetResult): string => reason ?? `${meaningOf(ret)} (ret ${ret})`;

/** The response to a request has a negative "ret". */
export class RefusedError extends Error {
  readonly ret: number;
  /** Without the URI. */
  readonly reason: string;

  constructor(uri: string, result: SetResult) {
    super(wordNow("IDS_REFUSED_URI", uri, reasonOf(result)));
    this.name = "RefusedError";
    this.ret = result.ret;
    this.reason = reasonOf(result);
  }
}

/** The first item of a URI's response. */
export async function getItem(uri: string, parameter?: JsonObject): Promise<JsonObject> {
  const result = await client.call("get", { uri, ...(parameter ? { parameter } : {}) });
  if (result.ret < 0) throw new RefusedError(uri, result);
  return itemsOf(result.response)[0] ?? {};
}

export async function setItem(uri: string, parameter: JsonObject): Promise<void> {
  const result = await client.call("set", { uri, parameter });
  if (result.ret < 0) throw new RefusedError(uri, result);
}

/** A command of the virtual television. */
export const television = (...words: string[]): Promise<JsonObject> => client.call("tv", { words });

/** Calls the listener for each item of the URI's notifications until the returned function is called. */
export const listen = (uri: string, listener: (item: JsonObject) => void): (() => void) =>
  client.subscribe(uri, (notification) => itemsOf(notification).forEach(listener));

// ---- notification URIs in the log

const storageKey = "dtv.watched";

function storedUris(): string[] {
  const stored = readStored(storageKey);
  if (Array.isArray(stored)) return stored.filter((uri): uri is string => typeof uri === "string");
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
  store(storageKey, [...unwatch.keys()]);
}

// ---- platform calls

export function setTracing(on: boolean) {
  tracing.value = on;
  client.call("trace", { on }).catch((reason: unknown) => {
    // After a lost connection the next one requests the trace again.
    if (reason instanceof ConnectionError) return;
    tracing.value = false;
    tellError(reason);
  });
}

for (const uri of storedUris()) setWatched(uri, true);

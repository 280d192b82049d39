import { isObject, type Json, type JsonObject } from "../lib/json";
import type { TapLine } from "../lib/tap-line";

/** JSON-RPC 2.0 over WebSocket to dtv-host: calls, shared subscriptions and reconnection. */

export interface GetResult {
  ret: number;
  response: Json;
  calls?: TapLine[];
}

export interface SetResult {
  ret: number;
  calls?: TapLine[];
}

/** One of the values that a field accepts, with its meaning. */
export interface NamedValue {
  value: string | number;
  help?: string;
}

/** One JSON member of a request, a response or a notification. */
export interface Field {
  key: string;
  /** One of the "kinds" in the list. */
  kind: string;
  /** The only URI whose requests read it. */
  uri?: string | null;
  /**
   * Another member on which it depends: the field is read only if that member has this text, or is absent (null). A
   * number cannot be met by a request.
   */
  when?: { key: string; value: string | number | null } | null;
  /** Longest text in bytes. */
  limit?: number | null;
  /** The greatest length of an array. */
  count?: number | null;
  unit?: string | null;
  values?: NamedValue[] | null;
  help?: string | null;
  /** The value of a constant. */
  value?: string | null;
  /** The members of an object. */
  fields?: Field[] | null;
}

export interface UriRow {
  uri: string;
  id: number;
  group: number | string;
  record: number;
  type: string;
  /** Whether a get or set has an effect, and whether the event is raised. */
  get: boolean;
  set: boolean;
  notify: boolean;
  /** Requests that are accepted but have no effect. */
  without_effect?: ("get" | "set")[];
  help?: string;
  /** The unit of the item's value. */
  unit?: string;
  values?: NamedValue[];
}

/** A kind of field. The limits are decimal numbers as texts. */
export interface Kind {
  kind: string;
  json: "number" | "string" | "array" | "object";
  help: string;
  minimum?: string;
  maximum?: string;
}

/** The meaning of a response's "ret". */
export interface ResultRow {
  result: number;
  name: string;
  help: string;
}

export interface ItemType {
  query: Field[] | null;
  set: { request: string; fields: Field[] } | null;
  response: Field[] | null;
  notify: { form: string; member: string; bound: number | null; fields: Field[] } | null;
}

export interface ListResult {
  uris: UriRow[];
  types: Record<string, ItemType>;
  kinds: Kind[];
  results: ResultRow[];
}

interface Methods {
  authorize: { params: { token: string }; result: JsonObject };
  get: { params: { uri: string; parameter?: JsonObject; trace?: boolean }; result: GetResult };
  set: { params: { uri: string; parameter: JsonObject; trace?: boolean }; result: SetResult };
  subscribe: { params: { uri: string }; result: JsonObject };
  unsubscribe: { params: { uri: string }; result: JsonObject };
  list: { params: undefined; result: ListResult };
  trace: { params: { on: boolean }; result: JsonObject };
  tv: { params: { words: string[] }; result: JsonObject };
}

export type Method = keyof Methods;
export type Params<M extends Method> = Methods[M]["params"];
export type Result<M extends Method> = Methods[M]["result"];

/** The error with which the host answered a call. */
export class RpcError extends Error {
  constructor(
    readonly code: number,
    message: string,
    readonly data: Json | undefined,
  ) {
    super(message);
    this.name = "RpcError";
  }
}

const unknownMethod = -32601;
const forbidden = -32006;

/** Whether the host refused a call because the connection is not authorized, or refused the token. */
export const isForbidden = (reason: unknown): boolean => reason instanceof RpcError && reason.code === forbidden;

/** A call got no answer: there was no connection, it was lost, or the answer did not come in time. */
export class ConnectionError extends Error {
  constructor(message: string) {
    super(message);
    this.name = "ConnectionError";
  }
}

export type ConnectionState =
  | { name: "connecting" }
  | { name: "open" }
  /** `retryAt` is a time of Date.now(). */
  | { name: "waiting"; retryAt: number };

export interface ClientOptions {
  url: string;
  /** Returns the host's token or null. Called on each connection; the token is sent before any other call. */
  token?: () => string | null;
  /** The host refused the token. */
  onTokenRefused?: (token: string) => void;
  /** The host refused a call of the method because the connection is not authorized. */
  onForbidden?: (method: Method) => void;
  onState?: (state: ConnectionState) => void;
  /** The host dropped notifications because this client read them too slowly. */
  onOverflow?: (dropped: number) => void;
  onTrace?: (line: TapLine) => void;
  /** The host could not pass on a notification; the message says why. */
  onBrokenNotification?: (uri: string, message: string) => void;
  /** The host refused a subscription, possibly when it was renewed after a reconnection. */
  onSubscribeError?: (uri: string, error: Error) => void;
  timeoutMs?: number;
  /** The pause before a reconnection: it starts at `first` and doubles up to `longest`. */
  retryMs?: { first: number; longest: number };
}

export interface Client {
  call<M extends Method>(method: M, ...params: Params<M> extends undefined ? [] : [Params<M>]): Promise<Result<M>>;
  /**
   * Calls the listener for each notification of the URI until the returned function is called. Listeners of one URI
   * share one subscription, which is renewed after a reconnection.
   */
  subscribe(uri: string, listener: (notification: Json) => void): () => void;
  /** Ends the pause before the next attempt to connect. */
  reconnectNow(): void;
  close(): void;
}

interface PendingCall {
  method: Method;
  resolve: (result: Json) => void;
  reject: (error: Error) => void;
  timer: ReturnType<typeof setTimeout>;
}

const asError = (reason: unknown): Error => (reason instanceof Error ? reason : new Error(String(reason)));

export function createClient(options: ClientOptions): Client {
  const timeoutMs = options.timeoutMs ?? 20_000;
  const retry = options.retryMs ?? { first: 250, longest: 5_000 };
  const pending = new Map<number, PendingCall>();
  const listeners = new Map<string, Set<(notification: Json) => void>>();
  let socket: WebSocket | undefined;
  let retryTimer: ReturnType<typeof setTimeout> | undefined;
  let pause = retry.first;
  let lastId = 0;
  let closed = false;

  const isOpen = () => socket?.readyState === WebSocket.OPEN;

  function failPending(message: string) {
    for (const call of pending.values()) {
      clearTimeout(call.timer);
      call.reject(new ConnectionError(message));
    }
    pending.clear();
  }

  function send(method: Method, params: unknown): Promise<Json> {
    return new Promise((resolve, reject) => {
      if (!socket || !isOpen()) {
        reject(new ConnectionError("Not connected to the host."));
        return;
      }
      const id = ++lastId;
      const timer = setTimeout(() => {
        pending.delete(id);
        reject(new ConnectionError(`No answer to "${method}" within ${timeoutMs / 1000} s.`));
      }, timeoutMs);
      pending.set(id, { method, resolve, reject, timer });
      socket.send(JSON.stringify({ jsonrpc: "2.0", id, method, ...(params === undefined ? {} : { params }) }));
    });
  }

  function authorize() {
    const token = options.token?.();
    if (!token) return;
    send("authorize", { token }).catch((reason: unknown) => {
      // A host without this method requires no token.
      if (reason instanceof RpcError && reason.code !== unknownMethod) options.onTokenRefused?.(token);
    });
  }

  function requestSubscription(uri: string) {
    send("subscribe", { uri }).catch((reason: unknown) => {
      // After a lost connection the next one renews the subscription.
      if (!(reason instanceof ConnectionError)) options.onSubscribeError?.(uri, asError(reason));
    });
  }

  function answer(id: number, message: JsonObject) {
    const call = pending.get(id);
    if (!call) return;
    pending.delete(id);
    clearTimeout(call.timer);
    const error = message["error"];
    if (!isObject(error)) {
      call.resolve(message["result"] ?? null);
      return;
    }
    const refusal = new RpcError(Number(error["code"]), String(error["message"]), error["data"]);
    if (isForbidden(refusal) && call.method !== "authorize") options.onForbidden?.(call.method);
    call.reject(refusal);
  }

  function receiveNotification(method: Json | undefined, params: JsonObject) {
    if (method === "notify") {
      const uri = String(params["uri"]);
      const error = params["error"];
      if (isObject(error)) {
        options.onBrokenNotification?.(uri, String(error["message"]));
        return;
      }
      for (const listener of listeners.get(uri) ?? []) listener(params["notification"] ?? null);
    } else if (method === "overflow") {
      options.onOverflow?.(Number(params["dropped"]));
    } else if (method === "trace") {
      options.onTrace?.(params as unknown as TapLine);
    }
  }

  function receive(text: string) {
    let parsed: Json;
    try {
      parsed = JSON.parse(text) as Json;
    } catch {
      console.warn("The host sent a text that is not JSON:", text.slice(0, 200));
      return;
    }
    for (const message of Array.isArray(parsed) ? parsed : [parsed]) {
      if (!isObject(message)) continue;
      const id = message["id"];
      if (typeof id === "number") answer(id, message);
      else receiveNotification(message["method"], isObject(message["params"]) ? message["params"] : {});
    }
  }

  function open() {
    clearTimeout(retryTimer);
    options.onState?.({ name: "connecting" });
    const opened = new WebSocket(options.url);
    socket = opened;
    opened.onopen = () => {
      pause = retry.first;
      // The host handles messages in order, so the subscriptions need not wait for the answer to "authorize".
      authorize();
      for (const uri of listeners.keys()) requestSubscription(uri);
      options.onState?.({ name: "open" });
    };
    opened.onmessage = (event: MessageEvent<unknown>) => {
      if (typeof event.data === "string") receive(event.data);
    };
    opened.onclose = () => {
      if (closed || socket !== opened) return;
      socket = undefined;
      failPending("The connection to the host was lost.");
      // The random part keeps many pages from reconnecting at the same moment.
      const wait = pause * (1 + Math.random() / 4);
      pause = Math.min(pause * 2, retry.longest);
      retryTimer = setTimeout(open, wait);
      options.onState?.({ name: "waiting", retryAt: Date.now() + wait });
    };
  }

  open();

  return {
    call: <M extends Method>(method: M, ...params: [] | [Params<M>]) =>
      send(method, params[0]) as unknown as Promise<Result<M>>,
    subscribe(uri, listener) {
      const known = listeners.get(uri);
      if (known) {
        known.add(listener);
      } else {
        listeners.set(uri, new Set([listener]));
        if (isOpen()) requestSubscription(uri);
      }
      return () => {
        const rest = listeners.get(uri);
        if (!rest?.delete(listener) || rest.size > 0) return;
        listeners.delete(uri);
        if (isOpen()) send("unsubscribe", { uri }).catch(() => undefined);
      };
    },
    reconnectNow() {
      if (!closed && !socket) open();
    },
    close() {
      closed = true;
      clearTimeout(retryTimer);
      socket?.close();
      failPending("The client was closed.");
    },
  };
}

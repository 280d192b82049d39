import { isObject, parseExactly, type Json, type JsonObject } from "../lib/json";
import type { TapLine } from "../lib/tap-line";
import { watchLiveness, type Liveness } from "./liveness";
import type { Method, Params, Result } from "./protocol";
import { wordNow } from "./words";

/** JSON-RPC 2.0 over WebSocket to dtv-host: calls, shared subscriptions and reconnection. */

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

/** A call got no answer: there was no connection, it was lost, the answer did not come in time, or nobody waits for it. */
export class ConnectionError extends Error {
  constructor(message: string) {
    super(message);
    this.name = "ConnectionError";
  }
}

export type ConnectionState =
  | { name: "connecting" }
  | { name: "open" }
  /** Times of Date.now(): when the connection was lost, and when the next attempt begins. */
  | { name: "waiting"; lostAt: number; retryAt: number };

export interface ClientOptions {
  url: string;
  /** Returns the host's token or null. Called on each connection; the token is sent before any other call. */
  token?: () => string | null;
  /** The host refused the token. */
  onTokenRefused?: (token: string) => void;
  /** The host refused a call of the method because the connection is not authorized. */
  onForbidden?: (method: Method) => void;
  onState?: (state: ConnectionState) => void;
  /** The host does not answer over the open connection, or answers again. */
  onSilent?: (silent: boolean) => void;
  /** The host dropped notifications because this client read them too slowly. */
  onOverflow?: (dropped: number) => void;
  onTrace?: (line: TapLine) => void;
  /** The host could not pass on a notification; the message says why. */
  onBrokenNotification?: (uri: string, message: string) => void;
  /** The host refused a subscription, possibly when it was renewed after a reconnection. */
  onSubscribeError?: (uri: string, error: Error) => void;
  /** The pause before a reconnection: it starts at `first` and doubles up to `longest`. */
  retryMs?: { first: number; longest: number };
}

export interface CallOptions {
  /** How long the client waits for the answer; 20 s if absent. */
  timeoutMs?: number;
  /** Ends the wait with the signal's reason. A later answer is ignored. */
  signal?: AbortSignal;
  /** A JSON text that is sent as the member "parameter", as it is, in place of that of the params. */
  parameterJson?: string;
}

/** What follows the method's name in a call. */
type Arguments<M extends Method> = Params<M> extends undefined
  ? [params?: undefined, options?: CallOptions]
  : [params: Params<M>, options?: CallOptions];

export interface Client {
  call<M extends Method>(method: M, ...rest: Arguments<M>): Promise<Result<M>>;
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

const usualTimeoutMs = 20_000;

function messageText(id: number, method: Method, params: unknown, parameterJson: string | undefined): string {
  if (parameterJson === undefined) return JSON.stringify({ jsonrpc: "2.0", id, method, ...(params === undefined ? {} : { params }) });
  const others = JSON.stringify({ ...(params as object), parameter: undefined });
  return `{"jsonrpc":"2.0","id":${id},"method":"${method}","params":${others.slice(0, -1)},"parameter":${parameterJson}}}`;
}

const asError = (reason: unknown): Error => (reason instanceof Error ? reason : new Error(String(reason)));

export function createClient(options: ClientOptions): Client {
  const retry = options.retryMs ?? { first: 250, longest: 5_000 };
  const pending = new Map<number, PendingCall>();
  const listeners = new Map<string, Set<(notification: Json) => void>>();
  let socket: WebSocket | undefined;
  let liveness: Liveness | undefined;
  let heardAt = 0;
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

  function send(method: Method, params?: unknown, { timeoutMs = usualTimeoutMs, signal, parameterJson }: CallOptions = {}): Promise<Json> {
    return new Promise((resolve, reject) => {
      if (!socket || !isOpen()) {
        reject(new ConnectionError(wordNow("IDS_NOT_CONNECTED_HOST")));
        return;
      }
      const id = ++lastId;
      const giveUp = (reason: Error) => {
        const call = pending.get(id);
        if (!call) return;
        pending.delete(id);
        clearTimeout(call.timer);
        reject(reason);
      };
      const late = new ConnectionError(wordNow("IDS_NO_ANSWER_WITHIN", method, timeoutMs / 1000));
      const timer = setTimeout(() => giveUp(late), timeoutMs);
      signal?.addEventListener("abort", () => giveUp(asError(signal.reason)), { once: true });
      pending.set(id, { method, resolve, reject, timer });
      socket.send(messageText(id, method, params, parameterJson));
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
      parsed = parseExactly(text);
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

  /** The connection is gone, or counts as gone: its calls fail, and another attempt follows. */
  function lose(lostAt: number) {
    liveness?.stop();
    const lost = socket;
    socket = undefined;
    // The browser waits for the host's part of the closing, which may never come. Nothing listens to it any more.
    lost?.close();
    options.onSilent?.(false);
    failPending(wordNow("IDS_CONNECTION_LOST"));
    // The random part keeps many pages from reconnecting at the same moment.
    const wait = pause * (1 + Math.random() / 4);
    pause = Math.min(pause * 2, retry.longest);
    retryTimer = setTimeout(open, wait);
    options.onState?.({ name: "waiting", lostAt, retryAt: Date.now() + wait });
  }

  function open() {
    clearTimeout(retryTimer);
    options.onState?.({ name: "connecting" });
    const opened = new WebSocket(options.url);
    socket = opened;
    heardAt = Date.now();
    liveness = watchLiveness({
      // Any answer shows that the host lives, even that it does not know the method.
      ask: () => void (isOpen() && send("ping").catch(() => undefined)),
      onSilent: (silent) => isOpen() && options.onSilent?.(silent),
      onLost: () => lose(heardAt),
      expectsLong: () => [...pending.values()].some(({ method }) => method === "list"),
    });
    opened.onopen = () => {
      if (socket !== opened) return;
      pause = retry.first;
      liveness?.heard();
      // The host handles messages in order, so the subscriptions need not wait for the answer to "authorize".
      authorize();
      for (const uri of listeners.keys()) requestSubscription(uri);
      options.onState?.({ name: "open" });
    };
    opened.onmessage = (event: MessageEvent<unknown>) => {
      if (socket !== opened) return;
      heardAt = Date.now();
      liveness?.heard();
      if (typeof event.data === "string") receive(event.data);
    };
    opened.onclose = () => {
      if (!closed && socket === opened) lose(heardAt);
    };
  }

  open();

  return {
    call: <M extends Method>(method: M, ...rest: [Params<M>?, CallOptions?]) =>
      send(method, ...rest) as unknown as Promise<Result<M>>,
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
      liveness?.stop();
      socket?.close();
      failPending(wordNow("IDS_CONNECTION_LOST"));
    },
  };
}

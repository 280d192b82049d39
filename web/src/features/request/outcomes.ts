import { signal } from "@preact/signals";
import type { GetResult, SetResult } from "../../app/protocol";
import { call } from "../../app/session";
import { compactJson, type JsonObject } from "../../lib/json";
import { readStored, store } from "../../lib/stored";
import { remember } from "./history";
import { label } from "./words";

/** A request as the page sends it and remembers it. */
export interface Request {
  method: "get" | "set";
  uri: string;
  parameter?: JsonObject | undefined;
  /** The parameter as the user typed it, if it was typed as JSON. It is sent as it is. */
  typed?: string | undefined;
  strict?: boolean | undefined;
}

/** The last response, or error, of a URI on this page. */
export interface Outcome {
  request: Request;
  millis: number;
  /** Increases with each request, so that a response equal to the last one is shown as new. */
  number: number;
  answer: GetResult | SetResult | { error: Error };
}

/** A request whose answer the page waits for. */
export interface Waiting {
  request: Request;
  /** A time of performance.now(). */
  since: number;
  cancel: () => void;
}

/** The user stopped waiting. */
export class CancelledError extends Error {
  constructor() {
    super(label("IDS_STOPPED_WAITING"));
    this.name = "CancelledError";
  }
}

export const outcomes = signal<ReadonlyMap<string, Outcome>>(new Map());
/** By URI: there is one at a time. */
export const waiting = signal<ReadonlyMap<string, Waiting>>(new Map());

// The user sees the wait and can end it, so it may be longer than that of other calls.
const timeoutMs = 10 * 60_000;

const strictKey = "dtv.strict";

/** Whether requests are refused that would get warnings. */
export const strict = signal(readStored(strictKey) === true);

export function setStrict(on: boolean) {
  strict.value = on;
  store(strictKey, on);
}

let requests = 0;

/** Sends a request, unless one of its URI is waiting. */
export async function send(request: Request) {
  const { method, uri, parameter, typed, strict } = request;
  if (waiting.peek().has(uri)) return;
  remember(request);
  const abort = new AbortController();
  const since = performance.now();
  waiting.value = new Map(waiting.peek()).set(uri, { request, since, cancel: () => abort.abort(new CancelledError()) });
  const params = { uri, ...(strict ? { strict } : {}), trace: true };
  const parameterJson = typed ?? (parameter && compactJson(parameter));
  const options = { timeoutMs, signal: abort.signal, ...(parameterJson === undefined ? {} : { parameterJson }) };
  let answer: Outcome["answer"];
  try {
    answer =
      method === "get" ? await call("get", params, options) : await call("set", { ...params, parameter: {} }, options);
  } catch (reason) {
    answer = { error: reason instanceof Error ? reason : new Error(String(reason)) };
  }
  const outcome: Outcome = { request, millis: performance.now() - since, number: ++requests, answer };
  const rest = new Map(waiting.peek());
  rest.delete(uri);
  waiting.value = rest;
  outcomes.value = new Map(outcomes.peek()).set(uri, outcome);
}

import { signal } from "@preact/signals";
import { compactJson, isObject, minifyJson, type Json } from "../../lib/json";
import { readStored, store } from "../../lib/stored";
import type { Request } from "./outcomes";

/** The latest requests of this browser, newest first. */

const storageKey = "dtv.requests";
const mostRequests = 50;
/** A request with a longer JSON text is not kept. */
const mostCharacters = 10_000;

function isRequest(value: Json | undefined): boolean {
  if (!isObject(value)) return false;
  const { method, uri, parameter, typed } = value;
  if (typed !== undefined && typeof typed !== "string") return false;
  return (method === "get" || method === "set") && typeof uri === "string" && (parameter === undefined || isObject(parameter));
}

function read(): Request[] {
  const stored = readStored(storageKey);
  return Array.isArray(stored) ? (stored.filter(isRequest).slice(0, mostRequests) as unknown as Request[]) : [];
}

export const history = signal<readonly Request[]>(read());

/** The parameter on one line; empty if there is none. */
export const textOf = ({ parameter, typed }: Request): string =>
  typed !== undefined ? minifyJson(typed) : parameter ? compactJson(parameter) : "";

const same = (one: Request, other: Request): boolean =>
  one.method === other.method && one.uri === other.uri && textOf(one) === textOf(other);

const asJson = (request: Request): Json => request as unknown as Json;

/** Puts a request first. What could have a PIN or a password is not kept. */
export function remember({ method, uri, parameter, typed }: Request) {
  const request: Request = { method, uri, ...(parameter ? { parameter } : {}), ...(typed === undefined ? {} : { typed }) };
  const text = compactJson(asJson(request));
  if (/password|pin/i.test(text) || text.length > mostCharacters) return;
  // Another tab may have added requests. A browser without storage keeps this page's own.
  const known = read();
  history.value = [request, ...(known.length > 0 ? known : history.peek()).filter((each) => !same(each, request))].slice(0, mostRequests);
  store(storageKey, history.value.map(asJson));
}

export function forgetAll() {
  history.value = [];
  store(storageKey, []);
}

/** The request that the form of its URI takes over; `number` increases, so that the same one can be taken twice. */
export const recalled = signal<{ request: Request; number: number } | null>(null);

/** Opens the URI of a remembered request, with the request in its form. */
export function recall(request: Request) {
  recalled.value = { request, number: (recalled.peek()?.number ?? 0) + 1 };
  location.hash = request.uri;
}

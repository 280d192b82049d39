import type { Json, JsonObject } from "../lib/json";
import type { TapLine } from "../lib/tap-line";

/** What dtv-host's methods take and return, and what its list says of each URI. */

export interface SetResult {
  ret: number;
  /** What was wrong and what would be right, if `ret` is not 0. */
  reason?: string;
  /** What the set changed in the request, or ignored, without refusing it. */
  warnings?: string[];
  /** With `trace`: the platform's calls, and the plugin's log. */
  calls?: TapLine[];
  log?: string[];
}

export interface GetResult extends SetResult {
  response: Json;
}

/** Of a request: `strict` refuses one that would get warnings. */
interface Manner {
  trace?: boolean;
  strict?: boolean;
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
  /** A number's own range, narrower than that of its kind, as texts. */
  minimum?: string | undefined;
  maximum?: string | undefined;
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
  /** The members without which a request is refused or means something else: of each inner list, one. */
  get_needs?: string[][];
  set_needs?: string[][];
  help?: string;
  /** The unit of the item's value. */
  unit?: string;
  values?: NamedValue[];
  /** The range of the item's value. */
  minimum?: string;
  maximum?: string;
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
  get: { params: { uri: string; parameter?: JsonObject } & Manner; result: GetResult };
  set: { params: { uri: string; parameter: JsonObject } & Manner; result: SetResult };
  ping: { params: undefined; result: JsonObject };
  subscribe: { params: { uri: string }; result: JsonObject };
  unsubscribe: { params: { uri: string }; result: JsonObject };
  list: { params: undefined; result: ListResult };
  trace: { params: { on: boolean }; result: JsonObject };
  tv: { params: { words: string[] }; result: JsonObject };
}

export type Method = keyof Methods;
export type Params<M extends Method> = Methods[M]["params"];
export type Result<M extends Method> = Methods[M]["result"];

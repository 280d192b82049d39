import { batch, signal, type ReadonlySignal, type Signal } from "@preact/signals";
import { isForbidden, RpcError } from "../../app/rpc";
import { getItem, RefusedError, setItem, television, textOf } from "../../app/session";
import { compactJson, type Json, type JsonObject } from "../../lib/json";
import { label } from "./words";

/**
 * The television's configuration. The virtual television lists all keys and describes them. On another television the
 * viewer names the keys, and the plugin describes them. Values are always written through the plugin.
 */

export type ConfigKind = "bool" | "number" | "code" | "text" | "action";

export interface ConfigEntry {
  key: string;
  /** The numeric item id; null for a value that has none. */
  item: number | null;
  kind: ConfigKind;
  value: Json;
  /** The factory default, if it is known. */
  factory: Json | undefined;
  minimum: number | undefined;
  maximum: number | undefined;
  /** The greatest length of a text in bytes. */
  longest: number | undefined;
  /** The names of a number's values, by the number; undefined if they have none. */
  names: Readonly<Record<string, string>> | undefined;
  help: string;
}

export interface ConfigRow {
  key: string;
  /** "audio" of "g_audio__bass"; empty if the key has none. */
  group: string;
  /** The text that a search examines, in lower case. */
  haystack: string;
  entry: Signal<ConfigEntry>;
  /** It changed a moment ago. */
  changed: Signal<boolean>;
  /** Why the last write was refused; empty if it was not. */
  problem: Signal<string>;
}

const changedMs = 2500;

const numberOf = (value: Json | undefined): number | undefined => (typeof value === "number" ? value : undefined);
const same = (one: Json, other: Json): boolean => compactJson(one) === compactJson(other);

// ---- reading an entry

/** Reads an entry with a command of the virtual television. */
async function describedEntry(key: string): Promise<ConfigEntry> {
  const told = await television("config", key);
  const item = Number(told["item"]);
  return {
    key,
    item: item > 0 ? item : null,
    kind: told["kind"] as ConfigKind,
    value: told["value"] ?? null,
    factory: told["default"],
    minimum: numberOf(told["minimum"]),
    maximum: numberOf(told["maximum"]),
    longest: numberOf(told["longest"]),
    names: told["values"] as Record<string, string> | undefined,
    help: String(told["help"] ?? ""),
  };
}

/** Reads an entry through the plugin. A value that cannot be read as a text is a number. */
async function askedEntry(key: string): Promise<ConfigEntry> {
  const limits = { minimum: undefined, maximum: undefined, longest: undefined, names: undefined };
  const unknown = { key, item: null, factory: undefined, help: "", ...limits };
  const parameter: JsonObject = { REQUEST: "QUERY", cfgId: key };
  try {
    const { valueString } = await getItem("/tv/config/value_string", parameter);
    return { ...unknown, kind: "text", value: valueString ?? "" };
  } catch (reason) {
    if (!(reason instanceof RefusedError)) throw reason;
  }
  const { valueInt, valueMin, valueMax } = await getItem("/tv/config/value_range", parameter);
  // Equal limits, such as 0 and 0, mean that the limits are unknown.
  const told = valueMin === valueMax ? {} : { minimum: numberOf(valueMin), maximum: numberOf(valueMax) };
  return { ...unknown, ...told, kind: "number", value: valueInt ?? 0 };
}

// ---- the known entries

const known = new Map<string, ConfigRow>();
const listed = signal<ConfigRow[]>([]);
/** Whether the television lists its keys; null while that is unknown. */
const lists = signal<boolean | null>(null);

export const configRows: ReadonlySignal<ConfigRow[]> = listed;
export const configLists: ReadonlySignal<boolean | null> = lists;

const timers = new Map<string, ReturnType<typeof setTimeout>>();

function markChanged(row: ConfigRow) {
  clearTimeout(timers.get(row.key));
  row.changed.value = true;
  timers.set(row.key, setTimeout(() => (row.changed.value = false), changedMs));
}

function take(entry: ConfigEntry) {
  const row = known.get(entry.key);
  if (!row) {
    const { key, help, names } = entry;
    const fresh = { entry: signal(entry), changed: signal(false), problem: signal("") };
    const haystack = [key, help, ...Object.values(names ?? {})].join(" ").toLowerCase();
    known.set(key, { key, group: /^g_(.+?)__/.exec(key)?.[1] ?? "", haystack, ...fresh });
  } else if (!same(row.entry.peek().value, entry.value)) {
    row.entry.value = entry;
    row.problem.value = "";
    markChanged(row);
  }
}

const readEntry = (key: string): Promise<ConfigEntry> => (lists.peek() ? describedEntry(key) : askedEntry(key));

async function refreshListed(values: JsonObject) {
  const keys = Object.keys(values);
  const news = keys.filter((key) => !known.has(key));
  const entries = await Promise.all(news.map(describedEntry));
  batch(() => {
    for (const entry of entries) take(entry);
    for (const [key, value] of Object.entries(values)) {
      const row = known.get(key);
      if (row && !news.includes(key)) take({ ...row.entry.peek(), value });
    }
    if (news.length > 0) listed.value = keys.flatMap((key) => known.get(key) ?? []);
  });
}

let changes = 0;

/** Reads every value again. */
export async function refreshConfig() {
  const before = changes;
  if (lists.peek() !== false) {
    let values: JsonObject;
    try {
      values = await television("config");
    } catch (reason) {
      if (lists.peek() || isForbidden(reason) || !(reason instanceof RpcError)) throw reason;
      lists.value = false;
      return;
    }
    lists.value = true;
    // If a single value was read meanwhile, it may be newer than this answer. The next poll brings the rest.
    if (changes === before) await refreshListed(values);
    return;
  }
  const entries = await Promise.all(listed.peek().map((row) => askedEntry(row.key)));
  if (changes === before) batch(() => entries.forEach(take));
}

/** Reads one value again, for example after a notification of its change. */
export async function refreshKey(key: string) {
  if (!known.has(key)) return;
  changes++;
  take(await readEntry(key));
}

/** Adds a key that the viewer named. */
export async function addKey(key: string) {
  if (known.has(key)) return;
  take(await askedEntry(key));
  listed.value = [...known.values()];
}

// ---- writing

/** The letters of a code as a number, with the first letter in the highest byte. */
const packed = (code: string): number =>
  [...code].reduce((bits, letter, index) => bits | (letter.charCodeAt(0) << (24 - 8 * index)), 0);

/** The request that writes a value. Switches and actions are addressed by their item id if they have one. */
function requestFor({ key, item, kind }: ConfigEntry, value: Json): [uri: string, parameter: JsonObject] {
  const byItem: JsonObject = item === null ? { cfgId: key } : { cfgItem: item };
  const parts: Record<ConfigKind, [string, JsonObject]> = {
    bool: [item === null ? "value_number" : "value_bool", { ...byItem, valueInt: value ? 1 : 0 }],
    number: ["value_number", { cfgId: key, valueInt: value }],
    code: ["value_number", { cfgId: key, valueInt: packed(String(value)) }],
    text: ["value_string", { cfgId: key, valueString: value }],
    action: ["value_action", byItem],
  };
  const [name, members] = parts[kind];
  return [`/tv/config/${name}`, { REQUEST: "SET", ...members }];
}

const signed = (number: number): string => String(number).replace("-", "−");

/** "0 to 100" or "at most 64 bytes"; empty if the limits are unknown. */
export function limitsOf({ kind, minimum, maximum, longest }: ConfigEntry): string {
  if (minimum !== undefined && maximum !== undefined) return label("IDS_RANGE", signed(minimum), signed(maximum));
  if (longest !== undefined) return label("IDS_AT_MOST_BYTES", longest);
  return kind === "code" ? label("IDS_THREE_LETTERS") : "";
}

/** A value as it is shown: by its name if it has one. */
export function textOfValue({ names }: ConfigEntry, value: Json): string {
  if (typeof value === "boolean") return label(value ? "IDS_ON" : "IDS_OFF");
  return value === "" ? "“”" : (names?.[String(value)] ?? String(value));
}

/** Whether an action changes values. The page asks the viewer before it sends such an action. */
export const isDestructive = ({ kind, key }: ConfigEntry): boolean => kind === "action" && /__(reset|clear)_/.test(key);

/** The value of a typed text, or why it cannot be sent. The television checks the limits. */
export function valueOf({ kind }: ConfigEntry, typed: string): { value: Json } | { problem: string } {
  if (kind === "number") {
    const value = Number(typed);
    if (typed.trim() === "" || !Number.isInteger(value)) return { problem: label("IDS_NEEDS_WHOLE") };
    if (value !== (value | 0)) return { problem: label("IDS_NEEDS_32_BITS") };
    return { value };
  }
  if (kind === "code" && !/^[a-z]{3}$/i.test(typed)) return { problem: label("IDS_NEEDS_LETTERS") };
  return { value: kind === "code" ? typed.toLowerCase() : typed };
}

/** Writes a value and reads it back. Returns whether the television accepted it; the row shows why not. */
export async function writeConfig(row: ConfigRow, value: Json): Promise<boolean> {
  const entry = row.entry.peek();
  try {
    await setItem(...requestFor(entry, value));
    row.problem.value = "";
    // An action may change any value.
    await (entry.kind === "action" ? refreshConfig() : refreshKey(row.key));
    return true;
  } catch (reason) {
    // The line of the value shows its limits already.
    row.problem.value = reason instanceof RefusedError ? label("IDS_REFUSED", reason.reason) : textOf(reason);
    return false;
  }
}

import { batch, signal, type ReadonlySignal, type Signal } from "@preact/signals";
import { isForbidden, RpcError } from "../../app/rpc";
import { getItem, meaningOf, RefusedError, setItem, television, textOf } from "../../app/session";
import type { Json, JsonObject } from "../../lib/json";

/**
 * The television's configuration. The virtual television lists it; of another one the keys have to be named, and what
 * the plugin tells of them is shown. Values are always written through the plugin.
 */

export type ConfigKind = "bool" | "number" | "code" | "text" | "action";

export interface ConfigEntry {
  key: string;
  /** The numeric item id; null for a value that has none. */
  item: number | null;
  kind: ConfigKind;
  value: Json;
  /** The value of a new set, where that is known. */
  factory: Json | undefined;
  minimum: number | undefined;
  maximum: number | undefined;
  /** Of a text, in bytes. */
  longest: number | undefined;
  help: string;
}

export interface ConfigRow {
  key: string;
  /** What a search looks at, in lower case. */
  haystack: string;
  entry: Signal<ConfigEntry>;
  /** It changed a moment ago. */
  changed: Signal<boolean>;
  /** Why the last write was refused; empty when it was not. */
  problem: Signal<string>;
}

const changedMs = 2500;

const numberOf = (value: Json | undefined): number | undefined => (typeof value === "number" ? value : undefined);
const same = (one: Json, other: Json): boolean => JSON.stringify(one) === JSON.stringify(other);

// ---- where the entries come from

/** By the command of the virtual television. */
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
    help: String(told["help"] ?? ""),
  };
}

/** By the plugin: what is no text is a number. */
async function askedEntry(key: string): Promise<ConfigEntry> {
  const limits = { minimum: undefined, maximum: undefined, longest: undefined };
  const unknown = { key, item: null, factory: undefined, help: "", ...limits };
  const parameter: JsonObject = { REQUEST: "QUERY", cfgId: key };
  try {
    const { valueString } = await getItem("/tv/config/value_string", parameter);
    return { ...unknown, kind: "text", value: valueString ?? "" };
  } catch (reason) {
    if (!(reason instanceof RefusedError)) throw reason;
  }
  const { valueInt, valueMin, valueMax } = await getItem("/tv/config/value_range", parameter);
  // 0 and 0 stand for limits that are not told.
  const told = valueMin === valueMax ? {} : { minimum: numberOf(valueMin), maximum: numberOf(valueMax) };
  return { ...unknown, ...told, kind: "number", value: valueInt ?? 0 };
}

// ---- what is known

const known = new Map<string, ConfigRow>();
const listed = signal<ConfigRow[]>([]);
/** False: the television lists nothing, keys have to be named. Null while that is not known. */
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
    const { key, help } = entry;
    const fresh = { entry: signal(entry), changed: signal(false), problem: signal("") };
    known.set(key, { key, haystack: `${key} ${help}`.toLowerCase(), ...fresh });
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

/** Reads every value anew. */
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
    // A value that was read since is newer than this answer; the next one has it, too.
    if (changes === before) await refreshListed(values);
    return;
  }
  const entries = await Promise.all(listed.peek().map((row) => askedEntry(row.key)));
  if (changes === before) batch(() => entries.forEach(take));
}

/** Reads one value anew, as after a notification of its change. */
export async function refreshKey(key: string) {
  if (!known.has(key)) return;
  changes++;
  take(await readEntry(key));
}

/** Adds a key that the viewer has named. */
export async function addKey(key: string) {
  if (known.has(key)) return;
  take(await askedEntry(key));
  listed.value = [...known.values()];
}

// ---- writing

/** A code's letters, the first one in the highest byte. */
const packed = (code: string): number =>
  [...code].reduce((bits, letter, index) => bits | (letter.charCodeAt(0) << (24 - 8 * index)), 0);

/** The URI and the value's member, by kind; switches and actions go by their item id where they have one. */
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

/** "0 to 100", "at most 64 bytes"; empty where nothing is known. */
export function limitsOf({ kind, minimum, maximum, longest }: ConfigEntry): string {
  if (minimum !== undefined && maximum !== undefined) return `${signed(minimum)} to ${signed(maximum)}`;
  if (longest !== undefined) return `at most ${longest} bytes`;
  return kind === "code" ? "three letters" : "";
}

/** What is typed into a row, or why it cannot be sent at all; the television looks at the limits. */
export function valueOf({ kind }: ConfigEntry, typed: string): { value: Json } | { problem: string } {
  if (kind === "number") {
    const value = Number(typed);
    if (typed.trim() === "" || !Number.isInteger(value)) return { problem: "A whole number is needed." };
    if (value !== (value | 0)) return { problem: "This is no number of 32 bits." };
    return { value };
  }
  if (kind === "code" && !/^[a-z]{3}$/i.test(typed)) return { problem: "Three letters are needed." };
  return { value: kind === "code" ? typed.toLowerCase() : typed };
}

/** Writes a value and reads it back. Returns whether it was taken; the row says why not. */
export async function writeConfig(row: ConfigRow, value: Json): Promise<boolean> {
  const entry = row.entry.peek();
  const limits = limitsOf(entry);
  try {
    await setItem(...requestFor(entry, value));
    row.problem.value = "";
    // An action may have changed anything.
    await (entry.kind === "action" ? refreshConfig() : refreshKey(row.key));
    return true;
  } catch (reason) {
    row.problem.value =
      reason instanceof RefusedError
        ? `Not taken: ${meaningOf(reason.ret)} (ret ${signed(reason.ret)}).${limits && ` It takes ${limits}.`}`
        : textOf(reason);
    return false;
  }
}

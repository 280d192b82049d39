import type { Field, Kind, UriRow } from "../../app/protocol";
import { isObject, type Json, type JsonObject } from "../../lib/json";
import { label } from "./words";

/** A field of a URI's item. If the type gives the value no unit or named values, those of the URI apply. */
export const ofUri = (field: Field, row: UriRow): Field =>
  field.key !== "VALUE"
    ? field
    : { ...field, unit: field.unit ?? row.unit ?? null, values: field.values ?? row.values ?? null };

/** The text typed into each field, by the field's path ("DTG.YEAR"). */
export type FormValues = Record<string, string>;

/** The texts for the fields of a parameter. Members that no field can hold are left out. */
export function valuesOf(parameter: JsonObject): FormValues {
  const ret: FormValues = {};
  function add(members: JsonObject, prefix: string) {
    for (const [key, value] of Object.entries(members)) {
      const path = prefix + key;
      if (["string", "number", "bigint"].includes(typeof value)) ret[path] = String(value);
      else if (Array.isArray(value)) ret[path] = value.map(String).join(", ");
      else if (isObject(value)) add(value, `${path}.`);
    }
  }
  add(parameter, "");
  return ret;
}

/** Whether the plugin reads a field of the request as typed so far. */
function isRead(field: Field, row: UriRow, values: FormValues): boolean {
  if (field.uri != null && field.uri !== row.uri) return false;
  if (field.when == null) return true;
  const typed = values[field.when.key] ?? "";
  const { value } = field.when;
  return value === null ? typed === "" : typeof value === "string" && value.toLowerCase() === typed.toLowerCase();
}

/** The members of a URI's request: each one once, without those that belong to other URIs or operations. */
export function fieldsOf(fields: Field[], row: UriRow, values: FormValues): Field[] {
  const read = fields.filter((field) => isRead(field, row, values));
  const once = read.filter((field, index) => read.findIndex((other) => other.key === field.key) === index);
  return once.map((field) => ofUri(field, row));
}

/** `bad` prevents the request; `note` is only a remark about the value. */
export interface Problem {
  level: "bad" | "note";
  text: string;
}

export interface Built {
  parameter: JsonObject;
  /** Whether there is a member besides the request word. */
  filled: boolean;
  problems: Map<string, Problem>;
}

/** Returns the description of a field's kind; undefined if the list has none. */
export type KindOf = (field: Field) => Kind | undefined;

const maxSafe = BigInt(Number.MAX_SAFE_INTEGER);
const bytesOf = (text: string): number => new TextEncoder().encode(text).length;

/** "int32 · −2147483648 to 2147483647", "text · at most 1023 bytes" */
export function describeKind(field: Field, kind: Kind | undefined): string {
  const parts: string[] = [field.kind];
  const { minimum, maximum } = kind ?? {};
  // The limits of a 64-bit number are too long to be of use.
  if (minimum !== undefined && maximum !== undefined) {
    if (maximum.length <= 10) parts.push(label("IDS_RANGE", minimum.replace("-", "−"), maximum));
  } else if (field.limit) {
    parts.push(label("IDS_AT_MOST_BYTES", field.limit));
  } else if (field.count) {
    parts.push(label("IDS_MOST_ITEMS", field.count));
  }
  return parts.join(" · ");
}

function readNumber(kind: Kind | undefined, typed: string): { value: Json } | Problem {
  if (!/^([+-]?\d+|0x[0-9a-f]+)$/i.test(typed)) {
    return { level: "bad", text: label("IDS_NEEDS_HEX") };
  }
  const value = BigInt(typed.startsWith("+") ? typed.slice(1) : typed);
  const { minimum, maximum } = kind ?? {};
  if (minimum !== undefined && maximum !== undefined && (value < BigInt(minimum) || value > BigInt(maximum))) {
    return { level: "bad", text: label("IDS_OUTSIDE", minimum, maximum) };
  }
  // A JavaScript number cannot hold it exactly. The plugin also accepts a 64-bit number as a text.
  if (value > maxSafe || value < -maxSafe) return { value: value.toString() };
  return { value: Number(value) };
}

/** "1, 2, 3" */
function readNumbers(typed: string): { value: Json } | Problem {
  const numbers: Json[] = [];
  for (const word of typed.split(",")) {
    const read = readNumber(undefined, word.trim());
    if ("level" in read) return { level: "bad", text: label("IDS_NEEDS_NUMBERS") };
    numbers.push(read.value);
  }
  return { value: numbers };
}

/**
 * Makes the "PARAMETER" object from the typed texts. Empty fields are left out; if `required`, an empty text is
 * sent as "", and an empty number is a problem.
 */
export function buildParameter(
  request: string,
  fields: Field[],
  values: FormValues,
  required: boolean,
  kindOf: KindOf,
): Built {
  const problems = new Map<string, Problem>();

  function members(list: Field[], prefix: string): JsonObject {
    const ret: JsonObject = {};
    for (const field of list) {
      const path = prefix + field.key;
      const typed = values[path] ?? "";
      if (field.fields) {
        const inner = members(field.fields, `${path}.`);
        if (Object.keys(inner).length > 0) ret[field.key] = inner;
      } else if (field.value != null) {
        ret[field.key] = field.value;
      } else if (kindOf(field)?.json === "string") {
        if (typed === "" && !required) continue;
        ret[field.key] = typed;
        const bytes = bytesOf(typed);
        if (field.limit && bytes > field.limit) {
          problems.set(path, { level: "note", text: label("IDS_BYTES_KEPT", bytes, field.limit) });
        }
      } else if (typed.trim() === "") {
        if (required) problems.set(path, { level: "bad", text: label("IDS_NEEDS_NUMBER") });
      } else {
        const kind = kindOf(field);
        const read = kind?.json === "array" ? readNumbers(typed) : readNumber(kind, typed.trim());
        if ("level" in read) problems.set(path, read);
        else ret[field.key] = read.value;
      }
    }
    return ret;
  }

  const filled = members(fields, "");
  return { parameter: { REQUEST: request, ...filled }, filled: Object.keys(filled).length > 0, problems };
}

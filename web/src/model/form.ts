import type { Field, FieldKind, Json, JsonObject } from "../rpc";

/** What was typed, by the field's path ("DTG.YEAR"). */
export type FormValues = Record<string, string>;

/** `bad` stops the request; `note` only tells something about the value. */
export interface Problem {
  level: "bad" | "note";
  text: string;
}

export interface Built {
  parameter: JsonObject;
  /** Some member beside the request word. */
  filled: boolean;
  problems: Map<string, Problem>;
}

const numberLimits: Partial<Record<FieldKind, readonly [bigint, bigint]>> = {
  int32: [-(2n ** 31n), 2n ** 31n - 1n],
  uint8: [0n, 2n ** 8n - 1n],
  uint16: [0n, 2n ** 16n - 1n],
  uint32: [0n, 2n ** 32n - 1n],
  int64: [-(2n ** 63n), 2n ** 63n - 1n],
  uint64: [0n, 2n ** 64n - 1n],
};

const maxSafe = BigInt(Number.MAX_SAFE_INTEGER);
const bytesOf = (text: string): number => new TextEncoder().encode(text).length;

export const isNumber = (kind: FieldKind): boolean => numberLimits[kind] !== undefined;

/** "int32 · −2147483648 to 2147483647", "text · at most 1023 bytes" */
export function describeKind(field: Field): string {
  const limits = numberLimits[field.kind];
  const parts: string[] = [field.kind];
  if (limits) {
    const narrow = limits[1] <= 2n ** 32n;
    if (narrow) parts.push(`${limits[0]} to ${limits[1]}`.replace("-", "−"));
  } else if (field.kind === "text" && field.limit) {
    parts.push(`at most ${field.limit} bytes`);
  }
  return parts.join(" · ");
}

function readNumber(field: Field, typed: string): { value: Json } | Problem {
  const limits = numberLimits[field.kind];
  if (!limits || !/^([+-]?\d+|0x[0-9a-f]+)$/i.test(typed)) {
    return { level: "bad", text: "A whole number is needed, decimal or 0x…" };
  }
  const value = BigInt(typed.startsWith("+") ? typed.slice(1) : typed);
  if (value < limits[0] || value > limits[1]) {
    return { level: "bad", text: `Outside ${limits[0]} to ${limits[1]}` };
  }
  // A double cannot hold it; the decoders of 64-bit numbers read texts as well.
  if (value > maxSafe || value < -maxSafe) return { value: value.toString() };
  return { value: Number(value) };
}

/**
 * Makes the "PARAMETER" object from what was typed. A field that was left empty is not sent, unless every field is
 * required.
 */
export function buildParameter(request: string, fields: Field[], values: FormValues, required: boolean): Built {
  const problems = new Map<string, Problem>();

  function members(list: Field[], prefix: string): JsonObject {
    const ret: JsonObject = {};
    for (const field of list) {
      const path = prefix + field.key;
      const typed = values[path] ?? "";
      if (field.kind === "object") {
        const inner = members(field.fields ?? [], `${path}.`);
        if (Object.keys(inner).length > 0) ret[field.key] = inner;
      } else if (field.kind === "constant") {
        if (field.value != null) ret[field.key] = field.value;
      } else if (field.kind === "text") {
        if (typed === "" && !required) continue;
        ret[field.key] = typed;
        const bytes = bytesOf(typed);
        if (field.limit && bytes > field.limit) {
          problems.set(path, { level: "note", text: `${bytes} bytes; the plugin keeps the first ${field.limit}` });
        }
      } else if (typed.trim() === "") {
        if (required) problems.set(path, { level: "bad", text: "A number is needed" });
      } else {
        const read = readNumber(field, typed.trim());
        if ("level" in read) problems.set(path, read);
        else ret[field.key] = read.value;
      }
    }
    return ret;
  }

  const filled = members(fields, "");
  return { parameter: { REQUEST: request, ...filled }, filled: Object.keys(filled).length > 0, problems };
}

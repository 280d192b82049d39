/** A whole number that a JavaScript number cannot hold exactly is a bigint, so that its digits are kept. */
export type Json = null | boolean | number | bigint | string | Json[] | JsonObject;
export interface JsonObject {
  [member: string]: Json;
}

export const isObject = (value: Json | undefined): value is JsonObject =>
  typeof value === "object" && value !== null && !Array.isArray(value);

/** The items of a response or a notification. */
export function itemsOf(text: Json): JsonObject[] {
  const items = isObject(text) ? text["ITEMS"] : undefined;
  return Array.isArray(items) ? items.filter(isObject) : [];
}

// A number of so many digits. The limits in the list of URIs are texts.
const manyDigits = /[:,[]\s*-?\d{16}/;
// A text, which is a member's name if a colon follows, or a number.
const textOrNumber = /"[^"\\]*(?:\\.[^"\\]*)*"(\s*:)?|-?\d+(?:\.\d+)?(?:[eE][+-]?\d+)?/gs;
const isInexact = (number: string): boolean => /^-?\d+$/.test(number) && !Number.isSafeInteger(Number(number));

/** JSON.parse, which also keeps the digits of whole numbers beyond 2^53. */
export function parseExactly(json: string): Json {
  const usual = JSON.parse(json) as Json;
  if (!manyDigits.test(json)) return usual;
  // Each text is marked as a text, and each large number becomes a text that is marked as a number.
  const marked = json.replace(textOrNumber, (token, colon: string | undefined) => {
    if (token.startsWith('"')) return colon === undefined ? `"t${token.slice(1)}` : token;
    return isInexact(token) ? `"n${token}"` : token;
  });
  return JSON.parse(marked, (_, value: unknown) => {
    if (typeof value !== "string") return value;
    return value.startsWith("n") ? BigInt(value.slice(1)) : value.slice(1);
  }) as Json;
}

/** JSON.stringify, which also writes bigints. */
export function compactJson(value: Json): string {
  if (typeof value === "bigint") return value.toString();
  if (Array.isArray(value)) return `[${value.map(compactJson).join(",")}]`;
  if (!isObject(value)) return JSON.stringify(value);
  return `{${Object.entries(value)
    .map(([key, member]) => `${JSON.stringify(key)}:${compactJson(member)}`)
    .join(",")}}`;
}

/** A JSON text without the space between its tokens; otherwise as it is. */
export const minifyJson = (json: string): string => json.replace(/("[^"\\]*(?:\\.[^"\\]*)*")|\s+/gs, "$1");

/** JSON on several lines; a value that fits into the width, after `before` characters, stays on one line. */
export function prettyJson(value: Json, width = 60, indent = "", before = 0): string {
  const inline = inlineJson(value);
  if (typeof value !== "object" || value === null || indent.length + before + inline.length <= width) return inline;
  const inner = `${indent}  `;
  if (Array.isArray(value)) {
    return `[\n${value.map((member) => inner + prettyJson(member, width, inner)).join(",\n")}\n${indent}]`;
  }
  const members = Object.entries(value).map(
    ([key, member]) => `${inner}${JSON.stringify(key)}: ${prettyJson(member, width, inner, key.length + 5)}`,
  );
  return `{\n${members.join(",\n")}\n${indent}}`;
}

function inlineJson(value: Json): string {
  if (Array.isArray(value)) return `[${value.map(inlineJson).join(", ")}]`;
  if (!isObject(value)) return compactJson(value);
  const members = Object.entries(value).map(([key, member]) => `${JSON.stringify(key)}: ${inlineJson(member)}`);
  return members.length === 0 ? "{}" : `{ ${members.join(", ")} }`;
}

export type Json = null | boolean | number | string | Json[] | JsonObject;
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
  if (!isObject(value)) return JSON.stringify(value);
  const members = Object.entries(value).map(([key, member]) => `${JSON.stringify(key)}: ${inlineJson(member)}`);
  return members.length === 0 ? "{}" : `{ ${members.join(", ")} }`;
}

import { compactJson, parseExactly, type Json } from "./json";

/** Values that the browser keeps for this origin. It may refuse access to its storage; a value is then not kept. */

/** Returns null if there is none, or if it is not JSON: another version of the page may have written it. */
export function readStored(key: string): Json {
  try {
    return parseExactly(localStorage.getItem(key) ?? "null");
  } catch {
    return null;
  }
}

export function store(key: string, value: Json) {
  try {
    localStorage.setItem(key, compactJson(value));
  } catch {
    // See above.
  }
}

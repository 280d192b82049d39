import type { Json } from "./json";

/** JSON that a person types: where it is wrong, and what is missing there. */

export interface JsonFault {
  /** From 1 on. */
  line: number;
  column: number;
  text: string;
}

export type ParsedJson = { value: Json } | { fault: JsonFault };

const space = /[ \t\n\r]*/y;
const number = /-?(0|[1-9]\d*)(\.\d+)?([eE][+-]?\d+)?/y;
const word = /true|false|null/y;
const text = /"(?:[^"\\\x00-\x1f]|\\(?:["\\/bfnrt]|u[0-9a-fA-F]{4}))*/y;

class Stop extends Error {
  constructor(
    readonly at: number,
    readonly expected: string,
  ) {
    super(expected);
  }
}

/** Finds the first fault of a text that JSON.parse refuses. */
function findFault(json: string): Stop {
  let at = 0;

  /** The length of what the expression, which is sticky, matches here. */
  function take(expression: RegExp): number {
    expression.lastIndex = at;
    const length = expression.exec(json)?.[0].length ?? 0;
    at += length;
    return length;
  }

  function next(): string {
    take(space);
    return json[at] ?? "";
  }

  function readText() {
    take(text);
    if (json[at] === '"') at++;
    else if (json[at] === "\\") throw new Stop(at, "This escape is not one of JSON");
    else throw new Stop(at, at < json.length ? "A text must not contain this character" : "The text does not end");
  }

  function readMember() {
    if (next() !== '"') throw new Stop(at, "A member's name in quotes is expected");
    readText();
    if (next() !== ":") throw new Stop(at, "A colon is expected");
    at++;
    readValue();
  }

  /** What stands between brackets, after the first one. */
  function readList(end: string, readEntry: () => void) {
    at++;
    if (next() === end) {
      at++;
      return;
    }
    for (;;) {
      readEntry();
      const mark = next();
      at++;
      if (mark === end) return;
      if (mark !== ",") throw new Stop(at - 1, `A comma or ${end} is expected`);
    }
  }

  function readValue() {
    const first = next();
    if (first === "{") readList("}", readMember);
    else if (first === "[") readList("]", readValue);
    else if (first === '"') readText();
    else if (take(number) === 0 && take(word) === 0) throw new Stop(at, "A value is expected");
  }

  try {
    readValue();
    return new Stop(next() === "" ? 0 : at, "Nothing may follow the value");
  } catch (reason) {
    // Values that are nested too deep for this function.
    return reason instanceof Stop ? reason : new Stop(at, "Nested too deep");
  }
}

export function parseJson(json: string): ParsedJson {
  try {
    return { value: JSON.parse(json) as Json };
  } catch {
    const { at, expected } = findFault(json);
    const before = json.slice(0, at).split("\n");
    return { fault: { line: before.length, column: before.at(-1)!.length + 1, text: expected } };
  }
}

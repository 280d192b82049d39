import { parseExactly, type Json } from "./json";

/** JSON that a person types: where it is wrong, and what is missing there. */

export interface JsonFault {
  /** From 1 on. */
  line: number;
  column: number;
  kind: FaultKind;
  /** Of a missing comma: the bracket that may be there instead. */
  bracket?: string;
}

export type FaultKind =
  | "escape"
  | "character"
  | "end"
  | "member"
  | "colon"
  | "comma"
  | "value"
  | "after"
  | "depth"
  /** The text is JSON, but no object. */
  | "object";

export type ParsedJson = { value: Json } | { fault: JsonFault };

const space = /[ \t\n\r]*/y;
const number = /-?(0|[1-9]\d*)(\.\d+)?([eE][+-]?\d+)?/y;
const word = /true|false|null/y;
const text = /"(?:[^"\\\x00-\x1f]|\\(?:["\\/bfnrt]|u[0-9a-fA-F]{4}))*/y;

class Stop extends Error {
  constructor(
    readonly at: number,
    readonly kind: FaultKind,
    readonly bracket?: string,
  ) {
    super(kind);
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
    else if (json[at] === "\\") throw new Stop(at, "escape");
    else throw new Stop(at, at < json.length ? "character" : "end");
  }

  function readMember() {
    if (next() !== '"') throw new Stop(at, "member");
    readText();
    if (next() !== ":") throw new Stop(at, "colon");
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
      if (mark !== ",") throw new Stop(at - 1, "comma", end);
    }
  }

  function readValue() {
    const first = next();
    if (first === "{") readList("}", readMember);
    else if (first === "[") readList("]", readValue);
    else if (first === '"') readText();
    else if (take(number) === 0 && take(word) === 0) throw new Stop(at, "value");
  }

  try {
    readValue();
    return new Stop(next() === "" ? 0 : at, "after");
  } catch (reason) {
    // Values that are nested too deep for this function.
    return reason instanceof Stop ? reason : new Stop(at, "depth");
  }
}

export function parseJson(json: string): ParsedJson {
  try {
    return { value: parseExactly(json) };
  } catch {
    const { at, kind, bracket } = findFault(json);
    const before = json.slice(0, at).split("\n");
    return { fault: { line: before.length, column: before.at(-1)!.length + 1, kind, ...(bracket ? { bracket } : {}) } };
  }
}

import { compactJson, minifyJson, prettyJson, type JsonObject } from "../../lib/json";

export interface Call {
  method: "get" | "set" | "subscribe";
  /** "parameter" is the last one. */
  params: JsonObject;
  /** The parameter as the user typed it. */
  typed?: string | undefined;
}

export type SampleKind = "JSON-RPC" | "curl" | "JavaScript";

const shellQuote = (text: string): string => `'${text.replaceAll("'", `'\\''`)}'`;

const message = (call: Call): JsonObject => ({ jsonrpc: "2.0", id: 1, method: call.method, params: call.params });

/** A parameter on one line, as it was typed. */
const parameterText = ({ params: { parameter }, typed }: Call): string => (typed ? minifyJson(typed) : compactJson(parameter!));

/** The message on one line, if JSON.stringify could not write what was typed, such as a number of 17 digits; else "". */
function exactMessage(call: Call): string {
  if (!call.typed) return "";
  const text = parameterText(call);
  if (JSON.stringify(JSON.parse(text)) === text) return "";
  const before = compactJson(message({ ...call, params: { ...call.params, parameter: null } }));
  return `${before.slice(0, -"null}}".length)}${text}}}`;
}

function curl(call: Call, origin: string): string {
  const address = origin + String(call.params["uri"]);
  if (call.params["parameter"] === undefined) return `curl ${address}`;
  const text = parameterText(call);
  return call.method === "set"
    ? `curl -X PUT ${address} \\\n  -d ${shellQuote(text)}`
    : `curl -G ${address} \\\n  --data-urlencode ${shellQuote(`parameter=${text}`)}`;
}

function javascript(call: Call, origin: string, width: number): string {
  if (call.method === "subscribe") {
    return [
      `const socket = new WebSocket("${origin.replace(/^http/, "ws")}/jsonrpc");`,
      "socket.onmessage = (event) => console.log(JSON.parse(event.data));",
      `socket.onopen = () => socket.send(JSON.stringify(${prettyJson(message(call), width)}));`,
    ].join("\n");
  }
  const exact = exactMessage(call);
  return [
    `const reply = await fetch("${origin}/jsonrpc", {`,
    '  method: "POST",',
    '  headers: { "content-type": "application/json" },',
    exact ? `  body: ${JSON.stringify(exact)},` : `  body: JSON.stringify(${prettyJson(message(call), width, "  ")}),`,
    "});",
    "console.log(await reply.json());",
  ].join("\n");
}

/** A call as text to copy, with lines of about `width` characters. curl cannot subscribe: that needs a WebSocket. */
export function sampleOf(kind: SampleKind, call: Call, origin: string, width: number): string {
  switch (kind) {
    case "JSON-RPC":
      return exactMessage(call) || prettyJson(message(call), width);
    case "curl":
      return curl(call, origin);
    case "JavaScript":
      return javascript(call, origin, width);
  }
}

export const sampleKinds = (call: Call): SampleKind[] =>
  call.method === "subscribe" ? ["JSON-RPC", "JavaScript"] : ["JSON-RPC", "curl", "JavaScript"];

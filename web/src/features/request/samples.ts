import { prettyJson, type JsonObject } from "../../lib/json";

export interface Call {
  method: "get" | "set" | "subscribe";
  params: JsonObject;
}

export type SampleKind = "JSON-RPC" | "curl" | "JavaScript";

const shellQuote = (text: string): string => `'${text.replaceAll("'", `'\\''`)}'`;

const message = (call: Call): JsonObject => ({ jsonrpc: "2.0", id: 1, method: call.method, params: call.params });

function curl(call: Call, origin: string): string {
  const address = origin + String(call.params["uri"]);
  const parameter = call.params["parameter"];
  if (parameter === undefined) return `curl ${address}`;
  const text = JSON.stringify(parameter);
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
  return [
    `const reply = await fetch("${origin}/jsonrpc", {`,
    '  method: "POST",',
    '  headers: { "content-type": "application/json" },',
    `  body: JSON.stringify(${prettyJson(message(call), width, "  ")}),`,
    "});",
    "console.log(await reply.json());",
  ].join("\n");
}

/** A call as text to copy, with lines of about `width` characters. curl cannot subscribe: that needs a WebSocket. */
export function sampleOf(kind: SampleKind, call: Call, origin: string, width: number): string {
  switch (kind) {
    case "JSON-RPC":
      return prettyJson(message(call), width);
    case "curl":
      return curl(call, origin);
    case "JavaScript":
      return javascript(call, origin, width);
  }
}

export const sampleKinds = (call: Call): SampleKind[] =>
  call.method === "subscribe" ? ["JSON-RPC", "JavaScript"] : ["JSON-RPC", "curl", "JavaScript"];

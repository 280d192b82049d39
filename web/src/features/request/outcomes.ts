import { signal } from "@preact/signals";
import type { GetResult, SetResult } from "../../app/rpc";
import { call } from "../../app/session";
import type { JsonObject } from "../../lib/json";

/** The last response, or error, of a URI on this page. */
export interface Outcome {
  method: "get" | "set";
  millis: number;
  /** Increases with each request, so that a response equal to the last one is shown as new. */
  number: number;
  answer: GetResult | SetResult | { error: Error };
}

export const outcomes = signal<ReadonlyMap<string, Outcome>>(new Map());

let requests = 0;

export async function request(method: "get" | "set", uri: string, parameter: JsonObject | undefined) {
  const start = performance.now();
  let answer: Outcome["answer"];
  try {
    answer =
      method === "get"
        ? await call("get", { uri, ...(parameter ? { parameter } : {}), trace: true })
        : await call("set", { uri, parameter: parameter ?? {}, trace: true });
  } catch (reason) {
    answer = { error: reason instanceof Error ? reason : new Error(String(reason)) };
  }
  const outcome: Outcome = { method, millis: performance.now() - start, number: ++requests, answer };
  outcomes.value = new Map(outcomes.value).set(uri, outcome);
}

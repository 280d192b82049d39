import { token } from "../lib/token";
import type { ListResult } from "./protocol";

/**
 * What the method "list" returns, by HTTP: compressed, it is an eighth as long, and a browser that has it already gets it
 * from its cache.
 */

/** How long the page waits for the list, which takes seconds over a slow line. */
export const listTimeoutMs = 60_000;

/** Null if this host does not serve the list by HTTP, or not to this page. */
export async function fetchList(): Promise<ListResult | null> {
  const shown = token();
  const headers: HeadersInit = shown ? { authorization: `Bearer ${shown}` } : {};
  try {
    const answer = await fetch("/list.json", { headers, signal: AbortSignal.timeout(listTimeoutMs) });
    return answer.ok ? ((await answer.json()) as ListResult) : null;
  } catch {
    // There is no connection, or something else answers at this address, such as a server for development.
    return null;
  }
}

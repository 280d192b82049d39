import { batch, signal, type ReadonlySignal } from "@preact/signals";
import { textOf } from "./session";

/** A long list at the set, of which the page holds only the part around what is seen. */

export interface Page<Entry> {
  total: number;
  entries: Entry[];
}

export interface Listing<Entry> {
  /** Null until it is known. */
  total: ReadonlySignal<number | null>;
  /** Why the latest request failed; empty if it did not. */
  problem: ReadonlySignal<string>;
  /** Counts the changes of what `at` returns. */
  version: ReadonlySignal<number>;
  /** The entry, if the page has it. */
  at(index: number): Entry | undefined;
  /** Keeps an entry loaded, until the returned function is called. */
  hold(index: number): () => void;
  /** Replaces the first loaded entry for which `is` returns true. */
  replace(is: (entry: Entry) => boolean, entry: Entry): void;
  /** Reads what is held again. */
  refresh(): void;
  /** Ends the requests. */
  close(): void;
}

/** Entries of one request. */
export const pageLength = 100;
/** Pages that are kept; beyond that the one that has not been seen for the longest time is dropped. */
const mostPages = 20;
/** Before a failed request is repeated. */
const retryMs = 2000;

/** Requests one page at a time: first the one that was missed last, so that a list that is scrolled fast catches up. */
export function createListing<Entry>(read: (index: number, count: number) => Promise<Page<Entry>>): Listing<Entry> {
  const total = signal<number | null>(null);
  const problem = signal("");
  const version = signal(0);
  // In the order in which they were seen, the latest last.
  const pages = new Map<number, Entry[]>();
  const stale = new Set<number>();
  const held = new Map<number, number>();
  // The first page tells how many entries there are.
  let wantsFirst = true;
  let busy = false;
  let closed = false;
  let retry: ReturnType<typeof setTimeout> | undefined;

  function nextWanted(): number | undefined {
    if (wantsFirst) return 0;
    return [...held.keys()].reverse().find((page) => !pages.has(page) || stale.has(page));
  }

  function keep(page: number, entries: Entry[]) {
    pages.delete(page);
    pages.set(page, entries);
    for (const oldest of pages.keys()) {
      if (pages.size <= mostPages) break;
      if (!held.has(oldest)) pages.delete(oldest);
    }
  }

  async function work() {
    if (busy || closed || retry !== undefined) return;
    busy = true;
    for (let page = nextWanted(); page !== undefined && !closed; page = nextWanted()) {
      stale.delete(page);
      wantsFirst = false;
      try {
        const reply = await read(page * pageLength, pageLength);
        if (closed) break;
        batch(() => {
          keep(page!, reply.entries);
          total.value = reply.total;
          problem.value = "";
          version.value++;
        });
      } catch (reason) {
        if (closed) break;
        problem.value = textOf(reason);
        stale.add(page);
        wantsFirst = total.peek() === null;
        retry = setTimeout(() => {
          retry = undefined;
          void work();
        }, retryMs);
        break;
      }
    }
    busy = false;
  }

  void work();

  return {
    total,
    problem,
    version,
    at: (index) => pages.get(Math.floor(index / pageLength))?.[index % pageLength],
    hold(index) {
      const page = Math.floor(index / pageLength);
      held.set(page, (held.get(page) ?? 0) + 1);
      const known = pages.get(page);
      if (known) keep(page, known);
      // After the other rows of this render.
      queueMicrotask(() => void work());
      return () => {
        const left = held.get(page)! - 1;
        if (left > 0) held.set(page, left);
        else held.delete(page);
      };
    },
    replace(is, entry) {
      for (const entries of pages.values()) {
        const at = entries.findIndex(is);
        if (at < 0) continue;
        entries[at] = entry;
        version.value++;
        return;
      }
    },
    refresh() {
      for (const page of pages.keys()) stale.add(page);
      wantsFirst = held.size === 0;
      void work();
    },
    close() {
      closed = true;
      clearTimeout(retry);
    },
  };
}

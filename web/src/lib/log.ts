import { signal, type ReadonlySignal } from "@preact/signals";
import { compactJson, type Json } from "./json";

export interface Entry<T> {
  key: number;
  /** Its place among the counted entries; null: a remark. */
  number: number | null;
  /** A time of Date.now(). */
  at: number;
  value: T;
  /** The characters of the value as JSON. */
  size: number;
}

/** A log drops its oldest entries beyond either limit. */
export interface LogLimits {
  entries: number;
  characters: number;
}

export interface Log<T> {
  /** Newest first, bounded. */
  entries: ReadonlySignal<Entry<T>[]>;
  /** How many entries were added since the log was cleared, without remarks, including those that are no longer kept. */
  total: ReadonlySignal<number>;
  paused: ReadonlySignal<boolean>;
  /** How many entries wait for the end of a pause. */
  held: ReadonlySignal<number>;
  /** remark: the entry is the page's own, such as a gap, and is not counted. */
  add(value: T, remark?: boolean): void;
  setPaused(on: boolean): void;
  clear(): void;
}

/** The first entries, as far as both limits allow. */
function within<T>(limits: LogLimits, entries: Entry<T>[]): Entry<T>[] {
  let characters = 0;
  const end = entries.findIndex((entry, index) => {
    characters += entry.size;
    return index >= limits.entries || characters > limits.characters;
  });
  return end < 0 ? entries : entries.slice(0, end);
}

/** So often a log changes at most: a reader sees no more, and a flood of entries leaves the page time for other things. */
const pauseMs = 100;

/** A bounded log. Its signals change at most every `pauseMs`, in a frame, however fast entries are added. */
export function createLog<T>(limits: LogLimits): Log<T> {
  const entries = signal<Entry<T>[]>([]);
  const total = signal(0);
  const paused = signal(false);
  const held = signal(0);
  let waiting: Entry<T>[] = [];
  let waitingCharacters = 0;
  let scheduled = false;
  let shownAt = 0;
  let count = 0;
  let added = 0;

  function schedule() {
    if (scheduled) return;
    scheduled = true;
    const wait = shownAt + pauseMs - performance.now();
    if (wait > 0) setTimeout(() => requestAnimationFrame(show), wait);
    else requestAnimationFrame(show);
  }

  function show() {
    scheduled = false;
    shownAt = performance.now();
    total.value = count;
    if (paused.value) {
      held.value = waiting.length;
      return;
    }
    entries.value = within(limits, [...waiting.reverse(), ...entries.value]);
    waiting = [];
    waitingCharacters = 0;
    held.value = 0;
  }

  return {
    entries,
    total,
    paused,
    held,
    add(value, remark = false) {
      const size = compactJson(value as Json).length;
      if (!remark) ++count;
      waiting.push({ key: ++added, number: remark ? null : count, at: Date.now(), value, size });
      waitingCharacters += size;
      // A hidden page gets no frames, so the waiting entries are bounded too.
      while (waiting.length > limits.entries || waitingCharacters > limits.characters) {
        waitingCharacters -= waiting.shift()!.size;
      }
      schedule();
    },
    setPaused(on) {
      paused.value = on;
      show();
    },
    clear() {
      waiting = [];
      waitingCharacters = 0;
      count = 0;
      entries.value = [];
      show();
    },
  };
}

const two = (value: number): string => String(value).padStart(2, "0");

export function clock(at: number): string {
  const date = new Date(at);
  const millis = String(date.getMilliseconds()).padStart(3, "0");
  return `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}.${millis}`;
}

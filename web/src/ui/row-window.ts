import { useEffect, useLayoutEffect, useReducer, useRef } from "preact/hooks";

export type Key = string | number;

/** Rows this far above and below the visible part are rendered as well. */
const overscanPx = 300;

/** The index of the row that many pixels below the list's top. Row i reaches from offsets[i] to offsets[i + 1]. */
function indexAt(offsets: Float64Array, height: number): number {
  let low = 0;
  let high = offsets.length - 2;
  while (low < high) {
    const middle = (low + high + 1) >> 1;
    if (offsets[middle]! <= height) low = middle;
    else high = middle - 1;
  }
  return low;
}

/** What a render leaves to the next one. */
interface Measured<T> {
  rows: readonly T[];
  /** The heights of the rows as far as they are known, else the estimate. */
  sizes: Float64Array;
  offsets: Float64Array;
}

/**
 * The sizes of rows that have followed others. Rows that were added before the others, as to a log, are the frequent case:
 * only those are looked up.
 */
function sizesAfter<T>(last: Measured<T>, rows: readonly T[], sizeOf: (row: T) => number): Float64Array {
  const sizes = new Float64Array(rows.length);
  const added = last.rows.length > 0 ? rows.indexOf(last.rows[0]!) : -1;
  const kept = added < 0 ? 0 : Math.min(last.rows.length, rows.length - added);
  const shifted = kept > 0 && rows[added + kept - 1] === last.rows[kept - 1];
  if (shifted) sizes.set(last.sizes.subarray(0, kept), added);
  for (let at = 0; at < rows.length; at++) {
    if (shifted && at === added) at += kept;
    if (at < rows.length) sizes[at] = sizeOf(rows[at]!);
  }
  return sizes;
}

function offsetsOf(sizes: Float64Array): Float64Array {
  const offsets = new Float64Array(sizes.length + 1);
  for (let at = 0; at < sizes.length; at++) offsets[at + 1] = offsets[at]! + sizes[at]!;
  return offsets;
}

/**
 * Computes which rows of a scrolled list are rendered. Each rendered row needs its index in `data-index`. `estimate` is
 * the height in pixels of a row that has not been rendered yet.
 *
 * The row at the upper edge stays in place when rows are added, removed or change their height. A list that is scrolled
 * to its top or its end stays there.
 */
export function useRowWindow<T>(rows: readonly T[], keyOf: (row: T) => Key, estimate: number) {
  const scroller = useRef<HTMLDivElement>(null);
  const list = useRef<HTMLOListElement>(null);
  const [, redraw] = useReducer((count: number, _: void) => count + 1, 0);
  // What the previous render left: heights measured so far, rows, scroll position, and what stays in place.
  const last = useRef({
    heights: new Map<Key, number>(),
    rows: [] as readonly T[],
    sizes: new Float64Array(0),
    offsets: new Float64Array(1),
    top: 0,
    // Whether a height has changed since.
    changed: true,
    anchor: "top" as "top" | "end" | { key: Key; inside: number },
    reveal: null as Key | null,
  }).current;

  /** Few keys are looked up in a render, and the rows of a log change in every frame: an index would cost more. */
  function indexOf(key: Key): number | undefined {
    const at = rows.findIndex((row) => keyOf(row) === key);
    return at < 0 ? undefined : at;
  }

  const height = scroller.current?.clientHeight ?? 0;

  function takePosition(top: number) {
    const at = indexAt(last.offsets, top);
    const row = last.rows[at];
    last.top = top;
    if (top <= 0 || row === undefined) last.anchor = "top";
    else if (top + height >= last.offsets[last.rows.length]! - 1) last.anchor = "end";
    else last.anchor = { key: keyOf(row), inside: top - last.offsets[at]! };
  }

  // A list that is not displayed has neither a height nor a scroll position.
  if (height > 0 && scroller.current && scroller.current.scrollTop !== last.top) {
    takePosition(scroller.current.scrollTop);
  }

  // A render that only scrolls has the offsets of the one before.
  const sizes =
    last.rows === rows ? last.sizes : sizesAfter(last, rows, (row) => last.heights.get(keyOf(row)) ?? estimate);
  const offsets = last.rows === rows && !last.changed ? last.offsets : offsetsOf(sizes);
  const total = offsets[rows.length]!;

  function wantedTop(): number {
    const { anchor } = last;
    const anchored = typeof anchor === "object" ? indexOf(anchor.key) : undefined;
    let ret = anchor === "top" ? 0 : anchor === "end" ? total - height : last.top;
    if (typeof anchor === "object" && anchored !== undefined) ret = offsets[anchored]! + anchor.inside;
    const shown = last.reveal === null ? undefined : indexOf(last.reveal);
    if (shown !== undefined) ret = Math.max(Math.min(ret, offsets[shown]!), offsets[shown + 1]! - height);
    return Math.max(0, Math.min(ret, total - height));
  }

  const top = wantedTop();
  const first = indexAt(offsets, top - overscanPx);
  const end = rows.length === 0 ? 0 : indexAt(offsets, top + height + overscanPx) + 1;

  /** Stores the heights of the rendered rows. Returns whether one has changed. */
  function measure(): boolean {
    let changed = false;
    for (const element of list.current?.querySelectorAll<HTMLElement>(":scope > [data-index]") ?? []) {
      const row = rows[Number(element.dataset["index"])];
      const measured = element.getBoundingClientRect().height;
      if (row === undefined || measured === 0 || last.heights.get(keyOf(row)) === measured) continue;
      last.heights.set(keyOf(row), measured);
      sizes[Number(element.dataset["index"])] = measured;
      changed = true;
    }
    return changed;
  }

  useLayoutEffect(() => {
    Object.assign(last, { rows, sizes, offsets, changed: false });
    if (scroller.current && height > 0) {
      if (Math.abs(scroller.current.scrollTop - top) >= 1) scroller.current.scrollTop = top;
      takePosition(top);
      // The browser rounds, and limits the position to the actual heights, which are measured next.
      last.top = scroller.current.scrollTop;
    }
    last.changed = measure();
    if (last.changed || (scroller.current?.clientHeight ?? 0) !== height) redraw();
    else if (height > 0) last.reveal = null;
    if (last.heights.size < 2 * rows.length + 1000) return;
    const present = new Set(rows.map(keyOf));
    for (const key of last.heights.keys()) if (!present.has(key)) last.heights.delete(key);
  });

  useEffect(() => {
    const observer = new ResizeObserver(() => requestAnimationFrame(() => scroller.current && redraw()));
    for (const element of [scroller.current, list.current]) if (element) observer.observe(element);
    return () => observer.disconnect();
  }, []);

  /** Scrolls as far as is needed to show a row. */
  function reveal(key: Key) {
    last.reveal = key;
    redraw();
  }

  return { scroller, list, indexOf, offsets, first, end, redraw, reveal };
}

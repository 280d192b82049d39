import { useEffect, useLayoutEffect, useMemo, useReducer, useRef } from "preact/hooks";

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
  // What the previous render left: heights measured so far, offsets, rows, scroll position, and what stays in place.
  const last = useRef({
    heights: new Map<Key, number>(),
    offsets: new Float64Array(1),
    rows,
    top: 0,
    // Whether a height has changed since.
    changed: true,
    anchor: "top" as "top" | "end" | { key: Key; inside: number },
    reveal: null as Key | null,
  }).current;

  const indexes = useMemo(() => new Map(rows.map((row, index) => [keyOf(row), index])), [rows]);
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
  const same = last.rows === rows && last.offsets.length === rows.length + 1 && !last.changed;
  const offsets = same ? last.offsets : new Float64Array(rows.length + 1);
  if (!same) rows.forEach((row, index) => (offsets[index + 1] = offsets[index]! + (last.heights.get(keyOf(row)) ?? estimate)));
  const total = offsets[rows.length]!;

  function wantedTop(): number {
    const { anchor } = last;
    const anchored = typeof anchor === "object" ? indexes.get(anchor.key) : undefined;
    let ret = anchor === "top" ? 0 : anchor === "end" ? total - height : last.top;
    if (typeof anchor === "object" && anchored !== undefined) ret = offsets[anchored]! + anchor.inside;
    const shown = last.reveal === null ? undefined : indexes.get(last.reveal);
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
      changed = true;
    }
    return changed;
  }

  useLayoutEffect(() => {
    Object.assign(last, { rows, offsets, changed: false });
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
    for (const key of last.heights.keys()) if (!indexes.has(key)) last.heights.delete(key);
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

  return { scroller, list, indexes, offsets, first, end, redraw, reveal };
}

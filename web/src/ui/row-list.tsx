import type { ComponentChildren, RefObject } from "preact";
import { useImperativeHandle, useLayoutEffect, useRef, useState } from "preact/hooks";
import { useRowWindow, type Key } from "./row-window";
import "./row-list.css";

export interface RowListHandle {
  /** Scrolls to a row and gives it the focus. */
  focus(index: number): void;
  /** Scrolls as far as is needed to show a row. */
  reveal(key: Key): void;
  scrollToTop(): void;
}

interface RowListProps<T> {
  rows: readonly T[];
  /** Identifies a row when `rows` changes. */
  keyOf: (row: T) => Key;
  /** The height in pixels of a row that has not been rendered yet. */
  estimate: number;
  /** The row's content. Its first element with a tabindex receives the focus; that tabindex must be `tabIndex`. */
  render: (row: T, tabIndex: 0 | -1) => ComponentChildren;
  /**
   * A row has cells, elements with `data-cell` and a tabindex: the arrow keys left and right move between them, up and
   * down stay in the column.
   */
  cells?: boolean;
  /** Rows that cannot have the focus, such as headings. */
  isPassive?: (row: T) => boolean;
  /** The row that the Tab key reaches while none has the focus; if absent, the first that can have it. */
  current?: Key;
  label?: string;
  /** Shown while there are no rows. */
  empty?: ComponentChildren;
  handle?: RefObject<RowListHandle | null>;
  /** The arrow key "up" was pressed on the first row. */
  onLeave?: () => void;
}

const indexOf = (event: Event): number =>
  Number((event.target as HTMLElement).closest<HTMLElement>("li[data-index]")?.dataset["index"]);

/**
 * A list that renders only the rows near its visible part. It is one stop of the Tab key; the arrow keys, Home and End
 * move the focus inside. The focused row is rendered wherever the list is scrolled to.
 */
export function RowList<T>(props: RowListProps<T>) {
  const { rows, keyOf, estimate, render, cells = false, isPassive = () => false } = props;
  const { current, label, empty, handle, onLeave } = props;
  const { scroller, list, indexOf: rowOf, offsets, first, end, redraw, reveal } = useRowWindow(rows, keyOf, estimate);
  const [active, setActive] = useState<Key | null>(null);
  const pendingFocus = useRef<Key | null>(null);
  // The column of the latest cell that had the focus.
  const column = useRef(0);

  const focusable = cells ? "[data-cell]" : "[tabindex]";

  // The index of the row that the Tab key reaches; -1 if none can have the focus.
  const stop =
    [active, current].map((key) => (key == null ? undefined : rowOf(key))).find((at) => at !== undefined) ??
    rows.findIndex((row) => !isPassive(row));
  const rendered = Array.from({ length: end - first }, (_, index) => first + index);
  if (stop >= end) rendered.push(stop);
  else if (stop >= 0 && stop < first) rendered.unshift(stop);

  useLayoutEffect(() => {
    if (pendingFocus.current === null) return;
    const row = list.current?.querySelector(`[data-index="${rowOf(pendingFocus.current)}"]`);
    const stops = row?.querySelectorAll<HTMLElement>(focusable) ?? [];
    stops[Math.min(column.current, stops.length - 1)]?.focus({ preventScroll: true });
    pendingFocus.current = null;
  });

  function focus(index: number) {
    const row = rows[index];
    if (row === undefined) return;
    pendingFocus.current = keyOf(row);
    setActive(keyOf(row));
    reveal(keyOf(row));
  }

  useImperativeHandle(handle ?? null, () => ({ focus, reveal, scrollToTop: () => scroller.current?.scrollTo(0, 0) }));

  /** The next row that can have the focus; -1 if there is none. */
  function step(from: number, by: 1 | -1): number {
    for (let at = from + by; at >= 0 && at < rows.length; at += by) if (!isPassive(rows[at]!)) return at;
    return -1;
  }

  const cellsOf = (event: Event): HTMLElement[] => [
    ...((event.target as HTMLElement).closest("li[data-index]")?.querySelectorAll<HTMLElement>(focusable) ?? []),
  ];

  /** To the next cell; beyond the end of a row to the next row. */
  function moveInRow(event: KeyboardEvent, by: 1 | -1) {
    const inRow = cellsOf(event);
    const next = inRow.indexOf(event.target as HTMLElement) + by;
    event.preventDefault();
    if (inRow[next]) return inRow[next].focus();
    const row = step(indexOf(event), by);
    if (row < 0) return;
    column.current = by > 0 ? 0 : inRow.length - 1;
    focus(row);
  }

  function moveFocus(event: KeyboardEvent) {
    const at = indexOf(event);
    if (Number.isNaN(at) || event.ctrlKey || event.metaKey || event.altKey) return;
    let next: number;
    if (event.key === "ArrowDown") next = step(at, 1);
    else if (event.key === "ArrowUp") next = step(at, -1);
    else if (event.key === "Home") next = step(-1, 1);
    else if (event.key === "End") next = step(rows.length, -1);
    else if (cells && event.key === "ArrowRight") return moveInRow(event, 1);
    else if (cells && event.key === "ArrowLeft") return moveInRow(event, -1);
    else return;
    event.preventDefault();
    if (next >= 0) focus(next);
    else if (event.key === "ArrowUp") onLeave?.();
  }

  function onFocusIn(event: FocusEvent) {
    const row = rows[indexOf(event)];
    if (row !== undefined) setActive(keyOf(row));
    if (cells) column.current = Math.max(0, cellsOf(event).indexOf(event.target as HTMLElement));
  }

  function onFocusOut(event: FocusEvent) {
    // While another window has the focus, this document keeps its active element.
    if (document.activeElement === event.target || list.current?.contains(event.relatedTarget as Node | null)) return;
    setActive(null);
  }

  return (
    <div class="row-list" ref={scroller} onScroll={() => redraw()}>
      <ol
        ref={list}
        aria-label={label}
        style={{ paddingTop: `${offsets[first]}px`, paddingBottom: `${offsets[rows.length]! - offsets[end]!}px` }}
        onKeyDown={moveFocus}
        onFocusIn={onFocusIn}
        onFocusOut={onFocusOut}
      >
        {rendered.map((index) => {
          const apart = index < first || index >= end;
          return (
            <li
              key={keyOf(rows[index]!)}
              data-index={index}
              data-apart={apart}
              aria-posinset={index + 1}
              aria-setsize={rows.length}
              style={apart ? { top: `${offsets[index]}px` } : {}}
            >
              {render(rows[index]!, index === stop ? 0 : -1)}
            </li>
          );
        })}
        {rows.length === 0 && empty && <li class="empty">{empty}</li>}
      </ol>
    </div>
  );
}

import { signal } from "@preact/signals";
import { useEffect, useLayoutEffect, useReducer, useRef } from "preact/hooks";
import { setNow, timeText } from "../../app/set-clock";
import { tuned, type Channel } from "../channels/channels";
import { blocksRead, cellsOf, earliest, hour, latest, present, want, type Cell } from "./guide";
import { chosen, hoursShown, shownFrom } from "./shown";
import { label } from "./words";

// As in guide.css.
const rowHeight = 52;
const axisHeight = 28;
/** Rows above and below the visible ones that are rendered as well. */
const overscan = 4;
const hourWidth = 150;
const pageRows = 8;

/** The row and the time of the cell that the Tab key reaches. */
const cursor = signal({ row: 0, time: 0 });

const clamp = (value: number, least: number, most: number): number => Math.max(least, Math.min(value, most));

/** A length of time as a share of the row's width. */
const width = (seconds: number): string => `${((seconds / (hoursShown.value * hour)) * 100).toFixed(3)}%`;
/** The place of a time on the row. */
const place = (time: number): string => width(time - shownFrom.value);

// A cell is cut off at the edges of the shown time.
const beginOf = ({ from, event }: Cell): number => Math.min(from, event?.start ?? from);
const endOf = ({ to, event }: Cell): number => Math.max(to, event ? event.start + event.duration : to);

export function GuideGrid({ channels }: { channels: readonly Channel[] }) {
  const scroller = useRef<HTMLDivElement>(null);
  const focusPending = useRef(false);
  const [, redraw] = useReducer((count: number, _: void) => count + 1, 0);
  void blocksRead.value;

  const from = shownFrom.value;
  const to = from + hoursShown.value * hour;

  const top = scroller.current?.scrollTop ?? 0;
  const height = scroller.current?.clientHeight ?? 0;
  const first = clamp(Math.floor(top / rowHeight) - overscan, 0, channels.length);
  const end = clamp(Math.ceil((top + height) / rowHeight) + overscan, first, channels.length);
  const rows = Array.from({ length: end - first }, (_, index) => first + index);
  // The row that has the focus stays rendered wherever the grid is scrolled to.
  const stop = clamp(cursor.value.row, 0, channels.length - 1);
  if (stop < first || stop >= end) rows.push(stop);
  const time = clamp(cursor.value.time || present.value, from, to - 1);

  useEffect(() => want(channels, first, end, from, to));

  useLayoutEffect(() => {
    const element = scroller.current;
    if (!element) return;
    const measure = () => {
      const names = parseFloat(getComputedStyle(element).getPropertyValue("--names")) || 0;
      hoursShown.value = clamp(Math.floor((element.clientWidth - names) / hourWidth), 1, 6);
      redraw();
    };
    measure();
    const observer = new ResizeObserver(() => requestAnimationFrame(measure));
    observer.observe(element);
    return () => observer.disconnect();
  }, []);

  useLayoutEffect(() => {
    if (!focusPending.current) return;
    const cell = scroller.current?.querySelector<HTMLElement>(`[data-row="${stop}"] [tabindex="0"]`);
    const { activeElement } = document;
    const isElsewhere = activeElement !== document.body && !scroller.current?.contains(activeElement);
    // Until the row's events are known, the focus waits at its "…".
    focusPending.current = !isElsewhere && (!cell || cell.classList.contains("guide-loading"));
    if (!isElsewhere) cell?.focus({ preventScroll: true });
  });

  /** Shows the row and the time, and gives the cell there the focus. */
  function focusAt(row: number, at: number) {
    focusPending.current = true;
    cursor.value = { row: clamp(row, 0, channels.length - 1), time: at };
    const step = hour / 2;
    const span = hoursShown.value * hour;
    if (at >= to || at < from) {
      const wanted = at >= to ? from + Math.ceil((at - to + 1) / step) * step : at - (((at % step) + step) % step);
      shownFrom.value = clamp(wanted, earliest(), latest() - span);
    }
    const element = scroller.current;
    if (!element) return;
    const rowTop = cursor.value.row * rowHeight;
    const visible = element.clientHeight - axisHeight;
    element.scrollTop = clamp(element.scrollTop, rowTop + rowHeight - visible, rowTop);
  }

  function keyPressed(event: KeyboardEvent) {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    const cell = cellsOf(channels[stop]!, stop, from, to)?.find((each) => each.to > time);
    switch (event.key) {
      case "ArrowRight":
        focusAt(stop, cell ? endOf(cell) : time + hour);
        break;
      case "ArrowLeft":
        focusAt(stop, cell ? beginOf(cell) - 60 : time - hour);
        break;
      case "ArrowDown":
        focusAt(stop + 1, time);
        break;
      case "ArrowUp":
        focusAt(stop - 1, time);
        break;
      case "PageDown":
        focusAt(stop + pageRows, time);
        break;
      case "PageUp":
        focusAt(stop - pageRows, time);
        break;
      case "Home":
        focusAt(stop, setNow());
        break;
      case "Escape":
        chosen.value = null;
        return;
      default:
        return;
    }
    event.preventDefault();
  }

  const marks: number[] = [];
  for (let mark = Math.ceil(from / (hour / 2)) * (hour / 2); mark < to; mark += hour / 2) marks.push(mark);

  return (
    <div class="guide-scroller" ref={scroller} onScroll={() => redraw()}>
      <div class="guide-axis" aria-hidden="true">
        <div class="guide-marks">
          {marks.map((mark) => (
            <span key={mark} style={{ left: place(mark) }}>
              {timeText(mark)}
            </span>
          ))}
        </div>
      </div>
      <div
        class="guide-rows"
        role="grid"
        aria-label={label("IDS_GUIDE")}
        aria-rowcount={channels.length}
        style={{ height: `${channels.length * rowHeight}px` }}
        onKeyDown={keyPressed}
      >
        {rows.map((row) => {
          const channel = channels[row]!;
          return (
            <GuideRow
              key={channel.word}
              channel={channel}
              row={row}
              cells={cellsOf(channel, row, from, to)}
              stop={row === stop ? time : null}
            />
          );
        })}
        {from <= present.value && present.value < to && (
          <div class="guide-present" aria-hidden="true">
            <i style={{ left: place(present.value) }} />
          </div>
        )}
      </div>
    </div>
  );
}

interface GuideRowProps {
  channel: Channel;
  row: number;
  cells: Cell[] | null;
  /** The time at which the cell is the one that the Tab key reaches; null if that is in another row. */
  stop: number | null;
}

function GuideRow({ channel, row, cells, stop }: GuideRowProps) {
  const { word, shownNumber, name } = channel;
  return (
    <div
      class="guide-row"
      role="row"
      aria-rowindex={row + 1}
      data-row={row}
      data-current={tuned.value === word}
      style={{ top: `${row * rowHeight}px` }}
    >
      <div class="guide-channel" role="rowheader">
        <span class="quiet">{shownNumber}</span> <span dir="auto">{name}</span>
      </div>
      <div class="guide-cells" role="presentation">
        {cells === null ? (
          <span class="guide-loading quiet" role="gridcell" tabIndex={stop === null ? -1 : 0}>
            …
          </span>
        ) : (
          cells.map((cell) => (
            <CellView
              key={cell.from}
              channel={channel}
              row={row}
              cell={cell}
              tabIndex={stop !== null && cell.from <= stop && stop < cell.to ? 0 : -1}
            />
          ))
        )}
      </div>
    </div>
  );
}

interface CellViewProps {
  channel: Channel;
  row: number;
  cell: Cell;
  tabIndex: 0 | -1;
}

function CellView({ channel, row, cell: { from, to, event }, tabIndex }: CellViewProps) {
  const open = chosen.value?.event.id === event?.id && chosen.value?.channel.word === channel.word;
  const style = { left: place(from), width: `calc(${width(to - from)} - 2px)` };
  const follow = () => {
    const { row: atRow, time } = cursor.peek();
    if (atRow !== row || time < from || time >= to) cursor.value = { row, time: from };
  };
  if (!event) {
    return (
      <span
        class="guide-gap"
        role="gridcell"
        tabIndex={tabIndex}
        style={style}
        aria-label={label("IDS_NO_EVENT")}
        onFocus={follow}
      />
    );
  }
  const times = `${timeText(event.start)} – ${timeText(event.start + event.duration)}`;
  return (
    <div class="guide-cell" role="gridcell" style={style}>
      <button
        type="button"
        class="guide-event"
        tabIndex={tabIndex}
        aria-pressed={open}
        aria-label={`${event.title}, ${times}`}
        title={`${event.title}\n${times}`}
        data-genre={event.category === undefined ? undefined : event.category >> 4}
        data-past={event.start + event.duration <= present.value}
        onFocus={follow}
        onClick={() => (chosen.value = { channel, event })}
      >
        <span class="guide-name" dir="auto">
          {event.title}
        </span>{" "}
        <span class="guide-when">{times}</span>
      </button>
    </div>
  );
}

import { dayText, secondsOf, timeText } from "../../app/set-clock";
import { actionOf, markOf, titleOf, type Menu, type MenuEvent, type MenuRow } from "./menu";
import { label } from "./words";
import "./menu.css";

const clock = (time: string): string => timeText(secondsOf(time));
const dayAndClock = (time: string): string => `${dayText(secondsOf(time))} ${clock(time)}`;

/** The identifier of the chosen row or event, which the screen names as its active descendant. */
export const chosenId = "menu-chosen";

const colours = ["RED", "GREEN", "YELLOW", "BLUE"];

/** The set's open menu, over the picture. It is operated by keys; a click on an action presses its key. */
export function MenuView({ menu, press }: { menu: Menu; press: (key: string) => void }) {
  const title = titleOf(menu.menu, menu.title);
  return (
    <section class="menu" data-menu={menu.menu} aria-label={title}>
      <header>
        <h2>{title}</h2>
        {menu.folder && <span>{menu.folder}</span>}
        {menu.columns && menu.time !== undefined && <span>{dayText(secondsOf(menu.time))}</span>}
        {menu.selected && menu.total !== undefined && menu.first !== undefined && (
          <span class="menu-place">
            {menu.first + menu.selected.row + 1}/{menu.total}
          </span>
        )}
      </header>
      {menu.rows?.length === 0 && <p class="menu-empty">{emptyText(menu)}</p>}
      {menu.rows && menu.rows.length > 0 && (menu.columns ? <Guide menu={menu} title={title} /> : <List menu={menu} title={title} />)}
      <Chosen menu={menu} />
      <Actions menu={menu} press={press} />
    </section>
  );
}

function emptyText({ menu, folder, loading, problem }: Menu): string {
  if (menu === "home_network" && !folder) return label("IDS_SEARCHING_SERVERS");
  return problem ?? label(loading ? "IDS_LOADING" : "IDS_LIST_EMPTY");
}

function Marks({ marks }: { marks: string[] | undefined }) {
  return (
    <>
      {marks?.map((mark) => {
        const { sign, text } = markOf(mark);
        return (
          <span key={mark} class="menu-mark" data-mark={mark} role="img" aria-label={text} title={text}>
            {sign}
          </span>
        );
      })}
    </>
  );
}

function List({ menu, title }: { menu: Menu; title: string }) {
  return (
    <ul class="menu-list" role="listbox" aria-label={title}>
      {menu.rows?.map((row, index) => {
        const chosen = menu.selected?.row === index;
        return (
          <li
            key={index}
            role="option"
            id={chosen ? chosenId : undefined}
            aria-selected={chosen}
            aria-posinset={(menu.first ?? 0) + index + 1}
            aria-setsize={menu.total ?? menu.rows?.length}
          >
            <RowText row={row} />
          </li>
        );
      })}
    </ul>
  );
}

function RowText({ row }: { row: MenuRow }) {
  return (
    <>
      {row.number !== undefined && <span class="menu-number">{row.number}</span>}
      <span class="menu-name">{row.menu ? titleOf(row.menu, row.name) : row.name}</span>
      {(row.note || row.start !== undefined) && (
        <span class="menu-note">
          {row.start !== undefined && `${dayAndClock(row.start)} `}
          {row.note}
        </span>
      )}
      <Marks marks={row.marks} />
    </>
  );
}

/** Events are as wide as they are long, within the shown hours; what the guide does not know is a gap. */
function Guide({ menu, title }: { menu: Menu; title: string }) {
  const columns = menu.columns ?? [];
  const [from = 0, next = from + 1800] = columns.map(secondsOf);
  const to = from + columns.length * (next - from);
  return (
    <div class="menu-grid" role="grid" aria-label={title}>
      <div class="menu-hours" role="row">
        <span role="columnheader" />
        <div>
          {columns.map((time) => (
            <span key={time} role="columnheader">
              {clock(time)}
            </span>
          ))}
        </div>
      </div>
      {menu.rows?.map((row, index) => {
        const chosen = menu.selected?.row === index;
        const column = chosen ? menu.selected?.column : undefined;
        return (
          <div key={index} class="menu-channel" role="row" data-chosen={chosen}>
            <span role="rowheader" id={chosen && column === undefined ? chosenId : undefined}>
              <span class="menu-number">{row.number}</span> <span class="menu-name">{row.name}</span>
            </span>
            <div>
              {(row.events ?? []).map((event, place) => (
                <EventCell key={event.start} event={event} from={from} to={to} chosen={place === column} />
              ))}
            </div>
          </div>
        );
      })}
    </div>
  );
}

interface CellProps {
  event: MenuEvent;
  from: number;
  to: number;
  chosen: boolean;
}

function EventCell({ event: { title, start, seconds, mark }, from, to, chosen }: CellProps) {
  const percent = (time: number) => ((Math.min(Math.max(time, from), to) - from) / (to - from)) * 100;
  const begin = secondsOf(start);
  const left = percent(begin);
  return (
    <span
      class="menu-event"
      role="gridcell"
      id={chosen ? chosenId : undefined}
      aria-selected={chosen}
      style={{ left: `${left}%`, width: `${percent(begin + seconds) - left}%` }}
    >
      <Marks marks={mark ? [mark] : undefined} />
      {title}
    </span>
  );
}

/** What is chosen, in full; a screen reader reads its changes. */
function Chosen({ menu: { event, text } }: { menu: Menu }) {
  return (
    <div class="menu-chosen" aria-live="polite">
      {event && (
        <>
          <b>{event.title}</b>
          <span class="menu-note">
            {event.number} {event.channel}, {dayAndClock(event.start)}–{timeText(secondsOf(event.start) + event.seconds)}
          </span>
          {event.summary && text === undefined && <p>{event.summary}</p>}
        </>
      )}
      {text !== undefined && <p class="menu-text">{text}</p>}
    </div>
  );
}

function Actions({ menu, press }: { menu: Menu; press: (key: string) => void }) {
  const records = menu.rows?.[menu.selected?.row ?? -1]?.marks?.includes("recording") === true;
  const order = [...colours, "ENTER", "EXIT"].filter((key) => menu.actions[key] !== undefined);
  return (
    <footer>
      {order.map((key) => {
        const word = menu.actions[key] ?? "";
        const text = actionOf(word === "stop_or_delete" ? (records ? "stop" : "delete") : word);
        return (
          <button key={key} type="button" class="menu-action" data-key={key} tabIndex={-1} onClick={() => press(key)}>
            <i aria-hidden="true">{colours.includes(key) ? "" : key === "ENTER" ? "OK" : key}</i> {text}
          </button>
        );
      })}
    </footer>
  );
}

import { Fragment } from "preact";
import { useComputed, useSignal } from "@preact/signals";
import { useEffect, useRef } from "preact/hooks";
import { filterGroups, searchWords, shortType, type Group, type Row } from "../model/catalogue";
import { label } from "../model/labels";
import { groups, list, selectedUri, setWatched, view, watched } from "../model/session";
import { BellIcon, BellOnIcon, SearchIcon } from "./icons";
import { Marked } from "./marked";

/** What the arrow keys visit: groups and URIs, without those that a closed group hides. */
const stopsIn = (panel: HTMLElement): HTMLElement[] =>
  [...panel.querySelectorAll<HTMLElement>(".list-body summary, a.uri")].filter((stop) => stop.checkVisibility());

export function UriList() {
  const search = useSignal("");
  const servedOnly = useSignal(false);
  const words = useComputed(() => searchWords(search.value));
  const shown = useComputed(() => filterGroups(groups.value, words.value, servedOnly.value));
  const count = useComputed(() => shown.value.reduce((sum, group) => sum + group.rows.length, 0));
  // The whole list is one stop of the Tab key.
  const tabStop = useComputed(() => {
    const uris = shown.value.flatMap((group) => group.rows.map((row) => row.uri));
    return uris.includes(selectedUri.value) ? selectedUri.value : (uris[0] ?? "");
  });
  const input = useRef<HTMLInputElement>(null);
  const panel = useRef<HTMLElement>(null);

  useEffect(() => {
    const focusSearch = (event: KeyboardEvent) => {
      const target = event.target as HTMLElement;
      if (event.key !== "/" || target.closest("input, textarea, select") || event.ctrlKey || event.metaKey) return;
      if (view.value === "configuration" || view.value === "remote") return;
      event.preventDefault();
      view.value = "uris";
      input.current?.focus();
      input.current?.select();
    };
    document.addEventListener("keydown", focusSearch);
    return () => document.removeEventListener("keydown", focusSearch);
  }, []);

  // From the search with the arrow keys into the rows and back; Enter takes the first hit.
  function moveFocus(event: KeyboardEvent) {
    if (!panel.current) return;
    const stops = stopsIn(panel.current);
    const at = stops.indexOf(document.activeElement as HTMLElement);
    const firstUri = Math.max(0, stops.findIndex((stop) => stop.matches("a")));
    let next: number;
    if (event.key === "ArrowDown") next = at < 0 ? firstUri : at + 1;
    else if (event.key === "ArrowUp") next = at - 1;
    else if (event.key === "Home" && at >= 0) next = 0;
    else if (event.key === "End" && at >= 0) next = stops.length - 1;
    else if (event.key === "Enter" && event.target === input.current) {
      stops[firstUri]?.click();
      return;
    } else if (event.key === "Escape" && search.value !== "") {
      search.value = "";
      input.current?.focus();
      return;
    } else return;
    event.preventDefault();
    if (next < 0) input.current?.focus();
    else stops[Math.min(next, stops.length - 1)]?.focus();
  }

  const total = list.value?.uris.length ?? 0;
  return (
    <section class="panel list" aria-label={label("IDS_URIS")} ref={panel} onKeyDown={moveFocus}>
      <div class="list-head">
        <label class="search">
          <SearchIcon />
          <input
            ref={input}
            type="search"
            aria-label={label("IDS_SEARCH")}
            placeholder={`${label("IDS_SEARCH")}: volume mute`}
            autocomplete="off"
            spellcheck={false}
            value={search.value}
            onInput={(event) => (search.value = event.currentTarget.value)}
          />
          <kbd aria-hidden="true">/</kbd>
        </label>
        <div class="list-bar">
          <span role="status">
            {count.value === total ? total : `${count.value} / ${total}`} {label("IDS_URIS")}
          </span>
          <label class="check">
            <input
              type="checkbox"
              checked={servedOnly.value}
              onChange={(event) => (servedOnly.value = event.currentTarget.checked)}
            />
            Served only
          </label>
        </div>
      </div>
      <nav class="list-body" aria-label="URIs by group">
        {shown.value.map((group) => (
          <GroupView key={group.key} group={group} words={words.value} tabStop={tabStop.value} />
        ))}
        {total > 0 && count.value === 0 && <p class="empty">{label("IDS_NOTHING_FOUND")}</p>}
      </nav>
    </section>
  );
}

function GroupView({ group, words, tabStop }: { group: Group; words: string[]; tabStop: string }) {
  const holdsSelected = group.rows.some((row) => row.uri === selectedUri.value);
  return (
    <details class="group" open={group.served || holdsSelected || words.length > 0} data-served={group.served}>
      <summary tabIndex={-1}>
        <span class="group-name">
          <Marked text={group.prefix} words={words} />
        </span>
        {!group.served && <span class="quiet">not served</span>}
        <span class="count">{group.rows.length}</span>
      </summary>
      <ul>
        {group.rows.map((row, index) => (
          <Fragment key={row.id}>
            {row.section && index > 0 && group.rows[index - 1]?.section !== row.section && (
              <li class="section-line">{row.section}</li>
            )}
            <RowView row={row} words={words} tabStop={tabStop} />
          </Fragment>
        ))}
      </ul>
    </details>
  );
}

function RowView({ row, words, tabStop }: { row: Row; words: string[]; tabStop: string }) {
  const selected = row.uri === selectedUri.value;
  const abilities = (["get", "set", "notify"] as const).filter((ability) => row[ability]);
  return (
    <li class="row" data-served={row.served} data-selected={selected}>
      <a
        class="uri"
        href={`#${row.uri}`}
        tabIndex={row.uri === tabStop ? 0 : -1}
        aria-current={selected ? "true" : undefined}
        aria-label={`${row.uri}, ${shortType(row.type)}, ${row.served ? abilities.join(", ") : row.section.toLowerCase()}`}
        // The view changes also when the row was selected before, which changes no hash.
        onClick={() => (view.value = "request")}
      >
        <span class="names">
          <span class="tail">
            <Marked text={row.tail} words={words} />
          </span>
          <span class="type" title={row.type}>
            <Marked text={shortType(row.type)} words={words} />
          </span>
        </span>
        <span class="abilities">
          {abilities.map((ability) => (
            <span key={ability} class={`ability ${ability}`}>
              {ability}
            </span>
          ))}
        </span>
      </a>
      {row.notify && <WatchBell uri={row.uri} />}
    </li>
  );
}

function WatchBell({ uri }: { uri: string }) {
  const on = watched.value.has(uri);
  return (
    <button
      type="button"
      class="icon-button bell"
      // By keyboard the same is done in the request panel and in the list of subscriptions.
      tabIndex={-1}
      aria-pressed={on}
      aria-label={`${label("IDS_SUBSCRIBE")}: ${uri}`}
      title={label(on ? "IDS_UNSUBSCRIBE" : "IDS_SUBSCRIBE")}
      onClick={() => setWatched(uri, !on)}
    >
      {on ? <BellOnIcon /> : <BellIcon />}
    </button>
  );
}

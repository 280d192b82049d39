import { signal, useComputed, useSignal } from "@preact/signals";
import { useEffect, useRef } from "preact/hooks";
import { filterGroups, shortType, type Group, type Row } from "../../app/catalogue";
import { Nearest } from "../../app/nearest";
import { onPage, selectedUri, view } from "../../app/navigation";
import { groups, list, setWatched, watched } from "../../app/session";
import { searchWords } from "../../lib/search";
import { BellIcon, BellOnIcon } from "../../ui/icons";
import { Marked } from "../../ui/marked";
import { RowList, type RowListHandle } from "../../ui/row-list";
import { SearchField } from "../../ui/search-field";
import { lineKey, linesOf, type Line } from "./lines";
import { label } from "./words";
import "./uri-list.css";

const lineHeight = 36;

/** Groups that were opened or closed by hand since the last change of the search. */
const toggled = signal<ReadonlyMap<string, boolean>>(new Map());

export function UriList() {
  const search = useSignal("");
  const servedOnly = useSignal(false);
  const words = useComputed(() => searchWords(search.value));
  const shown = useComputed(() => filterGroups(groups.value, words.value, servedOnly.value));
  const rows = useComputed(() => shown.value.flatMap((group) => group.rows));
  const lines = useComputed(() => {
    const isOpen = (group: Group): boolean =>
      toggled.value.get(group.key) ??
      (group.served || words.value.length > 0 || group.rows.some((row) => row.uri === selectedUri.value));
    return linesOf(shown.value, isOpen);
  });
  const current = useComputed(() => rows.value.find((row) => row.uri === selectedUri.value) ?? rows.value[0]);
  const selectedKey = useComputed(() => (current.value?.uri === selectedUri.value ? lineKey(current.value) : null));
  const input = useRef<HTMLInputElement>(null);
  const handle = useRef<RowListHandle>(null);

  useEffect(() => {
    toggled.value = new Map();
    handle.current?.scrollToTop();
  }, [search.value, servedOnly.value]);

  useEffect(() => {
    if (selectedKey.value !== null) handle.current?.reveal(selectedKey.value);
  }, [selectedKey.value]);

  function takeSlash(): boolean {
    if (onPage.value) return false;
    view.value = "uris";
    return true;
  }

  // The arrow key "down" moves from the search to the first URI; Enter opens it.
  function moveFromSearch(event: KeyboardEvent) {
    if (event.target === input.current) {
      const firstUri = lines.value.findIndex(({ kind }) => kind === "uri");
      if (event.key === "ArrowDown") handle.current?.focus(Math.max(0, firstUri));
      else if (event.key !== "Enter") return;
      else if (rows.value[0]) open(rows.value[0].uri);
      else if (search.value.startsWith("/")) open(search.value.trim());
      event.preventDefault();
    } else if (event.key === "Escape" && search.value !== "") {
      search.value = "";
      input.current?.focus();
    }
  }

  const total = list.value?.uris.length ?? 0;
  const count = rows.value.length;
  return (
    <section class="panel list" aria-label={label("IDS_URIS")} onKeyDown={moveFromSearch}>
      <div class="list-head">
        <SearchField
          text={search}
          label={label("IDS_SEARCH")}
          placeholder={`${label("IDS_SEARCH")}: volume mute`}
          input={input}
          onSlash={takeSlash}
        />
        <div class="list-bar">
          <span role="status">
            {count === total ? total : `${count} / ${total}`} {label("IDS_URIS")}
          </span>
          <label class="check">
            <input
              type="checkbox"
              checked={servedOnly.value}
              onChange={(event) => (servedOnly.value = event.currentTarget.checked)}
            />
            {label("IDS_SERVED_ONLY")}
          </label>
        </div>
      </div>
      <nav class="list-body" aria-label={label("IDS_URIS_BY_GROUP")}>
        <RowList
          rows={lines.value}
          keyOf={(line) => line.key}
          estimate={lineHeight}
          isPassive={(line) => line.kind === "section"}
          {...(current.value ? { current: lineKey(current.value) } : {})}
          empty={total > 0 && <NothingFound text={search.value.trim()} />}
          handle={handle}
          onLeave={() => input.current?.focus()}
          render={(line, tabIndex) => <LineView line={line} words={words.value} tabIndex={tabIndex} />}
        />
      </nav>
    </section>
  );
}

/** A text that begins like a URI may be one with a mistake in it. */
const NothingFound = ({ text }: { text: string }) => (
  <>
    <p>{label("IDS_NOTHING_FOUND")}</p>
    {text.startsWith("/") && <Nearest uri={text} />}
  </>
);

/** Opens a URI's request. The view changes also if the URI is selected already, which does not change the address. */
function open(uri: string) {
  location.hash = uri;
  view.value = "request";
}

interface LineProps {
  line: Line;
  words: string[];
  tabIndex: 0 | -1;
}

function LineView({ line, words, tabIndex }: LineProps) {
  switch (line.kind) {
    case "group":
      return <GroupView group={line.group} open={line.open} words={words} tabIndex={tabIndex} />;
    case "section":
      return <p class="section-line">{line.text && label(line.text)}</p>;
    case "uri":
      return <RowView row={line.row} described={line.described} words={words} tabIndex={tabIndex} />;
  }
}

function GroupView({ group, open, words, tabIndex }: { group: Group; open: boolean } & Omit<LineProps, "line">) {
  return (
    <button
      type="button"
      class="group"
      aria-expanded={open}
      data-served={group.served}
      tabIndex={tabIndex}
      onClick={() => (toggled.value = new Map(toggled.value).set(group.key, !open))}
    >
      <span class="group-name">
        <Marked text={group.prefix} words={words} />
      </span>
      {!group.served && <span class="quiet">{sectionName(group.rows[0])}</span>}
      <span class="count">{group.rows.length}</span>
    </button>
  );
}

/** "not served", within a line. */
const sectionName = (row: Row | undefined): string => (row?.section ? label(row.section).toLowerCase() : "");

function RowView({ row, described, words, tabIndex }: { row: Row; described: boolean } & Omit<LineProps, "line">) {
  const selected = row.uri === selectedUri.value;
  const abilities = (["get", "set", "notify"] as const).filter((ability) => row[ability]);
  return (
    <div class="row" data-served={row.served} data-selected={selected}>
      <a
        class="uri"
        href={`#${row.uri}`}
        tabIndex={tabIndex}
        aria-current={selected ? "true" : undefined}
        aria-label={[
          row.uri,
          shortType(row.type),
          ...(described && row.help ? [row.help] : []),
          ...(row.served ? abilities : [sectionName(row)]),
        ].join(", ")}
        onClick={() => (view.value = "request")}
      >
        <span class="names">
          <span class="tail">
            <Marked text={row.tail} words={words} />
          </span>{" "}
          <span class="type" title={row.type}>
            <Marked text={shortType(row.type)} words={words} />
          </span>{" "}
          {described && row.help && (
            <span class="description">
              <Marked text={row.help} words={words} />
            </span>
          )}
        </span>{" "}
        <span class="abilities">
          {abilities.map((ability) => (
            <span key={ability} class={`ability ${ability}`}>
              {`${ability} `}
            </span>
          ))}
        </span>
      </a>
      {row.notify && <WatchBell uri={row.uri} />}
    </div>
  );
}

function WatchBell({ uri }: { uri: string }) {
  const on = watched.value.has(uri);
  return (
    <button
      type="button"
      class="icon-button bell"
      // For the keyboard, the request panel and the list of subscriptions have the same switch.
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

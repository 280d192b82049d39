import { signal, useComputed, useSignal } from "@preact/signals";
import { useEffect, useRef } from "preact/hooks";
import { AccessNotice } from "../../app/access-notice";
import { isForbidden } from "../../app/rpc";
import { access, configNotifyUri, connection, listen, RefusedError, textOf } from "../../app/session";
import { searchWords } from "../../lib/search";
import { PlusIcon } from "../../ui/icons";
import { SearchField } from "../../ui/search-field";
import { addKey, configLists, configRows, refreshConfig, refreshKey, type ConfigRow } from "./config";
import { ConfigLine } from "./config-line";
import { groupName } from "./groups";
import { label } from "./words";
import "./config.css";

const pollMs = 2000;

// Kept while another view is shown.
const search = signal("");
const changedOnly = signal(false);

/** While the panel is open: reads all values every two seconds, and a single one when a notification reports a change. */
function useLiveValues(tell: (problem: string) => void) {
  const readable = connection.value.name === "open" && access.value === "control";
  useEffect(() => {
    if (!readable) return;
    let timer: ReturnType<typeof setTimeout> | undefined;
    let shown = true;
    const failed = (reason: unknown) => tell(isForbidden(reason) ? "" : textOf(reason));
    async function poll() {
      if (document.visibilityState === "visible") await refreshConfig().then(() => tell(""), failed);
      if (shown) timer = setTimeout(() => void poll(), pollMs);
    }
    void poll();
    const unlisten = listen(configNotifyUri, ({ ARG2 }) => {
      if (typeof ARG2 === "string") refreshKey(ARG2).catch(failed);
    });
    return () => {
      shown = false;
      clearTimeout(timer);
      unlisten();
    };
  }, [readable]);
}

export function ConfigPanel() {
  const problem = useSignal("");
  const input = useRef<HTMLInputElement>(null);
  useLiveValues((text) => (problem.value = text));
  const words = useComputed(() => searchWords(search.value));
  const shown = useComputed(() =>
    configRows.value.filter(
      ({ haystack, group, entry }) =>
        words.value.every((word) => haystack.includes(word) || groupName(group).toLowerCase().includes(word)) &&
        !(changedOnly.value && entry.value.value === entry.value.factory),
    ),
  );
  const total = configRows.value.length;
  const count = shown.value.length === total ? `${total}` : `${shown.value.length} / ${total}`;
  return (
    <main class="panel config" aria-label={label("IDS_CONFIGURATION")}>
      <div class="config-head">
        <h1>{label("IDS_CONFIGURATION")}</h1>
        <SearchField text={search} label={label("IDS_SEARCH")} placeholder={label("IDS_SEARCH")} input={input} />
        <div class="list-bar">
          <span role="status">
            {problem.value || (configLists.value !== null && `${count} ${label("IDS_VALUES")}`)}
          </span>
          {configLists.value && (
            <label class="check">
              <input
                type="checkbox"
                checked={changedOnly.value}
                onChange={(event) => (changedOnly.value = event.currentTarget.checked)}
              />
              {label("IDS_NOT_DEFAULT")}
            </label>
          )}
        </div>
        <AccessNotice when="look" />
        {configLists.value === false && <AddKey />}
        <div class="config-titles" aria-hidden="true">
          <span>{label("IDS_KEY")}</span>
          <span>{label("IDS_LIMITS")}</span>
          <span>{label("IDS_VALUE")}</span>
        </div>
      </div>
      {groupsOf(shown.value).map(({ group, rows }) => (
        <section key={group} class="config-group" data-group={group} aria-labelledby={`config-group-${group}`}>
          <h2 id={`config-group-${group}`}>{groupName(group)}</h2>
          <ul>
            {rows.map((row) => (
              <ConfigLine key={row.key} row={row} words={words.value} />
            ))}
          </ul>
        </section>
      ))}
      {total > 0 && shown.value.length === 0 && <p class="empty">{label("IDS_NOTHING_FOUND")}</p>}
    </main>
  );
}

/** The rows by group, both in the order in which the television lists them. */
function groupsOf(rows: readonly ConfigRow[]): { group: string; rows: ConfigRow[] }[] {
  const ret = new Map<string, ConfigRow[]>();
  for (const row of rows) ret.set(row.group, [...(ret.get(row.group) ?? []), row]);
  return [...ret].map(([group, members]) => ({ group, rows: members }));
}

/** For a television that does not list its configuration: the viewer names the keys to show. */
function AddKey() {
  const key = useSignal("");
  const problem = useSignal("");

  async function submit(event: Event) {
    event.preventDefault();
    const wanted = key.value.trim();
    if (wanted === "") return;
    try {
      await addKey(wanted);
      key.value = problem.value = "";
    } catch (reason) {
      problem.value = reason instanceof RefusedError ? label("IDS_NO_KEY", wanted) : textOf(reason);
    }
  }

  return (
    <form class="add-key" aria-label={label("IDS_ADD")} onSubmit={(event) => void submit(event)}>
      <p class="hint">{label("IDS_NAME_A_KEY")}</p>
      <div class="actions">
        <input
          type="text"
          aria-label={label("IDS_KEY")}
          placeholder="g_gui_lang__gui_language"
          autocomplete="off"
          spellcheck={false}
          value={key.value}
          onInput={(event) => (key.value = event.currentTarget.value)}
        />
        <button type="submit" class="button">
          <PlusIcon />
          {label("IDS_ADD")}
        </button>
      </div>
      <p class="bad" role="status">
        {problem.value}
      </p>
    </form>
  );
}

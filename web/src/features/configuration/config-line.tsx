import { useSignal } from "@preact/signals";
import { Marked } from "../../ui/marked";
import { ask } from "../../ui/question";
import { isDestructive, limitsOf, textOfValue, valueOf, writeConfig, type ConfigEntry, type ConfigRow } from "./config";
import { label } from "./words";

/** One value of the configuration, with its editor. */
export function ConfigLine({ row, words }: { row: ConfigRow; words: string[] }) {
  const entry = row.entry.value;
  const id = `config-${row.key}`;
  const limits = limitsOf(entry);
  const isDefault = entry.factory === undefined || entry.value === entry.factory || entry.kind === "action";
  return (
    <li class="config-line" data-key={row.key} data-changed={row.changed.value}>
      <div class="config-name">
        <label for={id}>
          <Marked text={row.key} words={words} />
        </label>
        <p class="about" id={`${id}-about`}>
          <Marked text={entry.help} words={words} />
        </p>
      </div>
      <p class="config-limits" id={`${id}-limits`}>
        <span class="config-kind">{entry.kind}</span> {limits}
        <span class="config-more">
          {entry.item !== null && <span class="config-item">{itemName(entry.item)}</span>}
          {!isDefault && (
            <span>
              {label("IDS_DEFAULT")} <span class="j-number">{textOfValue(entry, entry.factory ?? null)}</span>
            </span>
          )}
        </span>
      </p>
      <div class="config-value">
        <Editor row={row} entry={entry} id={id} />
        {row.problem.value && (
          <p class="bad" id={`${id}-problem`} role="alert">
            {row.problem.value}
          </p>
        )}
      </div>
    </li>
  );
}

const itemName = (item: number): string => `0x${item.toString(16).toUpperCase().padStart(8, "0")}`;

interface EditorProps {
  row: ConfigRow;
  entry: ConfigEntry;
  id: string;
}

function Editor({ row, entry, id }: EditorProps) {
  switch (entry.kind) {
    case "bool":
      return <Switch row={row} entry={entry} id={id} />;
    case "action":
      return <Action row={row} entry={entry} id={id} />;
    case "number":
      if (entry.names) return <Choice row={row} entry={entry} names={entry.names} id={id} />;
      return <TextEditor row={row} entry={entry} id={id} />;
    default:
      return <TextEditor row={row} entry={entry} id={id} />;
  }
}

const describedBy = (id: string) => `${id}-about ${id}-limits ${id}-problem`;

function Switch({ row, entry, id }: EditorProps) {
  async function change(input: HTMLInputElement) {
    await writeConfig(row, input.checked);
    input.checked = row.entry.peek().value === true;
  }
  return (
    <span class="switch">
      <input
        id={id}
        type="checkbox"
        role="switch"
        checked={entry.value === true}
        aria-describedby={describedBy(id)}
        onChange={(event) => void change(event.currentTarget)}
      />
      <span aria-hidden="true">{textOfValue(entry, entry.value)}</span>
    </span>
  );
}

/** A number whose values have names. */
function Choice({ row, entry, names, id }: EditorProps & { names: Readonly<Record<string, string>> }) {
  const value = String(entry.value);

  async function choose(menu: HTMLSelectElement) {
    await writeConfig(row, Number(menu.value));
    // What the set refuses is not shown as chosen.
    menu.value = String(row.entry.peek().value);
  }

  return (
    <>
      <select
        id={id}
        class="select"
        value={value}
        aria-describedby={describedBy(id)}
        onChange={(event) => void choose(event.currentTarget)}
      >
        {!(value in names) && <option value={value}>{value}</option>}
        {Object.entries(names).map(([number, name]) => (
          <option key={number} value={number}>
            {name}
          </option>
        ))}
      </select>
      <span class="quiet">{value}</span>
    </>
  );
}

function Action({ row, entry, id }: EditorProps) {
  async function send() {
    const question = {
      text: label("IDS_SEND_QUESTION", row.key),
      about: `${entry.help}. ${label("IDS_NOT_UNDONE")}`,
      action: label("IDS_SEND"),
    };
    if (!isDestructive(entry) || (await ask(question))) await writeConfig(row, null);
  }
  return (
    <>
      <button
        type="button"
        id={id}
        class="button small"
        aria-describedby={describedBy(id)}
        onClick={() => void send()}
      >
        {label("IDS_SEND")}
      </button>
      <span class="quiet">{String(entry.value)}×</span>
    </>
  );
}

function TextEditor({ row, entry, id }: EditorProps) {
  // The typed text stays until the television accepts it, even if the value changes meanwhile. Escape discards it.
  const draft = useSignal<string | null>(null);
  const type =
    entry.kind === "number"
      ? { type: "number" as const, step: 1, min: entry.minimum, max: entry.maximum }
      : { type: "text" as const };

  async function write() {
    const typed = draft.value;
    if (typed === null) return;
    const read = valueOf(entry, typed);
    if ("problem" in read) row.problem.value = read.problem;
    else if ((await writeConfig(row, read.value)) && draft.value === typed) draft.value = null;
  }

  function discard() {
    draft.value = null;
    row.problem.value = "";
  }

  return (
    <input
      id={id}
      {...type}
      class={`config-input ${entry.kind}`}
      maxLength={entry.kind === "code" ? 3 : undefined}
      autocomplete="off"
      spellcheck={false}
      value={draft.value ?? String(entry.value)}
      aria-describedby={describedBy(id)}
      aria-invalid={row.problem.value !== ""}
      onInput={(event) => (draft.value = event.currentTarget.value)}
      onChange={() => void write()}
      onKeyDown={(event) => {
        if (event.key === "Escape") discard();
      }}
    />
  );
}

import { useSignal } from "@preact/signals";
import { useId } from "preact/hooks";
import { ClearIcon } from "../../ui/icons";
import { Problem } from "../../ui/problem";
import { ask } from "../../ui/question";
import type { Channel } from "./channels";
import { change, edited, renumber } from "./edits";
import { label } from "./words";

/** The switches of a channel: the flag in the list, the words that set and clear it, and its text. */
const switches = [
  { flag: "blocked", on: "block", off: "unblock", text: "IDS_BLOCKED_SWITCH" },
  { flag: "skipped", on: "skip", off: "unskip", text: "IDS_SKIPPED_SWITCH" },
] as const;

/** The row below a channel in which its name, number and switches are changed. */
export function ChannelEditor({ channel }: { channel: Channel }) {
  const problem = useSignal("");
  const busy = useSignal(false);
  /** The switch that the viewer has moved, until the set has answered. */
  const moved = useSignal<{ flag: string; on: boolean } | null>(null);
  const id = useId();

  async function run(action: () => Promise<boolean>): Promise<boolean> {
    busy.value = true;
    const done = await action();
    busy.value = false;
    moved.value = null;
    return done;
  }

  function keyPressed(event: KeyboardEvent) {
    // The keys that move in the list are needed in the fields.
    event.stopPropagation();
    if (event.key === "Escape") edited.value = "";
  }

  async function remove() {
    const question = { text: label("IDS_DELETE_QUESTION", channel.name), about: label("IDS_SCAN_FINDS"), action: label("IDS_DELETE") };
    if (!(await ask(question))) return;
    await run(removeNow);
  }

  async function removeNow() {
    const done = await change(channel, problem, "delete");
    if (done) edited.value = "";
    return done;
  }

  return (
    <fieldset
      class="channel-editor"
      aria-label={`${label("IDS_EDIT")}: ${channel.name}`}
      disabled={busy.value}
      onKeyDown={keyPressed}
    >
      <FieldForm
        id={`${id}name`}
        title={label("IDS_NAME")}
        value={channel.name}
        save={(text) => run(() => change(channel, problem, "name", text))}
      />
      <FieldForm
        id={`${id}number`}
        title={label("IDS_NUMBER")}
        value={String(channel.number)}
        narrow
        save={(text) => run(() => renumber(channel, problem, text.trim()))}
      />
      <div class="channel-switches">
        {switches.map(({ flag, on, off, text }) => (
          <label class="check" key={flag}>
            <input
              type="checkbox"
              checked={moved.value?.flag === flag ? moved.value.on : channel.flags.includes(flag)}
              onChange={(event) => {
                const wanted = event.currentTarget.checked;
                moved.value = { flag, on: wanted };
                void run(() => change(channel, problem, wanted ? on : off));
              }}
            />
            {label(text)}
          </label>
        ))}
      </div>
      <div class="channel-remove">
        <button type="button" class="button small" onClick={() => void remove()}>
          <ClearIcon />
          {label("IDS_DELETE")}
        </button>
      </div>
      <Problem text={problem.value} />
    </fieldset>
  );
}

interface FieldFormProps {
  id: string;
  title: string;
  value: string;
  narrow?: true;
  /** Returns whether the text was saved. */
  save: (text: string) => Promise<boolean>;
}

/** One text with a button that saves it. A typed text stays until it is saved, even if the set's value changes. */
function FieldForm({ id, title, value, narrow, save }: FieldFormProps) {
  const draft = useSignal<string | null>(null);

  async function submit(event: Event) {
    event.preventDefault();
    const typed = draft.value;
    if (typed === null) return;
    if ((await save(typed)) && draft.value === typed) draft.value = null;
  }

  return (
    <form class="channel-field" onSubmit={(event) => void submit(event)}>
      <label for={id}>{title}</label>
      <input
        id={id}
        type="text"
        class="text-field"
        data-narrow={narrow}
        inputMode={narrow ? "numeric" : undefined}
        autocomplete="off"
        spellcheck={false}
        value={draft.value ?? value}
        onInput={(event) => (draft.value = event.currentTarget.value)}
      />
      <button
        type="submit"
        class="button small"
        aria-label={`${label("IDS_SAVE")}: ${title}`}
        disabled={draft.value === null}
      >
        {label("IDS_SAVE")}
      </button>
    </form>
  );
}

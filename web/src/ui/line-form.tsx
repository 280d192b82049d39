import { useSignal } from "@preact/signals";
import { useId } from "preact/hooks";

interface LineFormProps {
  class: string;
  /** Names the field. */
  label: string;
  text?: string;
  placeholder?: string;
  /** What the button does. */
  action: string;
  /** False: an empty text cannot be sent. */
  empty?: boolean;
  disabled?: boolean;
  /** Texts to choose from. */
  offered?: readonly string[];
  /** Told what is typed so far. */
  onText?: (text: string) => void;
  /** Returns whether the text was taken: the form closes then. */
  send: (text: string) => Promise<boolean>;
  close: () => void;
}

/** One line of text with a button. Escape closes the form. */
export function LineForm(props: LineFormProps) {
  const { class: name, label, text = "", placeholder, action, empty = true, disabled, offered, onText, send, close } = props;
  const list = useId();
  const draft = useSignal(text);

  async function submit(event: Event) {
    event.preventDefault();
    if (!(await send(draft.peek()))) return;
    draft.value = text;
    close();
  }

  return (
    <form
      class={name}
      onSubmit={(event) => void submit(event)}
      onKeyDown={(event) => {
        if (event.key === "Escape") close();
      }}
    >
      <input
        type="text"
        class="text-field"
        aria-label={label}
        placeholder={placeholder}
        autocomplete="off"
        spellcheck={false}
        value={draft.value}
        {...(offered ? { list } : {})}
        onInput={(event) => {
          draft.value = event.currentTarget.value;
          onText?.(draft.value);
        }}
      />
      {offered && (
        <datalist id={list}>
          {offered.map((each) => (
            <option key={each} value={each} />
          ))}
        </datalist>
      )}
      <button type="submit" class="button small" disabled={disabled || (!empty && draft.value.trim() === "")}>
        {action}
      </button>
    </form>
  );
}

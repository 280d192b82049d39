import { useSignal } from "@preact/signals";
import { useEffect } from "preact/hooks";
import { connection, list } from "../../app/session";
import { Breakable } from "../../ui/breakable";
import { DownIcon, LeftIcon, RightIcon, UpIcon } from "../../ui/icons";
import { Worded } from "../../ui/worded";
import { keyGroups, lastPress, press, shortcuts, type KeyGroup } from "./remote";
import { label } from "./words";
import "./remote.css";

const icons = { UP: UpIcon, DOWN: DownIcon, LEFT: LeftIcon, RIGHT: RightIcon } as const;

const shortcutOf = (key: string): string | undefined =>
  Object.keys(shortcuts).find((pressed) => shortcuts[pressed] === key);

// How long a pressed key is lit.
const lightMs = 250;

/** All keys that the set knows. */
export function RemotePanel() {
  const groups = keyGroups.value;
  const offline = connection.value.name !== "open";

  function pressShortcut(event: KeyboardEvent) {
    const key = shortcuts[event.key];
    if (!key || event.ctrlKey || event.metaKey || event.altKey) return;
    if (!groups?.some((group) => group.keys.includes(key))) return;
    event.preventDefault();
    void press(key);
  }

  return (
    <main class="panel remote-panel" aria-label={label("IDS_REMOTE_CONTROL")} onKeyDown={pressShortcut}>
      <h1>{label("IDS_REMOTE_CONTROL")}</h1>
      <LastPress />
      {groups ? (
        <fieldset class="keys" disabled={offline}>
          {groups.map((group) => (
            <Group key={group.id} group={group} />
          ))}
        </fieldset>
      ) : (
        list.value && <p class="empty">{label("IDS_NO_KEYS")}</p>
      )}
    </main>
  );
}

function Group({ group: { id, title, keys } }: { group: KeyGroup }) {
  const name = label(title || "IDS_MORE");
  return (
    <section class="key-group" data-group={id} aria-label={name}>
      <h2>{name}</h2>
      <div class="key-grid">
        {keys.map((key) => (
          <KeyButton key={key} name={key} />
        ))}
      </div>
    </section>
  );
}

function KeyButton({ name }: { name: string }) {
  const Icon = icons[name as keyof typeof icons];
  const shortcut = shortcutOf(name);
  const last = lastPress.value?.key === name ? lastPress.value : null;
  const lit = useSignal(false);

  useEffect(() => {
    if (!last) return;
    lit.value = true;
    const timer = setTimeout(() => (lit.value = false), lightMs);
    // Another key, or this one again, was pressed before the time was up.
    return () => {
      clearTimeout(timer);
      lit.value = false;
    };
  }, [last?.number]);

  return (
    <button
      type="button"
      class="key"
      data-key={name}
      data-lit={lit.value}
      data-failed={last !== null && last.problem !== ""}
      aria-label={name}
      aria-keyshortcuts={shortcut}
      title={shortcut === undefined ? name : `${name} (${shortcut})`}
      onClick={() => void press(name)}
    >
      {Icon ? <Icon /> : <Breakable text={name} />}
    </button>
  );
}

function LastPress() {
  const last = lastPress.value;
  return (
    <p class="last-press" role="status">
      {last === null ? (
        <span class="hint">
          <Worded text={label("IDS_KEYS_HELP")} as="kbd" />
        </span>
      ) : last.problem ? (
        <span class="bad">
          <b>{last.key}</b> {last.problem}
        </span>
      ) : last.message ? (
        <span>{last.message}</span>
      ) : (
        <span>
          <b>{last.key}</b> {label("IDS_KEY_PRESSED")}
        </span>
      )}
    </p>
  );
}

import { useSignal } from "@preact/signals";
import { CheckIcon, CopyIcon } from "./icons";
import { tell } from "./notice";

export function CopyButton({ text, label }: { text: string; label: string }) {
  const done = useSignal(false);

  async function copy() {
    try {
      await navigator.clipboard.writeText(text);
      done.value = true;
      setTimeout(() => (done.value = false), 1500);
    } catch {
      tell("The browser refused access to the clipboard.");
    }
  }

  return (
    <button type="button" class="icon-button" aria-label={label} title={label} onClick={() => void copy()}>
      {done.value ? <CheckIcon /> : <CopyIcon />}
    </button>
  );
}

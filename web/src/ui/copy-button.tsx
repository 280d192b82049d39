import { useSignal } from "@preact/signals";
import { CheckIcon, CopyIcon } from "./icons";
import { tell } from "./notice";

interface CopyButtonProps {
  text: string;
  label: string;
  /** Told if the browser does not let the page copy. */
  refused: string;
}

export function CopyButton({ text, label, refused }: CopyButtonProps) {
  const done = useSignal(false);

  async function copy() {
    try {
      await navigator.clipboard.writeText(text);
      done.value = true;
      setTimeout(() => (done.value = false), 1500);
    } catch {
      tell(refused);
    }
  }

  return (
    <button type="button" class="icon-button" aria-label={label} title={label} onClick={() => void copy()}>
      {done.value ? <CheckIcon /> : <CopyIcon />}
    </button>
  );
}

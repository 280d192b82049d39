import { useSignal } from "@preact/signals";
import { lengthText } from "../lib/measures";
import "./seek-bar.css";

interface SeekBarProps {
  label: string;
  /** Seconds. */
  position: number;
  /** Seconds; 0 if it is unknown. */
  duration: number;
  onSeek: (position: number) => Promise<unknown>;
}

/** Where a player is, as a slider and as a time. The slider stays where the viewer drops it until the seek is over. */
export function SeekBar({ label, position, duration, onSeek }: SeekBarProps) {
  // Where the viewer drags the position to; null while nobody does.
  const dragged = useSignal<number | null>(null);
  const shown = dragged.value ?? position;

  async function seek(target: number) {
    dragged.value = target;
    await onSeek(target);
    // The viewer may have moved it again.
    if (dragged.peek() === target) dragged.value = null;
  }

  return (
    <>
      <input
        class="seek-bar"
        type="range"
        min={0}
        max={duration}
        step="any"
        value={shown}
        disabled={duration <= 0}
        aria-label={label}
        aria-valuetext={lengthText(shown)}
        onInput={(event) => (dragged.value = event.currentTarget.valueAsNumber)}
        onChange={(event) => void seek(event.currentTarget.valueAsNumber)}
      />
      <span class="seek-time">{duration > 0 ? `${lengthText(shown)} / ${lengthText(duration)}` : lengthText(shown)}</span>
    </>
  );
}

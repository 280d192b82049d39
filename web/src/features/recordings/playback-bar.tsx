import { useSignal } from "@preact/signals";
import { FastLeftIcon, FastRightIcon, PauseIcon, PlayIcon, StopIcon } from "../../ui/icons";
import { change, type Playback } from "./recordings";
import { label } from "./words";

/** "1:02:03" or "2:03". */
function timeText(seconds: number): string {
  const two = (value: number) => String(value).padStart(2, "0");
  const hours = Math.floor(seconds / 3600);
  const minutes = Math.floor((seconds % 3600) / 60);
  return hours > 0 ? `${hours}:${two(minutes)}:${two(seconds % 60)}` : `${minutes}:${two(seconds % 60)}`;
}

/** What the set plays, and the buttons of a player. */
export function PlaybackBar({ playback }: { playback: Playback }) {
  const problem = useSignal("");
  // Where the viewer drags the position to; null while nobody does.
  const dragged = useSignal<number | null>(null);
  const { title, position_seconds: position, seconds: duration, paused } = playback;
  const send = (...words: string[]) => change(problem, "playback", ...words);
  const shown = dragged.value ?? position;

  async function seek(target: number) {
    await send("seek", String(target));
    dragged.value = null;
  }

  return (
    <section class="playback" aria-label={label("IDS_PLAYBACK")}>
      <p class="recording-title" dir="auto">
        {title}
      </p>
      <div class="playback-line">
        <button
          type="button"
          class="icon-button"
          aria-label={label("IDS_SECONDS_BACK")}
          title={label("IDS_SECONDS_BACK")}
          onClick={() => void send("seek", "-10")}
        >
          <FastLeftIcon />
        </button>
        <button
          type="button"
          class="icon-button"
          aria-label={label(paused ? "IDS_RESUME" : "IDS_PAUSE")}
          title={label(paused ? "IDS_RESUME" : "IDS_PAUSE")}
          onClick={() => void send(paused ? "resume" : "pause")}
        >
          {paused ? <PlayIcon /> : <PauseIcon />}
        </button>
        <button
          type="button"
          class="icon-button"
          aria-label={label("IDS_SECONDS_FORWARD")}
          title={label("IDS_SECONDS_FORWARD")}
          onClick={() => void send("seek", "+30")}
        >
          <FastRightIcon />
        </button>
        <input
          type="range"
          min={0}
          max={duration}
          value={shown}
          aria-label={label("IDS_POSITION")}
          aria-valuetext={timeText(shown)}
          onInput={(event) => (dragged.value = event.currentTarget.valueAsNumber)}
          onChange={(event) => void seek(event.currentTarget.valueAsNumber)}
        />
        <span class="playback-time">{`${timeText(shown)} / ${timeText(duration)}`}</span>
        <button type="button" class="button small" onClick={() => void send("stop")}>
          <StopIcon />
          {label("IDS_STOP")}
        </button>
      </div>
      {problem.value && (
        <p class="bad" role="alert">
          {problem.value}
        </p>
      )}
    </section>
  );
}

import { useSignal } from "@preact/signals";
import { IconButton } from "../../ui/icon-button";
import { FastLeftIcon, FastRightIcon, PauseIcon, PlayIcon, StopIcon } from "../../ui/icons";
import { Problem } from "../../ui/problem";
import { SeekBar } from "../../ui/seek-bar";
import { change, type Playback } from "./recordings";
import { label } from "./words";

/** What the set plays, and the buttons of a player. */
export function PlaybackBar({ playback }: { playback: Playback }) {
  const problem = useSignal("");
  const { title, position_seconds: position, seconds: duration, paused } = playback;
  const send = (...words: string[]) => change(problem, "playback", ...words);

  return (
    <section class="framed playback" aria-label={label("IDS_PLAYBACK")}>
      <p class="recording-title" dir="auto">
        {title}
      </p>
      <div class="playback-line">
        <IconButton label={label("IDS_SECONDS_BACK")} onClick={() => void send("seek", "-10")}>
          <FastLeftIcon />
        </IconButton>
        <IconButton
          label={label(paused ? "IDS_RESUME" : "IDS_PAUSE")}
          onClick={() => void send(paused ? "resume" : "pause")}
        >
          {paused ? <PlayIcon /> : <PauseIcon />}
        </IconButton>
        <IconButton label={label("IDS_SECONDS_FORWARD")} onClick={() => void send("seek", "+30")}>
          <FastRightIcon />
        </IconButton>
        <SeekBar
          label={label("IDS_POSITION")}
          position={position}
          duration={duration}
          onSeek={(target) => send("seek", String(Math.round(target)))}
        />
        <button type="button" class="button small" onClick={() => void send("stop")}>
          <StopIcon />
          {label("IDS_STOP")}
        </button>
      </div>
      <Problem text={problem.value} />
    </section>
  );
}

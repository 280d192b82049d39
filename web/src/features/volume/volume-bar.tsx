import { useLayoutEffect, useRef } from "preact/hooks";
import { words } from "../../app/language";
import { MutedIcon, SpeakerIcon } from "../../ui/icons";
import { volume } from "./volume";
import "./volume.css";

const label = words({ IDS_MUTE: "Mute" });

// The pointer may leave the slider before the button is released.
function hold() {
  const ended = new AbortController();
  const release = () => {
    ended.abort();
    volume.release();
  };
  volume.grab();
  for (const type of ["pointerup", "pointercancel", "blur"]) {
    window.addEventListener(type, release, { signal: ended.signal });
  }
}

export function VolumeBar() {
  const level = volume.volume.value;
  const muted = volume.muted.value === true;
  const slider = useRef<HTMLInputElement>(null);

  // The filled part of the track.
  useLayoutEffect(() => {
    slider.current?.style.setProperty("--filled", `${level ?? 0}%`);
  }, [level]);

  return (
    <div class="volume" role="group" aria-label={label("IDS_VOLUME")} data-muted={muted}>
      <button
        type="button"
        class="icon-button"
        aria-label={label("IDS_MUTE")}
        title={`${label("IDS_SOUND")}: ${label(muted ? "IDS_OFF" : "IDS_ON")}`}
        aria-pressed={muted}
        disabled={level === null}
        onClick={() => volume.toggleMute()}
      >
        {muted ? <MutedIcon /> : <SpeakerIcon />}
      </button>
      <input
        ref={slider}
        type="range"
        min={0}
        max={100}
        step={1}
        aria-label={label("IDS_VOLUME")}
        value={level ?? 0}
        disabled={level === null}
        onPointerDown={hold}
        onInput={(event) => volume.slide(event.currentTarget.valueAsNumber)}
      />
      <output aria-hidden="true">{level ?? "–"}</output>
    </div>
  );
}

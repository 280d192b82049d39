import type { ComponentChildren } from "preact";
import { languages, language } from "../../app/language";
import { IconButton } from "../../ui/icon-button";
import { FastLeftIcon, FastRightIcon, NextIcon, PauseIcon, PlayIcon, PreviousIcon, StopIcon } from "../../ui/icons";
import { SeekBar } from "../../ui/seek-bar";
import { PictureButton } from "./now-playing";
import { nameOf, repeats, sendPlayer, type Player, type Repeat, type Track } from "./player";
import { label } from "./words";

const states = {
  none: "IDS_STOP",
  opening: "IDS_OPENING",
  playing: "IDS_PLAYING",
  paused: "IDS_PAUSED",
  ended: "IDS_ENDED",
  failed: "IDS_FAILED",
} as const;

const repeatNames: Readonly<Record<Repeat, Parameters<typeof label>[0]>> = {
  off: "IDS_OFF",
  one: "IDS_ONE_FILE",
  folder: "IDS_FOLDER",
};

const speeds = [0.5, 1, 1.5, 2, 4, 8];

/** What the set plays, and the buttons of a player. */
export function PlayerBar({ player }: { player: Player }) {
  const { state, path = "", title, artist, album, reason, position = 0, duration = 0, speed = 1 } = player;
  const { repeat = "off", application = false, tracks = [], chapters = [], chapter } = player;
  const runs = state === "playing" || state === "opening";
  const over = state === "ended" || state === "failed";
  const playOrPause = runs ? ["pause"] : over ? ["play", path, "0"] : ["resume"];
  const about = [artist, album].filter(Boolean).join(" · ");
  const audio = tracks.filter(({ kind }) => kind === "audio");
  const subtitles = tracks.filter(({ kind }) => kind === "subtitle");
  const listed = speeds.includes(speed) ? speeds : [...speeds, speed].sort((one, other) => one - other);
  return (
    <section class="framed player" aria-label={label("IDS_PLAYER")} data-state={state}>
      <div class="player-head">
        <p class="player-title" dir="auto">
          {title || nameOf(path)}
        </p>
        {about && (
          <p class="quiet" dir="auto">
            {about}
          </p>
        )}
        <span class={`badge ${state === "failed" ? "bad" : ""}`} role="status">
          {label(states[state])}
        </span>
        {application && <span class="badge">{label("IDS_APPLICATION_USES")}</span>}
      </div>
      {reason && <p class="bad">{reason}</p>}
      <div class="player-line">
        <IconButton label={label("IDS_PREVIOUS")} onClick={() => void sendPlayer("previous")}>
          <PreviousIcon />
        </IconButton>
        <IconButton label={label("IDS_SECONDS_BACK")} onClick={() => void sendPlayer("seek", "-10")}>
          <FastLeftIcon />
        </IconButton>
        <IconButton
          label={label(runs ? "IDS_PAUSE" : "IDS_RESUME")}
          onClick={() => void sendPlayer(...playOrPause)}
        >
          {runs ? <PauseIcon /> : <PlayIcon />}
        </IconButton>
        <IconButton label={label("IDS_SECONDS_FORWARD")} onClick={() => void sendPlayer("seek", "+30")}>
          <FastRightIcon />
        </IconButton>
        <IconButton label={label("IDS_NEXT")} onClick={() => void sendPlayer("next")}>
          <NextIcon />
        </IconButton>
        <SeekBar
          label={label("IDS_POSITION")}
          position={position}
          duration={duration}
          onSeek={(target) => sendPlayer("seek", target.toFixed(1))}
        />
        <button type="button" class="button small" onClick={() => void sendPlayer("stop")}>
          <StopIcon />
          <span class="player-word">{label("IDS_STOP")}</span>
        </button>
        <PictureButton />
      </div>
      <div class="player-choices">
        {chapters.length > 0 && (
          <Choice name={label("IDS_CHAPTER")} value={chapter ?? ""} choose={(value) => sendPlayer("chapter", value)}>
            {chapter === undefined && <option value="">–</option>}
            {chapters.map(({ number, title: text }) => (
              <option key={number} value={number}>
                {text || `${label("IDS_CHAPTER")} ${number}`}
              </option>
            ))}
          </Choice>
        )}
        {audio.length > 0 && (
          <Choice name={label("IDS_SOUND")} value={chosenOf(audio) ?? ""} choose={(value) => sendPlayer("audio", value)}>
            {chosenOf(audio) === undefined && <option value="">–</option>}
            {audio.map((track) => (
              <option key={track.number} value={track.number}>
                {trackText(track)}
              </option>
            ))}
          </Choice>
        )}
        {subtitles.length > 0 && (
          <Choice
            name={label("IDS_SUBTITLES")}
            value={chosenOf(subtitles) ?? "off"}
            choose={(value) => sendPlayer("subtitle", value)}
          >
            <option value="off">{label("IDS_OFF")}</option>
            {subtitles.map((track) => (
              <option key={track.number} value={track.number}>
                {trackText(track)}
              </option>
            ))}
          </Choice>
        )}
        <Choice name={label("IDS_SPEED")} value={speed} choose={(value) => sendPlayer("speed", value)}>
          {listed.map((each) => (
            <option key={each} value={each}>{`${each}×`}</option>
          ))}
        </Choice>
        <Choice name={label("IDS_REPEAT")} value={repeat} choose={(value) => sendPlayer("repeat", value)}>
          {repeats.map((each) => (
            <option key={each} value={each}>
              {label(repeatNames[each])}
            </option>
          ))}
        </Choice>
      </div>
    </section>
  );
}

const chosenOf = (tracks: readonly Track[]): number | undefined => tracks.find(({ chosen }) => chosen)?.number;

/** "German, Stereo" */
function trackText({ number, language: code, title, codec }: Track): string {
  const known = code && code !== "und" ? languageName(code) : "";
  return [known, title].filter(Boolean).join(", ") || [label("IDS_UNKNOWN"), number, codec].filter(Boolean).join(" ");
}

/** The name of a language in the language of the page; the code itself if the browser does not know it. */
function languageName(code: string): string {
  const tag = languages.find((each) => each.code === language.value)?.tag ?? "en";
  try {
    return new Intl.DisplayNames(tag, { type: "language" }).of(code) ?? code;
  } catch {
    return code;
  }
}

interface ChoiceProps {
  name: string;
  value: string | number;
  choose: (value: string) => Promise<boolean>;
  /** The options. */
  children: ComponentChildren;
}

const Choice = ({ name, value, choose, children }: ChoiceProps) => (
  <label class="player-choice">
    <span class="quiet">{name}</span>
    <select
      class="select"
      value={value}
      onChange={(event) => {
        const menu = event.currentTarget;
        // What the set refuses is not shown as chosen.
        void choose(menu.value).then((done) => {
          if (!done) menu.value = String(value);
        });
      }}
    >
      {children}
    </select>
  </label>
);

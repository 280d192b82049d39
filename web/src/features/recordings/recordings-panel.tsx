import { useSignal } from "@preact/signals";
import { AccessNotice } from "../../app/access-notice";
import { controllable, usePolling } from "../../app/commands";
import { access } from "../../app/session";
import { dayText, secondsOf, timeText } from "../../app/set-clock";
import { ClearIcon, RecordIcon } from "../../ui/icons";
import { Problem } from "../../ui/problem";
import { ask } from "../../ui/question";
import { PlaybackBar } from "./playback-bar";
import { RecordingRow } from "./recording-row";
import { change, playback, readMore, readRecordings, recordings, timers, total, type Timer } from "./recordings";
import { label } from "./words";
import "./recordings.css";

const pauseMs = 2000;

export function RecordingsPanel() {
  const problem = usePolling(readRecordings, () => pauseMs);
  const known = recordings.value;
  return (
    <main class="panel sheet recordings" aria-label={label("IDS_RECORDINGS")}>
      <h1>{label("IDS_RECORDINGS")}</h1>
      <AccessNotice when="look" />
      {access.value === "control" && (
        <>
          <RecordNow />
          {playback.value && <PlaybackBar playback={playback.value} />}
          <Problem text={problem.value} />
          {known && (
            <section aria-label={label("IDS_RECORDINGS")}>
              <ul class="framed recording-list">
                {known.map((each) => (
                  <RecordingRow key={each.id} recording={each} />
                ))}
              </ul>
              {known.length === 0 && <p class="empty">{label("IDS_NO_RECORDINGS")}</p>}
              {known.length < total.value && (
                <button type="button" class="button" onClick={() => void readMore().catch(() => undefined)}>
                  {label("IDS_SHOW_MORE", total.value - known.length)}
                </button>
              )}
            </section>
          )}
          {timers.value && <Timers timers={timers.value} />}
        </>
      )}
    </main>
  );
}

/** In minutes; 0 lets the set decide. */
const lengths = [0, 30, 60, 120, 240];

const lengthName = (minutes: number): string =>
  minutes === 0
    ? label("IDS_USUAL_LENGTH")
    : minutes % 60 === 0
      ? label("IDS_HOURS", minutes / 60)
      : label("IDS_MINUTES", minutes);

/** Records the channel that the set shows. */
function RecordNow() {
  const minutes = useSignal(0);
  const problem = useSignal("");

  function submit(event: Event) {
    event.preventDefault();
    void change(problem, "record", "now", ...(minutes.peek() === 0 ? [] : [String(minutes.peek())]));
  }

  return (
    <form class="record-now" aria-label={label("IDS_RECORD_NOW")} onSubmit={submit}>
      <select
        class="select"
        aria-label={label("IDS_LENGTH")}
        value={minutes.value}
        onChange={(event) => (minutes.value = Number(event.currentTarget.value))}
      >
        {lengths.map((each) => (
          <option key={each} value={each}>
            {lengthName(each)}
          </option>
        ))}
      </select>
      <button type="submit" class="button" disabled={!controllable.value}>
        <RecordIcon />
        {label("IDS_RECORD_NOW")}
      </button>
      <Problem text={problem.value} />
    </form>
  );
}

const Timers = ({ timers: planned }: { timers: readonly Timer[] }) => (
  <section class="timers" aria-label={label("IDS_TIMERS")}>
    <h2>{label("IDS_TIMERS")}</h2>
    <ul class="framed recording-list">
      {planned.map((each) => (
        <TimerRow key={each.id} timer={each} />
      ))}
    </ul>
    {planned.length === 0 && <p class="empty">{label("IDS_NO_TIMERS")}</p>}
  </section>
);

const kinds = {
  reminder: "IDS_REMINDER",
  record: "IDS_RECORDING",
  watch: "IDS_SWITCH_OVER",
  series: "IDS_SERIES",
} as const;

function timesOf({ from, to }: Timer): string {
  if (from === undefined || to === undefined) return label("IDS_EVERY_PART");
  return `${dayText(secondsOf(from))}, ${timeText(secondsOf(from))} – ${timeText(secondsOf(to))}`;
}

function TimerRow({ timer }: { timer: Timer }) {
  const problem = useSignal("");
  const { id, kind, title, channel, waits, recording, series } = timer;

  async function remove() {
    if (await ask({ text: label("IDS_DELETE_QUESTION", title), action: label("IDS_DELETE") })) {
      await change(problem, "timer", String(id), "delete");
    }
  }

  return (
    <li class="recording" data-id={id}>
      <div class="recording-text">
        <p class="recording-title" dir="auto">
          {title}
        </p>
        <p class="quiet">
          <span dir="auto">{channel}</span> · {timesOf(timer)}
          {series !== undefined && ` · ${label("IDS_OF_SERIES")}`}
        </p>
        {waits && <p class="bad">{label("IDS_CANNOT_BEGIN", waits)}</p>}
        <Problem text={problem.value} />
      </div>
      <span class={recording === undefined ? "badge" : "badge bad"}>{label(kinds[kind])}</span>
      <div class="recording-actions">
        <button
          type="button"
          class="icon-button"
          aria-label={`${label("IDS_DELETE")}: ${title}`}
          title={label("IDS_DELETE")}
          onClick={() => void remove()}
        >
          <ClearIcon />
        </button>
      </div>
    </li>
  );
}

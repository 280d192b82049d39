import { useSignal } from "@preact/signals";
import { AccessNotice } from "../../app/access-notice";
import { controllable, usePolling } from "../../app/commands";
import { access } from "../../app/session";
import { dayText, secondsOf, timeText } from "../../app/set-clock";
import { ClearIcon, RecordIcon } from "../../ui/icons";
import { Problem } from "../../ui/problem";
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
              {known.length === 0 && <p class="empty">No recordings yet.</p>}
              {known.length < total.value && (
                <button type="button" class="button" onClick={() => void readMore().catch(() => undefined)}>
                  {`Show more (${total.value - known.length})`}
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

const lengths = [
  { minutes: "", text: "Usual length" },
  { minutes: "30", text: "30 min" },
  { minutes: "60", text: "1 h" },
  { minutes: "120", text: "2 h" },
  { minutes: "240", text: "4 h" },
] as const;

/** Records the channel that the set shows. */
function RecordNow() {
  const minutes = useSignal("");
  const problem = useSignal("");

  function submit(event: Event) {
    event.preventDefault();
    void change(problem, "record", "now", ...(minutes.peek() === "" ? [] : [minutes.peek()]));
  }

  return (
    <form class="record-now" aria-label="Record now" onSubmit={submit}>
      <select
        class="select"
        aria-label="Length"
        value={minutes.value}
        onChange={(event) => (minutes.value = event.currentTarget.value)}
      >
        {lengths.map((each) => (
          <option key={each.minutes} value={each.minutes}>
            {each.text}
          </option>
        ))}
      </select>
      <button type="submit" class="button" disabled={!controllable.value}>
        <RecordIcon />
        Record now
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
    {planned.length === 0 && <p class="empty">No timers, reminders or series. The programme guide sets them.</p>}
  </section>
);

const kinds = { reminder: "Reminder", record: "Recording", watch: "Switch over", series: "Series" } as const;

function timesOf({ from, to }: Timer): string {
  if (from === undefined || to === undefined) return "every new part";
  return `${dayText(secondsOf(from))}, ${timeText(secondsOf(from))} – ${timeText(secondsOf(to))}`;
}

function TimerRow({ timer }: { timer: Timer }) {
  const problem = useSignal("");
  const { id, kind, title, channel, waits, recording, series } = timer;
  return (
    <li class="recording" data-id={id}>
      <div class="recording-text">
        <p class="recording-title" dir="auto">
          {title}
        </p>
        <p class="quiet">
          <span dir="auto">{channel}</span> · {timesOf(timer)}
          {series !== undefined && " · of a series"}
        </p>
        {waits && <p class="bad">{`Cannot begin: ${waits}`}</p>}
        <Problem text={problem.value} />
      </div>
      <span class={recording === undefined ? "badge" : "badge bad"}>{kinds[kind]}</span>
      <div class="recording-actions">
        <button
          type="button"
          class="icon-button"
          aria-label={`${label("IDS_DELETE")}: ${title}`}
          title={label("IDS_DELETE")}
          onClick={() => void change(problem, "timer", String(id), "delete")}
        >
          <ClearIcon />
        </button>
      </div>
    </li>
  );
}
